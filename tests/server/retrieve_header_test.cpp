// The browser-like request html_retrieveHeader builds, line for line.
#include <gtest/gtest.h>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using RetrieveHeaderTest = ServerFixture;

TEST_P(RetrieveHeaderTest, BuildsTheRequestWithTheListenersAddress) {
  const std::string rest =
      " HTTP/1.0\r\nAccept: text/plain\r\nAccept-Language: en-us\r\n"
      "Accept-Encoding: gzip, deflate\r\n"
      "User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)\r\n";
  {  // the host line names the listener's local address
    net.SetLocalAddress(u"10.0.0.7");
    EXPECT_EQ(Utf8(server->html_retrieveHeader(u"/index.html")),
              "GET /index.html" + rest + "Host: 10.0.0.7\r\nConnection: Keep-Alive\r\n\r\n");
  }
  {  // the page goes in as it is: no encoding, blanks and all; an empty one too
    net.SetLocalAddress(u"::1");
    EXPECT_EQ(Utf8(server->html_retrieveHeader(u"/a b?x=%20&y")),
              "GET /a b?x=%20&y" + rest + "Host: ::1\r\nConnection: Keep-Alive\r\n\r\n");
    EXPECT_EQ(Utf8(server->html_retrieveHeader(u"")),
              "GET " + rest + "Host: ::1\r\nConnection: Keep-Alive\r\n\r\n");
  }
  {  // a started server gives the same text: it touches no connection
    Start();
    net.SetLocalAddress(u"127.0.0.1");
    EXPECT_EQ(Utf8(server->html_retrieveHeader(u"/")),
              "GET /" + rest + "Host: 127.0.0.1\r\nConnection: Keep-Alive\r\n\r\n");
  }
}

VARNEK_BOTH_LOOP_MODES(RetrieveHeaderTest);

}  // namespace
}  // namespace varnek::testing
