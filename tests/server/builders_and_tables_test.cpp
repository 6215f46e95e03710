// The response builders byte for byte (html_retrieveHeader's request too),
// the access tables and per-slot operations.
#include <gtest/gtest.h>

#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"
#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using BuildersTest = ServerFixture;

TEST_P(BuildersTest, HeaderLinesAppearOnlyWhenAsked) {
  // No reason phrase; a length of 0 is a given length and stands before the type.
  EXPECT_EQ(Utf8(server->http_Header(e200_OK, eTextHTML)),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\n");
  EXPECT_EQ(Utf8(server->http_Header(e404_NotFound, eApplicationOctetStream, 0)),
            "HTTP/1.0 404\r\nServer: Varnek\r\nContent-Length: 0\r\n"
            "Content-Type: application/octet-stream\r\n\r\n");
  EXPECT_EQ(Utf8(server->http_Header(299, 2)),  // undeclared type 2: no type line; any code
            "HTTP/1.0 299\r\nServer: Varnek\r\n\r\n");
  // An empty realm still counts as given; no quotes, blanks around "=".
  EXPECT_EQ(Utf8(server->http_Header(e401_Unauthorized, eTextHTML, 12, u"")),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = \r\nServer: Varnek\r\n"
            "Content-Length: 12\r\nContent-Type: text/html\r\n\r\n");
}

TEST_P(BuildersTest, TextFromARequestNeverEndsAHeaderLine) {
  const Text injected = u"/a\r\nSet-Cookie: x=1\r\n\r\n<script>\n";
  const std::string kept = "/a  Set-Cookie: x=1    <script> ";  // each CR, LF a blank
  EXPECT_EQ(Utf8(server->http_Header(e401_Unauthorized, eTextHTML, Variant::Missing(), injected)),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = " + kept +
                "\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\n");
  EXPECT_EQ(Utf8(server->http_Header(e200_OK, 2, u"5\r\nX: y")),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Length: 5  X: y\r\n\r\n");
  const std::string line = "GET " + kept + " HTTP/1.0\r\nAccept";
  EXPECT_EQ(Utf8(server->html_retrieveHeader(injected)).substr(0, line.size()), line);
}

TEST_P(BuildersTest, PageFrameAndErrorPages) {
  EXPECT_EQ(Utf8(server->html_GenericStart(u"x")).rfind("<html>\r\n<head>\r\n<style>\r\na:", 0),
            0u);
  const std::string coloured =  // palette values go in as their decimal text
      Utf8(server->html_GenericStart(u"t", Variant::Long(echRed), Variant::Long(echCyan), u"#00F"));
  EXPECT_NE(coloured.find("<title>t</title>\r\n</head>\r\n<body link=\"#00F\" text=\"16711680\" "
                          "bgcolor=\"-1\">\r\n<p><font face=\"Verdana, Arial, Helvetica, "
                          "sans-serif\" size=\"2\"><b>\r\nt</b></font></p>\r\n"),
            std::string::npos);
  // A title with no text form loses its rows; the rest of the page stands.
  const std::string gap = Utf8(server->html_GenericStart(Variant(Collection::New())));
  EXPECT_EQ(gap.find("<title>"), std::string::npos);
  EXPECT_NE(gap.find("</head>\r\n<body link=\"red\""), std::string::npos);
  // Str keeps the sign's blank: two blanks in the title; no head in front.
  EXPECT_EQ(Utf8(server->http_ErrorResponse(e503_ServiceUnavailable)),
            Utf8(server->html_GenericStart(u"HTTP  503 Error")) + Utf8(server->html_GenericEnd()));
  EXPECT_EQ(Utf8(server->http_ErrorResponse(e404_NotFound)).find("cannot be found"),
            std::string::npos)
      << "the generic page for 404 is not the 404 page";
  // The 404 answer: its Content-Length counts the page, not the head.
  const std::string page404 = Utf8(server->html_404error());
  const size_t blank = page404.find("\r\n\r\n");
  ASSERT_NE(blank, std::string::npos);
  const std::string body = page404.substr(blank + 4);
  EXPECT_EQ(page404.substr(0, blank + 4),
            "HTTP/1.0 404\r\nServer: Varnek\r\nContent-Length: " + std::to_string(body.size()) +
                "\r\nContent-Type: text/html\r\n\r\n");
  EXPECT_EQ(body.rfind("<html>\r\n\r\n<head>\r\n", 0), 0u);
  EXPECT_NE(body.find("color=\"#FF0000\">The\r\n  page cannot be found </font></b></font></p>\r\n"),
            std::string::npos);
  EXPECT_NE(body.find("\"#000000\">HTTP\r\n  404 - File not found</font></i></font></p>\r\n<hr>"),
            std::string::npos);
}

TEST_P(BuildersTest, RetrieveHeaderBuildsTheRequestWithTheListenersAddress) {
  const std::string rest =
      " HTTP/1.0\r\nAccept: text/plain\r\nAccept-Language: en-us\r\nAccept-Encoding: gzip, deflate\r\n"
      "User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)\r\n";
  const auto expect = [&](const char16_t* page, const std::string& line, const std::string& host) {
    EXPECT_EQ(Utf8(server->html_retrieveHeader(page)),
              "GET " + line + rest + "Host: " + host + "\r\nConnection: Keep-Alive\r\n\r\n");
  };
  net.SetLocalAddress(u"10.0.0.7");  // the host line names the listener's local address
  expect(u"/index.html", "/index.html", "10.0.0.7");
  net.SetLocalAddress(
      u"::1");  // the page goes in as it is: no encoding, blanks and all; an empty one too
  expect(u"/a b?x=%20&y", "/a b?x=%20&y", "::1");
  expect(u"", "", "::1");
  Start();  // a started server gives the same text: it touches no connection
  net.SetLocalAddress(u"127.0.0.1");
  expect(u"/", "/", "127.0.0.1");
}

using AccessTablesTest = ServerFixture;

TEST_P(AccessTablesTest, UserListPositionsAndLookup) {
  EXPECT_TRUE(server->UsersAdd(u"user:pass").IsEmpty());
  server->UsersAdd(u"admin:admin");
  server->UsersAdd(u"user:pass");  // duplicates are not checked
  EXPECT_TRUE(server->UsersGet(0).IsEmpty());
  EXPECT_TRUE(server->UsersGet(4).IsEmpty());
  server->UsersDelete(0);  // out of range: nothing changes
  server->UsersDelete(4);
  EXPECT_EQ(server->UsersCount(), 3);
  server->UsersDelete(1);  // later entries move up
  EXPECT_EQ(Utf8(server->UsersGet(1)), "admin:admin");
  EXPECT_EQ(server->UsersCount(), 2);
  // Both sides upper-cased, compared as one text.
  for (const char16_t* in : {u"USER:PASS", u"Admin:ADMIN"}) {
    EXPECT_TRUE(server->UsersFindIfIsIn(in));
  }
  for (const char16_t* out : {u"user", u"user:pass ", u""}) {
    EXPECT_FALSE(server->UsersFindIfIsIn(out));
  }
}

TEST_P(AccessTablesTest, SecurePathsArePrefixPatterns) {
  server->SecurePathAdd(u"/admin");
  server->SecurePathAdd(u"/r[");   // a broken pattern fails only its own entry
  server->SecurePathAdd(u"/v#/");  // "#" stands for a digit
  // Prefix without regard to case, and with no directory boundary.
  for (const char16_t* in : {u"/ADMIN/x", u"/administrator/", u"/v2/x"}) {
    EXPECT_TRUE(server->SecurePathFindIfIsIn(in)) << Utf8(Text(in));
  }
  for (const char16_t* out : {u"/adm", u"/x/admin/", u"/vx/", u"/r[/"}) {
    EXPECT_FALSE(server->SecurePathFindIfIsIn(out)) << Utf8(Text(out));
  }
  server->SecurePathAdd(u"/");  // every path with a leading slash; "" below: every path
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"/anything"));
  EXPECT_FALSE(server->SecurePathFindIfIsIn(u"no-slash"));
  server->SecurePathAdd(u"");
  EXPECT_TRUE(server->SecurePathFindIfIsIn(u"no-slash"));
  EXPECT_TRUE(server->SecurePathGet(5).IsString());
}

TEST_P(AccessTablesTest, ProcesoOperationsBeforeAndAfterStart) {
  // Before the first start element 0 passes the bounds check; the arrays do not exist.
  EXPECT_EQ(server->ProcesoStatus_Code(0), kSocketClosed);
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0);
  EXPECT_THROW(server->Proceso_Receive(0), RuntimeError);
  EXPECT_THROW(server->Proceso_KeepOpen(0), RuntimeError);
  server->Proceso_KeepOpen(0, true);  // swallowed
  EXPECT_TRUE(server->Proceso_Receive(1).IsEmpty());

  Start(8080, 5);
  server->Proceso_Send(9, u"x");  // out of range: nothing happens, nothing is reported
  server->Proceso_Send(-1, u"x");
  EXPECT_FALSE(server->Proceso_KeepOpen(9));
  EXPECT_TRUE(server->ProcesoStatus_String(6).IsEmpty());
  EXPECT_EQ(Utf8(server->ProcesoStatus_String(3)), "Closed");
  EXPECT_TRUE(reports.empty());
  EXPECT_THROW(server->Proceso_Send(2, u"x"), RuntimeError) << "a closed slot's failure";
  const double before = sim.loop.Elapsed();
  server->Proceso_Close(2);  // a free slot returns at once, with no pause
  EXPECT_EQ(sim.loop.Elapsed(), before);
}

VARNEK_BOTH_LOOP_MODES(BuildersTest);
VARNEK_BOTH_LOOP_MODES(AccessTablesTest);

}  // namespace
}  // namespace varnek::testing
