// The adapter lists, the IPv4 number test, the machine's name and the
// connected state.
#include <vector>

#include "varnek/adds/net/network.h"
#include "varnek/platform/net_tables.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {
enum AdapterListKind { kLocalIPs, kGateways, kDhcpServers };
}  // namespace

Text Network::AdapterList(int which, const Text& sDelim) {
  Text list;
  std::vector<AdapterInfo> adapters;
  if (!platform().net_tables->Adapters(adapters)) return list;
  for (const AdapterInfo& a : adapters) {
    if (which == kLocalIPs) {
      // The first address only, an empty one too.
      list += (a.addresses.empty() ? Text() : a.addresses.front()) + sDelim;
      continue;
    }
    if (which == kDhcpServers && !a.dhcp_enabled) continue;
    for (const Text& address : which == kGateways ? a.gateways : a.dhcp_servers) {
      if (!address.empty()) list += a.description + u":" + address + sDelim;
    }
  }
  // One unit off the end, whatever the delimiter's length. Kept.
  if (!list.empty()) list.pop_back();
  return list;
}

Text Network::NET_GatewayList(const Text& sDelim) { return AdapterList(kGateways, sDelim); }
Text Network::NET_DHCPServerList(const Text& sDelim) { return AdapterList(kDhcpServers, sDelim); }
Text Network::NET_LocalIPList(const Text& sDelim) { return AdapterList(kLocalIPs, sDelim); }

bool Network::NET_IPNumberIsValid(Variant& IPNumber) {
  bool valid = false;
  Guarded([&] {
    const Text text = Trim(CStr(IPNumber));
    IPNumber = Variant(text);
    if (Len(text) < 8) return;
    Text octet;
    int dots = 0;
    for (size_t i = 0; i < text.size(); ++i) {
      if (text[i] == u'.') {
        ++dots;
        octet.clear();
        if (i + 1 == text.size()) return;
        continue;
      }
      octet += text[i];
      // The piece so far must read as a byte (0..255), in the runtime's
      // own lenient form; a failure ends the test with false.
      CByte(Variant(octet));
    }
    valid = dots == 3;
  });
  return valid;
}

Text Network::NET_CurrentMachineName() {
  // A buffer of 16 units: a name that needs more (with its NUL) fails.
  Text name;
  if (!platform().net_tables->MachineName(name) || name.size() > 15) return Text();
  return name;
}

bool Network::NET_CheckState(int32_t pState) {
  const uint32_t flags = platform().net_tables->ConnectedState();
  switch (pState) {
    case 1:
    case 2:
    case 4:
    case 8:
    case 16:
    case 32:
    case 64: return (flags & static_cast<uint32_t>(pState)) != 0;
    default: return false;
  }
}

}  // namespace varnek
