// POST_SendMensaje on Linux loopback, to local servers that answer with the
// marks or close at once (the demo host's /echo is met in the integration
// tests). Silence and limits are tested on virtual time. Real time here,
// generous limits.
#include "tests/net/linux_net_fixture.h"
#include "tests/support/pump.h"

namespace varnek {
namespace {

TEST_F(LinuxGatewayPost, LocalServersWithMarksAndACloseAtOnce) {
  std::string reply;
  ScriptedServer server([&](int fd, const std::string&) { SendAll(fd, reply); });
  const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/cgi";
  reply = "HTTP/1.0 500 Oops\r\n\r\nFAILED: no such pager";
  EXPECT_EQ(Post(url, kNo, Variant(u"FAILED"), kNo), 0);
  EXPECT_EQ(Answer(), reply);
  reply = "HTTP/1.0 202 Accepted\r\n\r\nQUEUED for later";
  EXPECT_EQ(Post(url, kNo, Variant(u"FAILED"), Variant(u"QUEUED")), -5);
  EXPECT_EQ(Answer(), reply);
  reply = "";  // closes at once
  EXPECT_EQ(Post(url), 0);
  EXPECT_EQ(Answer(), "");
  EXPECT_EQ(Post(url, Variant(u"")), -1) << "blank OK: the close is the success";
  // An answer past the 16 MiB the socket holds: what fits is kept and judged.
  reply = "HTTP/1.0 200 OK\r\n\r\n" + std::string(20 * 1024 * 1024, 'x');
  EXPECT_EQ(Post(url), -1) << Seen().substr(0, 200);
  EXPECT_EQ(Answer().substr(0, 12), "HTTP/1.0 200");
  EXPECT_LE(Answer().size(), 2u * kMaxWaitingBytes);
  const auto requests = server.requests();
  ASSERT_FALSE(requests.empty());
  EXPECT_EQ(requests.front().substr(0, 21), "POST /cgi HTTP/1.0\r\nC");
}

TEST_F(LinuxGatewayPost, BadTargetsEndWithoutACrash) {
  const auto start = SteadyClock::now();
  EXPECT_EQ(Post("http://nowhere.test:8080/x", kNo, kNo, kNo, Variant(2)), 0) << "does not resolve";
  EXPECT_EQ(Post("http://127.0.0.1:70000/x"), -2);
  EXPECT_EQ(Post("http:///x"), -2);
  EXPECT_LT(SecondsSince(start), 10.0);
  EXPECT_TRUE(adds.POST_SendMensaje_Response.IsEmpty());
}

}  // namespace
}  // namespace varnek
