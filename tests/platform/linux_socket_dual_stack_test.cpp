// The Linux socket control's listener with no address: one dual-stack socket
// that takes IPv4 and IPv6 peers on one port, reports each peer's address in
// its own family, and still holds its port against a second listener; and
// its offers of accepted descriptors, which a reused number must not confuse.
// Loopback only; every wait is bounded.
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/runtime/test_util.h"
#include "tests/support/loopback.h"
#include "tests/support/pump.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

// A listener on an ephemeral port that hands each connection to a new control.
struct Listener {
  Listener(LinuxSocketFactory& f, const Variant& address) : factory(f) {
    socket = f.Create();
    socket->on_connection_request = [this](int32_t h) {
      accepted.push_back(factory.Create());
      accepted.back()->SetAcceptHandle(h);
    };
    socket->Create(address, 0);
    socket->Bind(address, 0);
    socket->Listen();
    port = socket->LocalPort();
  }
  LinuxSocketFactory& factory;
  std::unique_ptr<SocketCtl> socket;
  std::vector<std::unique_ptr<SocketCtl>> accepted;
  int port = 0;
};

TEST(LinuxSocketDualStack, NoAddressTakesIPv4AndIPv6PeersOnOnePort) {
  const bool v6 = HasIPv6Loopback();
  // Missing and "" are both "no address".
  for (const Variant& address : {Variant::Missing(), Variant(Text(u""))}) {
    SCOPED_TRACE(address.IsMissing() ? "missing address" : "empty address");
    LinuxLoop loop;
    LinuxSocketFactory f(loop);
    Listener l(f, address);
    ASSERT_EQ(l.socket->State(), kSocketListening);
    ASSERT_GT(l.port, 0);

    // an IPv4 peer reads as plain dotted IPv4, not IPv4-mapped IPv6
    LoopbackClient c4(l.port);
    ASSERT_TRUE(c4.connected);
    ASSERT_TRUE(PumpUntil(loop, [&] { return l.accepted.size() == 1; }));
    EXPECT_EQ(l.accepted[0]->State(), kSocketConnected);
    EXPECT_EQ(l.accepted[0]->RemoteAddress(), u"127.0.0.1");
    EXPECT_EQ(l.accepted[0]->RemotePort(), c4.local_port);

    // an IPv6 peer on the same port, while the IPv4 one stays connected
    if (!v6) continue;
    LoopbackClient c6(l.port, "::1");
    ASSERT_TRUE(c6.connected);
    ASSERT_TRUE(PumpUntil(loop, [&] { return l.accepted.size() == 2; }));
    EXPECT_EQ(l.accepted[1]->RemoteAddress(), u"::1");
    EXPECT_EQ(l.accepted[1]->RemotePort(), c6.local_port);
    EXPECT_EQ(l.accepted[0]->State(), kSocketConnected);
    EXPECT_EQ(l.socket->State(), kSocketListening);
  }
  if (!v6) GTEST_SKIP() << "no IPv6 loopback here; only the IPv4 peer was tried";
}

TEST(LinuxSocketDualStack, PortHeldByAnotherListenerFailsAsInUse) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Listener first(f, Variant::Missing());

  // a second listener with no address on the same port
  auto second = f.Create();
  second->Create(Variant::Missing(), first.port);
  EXPECT_EQ(FailureOf([&] { second->Bind(Variant::Missing(), first.port); }), kSockErrAddressInUse);
  EXPECT_EQ(second->ErrorText(), u"Address in use");
  EXPECT_FALSE(second->Listening());

  // an IPv4-only listener on that port is refused too: the port is taken for
  // both families, not only for IPv6
  auto v4 = f.Create();
  EXPECT_EQ(FailureOf([&] { v4->Bind(Variant(Text(u"0.0.0.0")), first.port); }),
            kSockErrAddressInUse);

  // the other way round: a plain IPv4 listener holds a port, and a listener
  // with no address must not slip past it on IPv6
  Listener ipv4(f, Variant(Text(u"127.0.0.1")));
  auto late = f.Create();
  EXPECT_EQ(FailureOf([&] { late->Bind(Variant::Missing(), ipv4.port); }), kSockErrAddressInUse);

  // the first listener is unharmed and still accepts
  LoopbackClient c(first.port);
  ASSERT_TRUE(c.connected);
  EXPECT_TRUE(PumpUntil(loop, [&] { return first.accepted.size() == 1; }));
}

// The first offer's handler takes its descriptor and waits; meanwhile its
// peer leaves (the descriptor is closed) and a second peer is accepted on the
// same number. The end of the first handler must leave the second offer open.
TEST(LinuxSocketOffers, DescriptorNumberReusedWhileAHandlerWaitsIsAnotherOffer) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Listener l(f, Variant(Text(u"127.0.0.1")));
  auto& listener = l.socket;
  auto first = f.Create(), second = f.Create();
  const int port = l.port;
  auto client1 = std::make_unique<LoopbackClient>(port);
  std::unique_ptr<LoopbackClient> client2;
  std::vector<int32_t> handles;
  bool first_returned = false;
  int second_failure = -1;
  listener->on_connection_request = [&](int32_t handle) {
    handles.push_back(handle);
    if (handles.size() == 1) {
      first->SetAcceptHandle(handle);
      client1.reset();  // leaves without a byte: the control frees the descriptor
      PumpUntil(loop, [&] { return first->State() == kSocketClosed; });
      client2 = std::make_unique<LoopbackClient>(port);
      PumpUntil(loop, [&] { return handles.size() == 2; });
      first_returned = true;
    } else {
      PumpUntil(loop, [&] { return first_returned; });
      second_failure = FailureOf([&] { second->SetAcceptHandle(handle); });
    }
  };
  ASSERT_TRUE(PumpUntil(loop, [&] { return second_failure >= 0; }));
  ASSERT_EQ(handles.size(), 2u);
  EXPECT_EQ(handles[0], handles[1]) << "the kernel gave another number; nothing was reused";
  EXPECT_EQ(second_failure, 0);
  EXPECT_EQ(second->State(), kSocketConnected);
  ASSERT_TRUE(client2->Send("x"));
  EXPECT_TRUE(PumpUntil(loop, [&] { return second->ReceiveReadyCount() == 1; }));
}

}  // namespace
}  // namespace varnek
