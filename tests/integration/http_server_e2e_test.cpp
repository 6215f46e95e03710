// HTTPServer on the Linux loop and sockets, answering real clients on
// 127.0.0.1: raw sockets, curl and python's http.client. The server pumps on
// the test's thread while each client runs on a thread of its own.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "platform/linux/linux_loop.h"
#include "runtime/convert.h"
#include "runtime/strings.h"
#include "server/http_server.h"
#include "tests/integration/integration_support.h"

namespace varnek {
namespace {

using namespace integration;

class ServerE2ETest : public ::testing::Test {
 protected:
  ServerE2ETest() : platform(LinuxPlatform()), server(platform) {}

  void SetUp() override {
    server.InternalState = [this](Variant&, Variant& text) { reports.push_back(text.ToUtf8()); };
    server.GETReceived = [this](Variant& url, Variant&, Variant&, Variant& response, Variant& idx,
                                Collection&, Collection&) {
      const Text path = url.ToText();
      if (path == u"/hello/") {
        Text body = u"hello from the host";
        response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
      } else if (path == u"/chat/") {
        server.Proceso_KeepOpen(idx, true);
        chat_slot = idx.ToInteger();
        response = u"open\r\n";
      }
    };
    server.POSTReceived = [this](Variant&, Variant&, Collection& names, Collection& values,
                                 Variant&, Variant& response, Variant&, Collection&,
                                 Collection&) {
      Text body;
      for (int32_t k = 1; k <= names.Count(); ++k) {
        body += names.Item(k).ToText() + u"=[" + values.Item(k).ToText() + u"]\n";
      }
      response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
    };
  }

  void TearDown() override { server.ServerOpen(false); }

  // Ports above 32767 do not start (the port is a 16-bit integer), so pick
  // below that and retry when one is taken.
  void Start(int32_t slots = 3) {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 20 && !server.ServerOpen(); ++attempt) {
      port = 20000 + static_cast<int>(random() % 12000);
      server.ServerPort(port);
      server.MaxConcurrentConnections(slots);
      server.ServerOpen(true);
    }
    ASSERT_TRUE(server.ServerOpen());
  }

  std::string Url(const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(port) + path;
  }

  Platform& platform;
  HTTPServer server;
  int port = 0;
  int16_t chat_slot = 0;
  std::vector<std::string> reports;
};

TEST_F(ServerE2ETest, FallbackAnswersAreExactBytes) {
  Start();
  const std::string expected404 = TextToBytes(server.html_404error().ToText());
  std::string got = RunClientWhilePumping(server.loop(), [&] {
    return RawExchange(port, "GET /nothing HTTP/1.0\r\n\r\n", 5.0);
  });
  EXPECT_EQ(got, expected404);

  server.SecurePathAdd(u"/x");
  server.UsersAdd(u"user:pass");
  const std::string page = TextToBytes(server.http_ErrorResponse(401).ToText());
  got = RunClientWhilePumping(server.loop(),
                              [&] { return RawExchange(port, "GET /x HTTP/1.0\r\n\r\n", 5.0); });
  EXPECT_EQ(got, "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /x/\r\nServer: Varnek\r\n"
                 "Content-Length: " + std::to_string(page.size()) +
                     "\r\nContent-Type: text/html\r\n\r\n" + page);

  // A text that is not HTTP and that the host leaves alone: one NUL.
  got = RunClientWhilePumping(server.loop(), [&] { return RawExchange(port, "HELLO\r\n", 5.0); });
  EXPECT_EQ(got, std::string(1, '\0'));
}

TEST_F(ServerE2ETest, CurlAndPythonClients) {
  Start();
  server.SecurePathAdd(u"/x");
  server.UsersAdd(u"user:pass");
  auto curl = RunClientWhilePumping(server.loop(), [&] {
    return RunCommand("curl -s -m 5 " + Url("/hello"), 8.0);
  });
  EXPECT_EQ(curl.exit_code, 0) << curl.output;
  EXPECT_EQ(curl.output, "hello from the host");

  // curl's Basic credentials open the secured path (the host has no page
  // there, so the 404 page follows the passed check).
  auto secured = RunClientWhilePumping(server.loop(), [&] {
    return RunCommand("curl -s -m 5 -o /dev/null -w '%{http_code}' -u USER:PASS " + Url("/x/"), 8.0);
  });
  EXPECT_EQ(secured.output, "404");

  // python's http.client posting fields, one with a doubled ampersand.
  const std::string script =
      "import http.client\n"
      "c = http.client.HTTPConnection('127.0.0.1', " + std::to_string(port) + ", timeout=5)\n"
      "c.request('POST', '/form', body='a=1&&b=2&c=x%20y', "
      "headers={'Content-Type': 'application/x-www-form-urlencoded'})\n"
      "r = c.getresponse()\n"
      "print(r.status, r.read().decode(), end='')\n";
  auto python = RunClientWhilePumping(server.loop(), [&] {
    return RunCommand("python3 -c \"" + script + "\"", 8.0);
  });
  EXPECT_EQ(python.exit_code, 0) << python.output;
  EXPECT_EQ(python.output, "200 a=[1&&b=2]\nc=[x y]\n");
}

TEST_F(ServerE2ETest, RawChannelStaysOpenUntilTheHostEndsIt) {
  Start();
  // The host side polls the held slot and answers each text.
  auto poll = server.loop().CreateTimer();
  poll->SetInterval(50);
  poll->on_tick = [&] {
    if (chat_slot == 0) return;
    const Text text = server.Proceso_Receive(chat_slot).ToText();
    if (text == u"bye") {
      server.Proceso_KeepOpen(chat_slot, false);
      server.Proceso_Send(chat_slot, u"bye");
      chat_slot = 0;
    } else if (!text.empty()) {
      server.Proceso_Send(chat_slot, u"got " + text);
    }
  };
  poll->SetEnabled(true);
  struct Talk {
    std::string first, second, last;
    bool closed = false;
  };
  Talk talk = RunClientWhilePumping(server.loop(), [&] {
    Talk t;
    RawClient c;
    if (!c.Connect(port)) return t;
    c.Send("GET /chat HTTP/1.0\r\n\r\n");
    t.first = c.ReadUntil("open\r\n", 4.0);
    c.Send("one");
    t.second = c.ReadUntil("got one", 4.0);
    c.Send("bye");
    t.last = c.ReadAll(5.0);
    t.closed = c.PeerClosed();
    return t;
  });
  EXPECT_EQ(talk.first, "open\r\n");
  EXPECT_EQ(talk.second, "got one");
  EXPECT_EQ(talk.last, "bye");
  EXPECT_TRUE(talk.closed);
}

TEST_F(ServerE2ETest, AllSlotsBusyGivesNoBytesAtAll) {
  Start(1);
  struct Outcome {
    bool connected = false;
    std::string reply;
  };
  Outcome outcome = RunClientWhilePumping(server.loop(), [&] {
    Outcome o;
    RawClient holder;  // takes the only slot and stays silent
    if (!holder.Connect(port)) return o;
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    RawClient late;
    o.connected = late.Connect(port);
    late.Send("GET /hello HTTP/1.0\r\n\r\n");
    o.reply = late.ReadAll(2.5);
    return o;
  });
  EXPECT_TRUE(outcome.reply.empty());
  int requests = 0, assigned = 0;
  for (const auto& r : reports) {
    requests += r.rfind("Server - Solicitud Handle ", 0) == 0;
    assigned += r.rfind("Server - Asignando el motor ", 0) == 0;
  }
  EXPECT_EQ(requests, 2);
  EXPECT_EQ(assigned, 1);
}

}  // namespace
}  // namespace varnek
