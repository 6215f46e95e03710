// The TCP table from /proc, the close through sock_diag, and the adapters
// from the interfaces, the routing table and the DHCP leases.
#include "varnek/platform/linux/internal/linux_net_tables.h"

#include <arpa/inet.h>
#include <dirent.h>
#include <ifaddrs.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/sock_diag.h>
#include <net/if.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"

namespace varnek {

namespace {

// Linux TCP states (include/net/tcp_states.h) to the classic numbers.
uint32_t ClassicState(unsigned linux_state) {
  switch (linux_state) {
    case 1: return 5;   // ESTABLISHED
    case 2: return 3;   // SYN_SENT
    case 3: return 4;   // SYN_RECV
    case 4: return 6;   // FIN_WAIT1
    case 5: return 7;   // FIN_WAIT2
    case 6: return 11;  // TIME_WAIT
    case 7: return 1;   // CLOSE
    case 8: return 8;   // CLOSE_WAIT
    case 9: return 10;  // LAST_ACK
    case 10: return 2;  // LISTEN
    case 11: return 9;  // CLOSING
    case 12: return 4;  // NEW_SYN_RECV
    default: return 0;
  }
}

bool Hex32(const std::string& text, uint32_t& out) {
  if (text.size() != 8) return false;
  char* end = nullptr;
  out = static_cast<uint32_t>(std::strtoul(text.c_str(), &end, 16));
  return *end == '\0';
}

// "ADDR:PORT" of /proc/net/tcp: the address word as the kernel stores it
// (printed as a native number), the port in host order.
bool ParseEndpoint4(const std::string& text, uint32_t& addr, uint32_t& port_word) {
  const size_t colon = text.find(':');
  if (colon != 8) return false;
  if (!Hex32(text.substr(0, 8), addr)) return false;
  char* end = nullptr;
  const unsigned long port = std::strtoul(text.c_str() + 9, &end, 16);
  if (*end != '\0' || port > 0xFFFF) return false;
  port_word = htons(static_cast<uint16_t>(port));
  return true;
}

// The same for tcp6: four words; true only when the address has an IPv4
// form (IPv4-mapped, or all zero).
bool ParseEndpoint6(const std::string& text, uint32_t& addr, uint32_t& port_word, bool& v4) {
  const size_t colon = text.find(':');
  if (colon != 32) return false;
  uint32_t w[4];
  for (int i = 0; i < 4; ++i) {
    if (!Hex32(text.substr(static_cast<size_t>(i) * 8, 8), w[i])) return false;
  }
  char* end = nullptr;
  const unsigned long port = std::strtoul(text.c_str() + 33, &end, 16);
  if (*end != '\0' || port > 0xFFFF) return false;
  port_word = htons(static_cast<uint16_t>(port));
  const bool zero = w[0] == 0 && w[1] == 0 && w[2] == 0 && w[3] == 0;
  const bool mapped = w[0] == 0 && w[1] == 0 && w[2] == htonl(0x0000FFFF);
  v4 = zero || mapped;
  addr = w[3];
  return true;
}

// Reads the rows of one table file into `rows`. False on a malformed line.
bool ParseTable(const std::string& content, bool six, std::vector<TcpRow>& rows) {
  std::istringstream in(content);
  std::string line;
  std::getline(in, line);  // the heading
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string slot, local, remote, state_hex;
    if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
    if (!(fields >> slot >> local >> remote >> state_hex)) return false;
    TcpRow row;
    bool v4_local = true, v4_remote = true;
    const bool ok = six ? ParseEndpoint6(local, row.local_addr, row.local_port, v4_local) &&
                              ParseEndpoint6(remote, row.remote_addr, row.remote_port, v4_remote)
                        : ParseEndpoint4(local, row.local_addr, row.local_port) &&
                              ParseEndpoint4(remote, row.remote_addr, row.remote_port);
    if (!ok) return false;
    if (!v4_local || !v4_remote) continue;
    row.state = ClassicState(static_cast<unsigned>(std::strtoul(state_hex.c_str(), nullptr, 16)));
    rows.push_back(row);
  }
  return true;
}

std::string Dotted(uint32_t network_order) {
  in_addr a{};
  a.s_addr = network_order;
  char buf[INET_ADDRSTRLEN] = {};
  inet_ntop(AF_INET, &a, buf, sizeof buf);
  return buf;
}

// The sock_diag address of an IPv4 address word: as it is, or IPv4-mapped.
void DiagAddress(int family, uint32_t address, __be32 (&out)[4]) {
  out[0] = out[1] = out[2] = out[3] = 0;
  if (family == AF_INET) {
    out[0] = address;
  } else {
    out[2] = htonl(0x0000FFFF);
    out[3] = address;
  }
}

// A netlink socket that talks to sock_diag; -1 when none can be made.
int DiagSocket() { return ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC, NETLINK_SOCK_DIAG); }

bool SendDiag(int fd, uint16_t type, uint16_t flags, const inet_diag_req_v2& request) {
  struct {
    nlmsghdr header;
    inet_diag_req_v2 request;
  } message{};
  message.header.nlmsg_len = sizeof message;
  message.header.nlmsg_type = type;
  message.header.nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
  message.header.nlmsg_seq = 1;
  message.request = request;
  sockaddr_nl kernel{};
  kernel.nl_family = AF_NETLINK;
  return ::sendto(fd, &message, sizeof message, 0, reinterpret_cast<sockaddr*>(&kernel),
                  sizeof kernel) == static_cast<ssize_t>(sizeof message);
}

// Finds, in a dump of one family's TCP sockets other than listeners, the one
// with exactly the row's four keys in its listed state; its id (with the
// kernel's cookie) goes to *found.
bool FindConnection(int family, const TcpRow& row, inet_diag_sockid* found) {
  const int fd = DiagSocket();
  if (fd < 0) return false;
  inet_diag_req_v2 request{};
  request.sdiag_family = static_cast<uint8_t>(family);
  request.sdiag_protocol = IPPROTO_TCP;
  request.idiag_states = ~0u & ~(1u << 10);  // every state but LISTEN
  __be32 local[4], remote[4];
  DiagAddress(family, row.local_addr, local);
  DiagAddress(family, row.remote_addr, remote);
  bool match = false, done = !SendDiag(fd, SOCK_DIAG_BY_FAMILY, NLM_F_DUMP, request);
  static thread_local char reply[32768];
  // Bounded: a dump ends with NLMSG_DONE; a table of a million sockets fits.
  for (int reads = 0; !done && reads < 100000; ++reads) {
    const ssize_t n = linux_io::RetryOnEintr([&] { return ::recv(fd, reply, sizeof reply, 0); });
    if (n <= 0) break;
    int left = static_cast<int>(n);
    for (auto* h = reinterpret_cast<nlmsghdr*>(reply); NLMSG_OK(h, left); h = NLMSG_NEXT(h, left)) {
      if (h->nlmsg_type == NLMSG_DONE || h->nlmsg_type == NLMSG_ERROR) {
        done = true;
        break;
      }
      const auto* msg = static_cast<const inet_diag_msg*>(NLMSG_DATA(h));
      const inet_diag_sockid& id = msg->id;
      if (match || ClassicState(msg->idiag_state) != row.listed_state || row.listed_state == 2 ||
          id.idiag_sport != static_cast<uint16_t>(row.local_port & 0xFFFF) ||
          id.idiag_dport != static_cast<uint16_t>(row.remote_port & 0xFFFF) ||
          std::memcmp(id.idiag_src, local, sizeof local) != 0 ||
          std::memcmp(id.idiag_dst, remote, sizeof remote) != 0) {
        continue;
      }
      *found = id;
      match = true;
    }
  }
  ::close(fd);
  return match;
}

// SOCK_DESTROY of the socket `id` names, cookie included, so the kernel
// destroys that socket or none; true when it acknowledged.
bool DestroySocket(int family, const inet_diag_sockid& id) {
  const int fd = DiagSocket();
  if (fd < 0) return false;
  inet_diag_req_v2 request{};
  request.sdiag_family = static_cast<uint8_t>(family);
  request.sdiag_protocol = IPPROTO_TCP;
  request.idiag_states = ~0u & ~(1u << 10);
  request.id = id;
  bool destroyed = false;
  if (SendDiag(fd, SOCK_DESTROY, NLM_F_ACK, request)) {
    char reply[512];
    const ssize_t n = linux_io::RetryOnEintr([&] { return ::recv(fd, reply, sizeof reply, 0); });
    auto* h = reinterpret_cast<nlmsghdr*>(reply);
    if (n >= static_cast<ssize_t>(sizeof(nlmsghdr) + sizeof(nlmsgerr)) && NLMSG_OK(h, n) &&
        h->nlmsg_type == NLMSG_ERROR) {
      destroyed = static_cast<nlmsgerr*>(NLMSG_DATA(h))->error == 0;
    }
  }
  ::close(fd);
  return destroyed;
}

// Reads a "KEY=VALUE" line's value from a lease file of that form.
std::string KeyValue(const std::string& content, const std::string& key) {
  std::istringstream in(content);
  std::string line;
  while (std::getline(in, line)) {
    if (line.rfind(key + "=", 0) == 0) return line.substr(key.size() + 1);
  }
  return "";
}

// The server of the last lease for `name` in a dhclient leases file.
std::string DhclientServer(const std::string& content, const std::string& name) {
  std::string server, lease_iface, lease_server;
  std::istringstream in(content);
  std::string line;
  while (std::getline(in, line)) {
    const size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos) continue;
    line = line.substr(start);
    if (line.rfind("lease", 0) == 0) {
      lease_iface.clear();
      lease_server.clear();
    } else if (line.rfind("interface ", 0) == 0) {
      lease_iface = line.substr(10);
      lease_iface.erase(std::remove_if(lease_iface.begin(), lease_iface.end(),
                                       [](char c) { return c == '"' || c == ';'; }),
                        lease_iface.end());
    } else if (line.rfind("option dhcp-server-identifier ", 0) == 0) {
      lease_server = line.substr(30);
      if (!lease_server.empty() && lease_server.back() == ';') lease_server.pop_back();
    } else if (line[0] == '}') {
      if (lease_iface == name && !lease_server.empty()) server = lease_server;
    }
  }
  return server;
}

std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* d = opendir(folder.c_str())) {
    while (dirent* e = readdir(d)) {
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool EndsWith(const std::string& s, const std::string& tail) {
  return s.size() >= tail.size() && s.compare(s.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

bool SystemInterfaces(std::vector<InterfaceInfo>& out) {
  ifaddrs* list = nullptr;
  if (getifaddrs(&list) != 0) return false;
  for (ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_name) continue;
    auto it = std::find_if(out.begin(), out.end(),
                           [&](const InterfaceInfo& x) { return x.name == i->ifa_name; });
    if (it == out.end()) {
      InterfaceInfo info;
      info.name = i->ifa_name;
      info.index = if_nametoindex(i->ifa_name);
      out.push_back(info);
      it = out.end() - 1;
    }
    it->up = i->ifa_flags & IFF_UP;
    it->running = i->ifa_flags & IFF_RUNNING;
    it->loopback = i->ifa_flags & IFF_LOOPBACK;
    if (i->ifa_addr && i->ifa_addr->sa_family == AF_INET) {
      it->ipv4.push_back(Dotted(reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr.s_addr));
    }
  }
  freeifaddrs(list);
  return true;
}

std::string LinuxNetTables::Path(const std::string& rel) const {
  std::string r = root_;
  if (!r.empty() && r.back() == '/') r.pop_back();
  return r + rel;
}

TcpTableStatus LinuxNetTables::TcpTable(std::vector<TcpRow>& rows) {
  rows.clear();
  const std::string tcp = Path("/proc/net/tcp");
  if (access(tcp.c_str(), F_OK) != 0) return TcpTableStatus::kUnsupported;
  std::string content;
  if (!linux_io::ReadFile(tcp, content) || !ParseTable(content, false, rows)) {
    rows.clear();
    return TcpTableStatus::kFailed;
  }
  std::string six;
  if (linux_io::ReadFile(Path("/proc/net/tcp6"), six)) {
    std::vector<TcpRow> more;
    if (ParseTable(six, true, more)) rows.insert(rows.end(), more.begin(), more.end());
  }
  return TcpTableStatus::kOk;
}

bool LinuxNetTables::CloseTcp(const TcpRow& row) {
  for (int family : {AF_INET, AF_INET6}) {
    inet_diag_sockid id{};
    if (FindConnection(family, row, &id)) return DestroySocket(family, id);
  }
  return false;
}

bool LinuxNetTables::Adapters(std::vector<AdapterInfo>& adapters) {
  adapters.clear();
  std::vector<InterfaceInfo> interfaces;
  if (!interfaces_ || !interfaces_(interfaces)) return false;
  std::string route;
  linux_io::ReadFile(Path("/proc/net/route"), route);  // none: no gateways
  std::string nm_folder = Path("/var/lib/NetworkManager"), dhcp_folder = Path("/var/lib/dhcp");
  std::vector<std::string> nm_files = FilesIn(nm_folder), dhcp_files = FilesIn(dhcp_folder);
  for (const InterfaceInfo& i : interfaces) {
    if (i.loopback) continue;
    AdapterInfo a;
    a.description = Utf8ToText(i.name);
    for (const auto& ip : i.ipv4) a.addresses.push_back(Utf8ToText(ip));
    // Default routes through a gateway on this interface.
    std::istringstream in(route);
    std::string line;
    std::getline(in, line);
    while (std::getline(in, line)) {
      std::istringstream f(line);
      std::string iface, dest, gateway, flags_hex;
      if (!(f >> iface >> dest >> gateway >> flags_hex) || iface != i.name) continue;
      uint32_t gw = 0, flags = static_cast<uint32_t>(std::strtoul(flags_hex.c_str(), nullptr, 16));
      if (dest == "00000000" && Hex32(gateway, gw) && gw != 0 && (flags & 0x3) == 0x3) {
        a.gateways.push_back(Utf8ToText(Dotted(gw)));
      }
    }
    // A DHCP lease, from whichever client left one.
    std::string server, content;
    if (i.index > 0 &&
        linux_io::ReadFile(Path("/run/systemd/netif/leases/" + std::to_string(i.index)), content)) {
      server = KeyValue(content, "SERVER_ADDRESS");
    }
    for (const auto& name : nm_files) {
      if (server.empty() && EndsWith(name, "-" + i.name + ".lease") &&
          linux_io::ReadFile(nm_folder + "/" + name, content)) {
        server = KeyValue(content, "SERVER_ADDRESS");
      }
    }
    for (const auto& name : dhcp_files) {
      if (server.empty() && name.rfind("dhclient", 0) == 0 && EndsWith(name, ".leases") &&
          linux_io::ReadFile(dhcp_folder + "/" + name, content)) {
        server = DhclientServer(content, i.name);
      }
    }
    if (!server.empty()) {
      a.dhcp_enabled = true;
      a.dhcp_servers.push_back(Utf8ToText(server));
    }
    adapters.push_back(std::move(a));
  }
  return true;
}

bool LinuxNetTables::MachineName(Text& name) {
  char buf[256] = {};
  if (gethostname(buf, sizeof buf - 1) != 0) return false;
  name = Utf8ToText(buf);
  return true;
}

uint32_t LinuxNetTables::ConnectedState() {
  uint32_t flags = 0;
  std::vector<InterfaceInfo> interfaces;
  if (interfaces_) interfaces_(interfaces);
  for (const InterfaceInfo& i : interfaces) {
    if (i.loopback) continue;
    flags |= kConnConfigured;
    if (!i.up || !i.running || i.ipv4.empty()) continue;
    flags |= i.name.rfind("ppp", 0) == 0 ? kConnModem : kConnLan;
  }
  if (!(flags & (kConnModem | kConnLan))) flags |= kConnOffline;
  const char* proxy = std::getenv("http_proxy");
  const char* secure_proxy = std::getenv("https_proxy");
  if ((proxy && *proxy) || (secure_proxy && *secure_proxy)) flags |= kConnProxy;
  return flags;
}

}  // namespace varnek
