// The Linux socket control against real client sockets on loopback: listener
// states, accept, the once-per-arrival ready event, FIONREAD growth, sends,
// closes from both sides, outgoing connects. Every wait is bounded.
#include "platform/linux/linux_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "platform/linux/linux_loop.h"
#include "runtime/failure.h"

namespace varnek {
namespace {

int FailureNumber(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

// Pumps until pred holds, at most 200 pumps of up to 50 ms.
bool PumpUntil(LinuxLoop& loop, const std::function<bool()>& pred) {
  for (int i = 0; i < 200; ++i) {
    if (pred()) return true;
    loop.Pump(0.05);
  }
  return pred();
}

// A blocking client socket on the test's thread.
struct Client {
  explicit Client(int port, const char* address = "127.0.0.1") {
    bool v6 = std::string(address).find(':') != std::string::npos;
    fd = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM, 0);
    sockaddr_storage ss{};
    socklen_t len;
    if (v6) {
      auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
      a->sin6_family = AF_INET6;
      a->sin6_port = htons(static_cast<uint16_t>(port));
      inet_pton(AF_INET6, address, &a->sin6_addr);
      len = sizeof *a;
    } else {
      auto* a = reinterpret_cast<sockaddr_in*>(&ss);
      a->sin_family = AF_INET;
      a->sin_port = htons(static_cast<uint16_t>(port));
      inet_pton(AF_INET, address, &a->sin_addr);
      len = sizeof *a;
    }
    connected = ::connect(fd, reinterpret_cast<sockaddr*>(&ss), len) == 0;
  }
  ~Client() { ::close(fd); }
  void Write(const std::string& s) { ASSERT_EQ(::send(fd, s.data(), s.size(), MSG_NOSIGNAL), (ssize_t)s.size()); }
  // What is readable now, after waiting up to ms for the first byte; eof set
  // when the server has closed.
  std::string ReadSome(int ms = 0) {
    std::string out;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, ms) <= 0) return out;
    char buf[65536];
    ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    if (n > 0) out.assign(buf, static_cast<size_t>(n));
    if (n == 0 || (n < 0 && errno == ECONNRESET)) eof = true;
    return out;
  }
  int fd;
  bool connected = false;
  bool eof = false;
};

// A listener on an ephemeral loopback port that gives each connection to the
// first closed slot.
struct Server {
  Server(LinuxSocketFactory& f, int slot_count, Variant address = Variant::Missing()) {
    listener = f.Create();
    listener->on_connection_request = [this](int32_t h) {
      handles.push_back(h);
      if (!take) return;
      for (auto& s : slots) {
        if (s->State() == kSocketClosed) {
          s->SetAcceptHandle(h);
          return;
        }
      }
    };
    listener->Create(address, 0);
    listener->Bind(address, 0);
    listener->Listen();
    port = listener->LocalPort();
    for (int i = 0; i < slot_count; ++i) {
      slots.push_back(f.Create());
      slots.back()->on_receive_ready = [this] { ++ready; };
      slots.back()->on_done = [this](int32_t op) { done.push_back(op); };
    }
  }
  std::unique_ptr<SocketCtl> listener;
  std::vector<std::unique_ptr<SocketCtl>> slots;
  std::vector<int32_t> handles;
  std::vector<int32_t> done;
  int ready = 0;
  int port = 0;
  bool take = true;
};

TEST(LinuxSocket, ListenerStatesPortInUseAndRestart) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  auto a = f.Create();
  EXPECT_EQ(a->State(), kSocketClosed);
  a->Create(Variant::Missing(), 0);
  EXPECT_EQ(a->State(), kSocketCreated);
  a->Bind(Variant::Missing(), 0);
  a->Listen();
  EXPECT_EQ(a->State(), kSocketListening);
  EXPECT_TRUE(a->Listening());
  EXPECT_EQ(a->StateText(), u"Listening");
  int port = a->LocalPort();
  ASSERT_GT(port, 0);

  // the port is taken
  auto b = f.Create();
  b->Create(Variant::Missing(), port);
  EXPECT_EQ(FailureNumber([&] { b->Bind(Variant::Missing(), port); }), kSockErrAddressInUse);
  EXPECT_EQ(b->ErrorText(), u"Address in use");

  // a listener whose connection the server closed first (leaving TIME_WAIT
  // behind) can be closed and bound again at once
  auto conn = f.Create();
  a->on_connection_request = [&](int32_t h) { conn->SetAcceptHandle(h); };
  {
    Client c(port);
    ASSERT_TRUE(PumpUntil(loop, [&] { return conn->State() == kSocketConnected; }));
    conn->Close();
    c.ReadSome(1000);
    EXPECT_TRUE(c.eof);
  }
  for (int i = 0; i < 5; ++i) loop.Pump(0.01);
  a->Close();
  EXPECT_EQ(a->State(), kSocketClosed);
  EXPECT_FALSE(a->Listening());
  auto d = f.Create();
  d->Create(Variant::Missing(), port);
  d->Bind(Variant::Missing(), port);
  d->Listen();
  EXPECT_EQ(d->State(), kSocketListening);
  EXPECT_EQ(d->LocalPort(), port);

  // invalid port and address
  auto e = f.Create();
  EXPECT_EQ(FailureNumber([&] { e->Bind(Variant::Missing(), 70000); }), kSockErrAddressInvalid);
  auto g = f.Create();
  EXPECT_EQ(FailureNumber([&] { g->Bind(Variant(Text(u"not an address")), 0); }), kSockErrAddressInvalid);
}

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kSanitized = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool kSanitized = true;
#else
constexpr bool kSanitized = false;
#endif
#else
constexpr bool kSanitized = false;
#endif

TEST(LinuxSocket, OutOfDescriptorsPausesAcceptInsteadOfSpinning) {
  // The sanitizers probe memory through a pipe, which needs descriptors.
  if (kSanitized) GTEST_SKIP() << "needs all descriptors in use, which the sanitizers cannot bear";
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Server srv(f, 1);
  Client c(srv.port);
  ASSERT_TRUE(c.connected);

  // no descriptor left for accept: the lowest free number becomes the limit
  rlimit old{};
  getrlimit(RLIMIT_NOFILE, &old);
  int probe = ::dup(0);
  ASSERT_GE(probe, 0);
  ::close(probe);
  rlimit low = old;
  low.rlim_cur = static_cast<rlim_t>(probe);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &low), 0);
  // a wait of 0.3 s: pumps return at once while the listener keeps waking them
  int pumps = 0;
  auto start = std::chrono::steady_clock::now();
  while (pumps < 100000 && std::chrono::steady_clock::now() - start < std::chrono::milliseconds(300)) {
    loop.Pump(0.05);
    ++pumps;
  }
  setrlimit(RLIMIT_NOFILE, &old);
  EXPECT_TRUE(srv.handles.empty());
  EXPECT_FALSE(srv.listener->ErrorText().empty());
  EXPECT_LT(pumps, 50);

  // with descriptors back, the waiting connection is accepted
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.slots[0]->State() == kSocketConnected; }));
  EXPECT_EQ(srv.handles.size(), 1u);
}

TEST(LinuxSocket, AcceptReceiveReadyOncePerArrivalAndCountGrows) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Server srv(f, 1);
  SocketCtl& s = *srv.slots[0];
  Client c(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  ASSERT_EQ(srv.handles.size(), 1u);
  EXPECT_EQ(s.RemoteAddress(), u"127.0.0.1");
  EXPECT_EQ(s.LocalPort(), srv.port);

  c.Write("GET / ");
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.ready == 1; }));
  c.Write(std::string("caf\xE9", 4));
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.ReceiveReadyCount() == 10; }));
  for (int i = 0; i < 5; ++i) loop.Pump(0.01);
  EXPECT_EQ(srv.ready, 1);  // not raised again before Receive

  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().Type(), VarType::String);
  EXPECT_EQ(s.ReceivedData().ToText(), Text(u"GET / caf\u00e9"));
  EXPECT_EQ(s.ReceiveReadyCount(), 0);
  EXPECT_TRUE(srv.done.empty());  // Done is posted, not run inside Receive
  ASSERT_TRUE(PumpUntil(loop, [&] { return !srv.done.empty(); }));
  EXPECT_EQ(srv.done[0], kOpReceive);

  // re-armed: the next arrival raises it again
  c.Write("more");
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.ready == 2; }));
  EXPECT_EQ(s.State(), kSocketConnected);

  // a handle not taken is closed: that client sees the end at once
  srv.take = false;
  Client refused(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.handles.size() == 2; }));
  refused.ReadSome(2000);
  EXPECT_TRUE(refused.eof);
  // and can no longer be taken
  auto other = f.Create();
  EXPECT_EQ(FailureNumber([&] { other->SetAcceptHandle(srv.handles[1]); }), kSockErrInvalidHandle);
}

TEST(LinuxSocket, SendCompletesWhenAllWrittenAndCloseFromServer) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Server srv(f, 1);
  SocketCtl& s = *srv.slots[0];
  s.SetSendBufferSize(16384);
  Client c(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));

  // 2 MB cannot go out at once: Done(8) only after the client has read it
  Text big(2 * 1024 * 1024, u'x');
  big[0] = u'\u00e9';  // one unit, one cp1252 byte
  s.Send(Variant(big));
  std::string got;
  for (int i = 0; i < 2000 && got.size() < big.size(); ++i) {
    if (got.size() < big.size() / 2) {
      EXPECT_TRUE(srv.done.empty());
    }
    loop.Pump(0);
    got += c.ReadSome(10);
  }
  ASSERT_EQ(got.size(), big.size());
  EXPECT_EQ(static_cast<uint8_t>(got[0]), 0xE9);
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.done.size() == 1; }));
  EXPECT_EQ(srv.done[0], kOpSend);

  // server closes: State 1, the client sees the end, one Done(3), a second
  // Close is silent, Send now fails
  s.Send(Variant(Text(u"tail")));
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
  s.Close();
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.done.size() >= 2; }));
  for (int i = 0; i < 5; ++i) loop.Pump(0.01);
  EXPECT_EQ(srv.done.back(), kOpClose);
  EXPECT_EQ(std::count(srv.done.begin(), srv.done.end(), kOpClose), 1);
  std::string tail;
  for (int i = 0; i < 50 && !c.eof; ++i) tail += c.ReadSome(50);
  EXPECT_EQ(tail, "tail");
  EXPECT_TRUE(c.eof);
  EXPECT_EQ(FailureNumber([&] { s.Send(Variant(Text(u"x"))); }), kSockErrWrongState);

  // Close with much still queued: Closing until the peer has it all, then
  // State 1 and Done(3); the queued Send reports no Done of its own
  Client c2(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  srv.done.clear();
  s.Send(Variant(Text(1024 * 1024, u'y')));
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosing);
  std::string drained;
  for (int i = 0; i < 2000 && !c2.eof; ++i) {
    loop.Pump(0);
    drained += c2.ReadSome(10);
  }
  EXPECT_EQ(drained.size(), 1024u * 1024u);
  EXPECT_TRUE(c2.eof);
  ASSERT_TRUE(PumpUntil(loop, [&] { return !srv.done.empty(); }));
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_EQ(srv.done, std::vector<int32_t>{kOpClose});
}

TEST(LinuxSocket, PeerCloses) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Server srv(f, 1);
  SocketCtl& s = *srv.slots[0];

  // silent peer leaves: the slot is free again without any event
  {
    Client c(srv.port);
    ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  }
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketClosed; }));
  EXPECT_EQ(srv.ready, 0);
  EXPECT_TRUE(srv.done.empty());

  // peer writes and shuts its side: Closing, the text is still there, and an
  // answer still reaches the peer
  Client c(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  c.Write("GET / HTTP/1.0\r\n\r\n");
  ::shutdown(c.fd, SHUT_WR);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketClosing; }));
  EXPECT_EQ(srv.ready, 1);
  EXPECT_EQ(s.ReceiveReadyCount(), 18);
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"GET / HTTP/1.0\r\n\r\n");
  s.Send(Variant(Text(u"answer")));
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.done.size() == 2; }));
  EXPECT_EQ(srv.done[1], kOpSend);
  EXPECT_EQ(c.ReadSome(1000), "answer");
  EXPECT_EQ(s.State(), kSocketClosing);
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_EQ(srv.ready, 1);

  // peer resets the connection: State 1 with the reason, no event
  Client r(srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return s.State() == kSocketConnected; }));
  r.Write("partial");
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.ready == 2; }));
  linger abort_close{1, 0};
  setsockopt(r.fd, SOL_SOCKET, SO_LINGER, &abort_close, sizeof abort_close);
  ::close(r.fd);
  r.fd = -1;
  size_t done_before = srv.done.size();
  ASSERT_TRUE(PumpUntil(loop, [&] {
    s.ReceiveReadyCount();
    return s.State() == kSocketClosed;
  }));
  EXPECT_EQ(s.ErrorText(), u"Connection reset by peer");
  EXPECT_EQ(srv.done.size(), done_before);
}

TEST(LinuxSocket, HandlerMayDestroyItsOwnControl) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  Server srv(f, 1);
  int fired = 0;
  std::string big(256, 'x');  // a capture that dies with the handler
  srv.slots[0]->on_receive_ready = [&srv, &fired, big] {
    srv.slots[0].reset();
    fired += static_cast<int>(big.size());
  };
  Client c(srv.port);
  c.Write("x");
  ASSERT_TRUE(PumpUntil(loop, [&] { return fired != 0; }));
  EXPECT_EQ(fired, 256);
  c.ReadSome(1000);
  EXPECT_TRUE(c.eof);
}

TEST(LinuxSocket, IPv6ListenerAndOutgoingConnect) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);

  // outgoing connect to our own listener: Done(4), then both ways
  Server srv(f, 1);
  auto out = f.Create();
  std::vector<int32_t> done;
  int ready = 0;
  out->on_done = [&](int32_t op) { done.push_back(op); };
  out->on_receive_ready = [&] { ++ready; };
  out->Create(Variant::Missing(), Variant::Missing());
  out->Connect(Variant(Text(u"127.0.0.1")), srv.port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return !done.empty() && srv.slots[0]->State() == kSocketConnected; }));
  EXPECT_EQ(done[0], kOpConnect);
  EXPECT_EQ(out->State(), kSocketConnected);
  EXPECT_EQ(out->RemotePort(), srv.port);
  srv.slots[0]->Send(Variant(Text(u"HTTP/1.0 200 OK\r\n\r\nok")));
  ASSERT_TRUE(PumpUntil(loop, [&] { return ready == 1 && out->ReceiveReadyCount() == 21; }));
  srv.slots[0]->Close();
  ASSERT_TRUE(PumpUntil(loop, [&] { return out->State() == kSocketClosing; }));
  out->Receive(kReceiveText);
  EXPECT_EQ(out->ReceivedData().ToText(), u"HTTP/1.0 200 OK\r\n\r\nok");
  out->Close();

  // refused: back to Closed with the reason
  int closed_port = srv.port;
  srv.listener->Close();
  auto refused = f.Create();
  refused->Connect(Variant(Text(u"127.0.0.1")), closed_port);
  ASSERT_TRUE(PumpUntil(loop, [&] { return refused->State() == kSocketClosed; }));
  EXPECT_EQ(refused->ErrorText(), u"Connection refused");

  // an IPv6 listener on ::1, where the machine has IPv6
  int probe = ::socket(AF_INET6, SOCK_STREAM, 0);
  sockaddr_in6 a6{};
  a6.sin6_family = AF_INET6;
  a6.sin6_addr = in6addr_loopback;
  bool has_v6 = probe >= 0 && ::bind(probe, reinterpret_cast<sockaddr*>(&a6), sizeof a6) == 0;
  if (probe >= 0) ::close(probe);
  if (!has_v6) GTEST_SKIP() << "no IPv6 loopback here";
  Server v6(f, 1, Variant(Text(u"::1")));
  Client c(v6.port, "::1");
  ASSERT_TRUE(c.connected);
  ASSERT_TRUE(PumpUntil(loop, [&] { return v6.slots[0]->State() == kSocketConnected; }));
  EXPECT_EQ(v6.slots[0]->RemoteAddress(), u"::1");
}

}  // namespace
}  // namespace varnek
