// The demo's "/net" page: the machine's TCP table as NET_Stat lists it, and
// the adapters, the machine's name and its connected state, as HTML tables.
#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/runtime/convert.h"

namespace varnek::demo {

namespace {

Text Row(std::initializer_list<Text> cells, const char16_t* tag = u"td") {
  Text row = u"<tr>";
  for (const Text& c : cells) row += u"<" + Text(tag) + u">" + HtmlEscape(c) + u"</" + Text(tag) + u">";
  return row + u"</tr>\r\n";
}

Text TcpTable(Adds& adds) {
  const Variant count = adds.NET_Stat();
  Text html = u"<h3>TCP connections (" + CStr(count) + u")</h3>\r\n<table id=\"tcp\" border=\"1\">\r\n" +
              Row({u"Local address", u"Local port", u"Remote address", u"Remote port", u"State"}, u"th");
  for (int32_t k = 1; adds.Net_Stat_Lista && k <= adds.Net_Stat_Lista->Count(); ++k) {
    const Variant record = adds.Net_Stat_Lista->Item(k);
    html += Row({adds.Var_GetFieldAt(record, 1, u"\t"), adds.Var_GetFieldAt(record, 2, u"\t"),
                 adds.Var_GetFieldAt(record, 3, u"\t"), adds.Var_GetFieldAt(record, 4, u"\t"),
                 adds.Var_GetFieldAt(record, 5, u"\t")});
  }
  return html + u"</table>\r\n";
}

Text Adapters(Adds& adds) {
  const Text state = adds.NET_CheckState(2) ? u"LAN" : (adds.NET_CheckState(32) ? u"offline" : u"other");
  return u"<h3>Adapters</h3>\r\n<table id=\"adapters\" border=\"1\">\r\n" +
         Row({u"Machine name", adds.NET_CurrentMachineName()}) +
         Row({u"Local addresses", adds.NET_LocalIPList(u", ")}) +
         Row({u"Gateways", adds.NET_GatewayList(u", ")}) +
         Row({u"DHCP servers", adds.NET_DHCPServerList(u", ")}) +
         Row({u"Connected state", state}) + u"</table>\r\n";
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
