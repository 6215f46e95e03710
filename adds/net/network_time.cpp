// A server's clock as a local date, the time text of a mail or web header,
// and the unfinished NET_TIME.
#include <optional>

#include "varnek/adds/net/network_time_shares.h"
#include "varnek/platform/message_box.h"
#include "varnek/platform/network_clock.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/date_math.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

Date NetworkTimeShares::NET_GetRemoteDateTime(const Variant& ServerName) {
  Text name = Trim(CStr(ServerName));
  if (!name.empty()) {
    Text given = CStr(ServerName);
    name = (given.size() >= 2 && given[0] == u'\\' && given[1] == u'\\') ? given : u"\\\\" + given;
  }
  std::optional<TimeOfDayInfo> answer;
  bool answered = false;
  platform().network_clock->Query(name, [&answered, &answer](std::optional<TimeOfDayInfo> t) {
    answer = t;
    answered = true;
  });
  // The clock answers within its own time limit; the pass blocks in the OS.
  loop().PumpUntil([&] { return answered; }, [] { return 1.0; });
  if (!answer) return Date{0};
  const TimeOfDayInfo& t = *answer;
  double day = DateSerial(ToInt16(t.year), ToInt16(t.month), ToInt16(t.day));
  int64_t seconds = int64_t{ToInt16(t.hours)} * 3600 +
                    (int64_t{ToInt16(t.mins)} - ToInt16(t.timezone)) * 60 + ToInt16(t.secs);
  double result = DateFromLinear(LinearFromDate(day) + static_cast<double>(seconds) / 86400.0);
  CheckDateRange(result);
  return Date{result};
}

Date NetTimeTextToDate(const Text& NetTime, Date now) {
  Text date = Trim(Mid(NetTime, 6, 12));
  Text time = Trim(Mid(NetTime, 17, 9));
  double d = 0, t = 0;
  if (ParseDateText(date, d) && ParseDateText(time, t)) {
    double joined = 0;
    if (ParseDateText(date + u" " + time, joined)) return Date{joined};
  }
  return now;
}

Date NetworkTimeShares::NET_TIMEFormatDateTime(const Text& NetTime) {
  return NetTimeTextToDate(NetTime, Date{loop().Now()});
}

Date NetworkTimeShares::NET_TIME(const Variant&) {
  platform().messages->Show(u"Falta completar este c\u00f3digo");
  return Date{0};
}

}  // namespace varnek
