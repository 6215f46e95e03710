// The adapters: NET_IPNumberIsValid's table of cases, the three lists and the
// connected state over fake interfaces, a fake routing table and lease files,
// and the machine's own lists against `ip -4 addr` and `ip route`.
#include <unistd.h>

#include <filesystem>
#include <sstream>

#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "tests/net/linux_net_fixture.h"
#include "tests/net/net_fixture.h"
#include "tests/runtime/test_folder.h"

namespace varnek {
namespace {

TEST_F(SimNetFixture, IPNumberIsValidKeepsItsQuirks) {
  // clang-format off
  struct Case { const char* text; bool valid; };
  const Case cases[] = {
      {"255.255.255.255", true}, {"256.1.1.1", false}, {"1000.1.1.1", false},
      {"1.2.3.4", false},  // 7 units: too short, on purpose
      {"1.2.3.44", true}, {"10.0.0.1.", false}, {"01.02.03", false},  // two dots
      {"100..1.1", true}, {".100.1.1", true}, {"001.2.3.4", true}, {"1.2.3.4x", false},
      {"1.2.3.4.5", false}, {"a.b.c.d.e", false}, {"", false},
  };
  // clang-format on
  for (const Case& c : cases) {
    Variant v = Variant(Units(c.text));
    EXPECT_EQ(adds.NET_IPNumberIsValid(v), c.valid) << c.text;
  }
  Variant padded = u"  10.0.0.1  ";
  EXPECT_TRUE(adds.NET_IPNumberIsValid(padded));
  EXPECT_EQ(padded.ToText(), u"10.0.0.1") << "trimmed in place";
  Variant null = Variant::Null();
  EXPECT_FALSE(adds.NET_IPNumberIsValid(null)) << "a failure is false, never raised";
}

struct FakeAdapters : ::testing::Test {
  TestFolder folder;
  std::string root = folder.path();
  std::vector<InterfaceInfo> interfaces = {
      {"lo", 1, true, true, true, {"127.0.0.1"}},
      {"eth0", 2, true, true, false, {"192.168.1.2", "192.168.1.3"}},
      {"wlan0", 3, true, false, false, {}},
      {"ppp0", 4, true, true, false, {"10.64.0.1"}},
  };
  bool list_fails = false;
  LinuxNetTables tables{root, [this](std::vector<InterfaceInfo>& out) {
                          out = interfaces;
                          return !list_fails;
                        }};
  SimPlatform sim;
  Adds adds{sim.platform};
  FakeAdapters() {
    sim.platform.net_tables = tables;
    WriteBytes(
        root + "/proc/net/route",
        "Iface\tDestination\tGateway \tFlags\tRefCnt\tUse\tMetric\tMask\t\tMTU\tWindow\tIRTT\n"
        "eth0\t00000000\t0101A8C0\t0003\t0\t0\t0\t00000000\t0\t0\t0\n"
        "eth0\t0001A8C0\t00000000\t0001\t0\t0\t0\t00FFFFFF\t0\t0\t0\n"
        "eth0\t00000000\tFE01A8C0\t0003\t0\t0\t100\t00000000\t0\t0\t0\n"
        "eth0\t0000000A\t0101A8C0\t0003\t0\t0\t0\t000000FF\t0\t0\t0\n"
        "wlan0\t00000000\t00000000\t0001\t0\t0\t0\t00000000\t0\t0\t0\n");
    WriteBytes(root + "/var/lib/dhcp/dhclient.eth0.leases",
               "lease {\n  interface \"eth0\";\n  option dhcp-server-identifier 192.168.1.9;\n}\n"
               "lease {\n  interface \"eth0\";\n  option dhcp-server-identifier 192.168.1.1;\n}\n");
    WriteBytes(root + "/run/systemd/netif/leases/3", "ADDRESS=10.0.0.7\nSERVER_ADDRESS=10.0.0.1\n");
  }
};

TEST_F(FakeAdapters, ListsTheirDelimitersAndEmptyMachines) {
  EXPECT_EQ(adds.NET_LocalIPList(u","), u"192.168.1.2,,10.64.0.1")
      << "first address only, an empty one too";
  EXPECT_EQ(adds.NET_GatewayList(u";"), u"eth0:192.168.1.1;eth0:192.168.1.254")
      << "two gateways, one description";
  EXPECT_EQ(adds.NET_GatewayList(u"; "), u"eth0:192.168.1.1; eth0:192.168.1.254;")
      << "one unit cut, kept";
  EXPECT_EQ(adds.NET_GatewayList(u""), u"eth0:192.168.1.1eth0:192.168.1.25")
      << "an empty delimiter eats data";
  EXPECT_EQ(adds.NET_DHCPServerList(u","), u"eth0:192.168.1.1,wlan0:10.0.0.1")
      << "the last lease wins";
  std::filesystem::remove(root + "/proc/net/route");
  std::filesystem::remove_all(root + "/var/lib/dhcp");
  EXPECT_EQ(adds.NET_GatewayList(u","), u"") << "no routing table: no gateways";
  EXPECT_EQ(adds.NET_DHCPServerList(u","), u"wlan0:10.0.0.1");
  interfaces.resize(1);  // loopback alone
  EXPECT_EQ(adds.NET_LocalIPList(u","), u"");
  EXPECT_EQ(adds.NET_DHCPServerList(u","), u"");
  list_fails = true;
  EXPECT_EQ(adds.NET_LocalIPList(u","), u"");
}

TEST_F(FakeAdapters, ConnectedStateBits) {
  // clang-format off
  const std::pair<int32_t, bool> with_lan[] = {{1, true}, {2, true}, {4, false}, {8, false},
                                               {16, false}, {32, false}, {64, true}, {3, false},
                                               {0, false}, {-1, false}, {128, false}};
  // clang-format on
  unsetenv("http_proxy");
  unsetenv("https_proxy");
  for (auto [state, expected] : with_lan) EXPECT_EQ(adds.NET_CheckState(state), expected) << state;
  interfaces = {{"lo", 1, true, true, true, {"127.0.0.1"}}, {"wlan0", 3, true, false, false, {}}};
  EXPECT_TRUE(adds.NET_CheckState(32)) << "offline";
  EXPECT_FALSE(adds.NET_CheckState(2));
  EXPECT_TRUE(adds.NET_CheckState(64));
  setenv("http_proxy", "http://127.0.0.1:3128", 1);
  EXPECT_TRUE(adds.NET_CheckState(4));
  unsetenv("http_proxy");
}

TEST(MachineAdapters, MatchIpAddrAndIpRoute) {
  LinuxNetPlatform env;
  Adds adds{env.platform};
  // ip's first IPv4 address of each interface but lo, in its order.
  std::istringstream addr(RunCommand("ip -4 -o addr show"));
  std::vector<std::string> firsts, seen;
  for (std::string line; std::getline(addr, line);) {
    std::istringstream f(line);
    std::string index, name, family, cidr;
    f >> index >> name >> family >> cidr;
    if (name == "lo" || std::find(seen.begin(), seen.end(), name) != seen.end()) continue;
    seen.push_back(name);
    firsts.push_back(cidr.substr(0, cidr.find('/')));
  }
  std::string ours = Bytes(adds.NET_LocalIPList(u","));
  std::vector<std::string> listed;
  std::istringstream items(ours);
  for (std::string item; std::getline(items, item, ',');) {
    if (!item.empty()) listed.push_back(item);
  }
  EXPECT_EQ(listed, firsts) << ours;
  // ip's default routes with a gateway, as "dev:via".
  std::istringstream route(RunCommand("ip -4 route show default"));
  std::string expected;
  for (std::string line; std::getline(route, line);) {
    std::istringstream f(line);
    std::string word, via, dev;
    while (f >> word) {
      if (word == "via") f >> via;
      if (word == "dev") f >> dev;
    }
    if (!via.empty()) expected += dev + ":" + via + ",";
  }
  if (!expected.empty()) expected.pop_back();
  EXPECT_EQ(Bytes(adds.NET_GatewayList(u",")), expected);
  const std::string host = RunCommand("hostname");
  const std::string name = host.substr(0, host.find('\n'));
  EXPECT_EQ(Bytes(adds.NET_CurrentMachineName()), name.size() <= 15 ? name : "");
  EXPECT_NE(adds.NET_CheckState(2), adds.NET_CheckState(32)) << "LAN or offline, not both";
}

}  // namespace
}  // namespace varnek
