// NET_Stat and Net_Stat_CloseConnection: records, filters and the classic
// port arithmetic over a fake /proc tree; missing and unreadable tables; and
// the machine's own table checked against `ss -tan` on loopback connections
// made here, with a close through the kernel's socket destroy.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <utility>

#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "tests/net/linux_net_fixture.h"
#include "tests/net/net_fixture.h"

namespace varnek {
namespace {

// Reaches the table's private helpers.
struct TableAdds : Adds {
  explicit TableAdds(Platform& p) : Adds(p) {}
  using Network::tcpAddressText;
  using Network::tcpPortNumber;
  using Network::tcpStateName;
};

const char* kHeading =
    "  sl  local_address rem_address   st tx_queue rx_queue tr tm->when retrnsmt   uid  timeout inode\n";

struct FakeTable : ::testing::Test {
  TempFolder folder{"proc"};
  std::string root = folder.path;
  LinuxNetTables tables{root};
  SimPlatform sim;
  TableAdds adds{sim.platform};
  FakeTable() {
    sim.platform.net_tables = tables;
    std::filesystem::create_directories(root + "/proc/net");
    std::ofstream(root + "/proc/net/tcp")
        << kHeading
        << "   0: 0100007F:1F90 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 1\n"
        << "   1: 00000000:0050 00000000:0000 0A 00000000:00000000 00:00000000 00000000     0        0 2\n"
        << "   2: 0201A8C0:D431 0A01A8C0:0050 01 00000000:00000000 00:00000000 00000000     0        0 3\n"
        << "   3: 0201A8C0:80FF 0A01A8C0:81FF 06 00000000:00000000 00:00000000 00000000     0        0 4\n"
        << "   4: C800000A:0016 0A01A8C0:D432 08 00000000:00000000 00:00000000 00000000     0        0 5\n";
    std::ofstream(root + "/proc/net/tcp6")
        << kHeading
        << "   0: 0000000000000000FFFF00000100007F:1F91 0000000000000000FFFF00000100007F:C350 01 0 0 0 0 0 6\n"
        << "   1: 00000000000000000000000001000000:1F92 00000000000000000000000000000000:0000 0A 0 0 0 0 0 7\n"
        << "   2: 00000000000000000000000000000000:0051 00000000000000000000000000000000:0000 0A 0 0 0 0 0 8\n";
  }
  std::vector<std::string> Records() {
    std::vector<std::string> out;
    for (int32_t k = 1; adds.Net_Stat_Lista && k <= adds.Net_Stat_Lista->Count(); ++k) {
      out.push_back(Bytes(adds.Net_Stat_Lista->Item(k).ToText()));
    }
    return out;
  }
};

TEST_F(FakeTable, RecordsFiltersAndThePortArithmetic) {
  EXPECT_EQ(adds.NET_Stat().ToLong(), 7);
  const auto all = Records();
  ASSERT_EQ(all.size(), 7u);
  EXPECT_EQ(all[0], "127.0.0.1\t8080\t0.0.0.0\t0\tLISTEN\t16777343\t36895\t0\t0\t2\t");
  EXPECT_EQ(all[2],
            "192.168.1.2\t54322\t192.168.1.10\t80\tESTAB\t33663168\t12756\t167880896\t20480\t5\t");
  EXPECT_EQ(
      all[3],
      "192.168.1.2\t33024\t192.168.1.10\t33280\tTIME_WAIT\t33663168\t65408\t167880896\t65409\t11\t")
      << "ports 33023 and 33279 shown one too high, the raw words exact";
  EXPECT_EQ(all[4].substr(0, 43), "10.0.0.200\t22\t192.168.1.10\t54323\tCLOSE_WAIT")
      << "from 32768 up the classic arithmetic shows one more";
  EXPECT_NE(all[4].find("\t-939524086\t"), std::string::npos) << "words as signed decimals";
  EXPECT_EQ(all[5].substr(0, 37), "127.0.0.1\t8081\t127.0.0.1\t50001\tESTAB\t")
      << "IPv4-mapped tcp6";
  EXPECT_EQ(all[6].substr(0, 28), "0.0.0.0\t81\t0.0.0.0\t0\tLISTEN\t") << "'::' reads as 0.0.0.0";

  EXPECT_EQ(adds.NET_Stat(true).ToLong(), 3) << "loopback and 0.0.0.0 rows by local address";
  EXPECT_EQ(adds.NET_Stat(false, 2).ToLong(), 3) << "LISTEN rows, remote 0.0.0.0 kept";
  EXPECT_EQ(adds.NET_Stat(false, 0, Variant(33024)).ToLong(), 1) << "filters meet the shown port";
  EXPECT_EQ(adds.NET_Stat(false, 0, Variant(33023)).ToLong(), 0);
  EXPECT_EQ(adds.NET_Stat(false, 5, Variant(0), Variant(u"80")).ToLong(), 1);

  EXPECT_EQ(TableAdds::tcpPortNumber(20480), 80);
  EXPECT_EQ(TableAdds::tcpPortNumber(65408), 33024);
  EXPECT_EQ(TableAdds::tcpPortNumber(65409), 33280);
  EXPECT_EQ(TableAdds::tcpAddressText(0x0A01A8C0), u"192.168.1.10");
  EXPECT_EQ(TableAdds::tcpStateName(12), u"DELETE_TCB");
  EXPECT_EQ(TableAdds::tcpStateName(0), u"");
  EXPECT_EQ(TableAdds::tcpStateName(13), u"");
}

TEST_F(FakeTable, MissingOrUnreadableTablesAndBadIndexes) {
  adds.NET_Stat();
  for (const Variant& index : {Variant(0), Variant(-1), Variant(u"0"), Variant(u"x"), Variant(8)}) {
    EXPECT_FALSE(adds.Net_Stat_CloseConnection(index)) << Bytes(index.ToText());
  }
  EXPECT_FALSE(adds.Net_Stat_CloseConnection(Variant(3))) << "a row the kernel does not have";
  EXPECT_EQ(adds.Net_Stat_Lista->Count(), 7) << "the record stays";
  std::filesystem::remove(root + "/proc/net/tcp");
  std::filesystem::create_directory(root + "/proc/net/tcp");  // there, but cannot be read
  EXPECT_EQ(adds.NET_Stat().ToLong(), 0);
  EXPECT_EQ(adds.Net_Stat_Lista->Count(), 0);
  std::filesystem::remove(root + "/proc/net/tcp");
  EXPECT_EQ(adds.NET_Stat().ToLong(), -1) << "no table on this machine";
  std::ofstream(root + "/proc/net/tcp") << kHeading << "   0: garbage\n";
  EXPECT_EQ(adds.NET_Stat().ToLong(), 0) << "a malformed table is a failed query";
}

// ---- The machine's own table ---------------------------------------------------

// `count` connections to a listener of the test's own, both ends held here.
struct LoopbackConnections {
  LoopbackListener listener;
  int port = listener.port;
  std::vector<std::unique_ptr<LoopbackClient>> clients;
  std::vector<int> served;
  explicit LoopbackConnections(int count) {
    for (int i = 0; i < count; ++i) {
      clients.push_back(std::make_unique<LoopbackClient>(port));
      if (clients.back()->connected) served.push_back(listener.Accept());
    }
  }
  ~LoopbackConnections() {
    for (int fd : served) ::close(fd);
  }
};

int CountLines(const std::string& text) {
  int lines = 0;
  for (char c : text) lines += c == '\n';
  return lines;
}

TEST(MachineTcpTable, MatchesSsAndClosesThroughTheKernel) {
  LinuxNetPlatform env;
  TableAdds adds{env.platform};
  LoopbackConnections conns(3);
  ASSERT_EQ(conns.served.size(), 3u);
  const int32_t shown = TableAdds::tcpPortNumber(htons(static_cast<uint16_t>(conns.port)));
  const std::string ss_filter =
      "ss -Htan state established '( sport = :" + std::to_string(conns.port) + " )'";
  const std::string ss = RunCommand(ss_filter);
  EXPECT_EQ(CountLines(ss), 3) << ss;
  EXPECT_EQ(adds.NET_Stat(false, 5, Variant(shown)).ToLong(), 3);
  for (int32_t k = 1; k <= adds.Net_Stat_Lista->Count(); ++k) {
    const std::string record = Bytes(adds.Net_Stat_Lista->Item(k).ToText());
    const std::string remote_port = Bytes(adds.Var_GetFieldAt(Variant(Units(record)), 4, u"\t"));
    // ss names the peer by its true port; the record shows the classic one.
    const Text raw = adds.Var_GetFieldAt(Variant(Units(record)), 9, u"\t");
    const int true_port = ntohs(static_cast<uint16_t>(Variant(raw).ToLong()));
    EXPECT_NE(ss.find("127.0.0.1:" + std::to_string(true_port)), std::string::npos)
        << record << "\n"
        << ss;
    EXPECT_EQ(record.substr(0, 10), "127.0.0.1\t");
    EXPECT_EQ(remote_port,
              std::to_string(TableAdds::tcpPortNumber(htons(static_cast<uint16_t>(true_port)))));
  }
  EXPECT_EQ(adds.NET_Stat(false, 2, Variant(shown)).ToLong(), 1) << "the listener";
  EXPECT_EQ(adds.NET_Stat(true, 0, Variant(shown)).ToLong(), 0) << "all of it is loopback";

  adds.NET_Stat(false, 5, Variant(shown));
  const bool closed = adds.Net_Stat_CloseConnection(Variant(1));
  const int left = CountLines(RunCommand(ss_filter));
  EXPECT_EQ(left, closed ? 2 : 3) << "true exactly when the kernel destroyed it";
  if (geteuid() != 0) {
    EXPECT_FALSE(closed) << "only with CAP_NET_ADMIN";
  }
  std::cout << "[ info ] socket destroy " << (closed ? "permitted" : "not permitted") << " here\n";

  // Records whose connections have gone since: false, and the listener on
  // their port is left alone.
  adds.NET_Stat(false, 5, Variant(shown));
  for (auto& client : conns.clients) client->Close();
  for (int& fd : conns.served) ::close(std::exchange(fd, -1));
  for (int32_t k = 1; k <= adds.Net_Stat_Lista->Count(); ++k) {
    EXPECT_FALSE(adds.Net_Stat_CloseConnection(Variant(k))) << k;
  }
  EXPECT_EQ(adds.NET_Stat(false, 2, Variant(shown)).ToLong(), 1) << "the listener is still there";
  EXPECT_TRUE(LoopbackClient(conns.port).connected) << "and still accepts";
}

}  // namespace
}  // namespace varnek
