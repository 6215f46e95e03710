// The demo's "/net" page: the machine's TCP table as NET_Stat lists it, and
// the adapters, the machine's name and its connected state, as HTML tables.
#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek::demo {

namespace {

Text Row(std::initializer_list<Text> cells, const char16_t* tag = u"td") {
  Text row = u"<tr>";
  for (const Text& c : cells)
    row += u"<" + Text(tag) + u">" + HtmlEscape(c) + u"</" + Text(tag) + u">";
  return row + u"</tr>\r\n";
}

Text TcpTable(Adds& adds) {
  const Variant count = adds.NET_Stat();
  Text html =
      u"<h3>TCP connections (" + CStr(count) + u")</h3>\r\n<table id=\"tcp\" border=\"1\">\r\n" +
      Row({u"Local address", u"Local port", u"Remote address", u"Remote port", u"State"}, u"th");
  for (int32_t k = 1; adds.Net_Stat_Lista && k <= adds.Net_Stat_Lista->Count(); ++k) {
    const Variant record = adds.Net_Stat_Lista->Item(k);
    html += Row({adds.Var_GetFieldAt(record, 1, u"\t"), adds.Var_GetFieldAt(record, 2, u"\t"),
                 adds.Var_GetFieldAt(record, 3, u"\t"), adds.Var_GetFieldAt(record, 4, u"\t"),
                 adds.Var_GetFieldAt(record, 5, u"\t")});
  }
  return html + u"</table>\r\n";
}

// The items of a list delimited by ", ", blank ones left out, one a line.
// The list ends with what is left of its last delimiter (", , 192.0.2.2,"),
// so the items are parted at the comma and trimmed.
Text CleanList(const Text& list) {
  Text clean;
  for (const Text& item : Split(list, u",")) {
    const Text trimmed = Trim(item);
    if (!trimmed.empty()) clean += (clean.empty() ? u"" : u"<br>") + HtmlEscape(trimmed);
  }
  return clean.empty() ? Text(u"(none)") : clean;
}

// A list as a person reads it, then the routine's delimited text as it came
// (an item for each adapter, blank where one has none).
Text ListRow(const Text& name, const Text& list) {
  return u"<tr><td>" + HtmlEscape(name) + u"</td><td>" + CleanList(list) + u"</td><td><code>" +
         HtmlEscape(u"\"" + list + u"\"") + u"</code></td></tr>\r\n";
}

Text Adapters(Adds& adds) {
  const Text state =
      adds.NET_CheckState(2) ? u"LAN" : (adds.NET_CheckState(32) ? u"offline" : u"other");
  return u"<h3>Adapters</h3>\r\n<table id=\"adapters\" border=\"1\">\r\n" +
         Row({u"", u"", u"As the routine gives it"}, u"th") +
         Row({u"Machine name", adds.NET_CurrentMachineName(), u""}) +
         ListRow(u"Local addresses", adds.NET_LocalIPList(u", ")) +
         ListRow(u"Gateways", adds.NET_GatewayList(u", ")) +
         ListRow(u"DHCP servers", adds.NET_DHCPServerList(u", ")) +
         Row({u"Connected state", state, u""}) + u"</table>\r\n";
}

void Serve(PageRequest& r) {
  HTTPServer& server = r.host.server();
  Adds& adds = server.adds();
  r.response = r.host.Framed(200, CStr(server.html_GenericStart(u"Network")) + TcpTable(adds) +
                                      Adapters(adds) + CStr(server.html_GenericEnd()));
}

const bool registered = RegisterPage({u"/net", u"TCP connections and adapters", Serve});

}  // namespace

}  // namespace varnek::demo
