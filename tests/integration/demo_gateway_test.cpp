// The demo host as a gateway and as a sender: POST_SendMensaje delivers to
// its /echo by number and by a name from the test's hosts file, and its
// "/send" page posts a form to its own /echo and to a gateway given by
// --gateway. Real time on loopback, generous limits.
#include "tests/integration/e2e_support.h"
#include "tests/net/linux_net_fixture.h"

namespace varnek::e2e {
namespace {

TEST_F(LinuxGatewayPost, DeliversToTheDemoEchoByNumberAndByName) {
  DemoProcess demo;
  ASSERT_TRUE(demo.Start());
  EXPECT_EQ(Post(demo.Base() + "/echo"), -1) << Seen();
  // The request is made before the connection: Host is the machine's address.
  ExpectContains(Answer(), {"HTTP/1.0 200", "Param\tpin\t77\n", "Param\tmsg\thi there\n",
                            "Header\tHost\t" + TextToBytes(PrimaryIPv4Address()) + "\n",
                            "Header\tContent-length\t19\n"});
  EXPECT_EQ(Post("http://gateway.test:" + std::to_string(demo.port()) + "/echo?via=name"), -1)
      << Seen();
  ExpectContains(Answer(), {"URL\t/echo?via=name"});
  EXPECT_EQ(sock->State(), kSocketClosed) << Seen();
}

TEST_F(DemoHostTest, SendPagePostsToItsOwnEchoAndToAGivenGateway) {
  ASSERT_TRUE(demo.Start());
  ExpectContains(Curl("", "/send", 30),
                 {"<form method=\"post\" action=\"/send\" accept-charset=\"UTF-8\">",
                  "<code>" + demo.Base() + "/echo</code>"});
  ExpectContains(Curl("-d 'code=42&message=Hola+se%F1or&ok=200&fail=&timeout=10'", "/send", 30),
                 {"<b id=\"result\">-1</b> (delivered), message sent: Hola senor",
                  "Param\tmessage\tHola senor\n", "Param\tcode\t42\n"});
  // a blank time limit is the routine's default, not 0 (which tries nothing)
  ExpectContains(Curl("-d 'code=43&message=x&ok=&fail=&timeout='", "/send", 60),
                 {"<b id=\"result\">-1</b> (delivered)"});
  demo.Stop();

  ScriptedServer gateway([](int fd, const std::string& request) {
    SendAll(fd, request.find("code=7&") != std::string::npos
                    ? "HTTP/1.0 503 Busy\r\n\r\nlater"
                    : "HTTP/1.0 200 OK\r\n\r\nFAILED: unknown pager");
  });
  ASSERT_TRUE(
      demo.Start({"--gateway", "http://127.0.0.1:" + std::to_string(gateway.port()) + "/cgi"}));
  ExpectContains(Curl("-d 'code=9&message=x&ok=ACCEPTED&fail=FAILED&timeout=10'", "/send", 30),
                 {"<b id=\"result\">0</b> (not delivered)", "FAILED: unknown pager</pre>"});
  // a blank success mark is "200", so a busy answer is not a delivery
  ExpectContains(Curl("-d 'code=7&message=x&ok=&fail=&timeout='", "/send", 60),
                 {"<b id=\"result\">0</b> (not delivered)"});
  ASSERT_EQ(gateway.requests().size(), 2u);
  ExpectContains(gateway.requests()[0], {"code=9&message=x\r\n"});
}

}  // namespace
}  // namespace varnek::e2e
