// The demo host's "/send" and "/net" pages from outside: curl posts a form
// that the host delivers to its own /echo and to a gateway given by
// --gateway; headless Chromium renders the network tables.
#include <gtest/gtest.h>

#include <filesystem>

#include "varnek/platform/linux/linux_socket.h"
#include "tests/net/local_servers.h"

namespace varnek {
namespace {

void ExpectHas(const std::string& text, const std::string& part) {
  EXPECT_NE(text.find(part), std::string::npos) << part << "\n" << text.substr(0, 4000);
}

TEST(DemoPages, SendPostsToItsOwnEchoAndToAGivenGateway) {
  DemoProcess demo;
  ASSERT_TRUE(demo.Start());
  const std::string base = "http://127.0.0.1:" + std::to_string(demo.port());
  const std::string form = Shell("curl -s -m 30 " + base + "/send");
  ExpectHas(form, "<form method=\"post\" action=\"/send\" accept-charset=\"UTF-8\">");
  ExpectHas(form, "<code>" + base + "/echo</code>");
  const std::string sent = Shell("curl -s -m 30 -d 'code=42&message=Hola+se%F1or&ok=200&fail=&timeout=10' " +
                                 base + "/send");
  ExpectHas(sent, "<b id=\"result\">-1</b> (delivered), message sent: Hola senor");
  ExpectHas(sent, "Param\tmessage\tHola senor\n");
  ExpectHas(sent, "Param\tcode\t42\n");
  // a blank time limit is the routine's default, not 0 (which tries nothing)
  ExpectHas(Shell("curl -s -m 60 -d 'code=43&message=x&ok=&fail=&timeout=' " + base + "/send"),
            "<b id=\"result\">-1</b> (delivered)");
  demo.Stop();

  ScriptedServer gateway([](int fd, const std::string& request) {
    SendAll(fd, request.find("code=7&") != std::string::npos ? "HTTP/1.0 503 Busy\r\n\r\nlater"
                                                              : "HTTP/1.0 200 OK\r\n\r\nFAILED: unknown pager");
  });
  ASSERT_TRUE(demo.Start({"--gateway", "http://127.0.0.1:" + std::to_string(gateway.port()) + "/cgi"}));
  const std::string failed = Shell("curl -s -m 30 -d 'code=9&message=x&ok=ACCEPTED&fail=FAILED&timeout=10' "
                                   "http://127.0.0.1:" + std::to_string(demo.port()) + "/send");
  ExpectHas(failed, "<b id=\"result\">0</b> (not delivered)");
  ExpectHas(failed, "FAILED: unknown pager</pre>");
  // a blank success mark is "200", so a busy answer is not a delivery
  ExpectHas(Shell("curl -s -m 60 -d 'code=7&message=x&ok=&fail=&timeout=' http://127.0.0.1:" +
                  std::to_string(demo.port()) + "/send"),
            "<b id=\"result\">0</b> (not delivered)");
  ASSERT_EQ(gateway.requests().size(), 2u);
  ExpectHas(gateway.requests()[0], "code=9&message=x\r\n");
}

TEST(DemoPages, ChromiumRendersTheNetworkTables) {
  const char* chromium = "/usr/bin/chromium";
  if (access(chromium, X_OK) != 0) GTEST_SKIP() << "no " << chromium << " on this machine";
  DemoProcess demo;
  ASSERT_TRUE(demo.Start());
  char profile[] = "/tmp/varnek-chromium-net-XXXXXX";
  ASSERT_NE(mkdtemp(profile), nullptr);
  const std::string dom = Shell(std::string("timeout 60 ") + chromium +
                                " --headless --no-sandbox --disable-gpu --disable-quic --no-first-run"
                                " --disable-background-networking --disable-component-update --disable-sync"
                                " --user-data-dir=" + profile + " --dump-dom 'http://127.0.0.1:" +
                                std::to_string(demo.port()) + "/net' 2>/dev/null");
  ExpectHas(dom, "<table id=\"tcp\" border=\"1\">");
  // The demo's own dual-stack listener, below 32768 so its port shows exact.
  ExpectHas(dom, "<tr><td>0.0.0.0</td><td>" + std::to_string(demo.port()) + "</td><td>0.0.0.0</td><td>0</td><td>LISTEN</td></tr>");
  ExpectHas(dom, "<td>127.0.0.1</td><td>" + std::to_string(demo.port()) + "</td><td>127.0.0.1</td>");
  ExpectHas(dom, "<table id=\"adapters\" border=\"1\">");
  const size_t row = dom.find("<td>Local addresses</td><td>");
  ASSERT_NE(row, std::string::npos);
  ExpectHas(dom.substr(row, dom.find("</tr>", row) - row), TextToBytes(PrimaryIPv4Address()));
  std::error_code ignored;
  std::filesystem::remove_all(profile, ignored);
}

}  // namespace
}  // namespace varnek
