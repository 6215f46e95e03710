// The demo host varnek-demo as its users meet it: pages, the secured area, the
// echo of a POST, the chat channel, the PING line protocol, and a clean stop
// on SIGTERM with its log on stderr.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "tests/integration/demo_process.h"
#include "tests/integration/integration_support.h"

namespace varnek {
namespace {

using namespace integration;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

class DemoHostTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char name[] = "/tmp/varnek-demo-log-XXXXXX";
    const int fd = mkstemp(name);
    ASSERT_GE(fd, 0);
    close(fd);
    log_path = name;
  }
  void TearDown() override {
    demo.Stop();
    unlink(log_path.c_str());
  }
  std::string Curl(const std::string& args) {
    return RunCommand("curl -s -m 5 " + args, 8.0).output;
  }
  std::string Url(const std::string& path) {
    return "http://127.0.0.1:" + std::to_string(demo.port()) + path;
  }

  DemoProcess demo;
  std::string log_path;
};

TEST_F(DemoHostTest, PagesSecuredAreaAndEcho) {
  ASSERT_TRUE(demo.Start({}, log_path));
  // Without flags /admin needs admin:admin.
  EXPECT_EQ(Curl("-o /dev/null -w '%{http_code}' " + Url("/admin/")), "401");
  EXPECT_NE(Curl("-u admin:admin " + Url("/admin/")).find("You passed"), std::string::npos);
  // Unknown paths fall back on the 404 page.
  EXPECT_EQ(Curl("-o /dev/null -w '%{http_code}' " + Url("/nowhere")), "404");
  // POST fields, escaped, one line each after the headers.
  const std::string echo = Curl("-d 'a=1&&b=2&c=%3Cb%3E' " + Url("/echo"));
  EXPECT_NE(echo.find("URL\t/echo/\n"), std::string::npos) << echo;
  EXPECT_NE(echo.find("Header\tPOST\t/echo HTTP/1.1\n"), std::string::npos);
  EXPECT_NE(echo.find("Param\ta\t1&amp;&amp;b=2\nParam\tc\t&lt;b&gt;\n</pre>"), std::string::npos);
  EXPECT_EQ(demo.Stop(), 0);
  const std::string log = ReadFile(log_path);
  // Timestamped reports, and the loop's deepest nesting at exit.
  EXPECT_NE(log.find(" Init - Creando motores (5)\n"), std::string::npos) << log;
  EXPECT_NE(log.find(" Server - Asignando el motor 1\n"), std::string::npos);
  EXPECT_NE(log.find("MaxPumpDepth "), std::string::npos);
}

TEST_F(DemoHostTest, ChatChannelAndLineProtocol) {
  ASSERT_TRUE(demo.Start({"--slots", "2", "--user", "u:p", "--secure", "/private"}, log_path));
  RawClient chat;
  ASSERT_TRUE(chat.Connect(demo.port()));
  ASSERT_TRUE(chat.Send("GET /chat HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(chat.ReadUntil("chat open\r\n", 4.0),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\nchat open\r\n");
  ASSERT_TRUE(chat.Send("hello\r\n"));
  EXPECT_EQ(chat.ReadUntil("\r\n", 4.0), "echo: hello\r\n");
  ASSERT_TRUE(chat.Send("bye\r\n"));
  EXPECT_EQ(chat.ReadAll(5.0), "bye\r\n");
  EXPECT_TRUE(chat.PeerClosed());

  EXPECT_EQ(RawExchange(demo.port(), "PING now\r\n", 5.0), "PONG\r\n");
  EXPECT_EQ(RawExchange(demo.port(), "HELO\r\n", 5.0), std::string(1, '\0'));
  // The flags replaced the default tables.
  EXPECT_EQ(Curl("-o /dev/null -w '%{http_code}' -u admin:admin " + Url("/private/")), "401");
  EXPECT_EQ(Curl("-o /dev/null -w '%{http_code}' " + Url("/admin/")), "200");
}

}  // namespace
}  // namespace varnek
