// The "/system" page: battery, load and memory readings, the clock of the
// server named by --time-server (the local clock without one) and this
// process's arguments. The page reloads itself every 10 seconds.
#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/platform/system_readings.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/strings.h"

namespace varnek::demo {

namespace {

Text Row(const Text& name, const Text& value) {
  return u"<tr><td>" + HtmlEscape(name) + u"</td><td>" + HtmlEscape(value) + u"</td></tr>\r\n";
}

Text Number(const Variant& v) { return CStr(v); }

Text SourceText(int16_t source) {
  switch (source) {
    case 0: return u"0 (battery)";
    case 1: return u"1 (mains)";
    default: return u"2 (unknown)";
  }
}

Text Megabytes(uint64_t bytes) { return Number(static_cast<double>(bytes >> 20)) + u" MB"; }

Text Readings(Adds& adds) {
  adds.POWER_Update();
  Text percent = Number(adds.POWER_Percent());
  if (CLng(adds.POWER_Percent()) == 255) percent += u" (no battery tells its level)";
  Text rows = Row(u"Battery level (%)", percent) +
              Row(u"Power source", SourceText(adds.POWER_Source())) +
              Row(u"Predicted time left",
                  DateToHostText(adds.POWER_DurationPredicted().serial).substr(11)) +
              Row(u"CPU use (%)", Number(adds.Win_CPUUsage()));
  const char16_t* names[] = {u"Total physical", u"Available physical", u"Total virtual",
                             u"Available virtual"};
  for (int k = 0; k < 4; ++k) {
    rows += Row(Text(names[k]) + u" (Win_Memoria, KB)", Number(adds.Win_Memoria(k)));
  }
  MemoryStatus m = adds.platform().readings->ReadMemoryStatus();
  rows += Row(u"Physical memory, as the machine tells it",
              Megabytes(m.avail_phys) + u" free of " + Megabytes(m.total_phys));
  return rows;
}

Text Clock(Adds& adds, const std::string& server) {
  Text name = Utf8ToText(server);
  double when = adds.NET_GetRemoteDateTime(name).serial;
  Text shown = when == 0 ? u"no answer (" + DateToHostText(when) + u")" : DateToHostText(when);
  return Row(server.empty() ? u"Local clock" : u"Clock of " + name, shown);
}

Text Arguments(Adds& adds) {
  Variant separator = u"--";
  Text rows = Row(u"Command line (position 0)", CStr(adds.App_Arguments(0, separator)));
  // One piece more than the separator is found, stepping one unit past each.
  Text rest = CStr(adds.App_Arguments(0, separator));
  int32_t pieces = 1;
  for (int32_t at = InStr(rest, u"--"); at > 0 && pieces < 64; at = InStr(at + 1, rest, u"--"))
    ++pieces;
  for (int32_t i = 1; i <= pieces; ++i) {
    rows +=
        Row(u"Argument " + Number(i) + u" (cut by \"--\")", CStr(adds.App_Arguments(i, separator)));
  }
  return rows;
}

void SystemPage(PageRequest& r) {
  Adds& adds = r.host.server().adds();
  Text page = CStr(r.host.server().html_GenericStart(u"System"));
  page = Replace(page, u"<head>\r\n", u"<head>\r\n<meta http-equiv=\"refresh\" content=\"10\">\r\n",
                 1, 1);
  page += u"<h3>System readings</h3>\r\n<table border=\"1\" cellpadding=\"3\">\r\n" +
          Readings(adds) + Clock(adds, r.options.time_server) + Arguments(adds) + u"</table>\r\n" +
          CStr(r.host.server().html_GenericEnd());
  r.response = r.host.Framed(200, page);
}

const bool registered = RegisterPage({u"/system", u"System readings", SystemPage});

}  // namespace

}  // namespace varnek::demo
