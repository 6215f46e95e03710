// The response builders, byte for byte, and the palette's telling rows.
#include <gtest/gtest.h>

#include "runtime/strings.h"
#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using BuildersTest = ServerFixture;

TEST_F(BuildersTest, HeaderLinesAppearOnlyWhenAsked) {
  // Plain: status (no reason phrase), server, type, blank.
  EXPECT_EQ(Utf8(server->http_Header(e200_OK, eTextHTML)),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\n");
  // A length of 0 is a given length and stands before the type line.
  EXPECT_EQ(Utf8(server->http_Header(e404_NotFound, eApplicationOctetStream, 0)),
            "HTTP/1.0 404\r\nServer: Varnek\r\nContent-Length: 0\r\n"
            "Content-Type: application/octet-stream\r\n\r\n");
  // Undeclared content type 2: no type line at all. Any code goes through.
  EXPECT_EQ(Utf8(server->http_Header(299, 2)), "HTTP/1.0 299\r\nServer: Varnek\r\n\r\n");
  // An empty realm still counts as given; no quotes, blanks around "=".
  EXPECT_EQ(Utf8(server->http_Header(e401_Unauthorized, eTextHTML, 12, u"")),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = \r\nServer: Varnek\r\n"
            "Content-Length: 12\r\nContent-Type: text/html\r\n\r\n");
}

TEST_F(BuildersTest, GenericPageFrame) {
  const std::string start = Utf8(server->html_GenericStart(u"x"));
  EXPECT_EQ(start,
            "<html>\r\n<head>\r\n<style>\r\n"
            "a:link          {font:8pt/11pt verdana; color:red; text-decoration:none}\r\n"
            "a:visited       {font:8pt/11pt verdana; color:red; text-decoration:none}\r\n"
            "a:hover          {font:8pt/11pt verdana; color:red; text-decoration:underline}\r\n"
            "</style>\r\n"
            "<meta HTTP-EQUIV=\"Content-Type\" Content=\"text-html; charset=Windows-1252\">\r\n"
            "<title>x</title>\r\n</head>\r\n"
            "<body link=\"red\" text=\"black\" bgcolor=\"white\">\r\n"
            "<p><font face=\"Verdana, Arial, Helvetica, sans-serif\" size=\"2\"><b>\r\n"
            "x</b></font></p>\r\n");

  // Palette values go in as their decimal text.
  const std::string coloured =
      Utf8(server->html_GenericStart(u"t", Variant::Long(echRed), Variant::Long(echCyan), u"#00F"));
  EXPECT_NE(coloured.find("<body link=\"#00F\" text=\"16711680\" bgcolor=\"-1\">"),
            std::string::npos);

  // A title with no text form loses its rows; the rest of the page stands.
  const std::string gap = Utf8(server->html_GenericStart(Variant(Collection::New())));
  EXPECT_EQ(gap.find("<title>"), std::string::npos);
  EXPECT_NE(gap.find("</head>\r\n<body link=\"red\""), std::string::npos);

  const std::string end = Utf8(server->html_GenericEnd());
  EXPECT_EQ(end.rfind("<hr>\r\n<p align=\"center\"><font face=\"Verdana, Arial, Helvetica, "
                      "sans-serif\" size=\"1\" color=\"#999999\">(c) <A HREF=",
                      0),
            0u);
  EXPECT_NE(end.find(">2001, Varnek</A></font></p>\r\n</body>\r\n</html>\r\n"), std::string::npos);
}

TEST_F(BuildersTest, ErrorPagesAndRequest) {
  // Str keeps the sign's blank: two blanks in the title.
  const std::string e503 = Utf8(server->http_ErrorResponse(e503_ServiceUnavailable));
  EXPECT_NE(e503.find("<title>HTTP  503 Error</title>"), std::string::npos);
  EXPECT_EQ(e503.rfind("<html>", 0), 0u) << "no head in front";
  EXPECT_EQ(e503, Utf8(server->html_GenericStart(u"HTTP  503 Error")) +
                      Utf8(server->html_GenericEnd()));
  // The generic page for 404 is not the 404 page.
  EXPECT_EQ(Utf8(server->http_ErrorResponse(e404_NotFound)).find("cannot be found"),
            std::string::npos);

  // The 404 answer: its Content-Length counts the page, not the head.
  const std::string page404 = Utf8(server->html_404error());
  const size_t blank = page404.find("\r\n\r\n");
  ASSERT_NE(blank, std::string::npos);
  const std::string head = page404.substr(0, blank + 4);
  const std::string body = page404.substr(blank + 4);
  EXPECT_EQ(head, "HTTP/1.0 404\r\nServer: Varnek\r\nContent-Length: " +
                      std::to_string(body.size()) + "\r\nContent-Type: text/html\r\n\r\n");
  EXPECT_EQ(body.rfind("<html>\r\n\r\n<head>\r\n", 0), 0u);
  EXPECT_NE(body.find("color=\"#FF0000\">The\r\n  page cannot be found </font></b></font></p>\r\n"),
            std::string::npos);
  EXPECT_NE(body.find("\"#000000\">HTTP\r\n  404 - File not found</font></i></font></p>\r\n<hr>"),
            std::string::npos);

  EXPECT_EQ(server->http_DecodeHeader(u"GET / HTTP/1.0\r\n")->Count(), 0);

  EXPECT_EQ(Utf8(server->html_retrieveHeader(u"/a b")),
            "GET /a b HTTP/1.0\r\nAccept: text/plain\r\nAccept-Language: en-us\r\n"
            "Accept-Encoding: gzip, deflate\r\n"
            "User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)\r\n"
            "Host: 192.168.1.10\r\nConnection: Keep-Alive\r\n\r\n");
}

TEST(PaletteTest, TellingRowsKeepTheirOddities) {
  // Sign-widened 16-bit patterns, and the one shared value.
  EXPECT_EQ(echCyan, -1);
  EXPECT_EQ(echGreen, -256);
  EXPECT_EQ(echWhite, echGray100);
  EXPECT_EQ(echOrange, 0xF87A17);
  EXPECT_EQ(echGray18, 0x250517);
  EXPECT_EQ(echAntiqueWhite4, 0x817468);
  EXPECT_EQ(e202_Acepted, 202);
}

}  // namespace
}  // namespace varnek::testing
