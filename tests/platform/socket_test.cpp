// The socket control, simulated and on Linux loopback: one contract run on both
// (listener states, accept, the once-per-arrival ready event, sends, closes),
// then what only one of them has. Every wait is bounded.
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <tuple>
#include <type_traits>
#include <vector>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/sim/sim_socket.h"
#include "tests/runtime/test_util.h"
#include "tests/support/loopback.h"
#include "tests/support/pump.h"
#include "tests/support/sanitizers.h"
#include "tests/support/type_names.h"

namespace varnek {
namespace {

const Variant kAny = Variant::Missing();
constexpr double kStart = 46023.5;

// One implementation's loop, sockets and client peers (bytes as cp1252 units).
struct SimEnv {
  static constexpr const char* kName = "Sim";
  SimLoop loop{kStart};
  SimNetwork net{loop};
  static constexpr int32_t kPort = 8080;
  struct Peer {
    std::shared_ptr<SimPeer> p;
    void Write(const std::string& s) {
      auto* b = reinterpret_cast<const unsigned char*>(s.data());
      p->Write(Text(b, b + s.size()));
    }
    void Close() { p->Close(); }
    void ShutdownWrite() { p->ShutdownWrite(); }
    // The peer writes `s` while the control's loop runs.
    bool WriteAll(HostLoop&, const std::string& s) { return Write(s), true; }
    std::string Read() { return std::string(p->Received().begin(), p->Received().end()); }
    bool Ended() { return p->ClosedByServer() || p->Refused(); }
  };
  std::unique_ptr<Peer> Connect(int32_t port) {
    return std::make_unique<Peer>(Peer{net.Connect(port)});
  }
};
struct LinuxEnv {
  static constexpr const char* kName = "Linux";
  LinuxLoop loop;
  LinuxSocketFactory net{loop};
  static constexpr int32_t kPort = 0;
  struct Peer : LoopbackClient {
    using LoopbackClient::LoopbackClient;
    std::string got;
    void Write(const std::string& s) { ASSERT_TRUE(Send(s)); }
    // Writes without blocking the thread that pumps the loop; false when the
    // server ended the connection first or 30 s passed.
    bool WriteAll(HostLoop& loop, const std::string& s) {
      const auto start = std::chrono::steady_clock::now();
      for (size_t sent = 0; sent < s.size();) {
        if (std::chrono::steady_clock::now() - start > std::chrono::seconds(30)) return false;
        const ssize_t n = ::send(fd, s.data() + sent, s.size() - sent, MSG_NOSIGNAL | MSG_DONTWAIT);
        if (n > 0)
          sent += static_cast<size_t>(n);
        else if (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR)
          return false;
        else
          loop.Pump(0.005);
      }
      return true;
    }
    std::string Read() {
      for (std::string s; !(s = ReadSome()).empty();) got += s;
      return got;
    }
    bool Ended() { return Read(), eof; }
  };
  std::unique_ptr<Peer> Connect(int32_t port) { return std::make_unique<Peer>(port); }
};

// A listener that gives each connection to the first closed slot.
template <class Net>
struct Server {
  Server(Net& net, int slot_count, int32_t port = 0, Variant address = kAny) {
    listener = net.Create();
    listener->on_connection_request = [this](int32_t h) {
      handles.push_back(h);
      offered_from.push_back(listener->OfferedAddress(h));
      for (auto& s : slots)
        if (take && s->State() == kSocketClosed) return s->SetAcceptHandle(h);
    };
    listener->Create(address, port);
    listener->Bind(address, port);
    listener->Listen();
    this->port = listener->LocalPort();
    for (int i = 0; i < slot_count; ++i) {
      slots.push_back(net.Create());
      slots.back()->on_receive_ready = [this] { ++ready; };
      slots.back()->on_done = [this](int32_t op) { done.push_back(op); };
    }
  }
  std::unique_ptr<SocketCtl> listener;
  std::vector<std::unique_ptr<SocketCtl>> slots;
  std::vector<int32_t> handles, done;
  std::vector<Text> offered_from;  // OfferedAddress of each handle while offered
  int ready = 0, port = 0;
  bool take = true;
};

template <class Env>
class SocketContract : public testing::Test {
 protected:
  Env env;
  Server<decltype(Env::net)> srv{env.net, 1, Env::kPort};
  SocketCtl& s = *srv.slots[0];
  // A peer whose connection the slot has taken.
  std::unique_ptr<typename Env::Peer> Accepted() {
    auto peer = env.Connect(srv.port);
    EXPECT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketConnected; }));
    return peer;
  }
};
using Envs = testing::Types<SimEnv, LinuxEnv>;
TYPED_TEST_SUITE(SocketContract, Envs, TypeNames);

TYPED_TEST(SocketContract, ListenerStatesPortInUseAndRebindAfterServerClose) {
  auto& srv = this->srv;
  EXPECT_EQ(this->s.State(), kSocketClosed);
  EXPECT_EQ(srv.listener->State(), kSocketListening);
  EXPECT_EQ(srv.listener->StateText(), u"Listening");
  auto b = this->env.net.Create();
  b->Create(kAny, srv.port);
  EXPECT_EQ(b->State(), kSocketCreated);
  EXPECT_EQ(FailureOf([&] { b->Bind(kAny, srv.port); }), kSockErrAddressInUse);
  EXPECT_EQ(FailureOf([&] { srv.listener->Create(kAny, srv.port); }), kSockErrWrongState);

  // The server closes a connection first (TIME_WAIT on Linux); the port rebinds at once.
  auto peer = this->Accepted();
  this->s.Close();
  EXPECT_TRUE(PumpUntil(this->env.loop, [&] { return peer->Ended(); }));
  peer->Close();
  Settle(this->env.loop);
  srv.listener->Close();
  EXPECT_FALSE(srv.listener->Listening());
  auto c = this->env.net.Create();
  c->Create(kAny, srv.port);
  c->Bind(kAny, srv.port);
  c->Listen();
  EXPECT_EQ(c->State(), kSocketListening);
  c.reset();  // destroyed without Close: frees the port too
  auto d = this->env.net.Create();
  d->Create(kAny, srv.port);
  d->Bind(kAny, srv.port);
  EXPECT_EQ(d->LocalPort(), srv.port);
}

TYPED_TEST(SocketContract, AcceptAndReceiveReadyOncePerArrivalUntilReceive) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  auto peer = this->Accepted();
  EXPECT_EQ(srv.handles.size(), 1u);
  EXPECT_EQ(srv.offered_from, std::vector<Text>{u"127.0.0.1"});
  EXPECT_EQ(srv.listener->OfferedAddress(srv.handles[0]), u"") << "taken: no longer offered";
  EXPECT_EQ(s.RemoteAddress(), u"127.0.0.1");
  peer->Write("GET / ");
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return srv.ready == 1; }));
  EXPECT_EQ(s.ReceiveReadyCount(), 6);
  peer->Write("caf\xE9");
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 10; }));
  Settle(env.loop);
  EXPECT_EQ(srv.ready, 1);  // not raised again before Receive
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().Type(), VarType::String);
  EXPECT_EQ(s.ReceivedData().ToText(), Text(u"GET / caf\u00e9"));
  EXPECT_EQ(s.ReceiveReadyCount(), 0);
  EXPECT_TRUE(srv.done.empty());  // Done is posted, not run inside Receive
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return !srv.done.empty(); }));
  EXPECT_EQ(srv.done, std::vector<int32_t>{kOpReceive});
  peer->Write("more");  // re-armed
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return srv.ready == 2; }));
  EXPECT_EQ(FailureOf([&] { env.net.Create()->Receive(kReceiveText); }), kSockErrWrongState);

  // A handle not taken is dropped at once and can no longer be taken.
  srv.take = false;
  auto dropped = env.Connect(srv.port);
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return srv.handles.size() == 2 && dropped->Ended(); }));
  EXPECT_EQ(FailureOf([&] { env.net.Create()->SetAcceptHandle(srv.handles[1]); }),
            kSockErrInvalidHandle);
}

TYPED_TEST(SocketContract, ADoneOfTheOldConnectionNeverReachesTheNextOne) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  auto first = this->Accepted();
  // Close (its Done on the way) and take the next connection in one handler.
  srv.listener->on_connection_request = [&](int32_t h) {
    s.Close();
    s.SetAcceptHandle(h);
  };
  auto second = env.Connect(srv.port);
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return first->Ended(); }));
  Settle(env.loop);
  EXPECT_EQ(s.State(), kSocketConnected);
  EXPECT_TRUE(srv.done.empty());
}

TYPED_TEST(SocketContract, SendReportsDoneAndCloseFromBothSides) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  auto peer = this->Accepted();
  s.Send(Variant(Text(u"HTTP/1.0 200 OK\r\n")));  // cp1252 bytes, in order, Done(8) each
  s.Send(Variant(Text(u"caf\u00e9")));
  EXPECT_TRUE(PumpUntil(env.loop, [&] {
    return peer->Read() == "HTTP/1.0 200 OK\r\ncaf\xE9" && srv.done.size() == 2;
  }));
  EXPECT_EQ(srv.done, (std::vector<int32_t>{kOpSend, kOpSend}));
  s.Close();  // State 1 at once, one Done(3) however often Close is called
  EXPECT_EQ(s.State(), kSocketClosed);
  s.Close();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return peer->Ended() && srv.done.size() == 3; }));
  Settle(env.loop);
  EXPECT_EQ(srv.done, (std::vector<int32_t>{kOpSend, kOpSend, kOpClose}));
  EXPECT_EQ(FailureOf([&] { s.Send(Variant(Text(u"x"))); }), kSockErrWrongState);

  auto silent = this->Accepted();  // a silent peer leaves: the slot is free, no event
  silent->Close();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketClosed; }));
  auto last = this->Accepted();  // writes then leaves: still connected and readable
  last->Write("PING");
  last->Close();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 4; }));
  Settle(env.loop);
  EXPECT_EQ(s.StateText(), u"Connected");
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"PING");
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
  Settle(env.loop);
  EXPECT_EQ(srv.ready, 1);  // a peer's leaving raises no ready event
}

TYPED_TEST(SocketContract, PeerThatStopsSendingStillGetsItsAnswer) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  // Request, then a half-close (`nc -N`): Connected throughout, the answer goes out.
  auto peer = this->Accepted();
  peer->Write("GET / HTTP/1.0\r\n\r\n");
  peer->ShutdownWrite();
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 18; }));
  Settle(env.loop);
  EXPECT_EQ(s.State(), kSocketConnected);
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"GET / HTTP/1.0\r\n\r\n");
  Settle(env.loop);
  EXPECT_EQ(s.State(), kSocketConnected);
  s.Send(Variant(Text(u"HTTP/1.0 200 OK\r\n\r\nanswer")));
  EXPECT_TRUE(PumpUntil(env.loop, [&] {
    return peer->Read() == "HTTP/1.0 200 OK\r\n\r\nanswer" && srv.done.size() == 2;
  }));
  EXPECT_EQ(srv.done, (std::vector<int32_t>{kOpReceive, kOpSend}));
  EXPECT_EQ(s.State(), kSocketConnected);
  s.Close();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return peer->Ended(); }));

  // A held-open channel: answered, then the peer writes and closes its side.
  // Connected until what it wrote is received, then Closing.
  auto chat = this->Accepted();
  chat->Write("open");
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 4; }));
  s.Receive(kReceiveText);
  s.Send(Variant(Text(u"opened")));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return chat->Read() == "opened"; }));
  chat->Write("last");
  chat->ShutdownWrite();
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 4; }));
  Settle(env.loop);
  EXPECT_EQ(s.State(), kSocketConnected);
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"last");
  EXPECT_EQ(s.State(), kSocketClosing);
  s.Close();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return chat->Ended() && s.State() == kSocketClosed; }));

  // A peer that half-closes without a byte is simply gone.
  auto silent = this->Accepted();
  silent->ShutdownWrite();
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketClosed; }));

  // A peer that wrote and closed for good: still Connected, until an answer
  // meets its reset; then State 1 with the reason.
  auto gone = this->Accepted();
  gone->Write("x");
  gone->Close();
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 1; }));
  Settle(env.loop);
  EXPECT_EQ(s.State(), kSocketConnected);
  for (int k = 0; k < 20 && s.State() == kSocketConnected; ++k) {
    s.Send(Variant(Text(u"late")));
    Settle(env.loop);
  }
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_FALSE(s.ErrorText().empty());
}

TYPED_TEST(SocketContract, WaitingBytesGrowUpToTheMaximumThenTheConnectionFails) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  s.SetReceiveBufferSize(16384);  // as the server sets it: the kernel queue is small
  auto peer = this->Accepted();
  // 100 KB, more than the kernel queue holds: the count reaches all of it,
  // one ready event, and one Receive takes it whole.
  std::string body(100 * 1024, 'b');
  for (size_t k = 0; k < body.size(); k += 997) body[k] = static_cast<char>('a' + k % 26);
  ASSERT_TRUE(peer->WriteAll(env.loop, body));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == 100 * 1024; }));
  EXPECT_EQ(srv.ready, 1);
  s.Receive(kReceiveText);
  EXPECT_EQ(TextToBytes(s.ReceivedData().ToText()), body);
  EXPECT_EQ(s.ReceiveReadyCount(), 0);

  // Exactly the maximum waits; one byte more fails the connection, no Done.
  ASSERT_TRUE(peer->WriteAll(env.loop, std::string(kMaxWaitingBytes, 'm')));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return s.ReceiveReadyCount() == kMaxWaitingBytes; }));
  EXPECT_EQ(s.State(), kSocketConnected);
  peer->WriteAll(env.loop, "!");  // the server may have ended it by the time this returns
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return s.State() == kSocketClosed; }));
  EXPECT_EQ(s.ErrorText(), u"Message too long");
  EXPECT_EQ(s.ReceiveReadyCount(), 0);
  EXPECT_TRUE(PumpUntil(env.loop, [&] { return peer->Ended(); }));
  Settle(env.loop);
  EXPECT_EQ(srv.done, std::vector<int32_t>{kOpReceive});  // nothing for the failure
}

TYPED_TEST(SocketContract, PendingConnectionsAreOfferedOneAfterAnotherWithoutNesting) {
  auto [env, srv, s] = std::tie(this->env, this->srv, this->s);
  srv.take = false;
  std::vector<int> depths;
  srv.listener->on_connection_request = [&](int32_t h) {
    srv.handles.push_back(h);
    depths.push_back(env.loop.PumpDepth());
  };
  std::vector<std::unique_ptr<typename TypeParam::Peer>> crowd;
  for (int k = 0; k < 300; ++k) crowd.push_back(env.Connect(srv.port));
  ASSERT_TRUE(PumpUntil(env.loop, [&] { return srv.handles.size() == 300; }));
  // None inside another: on a strand of its own an offer starts at depth 0;
  // on one stack it runs at the loop's own level, 1.
  EXPECT_LE(*std::max_element(depths.begin(), depths.end()), 1);
  // Not taken: each is closed, so every peer sees its end.
  EXPECT_TRUE(PumpUntil(env.loop, [&] {
    return std::all_of(crowd.begin(), crowd.end(), [](auto& p) { return p->Ended(); });
  }));
}

TYPED_TEST(SocketContract, HandlerFiredFromACopyMayDestroyItsOwnControl) {
  auto& srv = this->srv;
  int fired = 0;
  std::string big(256, 'x');  // a capture that dies with the handler
  srv.slots[0]->on_receive_ready = [&srv, &fired, big] {
    srv.slots[0].reset();
    fired += static_cast<int>(big.size());
  };
  auto peer = this->env.Connect(srv.port);
  peer->Write("x");
  EXPECT_TRUE(PumpUntil(this->env.loop, [&] { return fired != 0 && peer->Ended(); }));
  EXPECT_EQ(fired, 256);
}

TEST(SimSockets, VirtualTimingOfOffersSendsAndEarlyBytes) {
  SimEnv env;
  SimLoop& loop = env.loop;
  SimNetwork& net = env.net;
  Server srv(net, 1, 80);
  SocketCtl& s = *srv.slots[0];
  auto p1 = net.Connect(80, 1.0);  // offered at the virtual time of the connect
  loop.RunFor(0.5);
  EXPECT_TRUE(srv.handles.empty());
  loop.RunFor(1.0);
  ASSERT_EQ(srv.handles, std::vector<int32_t>{p1->Handle()});
  EXPECT_TRUE(p1->Accepted());
  s.Send(Variant(Text(u"hi ")));  // arrives later, with its Done
  EXPECT_EQ(p1->Received(), u"");
  loop.RunFor(0.05);
  EXPECT_EQ(p1->Received(), u"hi ");
  s.Send(Variant(Text(u"bye")));  // in flight at Close: arrives, without its Done
  s.Close();
  loop.RunFor(0.1);
  EXPECT_EQ(p1->Received(), u"hi bye");
  EXPECT_EQ(srv.done, (std::vector<int32_t>{kOpSend, kOpClose}));
  auto p3 = net.Connect(81);  // nobody listening
  srv.listener->Close();
  auto p4 = net.Connect(80);  // a closed listener offers nothing
  loop.RunFor(0.1);
  EXPECT_TRUE(p3->Refused());
  EXPECT_TRUE(p4->Refused());
  EXPECT_EQ(srv.handles.size(), 1u);

  // Bytes that came before the handle was taken raise the event after it.
  Server late(net, 1, 90);
  auto early = net.Connect(90, 3.0);
  early->Write(u"early", 3.0);
  late.listener->on_connection_request = [&](int32_t h) {
    loop.RunFor(0.5);  // the app pumps before it takes the handle
    late.slots[0]->SetAcceptHandle(h);
  };
  loop.RunFor(2.5);
  EXPECT_EQ(late.ready, 1);
  EXPECT_EQ(late.slots[0]->ReceiveReadyCount(), 5);
}

// One listener on loopback with a slot for its connections.
class LinuxSockets : public testing::Test {
 protected:
  LinuxLoop loop;
  LinuxSocketFactory f{loop};
  Server<LinuxSocketFactory> srv{f, 1};
  SocketCtl& s = *srv.slots[0];
};

TEST_F(LinuxSockets, OutOfDescriptorsPausesAcceptInsteadOfSpinning) {
#ifdef VARNEK_SANITIZED
  GTEST_SKIP() << "needs all descriptors in use; the sanitizers probe memory through a pipe";
#endif
  LoopbackClient c(srv.port);
  ASSERT_TRUE(c.connected);
  // No descriptor left for accept: the lowest free number becomes the limit.
  rlimit old{};
  getrlimit(RLIMIT_NOFILE, &old);
  int probe = ::dup(0);
  ASSERT_GE(probe, 0);
  ::close(probe);
  rlimit low = old;
  low.rlim_cur = static_cast<rlim_t>(probe);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
  int pumps = 0;  // 0.3 s of pumps: a listener that keeps waking them would give thousands
  auto start = std::chrono::steady_clock::now();
  for (;
       pumps < 100000 && std::chrono::steady_clock::now() - start < std::chrono::milliseconds(300);
       ++pumps)
    loop.Pump(0.05);
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_TRUE(srv.handles.empty());
  EXPECT_FALSE(srv.listener->ErrorText().empty());
  EXPECT_LT(pumps, 50);
  // With descriptors back, the waiting connection is accepted.
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  EXPECT_EQ(srv.handles.size(), 1u);
}

TEST_F(LinuxSockets, SendCompletesWhenAllWrittenAndCloseWaitsForTheQueue) {
  s.SetSendBufferSize(16384);
  LoopbackClient c(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  s.Send(Variant(Text(2 * 1024 * 1024, u'x')));  // Done(8) only once the client has it all
  std::string got;
  for (int i = 0; i < 2000 && got.size() < 2u * 1024 * 1024; ++i) {
    if (got.size() < 1024 * 1024) {
      EXPECT_TRUE(srv.done.empty());
    }
    loop.Pump(0);
    got += c.ReadSome(10);
  }
  ASSERT_EQ(got.size(), 2u * 1024 * 1024);
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.done.size() == 1; }));
  EXPECT_EQ(srv.done[0], kOpSend);

  // Close with much queued: Closing until the peer has it all, then State 1
  // and Done(3); the queued Send reports no Done of its own.
  s.Close();
  LoopbackClient c2(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  srv.done.clear();
  s.Send(Variant(Text(1024 * 1024, u'y')));
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosing);
  std::string drained;
  for (int i = 0; i < 2000 && !c2.eof; ++i) loop.Pump(0), drained += c2.ReadSome(10);
  EXPECT_EQ(drained.size(), 1024u * 1024u);
  ASSERT_TRUE(PumpUntil(loop, [&] { return !srv.done.empty(); }));
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_EQ(srv.done, std::vector<int32_t>{kOpClose});
}

// Reads up to `chunk` bytes at a time, one read every `gap_ms`, while the
// loop runs, until the server's FIN (true) or its reset (false), at most 20 s.
bool ReadToTheEnd(LinuxLoop& loop, LoopbackClient& c, std::string& got, size_t chunk, int gap_ms) {
  const auto start = std::chrono::steady_clock::now();
  std::vector<char> buf(chunk);
  while (std::chrono::steady_clock::now() - start < std::chrono::seconds(20)) {
    loop.Pump(gap_ms / 1000.0);
    const ssize_t n = ::recv(c.fd, buf.data(), chunk, MSG_DONTWAIT);
    if (n > 0) got.append(buf.data(), static_cast<size_t>(n));
    if (n == 0) return true;
    if (n < 0 && errno == ECONNRESET) return false;
  }
  ADD_FAILURE() << "no end after 20 s";
  return false;
}

TEST_F(LinuxSockets, CloseDrainsWhileThePeerReadsAndResetsOnceItStalls) {
  f.SetCloseStallSeconds(1.0);  // read when a Close starts draining
  s.SetSendBufferSize(16384);
  const size_t size = 512 * 1024;
  {  // a slow reader (16 KiB every 50 ms, about 1.6 s in all) gets it all, then FIN
    LoopbackClient c(srv.port);
    ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
    s.Send(Variant(Text(size, u'x')));
    s.Close();
    std::string got;
    EXPECT_TRUE(ReadToTheEnd(loop, c, got, 16384, 50));
    EXPECT_EQ(got.size(), size);
    ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketClosed; }));
  }
  {  // a reader that stops: the rest is dropped with a reset it can see
    LoopbackClient c(srv.port);
    ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
    srv.done.clear();
    s.Send(Variant(Text(size, u'y')));
    s.Close();
    ASSERT_TRUE(PumpUntil(loop, [&] { return !srv.done.empty(); }));
    EXPECT_EQ(srv.done, std::vector<int32_t>{kOpClose});
    EXPECT_EQ(s.State(), kSocketClosed);
    std::string got;
    EXPECT_FALSE(ReadToTheEnd(loop, c, got, 65536, 1));
    EXPECT_LT(got.size(), size);
  }
}

TEST_F(LinuxSockets, PeerResets) {
  // The peer resets the connection: State 1 with the reason, no event.
  LoopbackClient r(srv.port);
  ASSERT_TRUE(r.Send("partial"));
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.ready == 1; }));
  linger abort_close{1, 0};
  setsockopt(r.fd, SOL_SOCKET, SO_LINGER, &abort_close, sizeof abort_close);
  r.Close();
  size_t done_before = srv.done.size();
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.ReceiveReadyCount(), s.State() == kSocketClosed; }));
  EXPECT_EQ(s.ErrorText(), u"Connection reset by peer");
  EXPECT_EQ(srv.done.size(), done_before);
}

TEST_F(LinuxSockets, AddressesOfBindAndOfBothEndsAndAnIPv6Listener) {
  EXPECT_EQ(FailureOf([&] { f.Create()->Bind(kAny, 70000); }), kSockErrAddressInvalid);
  EXPECT_EQ(FailureOf([&] { f.Create()->Bind(Variant(Text(u"not an address")), 0); }),
            kSockErrAddressInvalid);
  auto out = f.Create();
  out->Connect(Variant(Text(u"127.0.0.1")), srv.port);
  ASSERT_TRUE(PumpUntil(
      loop, [&] { return out->State() == kSocketConnected && s.State() == kSocketConnected; }));
  EXPECT_EQ(out->RemotePort(), srv.port);
  EXPECT_EQ(s.LocalPort(), srv.port);  // the accepted end shows the listener's port
  if (!HasIPv6Loopback())
    GTEST_SKIP() << "no IPv6 loopback here";  // an IPv6 listener, where ::1 exists
  Server v6(f, 1, 0, Variant(Text(u"::1")));
  LoopbackClient c(v6.port, "::1");
  ASSERT_TRUE(c.connected);
  ASSERT_TRUE(PumpUntil(loop, [&] { return v6.slots[0]->State() == kSocketConnected; }));
  EXPECT_EQ(v6.slots[0]->RemoteAddress(), u"::1");
}

}  // namespace
}  // namespace varnek
