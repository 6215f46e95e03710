// The network tables on Linux, all read below one root folder ("/" for the
// machine; tests give a fake tree) except the interfaces, which come from an
// InterfaceSource (getifaddrs for the machine).
//
// Sources and mapping:
// - TCP table: <root>/proc/net/tcp, then the rows of <root>/proc/net/tcp6
//   whose two addresses have an IPv4 form (IPv4-mapped, or "::" read as
//   0.0.0.0). Linux states map to the classic numbers (ESTABLISHED 5, LISTEN
//   2, TIME_WAIT 11, ...). A missing tcp file reads as "no table", one that
//   cannot be read (or is malformed) as a failed query; tcp6 is optional.
// - Close: the socket with exactly the four keys and the listed state is
//   found in a sock_diag dump (IPv4, then IPv4-mapped IPv6; listeners are
//   never dumped) and destroyed by its cookie with SOCK_DESTROY, so a
//   connection that has gone is false and never falls back to the listener
//   on its port. Needs CAP_NET_ADMIN and a kernel with INET_DIAG_DESTROY;
//   otherwise false.
// - Adapters: every interface but loopback, in the source's order; the
//   addresses are its IPv4 ones. Gateways: the default routes of
//   <root>/proc/net/route with a gateway, per interface in file order.
//   DHCP: a lease for the interface in <root>/run/systemd/netif/leases/<index>
//   (SERVER_ADDRESS=), <root>/var/lib/NetworkManager/*<name>.lease
//   (SERVER_ADDRESS=) or <root>/var/lib/dhcp/dhclient*.leases (the last
//   "dhcp-server-identifier" of a lease for the interface).
// - Machine name: gethostname. Connected state: LAN when an interface other
//   than loopback and ppp is up, running and has an IPv4 address; MODEM the
//   same for a ppp interface; OFFLINE when neither; CONFIGURED when any
//   interface but loopback exists; PROXY when http_proxy or https_proxy is
//   set in the environment. MODEM_BUSY and RAS_INSTALLED are never set.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "varnek/platform/net_tables.h"

namespace varnek {

// One network interface as the tables need it.
struct InterfaceInfo {
  std::string name;
  unsigned index = 0;
  bool up = false, running = false, loopback = false;
  std::vector<std::string> ipv4;  // dotted, in the source's order
};

// Lists the interfaces; false when they cannot be listed.
using InterfaceSource = std::function<bool(std::vector<InterfaceInfo>&)>;

// The machine's interfaces from getifaddrs.
bool SystemInterfaces(std::vector<InterfaceInfo>& out);

class LinuxNetTables : public NetTables {
 public:
  explicit LinuxNetTables(std::string root = "/", InterfaceSource interfaces = SystemInterfaces)
      : root_(std::move(root)), interfaces_(std::move(interfaces)) {}

  TcpTableStatus TcpTable(std::vector<TcpRow>& rows) override;
  bool CloseTcp(const TcpRow& row) override;
  bool Adapters(std::vector<AdapterInfo>& adapters) override;
  bool MachineName(Text& name) override;
  uint32_t ConnectedState() override;

 private:
  std::string Path(const std::string& rel) const;
  std::string root_;
  InterfaceSource interfaces_;
};

}  // namespace varnek
