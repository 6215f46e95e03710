// The RTF converter: control words with their resume places, the tables, the
// entities, lists, alignment, the page wrapper and the raised failures.
#include <gtest/gtest.h>
#include <time.h>

#include <algorithm>
#include <utility>

#include "varnek/adds/adds.h"
#include "varnek/adds/generators/rtf_to_html.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

using generators::RtfToHtml;

// One paragraph behind a bare header with no tables.
Text Bare(const Text& body) {
  return RtfToHtml(u"{\\rtf1\r\n\\deflang1033 " + body + u"\r\n\\par }", u"");
}

// A header with a colour table: \cf0 is FF0000, \cf1 is 0080FF.
Text Coloured(const Text& body) {
  return RtfToHtml(
      u"{\\rtf1{\\colortbl ;\\red255\\green0\\blue0;\\red0\\green128\\blue255;}\r\n"
      u"\\deflang1033 " +
          body + u"\r\n\\par }",
      u"");
}

// The header an edit control writes, with fonts 0..2 and two colours.
const Text kHeader =
    u"{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\fswiss MS Sans Serif;}{\\f1\\froman\\fcharset2 Symbol;}"
    u"{\\f2\\fswiss Arial;}}\r\n{\\colortbl\\red0\\green0\\blue0;\\red255\\green0\\blue0;}\r\n"
    u"\\deflang1033\\pard\\plain\\f2\\fs20 ";

const Text kCenter =
    u"<TABLE ALIGN=\"left\" CELLSPACING=0 CELLPADDING=0 WIDTH=\"100%\"><TR ALIGN=\"center\"><TD>";
const Text kRight =
    u"<TABLE ALIGN=\"left\" CELLSPACING=0 CELLPADDING=0 WIDTH=\"100%\"><TR ALIGN=\"right\"><TD>";

TEST(RtfToHtml, ControlWordsResumeWhereTheyAreToldAndEntities) {
  // clang-format off
  const std::pair<const char16_t*, const char16_t*> rows[] = {
      // text goes out unescaped; unknown words and their blank vanish
      {u"a<b&c", u"a<b&c"}, {u"\\tabx y", u"y"}, {u"\\b0 x", u"x"},
      // bold, italic, strike and underline close in reverse order
      {u"\\b bold\\plain  x", u"<B>bold</B> x"}, {u"\\b\\i x}y", u"<B><I>x</I></B>y"},
      {u"\\strike\\b x", u"<STRIKE>b x</STRIKE>"},  // the backslash is lost
      {u"\\strike x", u"<STRIKE>x</STRIKE>"},
      {u"\\ul x", u"<U> x</U>"},  // the blank is read as text
      // an unknown word ending in "}" consumes it without closing anything
      {u"\\b x\\xyz}y", u"<B>xy</B>"},
      // words that end in a text unit lose the unit behind their delimiter
      {u"\\bullet ab", u"\u2022b"}, {u"\\emdash ab", u"\u2014b"}, {u"\\lquote ab", u"\u2018b"},
      {u"\\rquote ab", u"\u2019b"}, {u"\\ldblquote ab", u"\u201Cb"},
      {u"\\rdblquote ab", u"\u201Db"}, {u"\\~ab", u" b"}, {u"\\{ab\\}cd\\\\ef", u"{b}d\\f"},
      {u"\\tab x", u"&#9;x"}, {u"a\\\r\nb", u"a\r\nb"},  // an escaped line break writes CR LF
      // entities; 00, not a0, is the blank; the padding is trimmed; upper-case
      // hex has no row; cp1252 units
      {u"\\'e9x", u"&eacute;x"}, {u"\\'d7\\'a7", u"&times;&sect;"}, {u"\\'00", u"&nbsp;"},
      {u"\\'85", u"..."}, {u"\\'E9", u"\u00E9"}, {u"\\'a0\\'ae", u"\u00A0\u00AE"},
      {u"\\'80\\'9f", u"\u20AC\u0178"},
  };
  // clang-format on
  for (auto [rtf, html] : rows) {
    SCOPED_TRACE(TextToUtf8(rtf));
    EXPECT_EQ(Bare(rtf), html);
  }
  EXPECT_EQ(std::char_traits<char16_t>::length(generators::kRtfEntityTable), 96u * 12u);
}

TEST(RtfToHtml, FontsColoursSizesAndAlignment) {
  // font 2 differs from font 0; \fs20 is the default size and writes nothing
  EXPECT_EQ(RtfToHtml(kHeader + u"Hello\r\n\\par }", u""), u"<FONT FACE=\"Arial\">Hello</FONT>");
  EXPECT_EQ(RtfToHtml(kHeader + u"a\\f1 b\\plain\\f0 c\r\n\\par }", u""),
            u"<FONT FACE=\"Arial\">a<FONT FACE=\"Symbol\">b</FONT>c");
  EXPECT_EQ(RtfToHtml(kHeader + u"One\r\n\\par Two\r\n\\par }", u""),
            u"<FONT FACE=\"Arial\">One<BR>Two</FONT>");
  EXPECT_EQ(RtfToHtml(kHeader + u"\\cf1 x\r\n\\par }", u""),
            u"<FONT FACE=\"Arial\" COLOR=\"#FF0000\">x</FONT>");
  const std::pair<const char16_t*, Text> coloured[] = {
      // counting starts at the first \red; five units are read, blanks skipped
      {u"\\cf1 x", u"<FONT COLOR=\"#0080FF\">x</FONT>"},
      {u"\\cf1 2x", u"2x"},  // colour 12 is past the top
      {u"\\cf5 x", u"x"},
      // two changes, one close; \plain with a change still waiting writes none
      {u"\\cf0 a\\cf1 b\\plain c", u"<FONT COLOR=\"#FF0000\">a<FONT COLOR=\"#0080FF\">b</FONT>c"},
      {u"\\cf0\\plain x", u"x"},
      // sizes: n / 5 - 2 floored, 2 is the default, clamped to 1..8; a size alone writes no tag
      {u"\\cf0\\fs30 x", u"<FONT COLOR=\"#FF0000\" SIZE = \"4\">x</FONT>"},
      {u"\\cf0\\fs50 x", u"<FONT COLOR=\"#FF0000\" SIZE = \"8\">x</FONT>"},
      {u"\\cf0\\fs25 x", u"<FONT COLOR=\"#FF0000\" SIZE = \"3\">x</FONT>"},
      {u"\\cf0\\fs19 x", u"<FONT COLOR=\"#FF0000\" SIZE = \"1\">x</FONT>"},
      {u"\\cf0\\fs24 x", u"<FONT COLOR=\"#FF0000\">x</FONT>"},
      {u"\\fs30 x", u"x"},
      // alignment waits for the next font tag; the table closes at \plain
      {u"\\qc\\cf0 ab", kCenter + u"<FONT COLOR=\"#FF0000\">ab</FONT>"},
      {u"\\qr\\cf0 a\\b c\\plain d",
       kRight + u"<FONT COLOR=\"#FF0000\">a<B>c</FONT></TD></TR></TABLE><BR></B>d"},
      {u"\\qc xy\\cf0 z", u"y" + kCenter + u"<FONT COLOR=\"#FF0000\">z</FONT>"}};
  for (const auto& [rtf, html] : coloured) EXPECT_EQ(Coloured(rtf), html) << TextToUtf8(rtf);
  // components: the second and third units are taken only if digits
  EXPECT_EQ(
      RtfToHtml(u"{\\colortbl\\red1;2\\green300\\blue0;}\r\n\\deflang \\cf0 x\r\n\\par }", u""),
      u"<FONT COLOR=\"#0C12C00\">x</FONT>");
}

TEST(RtfToHtml, ListsAndParagraphs) {
  Text list =
      u"{\\rtf1\r\n\\deflang1033 {\\pntext\\'b7\\tab}{\\*\\pn\\pnlvlblt\\pnf1{\\pntxtb\\'b7}}one"
      u"\r\n\\par {\\pntext\\'b7\\tab}two\r\n\\par \\pard\\plain after\r\n\\par }";
  const std::pair<Text, const char16_t*> rows[] = {
      {list, u"<UL><LI>one</LI><LI>two</LI></UL>after"},
      // no CR LF "\deflang", or no CR LF "\par" after it: no body
      {u"{\\rtf1 \\deflang1033 hello\r\n\\par }", u""},
      {u"{\\rtf1\r\n\\deflang1033 hello}", u""},
      // the first break writes nothing until something set the item close
      {u"{\\rtf1\r\n\\deflang1033 a\r\n\\par b\r\n\\par }", u"ab"},
      {u"{\\rtf1\r\n\\deflang1033 a\r\n\\par b",
       u"a"},  // text after the last CR LF "\par" is never read
      {u"{\\rtf1\r\n\\deflang x\\pntxtb y\r\n\\par ",
       u"x"}};  // a group skipped to a missing "}" ends the scan
  for (const auto& [rtf, html] : rows) EXPECT_EQ(RtfToHtml(rtf, u""), html) << TextToUtf8(rtf);
}

// Rich-edit text that ends its bold and italic with "\b0" and "\i0", which
// close nothing: every close stays owed until the end of the text.
Text BoldRuns(size_t paragraphs) {
  Text rtf = u"{\\rtf1\r\n\\deflang1033 ";
  for (size_t i = 0; i < paragraphs; ++i) rtf += u"a \\b word\\b0  and \\i more\\i0 .\r\n\\par ";
  return rtf + u"}";
}

// Thread CPU seconds of the best of two conversions: steadier than the wall
// clock on a loaded machine.
double ConvertSeconds(const Text& rtf) {
  double best = 1e9;
  for (int round = 0; round < 2; ++round) {
    timespec a{}, b{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    Text html = RtfToHtml(rtf, u"");
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    EXPECT_FALSE(html.empty());
    best = std::min(best, double(b.tv_sec - a.tv_sec) + double(b.tv_nsec - a.tv_nsec) / 1e9);
  }
  return best;
}

TEST(RtfToHtml, OwedClosesComeOutNewestFirstInLinearTime) {
  // every paragraph's tags stay open; the end closes them, newest first
  Text closes;
  for (int i = 0; i < 3; ++i) closes += u"</I></B>";
  EXPECT_EQ(RtfToHtml(BoldRuns(3), u""),
            u"a <B>word and <I>more.a <B>word and <I>more.<BR>a <B>word and <I>more." + closes);
  EXPECT_EQ(Bare(u"\\strike\\b\\i\\ul x\\plain y\\b z"),
            u"<STRIKE>b<I><U> x</U></I></STRIKE>y<B>z</B>");
  // eight times the text may not cost much more than eight times the time
  // (it cost about 64 times when each close was put in front of the rest)
  const double small = ConvertSeconds(BoldRuns(12000)), large = ConvertSeconds(BoldRuns(96000));
  EXPECT_LT(large, std::max(small, 0.002) * 24) << small << " s, then " << large << " s";
}

TEST(RtfToHtml, PageWrapperAndOptions) {
  const Text head = u"<!DOCTYPE HTML PUBLIC \"-//W3C//DTD HTML 3.2//EN\">\r\n<HTML>\r\n<HEAD>\r\n";
  EXPECT_EQ(RtfToHtml(u"none", u"+H"),
            head + u"<TITLE></TITLE>\r\n\r\n</HEAD>\r\n<BODY>\r\n</BODY>\r\n</HTML>");
  EXPECT_EQ(RtfToHtml(u"{\\rtf1\r\n\\deflang x\r\n\\par }", u"+T\"My page\"+G+H"),
            head +
                u"<TITLE>My page</TITLE>\r\n<META NAME=\"GENERATOR\" CONTENT=\"Varnek Software\">"
                u"\r\n</HEAD>\r\n<BODY>\r\nx</BODY>\r\n</HTML>");
  // the unit between marker and title is not looked at; a quote further on
  // ends a title that starts with a quote
  EXPECT_EQ(RtfToHtml(u"", u"+H+T=Name\""),
            head + u"<TITLE>Name</TITLE>\r\n\r\n</HEAD>\r\n<BODY>\r\n</BODY>\r\n</HTML>");
  EXPECT_EQ(RtfToHtml(u"", u"+H+T\"\"x\""),
            head + u"<TITLE>\"x</TITLE>\r\n\r\n</HEAD>\r\n<BODY>\r\n</BODY>\r\n</HTML>");
  // +T and +G without +H change nothing
  EXPECT_EQ(Bare(u"x"), RtfToHtml(u"{\\rtf1\r\n\\deflang1033 x\r\n\\par }", u"+G+T\"t\""));
}

TEST(RtfToHtml, RaisedFailures) {
  ExpectFailures({
      {5, [] { RtfToHtml(u"", u"+H+T\"\""); }},  // no closing quote
      {5, [] { RtfToHtml(u"", u"+T"); }},
      {9, [] { Bare(u"\\f9 x"); }},  // past the font table
      {9, [] { RtfToHtml(kHeader + u"\\f3 x\r\n\\par }", u""); }},
      {13, [] { Bare(u"\\'zz"); }},  // no row, no hex
      {13, [] { RtfToHtml(u"{\\colortbl\\red\\green0\\blue0;}", u""); }},
      {13, [] { RtfToHtml(u"{\\colortbl\\red1;}", u""); }},  // a \red alone reads near the start
      {0, [] { Bare(u"\\f0 x"); }},
  });
  // through Adds: the arguments stay as they were; Null fails
  SimPlatform sim;
  Adds adds(sim.platform);
  Variant rtf = u"{\\rtf1\r\n\\deflang1033 \\b x\r\n\\par }", options = u"+T\"t\"";
  EXPECT_EQ(adds.Var_RTF2HTML(rtf, options).ToText(), u"<B>x</B>");
  EXPECT_EQ(rtf.ToText(), u"{\\rtf1\r\n\\deflang1033 \\b x\r\n\\par }");
  EXPECT_EQ(options.ToText(), u"+T\"t\"");
  Variant null = Variant::Null();
  EXPECT_EQ(FailureOf([&] { adds.Var_RTF2HTML(null, options); }), 94);
}

}  // namespace
}  // namespace varnek
