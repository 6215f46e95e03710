// Outgoing connections of the socket control, simulated and on Linux
// loopback: the stored target, names resolved from the loop, bad targets,
// the connection's own address, Receive giving the waiting text, a peer that
// leaves and a port nobody serves. Names on
// Linux come from a hosts file of the test's own and a DNS server on
// loopback that never answers; nothing leaves the machine.
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "tests/runtime/test_util.h"
#include "tests/support/loopback.h"
#include "tests/support/pump.h"
#include "tests/support/type_names.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/sim/sim_socket.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

const Variant kAny = Variant::Missing();

struct SimOut {
  static constexpr const char* kName = "Sim";
  SimLoop loop{46023.5};
  SimNetwork net{loop};
  std::shared_ptr<SimPeer> peer;
  SimOut() { net.SetUnresolvable(u"nowhere.test"); }
  int Serve() {
    net.Serve(7000, [this](std::shared_ptr<SimPeer> p) { peer = p; });
    return 7000;
  }
  void StopServing() { net.StopServing(7000); }
  void PeerClose() { peer->Close(); }
  bool PeerWrite(const std::string& s) {
    if (!peer) return false;
    peer->Write(Text(s.begin(), s.end()));
    return true;
  }
  size_t read = 0;  // what PeerRead gave already
  std::string PeerRead() {
    if (!peer) return "";
    std::string all(peer->Received().begin(), peer->Received().end());
    std::string fresh = all.substr(read);
    read = all.size();
    return fresh;
  }
  Text ExpectedLocal() { return net.LocalAddressText(); }
};

// A listening socket on 127.0.0.1, a silent DNS server and a hosts file.
struct LinuxOut {
  static constexpr const char* kName = "Linux";
  LinuxLoop loop;
  LinuxSocketFactory net{loop};
  std::optional<LoopbackListener> listener;
  int peer_fd = -1, dns_fd = -1;
  HostsFile hosts{"127.0.0.1 gateway.test\n::1 six.test\n"};
  LinuxOut() {
    int dns_port = 0;
    dns_fd = BoundToLoopback(AF_INET, SOCK_DGRAM, dns_port);
    net.SetResolverConfig({"127.0.0.1:" + std::to_string(dns_port), "fb", 300, 1});
  }
  ~LinuxOut() {
    for (int fd : {peer_fd, dns_fd})
      if (fd >= 0) ::close(fd);
  }
  int Serve() { return listener.emplace().port; }
  void StopServing() { listener.reset(); }
  void PeerClose() {
    if (Accept()) ::close(std::exchange(peer_fd, -1));
  }
  bool Accept() {
    if (peer_fd < 0) peer_fd = listener->Accept(SOCK_NONBLOCK);
    return peer_fd >= 0;
  }
  bool PeerWrite(const std::string& s) {
    return Accept() && ::send(peer_fd, s.data(), s.size(), MSG_NOSIGNAL) == (ssize_t)s.size();
  }
  std::string PeerRead() {
    std::string got;
    char buf[4096];
    for (ssize_t n; Accept() && (n = ::recv(peer_fd, buf, sizeof buf, 0)) > 0;) got.append(buf, n);
    return got;
  }
  Text ExpectedLocal() { return u"127.0.0.1"; }
};

template <class Env>
class OutgoingSocket : public testing::Test {
 protected:
  Env env;
  std::unique_ptr<SocketCtl> s = env.net.Create();
  std::vector<int32_t> done;
  void SetUp() override {
    s->on_done = [this](int32_t op) { done.push_back(op); };
  }
};
using Envs = testing::Types<SimOut, LinuxOut>;
TYPED_TEST_SUITE(OutgoingSocket, Envs, TypeNames);

TYPED_TEST(OutgoingSocket, StoredTargetConnectsAndReceiveGivesTheWaitingText) {
  auto& s = *this->s;
  const int port = this->env.Serve();
  s.SetRemoteNameAddrXlate(false);
  s.SetRemoteAddress(u"127.0.0.1");
  s.SetRemotePort(port);
  EXPECT_EQ(s.RemotePort(), port);
  EXPECT_EQ(s.RemoteAddress(), u"127.0.0.1");
  s.SetLocalAddress(u"0.0.0.0");
  s.Connect(kAny, kAny);
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return s.State() == kSocketConnected; }));
  EXPECT_EQ(s.LocalAddress(), this->env.ExpectedLocal());
  EXPECT_EQ(s.RemotePort(), port);
  s.Send(u"ping");
  std::string got;
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return (got += this->env.PeerRead()) == "ping"; }))
      << got;
  ASSERT_TRUE(this->env.PeerWrite("pong\r\n"));
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return s.ReceiveReadyCount() == 6; }));
  EXPECT_EQ(s.ReceiveText(), u"pong\r\n");
  EXPECT_EQ(s.ReceiveText(), u"");  // nothing waits any more
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return this->done.size() >= 5; }));
  EXPECT_EQ(this->done,
            (std::vector<int32_t>{kOpConnect, kOpSend, kOpReceive, kOpReceive, kOpClose}));
}

TYPED_TEST(OutgoingSocket, NamesResolveFromTheLoopAndUnknownNamesFail) {
  auto& s = *this->s;
  const int port = this->env.Serve();
  s.SetRemoteNameAddrXlate(true);
  s.SetRemoteName(u"gateway.test");
  s.SetRemoteAddress(u"");
  s.SetRemotePort(port);
  s.Connect(kAny, kAny);
  EXPECT_EQ(s.State(), kSocketConnecting);  // the answer comes later, from the loop
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return s.State() == kSocketConnected; }));
  EXPECT_EQ(s.RemoteAddress(), u"127.0.0.1");
  s.Close();

  s.Connect(Variant(u"nowhere.test"), Variant(port));
  EXPECT_EQ(s.State(), kSocketConnecting);
  ASSERT_TRUE(PumpUntil(this->env.loop, [&] { return s.State() == kSocketClosed; }));
  EXPECT_EQ(s.ErrorText(), u"Host not found");
  this->done.clear();
  Settle(this->env.loop);
  EXPECT_TRUE(this->done.empty()) << "a failed lookup reports no Done";
}

TYPED_TEST(OutgoingSocket, APeerThatAnswersAndLeavesLeavesItClosingAndAPortNobodyServesRefuses) {
  auto [s, env] = std::tie(*this->s, this->env);
  const int port = env.Serve();
  s.Connect(Variant(u"127.0.0.1"), Variant(port));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketConnected; }));
  EXPECT_EQ(this->done, std::vector<int32_t>{kOpConnect});
  ASSERT_TRUE(env.PeerWrite("HTTP/1.0 200 OK\r\n\r\nok"));
  env.PeerClose();
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketClosing; }));
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"HTTP/1.0 200 OK\r\n\r\nok");
  env.StopServing();
  auto refused = env.net.Create();
  refused->Connect(Variant(u"127.0.0.1"), Variant(port));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return refused->State() == kSocketClosed; }));
  EXPECT_EQ(refused->ErrorText(), u"Connection refused");
}

TYPED_TEST(OutgoingSocket, BadTargetsFailAtOnce) {
  auto& s = *this->s;
  int k = 0;  // the last is an unset target: an empty host
  for (auto [host, port] : {std::pair<Variant, Variant>{Variant(u"127.0.0.1"), Variant(0)},
                            {Variant(u"127.0.0.1"), Variant(70000)},
                            {Variant(u"127.0.0.1"), Variant(-1)},
                            {Variant(u""), Variant(80)},
                            {kAny, kAny}}) {
    SCOPED_TRACE(testing::Message() << "target " << k++);
    EXPECT_EQ(FailureOf([&] { s.Connect(host, port); }), kSockErrAddressInvalid);
    EXPECT_EQ(s.State(), kSocketClosed);
  }
}

TEST(LinuxOutgoingSocket, ALookupThatHangsLeavesTheLoopRunningAndCloseDropsIt) {
  LinuxOut env;
  auto s = env.net.Create();
  auto timer = env.loop.CreateTimer();
  int ticks = 0;
  timer->SetInterval(20);
  timer->on_tick = [&] { ++ticks; };
  timer->SetEnabled(true);
  s->Connect(Variant(u"silent.test"), Variant(80));  // not in the hosts file: asks the mute server
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return ticks >= 5; }));
  EXPECT_EQ(s->State(), kSocketConnecting);
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s->State() == kSocketClosed; }));
  EXPECT_EQ(s->ErrorText(), u"Host not found");

  s->Connect(Variant(u"silent.test"), Variant(80));
  s->Close();  // the lookup's late answer must not revive the control
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return env.net.resolver().Pending() == 0; }));
  Settle(env.loop);
  EXPECT_EQ(s->State(), kSocketClosed);
  EXPECT_EQ(s->ErrorText(), u"");
}

TEST(LinuxOutgoingSocket, AnIPv6NameConnectsToAnIPv6Listener) {
  LinuxOut env;
  LoopbackListener six(AF_INET6);
  if (six.fd < 0) GTEST_SKIP() << "no IPv6 loopback";
  auto s = env.net.Create();
  s->Connect(Variant(u"six.test"), Variant(six.port));
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return s->State() == kSocketConnected; }));
  EXPECT_EQ(s->RemoteAddress(), u"::1");
  EXPECT_EQ(s->LocalAddress(), u"::1");
}

}  // namespace
}  // namespace varnek
