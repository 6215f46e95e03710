// The Linux socket control answering real clients (raw TCP, curl, python's
// http.client) through the end-to-end helpers, and the helpers' own limits.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "platform/linux/linux_loop.h"
#include "platform/linux/linux_socket.h"
#include "tests/integration/integration_support.h"

namespace varnek {
namespace {

using namespace integration;

// A one-slot server that answers each text with a fixed header and the text
// itself, then closes: the same ready/receive/send/close road the HTTP server
// takes.
struct EchoServer {
  explicit EchoServer(LinuxSocketFactory& f) {
    listener = f.Create();
    slot = f.Create();
    listener->on_connection_request = [this](int32_t h) {
      if (slot->State() == kSocketClosed) slot->SetAcceptHandle(h);
    };
    slot->on_receive_ready = [this] { slot->Receive(kReceiveText); };
    slot->on_done = [this](int32_t op) {
      if (op == kOpReceive) {
        Text got = slot->ReceivedData().ToText();
        texts += got;
        Text body = u"HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\n" + got;
        slot->Send(Variant(body));
      } else if (op == kOpSend) {
        slot->Close();
      } else if (op == kOpClose) {
        ++closes;
      }
    };
    listener->Create(Variant::Missing(), 0);
    listener->Bind(Variant::Missing(), 0);
    listener->Listen();
    port = listener->LocalPort();
  }
  std::unique_ptr<SocketCtl> listener, slot;
  Text texts;
  int closes = 0;
  int port = 0;
};

TEST(SocketEndToEnd, RawCurlAndPythonClients) {
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  EchoServer srv(f);

  // raw client: request out, answer back, connection closed by the server
  std::string reply = RunClientWhilePumping(loop, [&] {
    return RawExchange(srv.port, "PING caf\xE9\r\n", 5.0);
  });
  EXPECT_EQ(reply, "HTTP/1.0 200 OK\r\nContent-Type: text/plain\r\n\r\nPING caf\xE9\r\n");
  EXPECT_EQ(srv.texts, u"PING caf\u00e9\r\n");
  ASSERT_TRUE(PumpUntil(loop, [&] { return srv.closes == 1; }));

  // curl: HTTP/1.0 answer ended by the close
  std::string url = "http://127.0.0.1:" + std::to_string(srv.port) + "/hello";
  CommandResult curl = RunClientWhilePumping(loop, [&] {
    return RunCommand("curl -s -0 -m 5 " + url, 10.0);
  });
  EXPECT_EQ(curl.exit_code, 0) << curl.output;
  EXPECT_EQ(curl.output.rfind("GET /hello HTTP/1.0\r\n", 0), 0u) << curl.output;

  // python's http.client
  std::string py =
      "python3 -c \"import http.client as h; c=h.HTTPConnection('127.0.0.1'," +
      std::to_string(srv.port) +
      ",timeout=5); c.request('GET','/py'); r=c.getresponse(); print(r.status, r.read()[:7])\"";
  CommandResult pyr = RunClientWhilePumping(loop, [&] { return RunCommand(py, 10.0); });
  EXPECT_EQ(pyr.exit_code, 0) << pyr.output;
  EXPECT_EQ(pyr.output, "200 b'GET /py'\n");
}

TEST(SocketEndToEnd, HelpersKeepTheirLimits) {
  // a command over its limit is killed and reported so
  auto start = Clock::now();
  CommandResult slow = RunCommand("echo started; sleep 20", 0.3);
  EXPECT_TRUE(slow.timed_out);
  EXPECT_EQ(slow.exit_code, -1);
  EXPECT_EQ(slow.output, "started\n");
  EXPECT_LT(std::chrono::duration<double>(Clock::now() - start).count(), 5.0);

  CommandResult fails = RunCommand("exit 3", 5.0);
  EXPECT_FALSE(fails.timed_out);
  EXPECT_EQ(fails.exit_code, 3);

  // nobody on the port: the raw exchange gives nothing, quickly
  int port = FreePort();
  ASSERT_GT(port, 0);
  EXPECT_EQ(RawExchange(port, "x", 1.0), "");

  // a server that never answers: the read ends at its limit, not closed
  LinuxLoop loop;
  LinuxSocketFactory f(loop);
  auto listener = f.Create();
  auto slot = f.Create();
  listener->on_connection_request = [&](int32_t h) { slot->SetAcceptHandle(h); };
  listener->Create(Variant::Missing(), 0);
  listener->Bind(Variant::Missing(), 0);
  listener->Listen();
  RawClient c;
  bool closed = true;
  std::string got = RunClientWhilePumping(loop, [&] {
    if (!c.Connect(listener->LocalPort(), 2.0)) return std::string("no connect");
    std::string s = c.ReadAll(0.3);
    closed = c.PeerClosed();
    return s;
  });
  EXPECT_EQ(got, "");
  EXPECT_FALSE(closed);
}

}  // namespace
}  // namespace varnek
