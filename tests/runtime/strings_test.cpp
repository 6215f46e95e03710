// String functions: Mid/Left/Right/InStr edges, Replace, Split, Trim, Asc/Chr.
#include "runtime/strings.h"

#include <gtest/gtest.h>

#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(MidLeftRight, EdgesAndFailures) {
  EXPECT_EQ(Mid(u"test", 2, 4), u"est");
  EXPECT_EQ(Mid(u"test", 5), u"");
  EXPECT_EQ(Mid(u"test", 4), u"t");
  EXPECT_EQ(Mid(u"test", 2, 0), u"");
  EXPECT_EQ(FailureOf([] { Mid(u"test", 0, 3); }), 5);
  EXPECT_EQ(FailureOf([] { Mid(u"test", 1, -1); }), 5);
  EXPECT_EQ(FailureOf([] { Mid(u"test", 0); }), 5);
  EXPECT_EQ(Left(u"test", 10), u"test");
  EXPECT_EQ(Left(u"test", 0), u"");
  EXPECT_EQ(Right(u"test", 2), u"st");
  EXPECT_EQ(Right(u"test", 9), u"test");
  EXPECT_EQ(FailureOf([] { Right(u"test", -1); }), 5);
  EXPECT_EQ(FailureOf([] { Left(u"test", -1); }), 5);

  Text s = u"abcdef";
  MidAssign(s, 2, -1, u"XYZ");
  EXPECT_EQ(s, u"aXYZef");
  MidAssign(s, 5, -1, u"1234");  // never grows the text
  EXPECT_EQ(s, u"aXYZ12");
  MidAssign(s, 1, 1, u"qq");
  EXPECT_EQ(s, u"qXYZ12");
  EXPECT_EQ(FailureOf([&] { MidAssign(s, 7, -1, u"x"); }), 5);
}

TEST(InStr, ClassicTable) {
  EXPECT_EQ(InStr(u"abcd", u"bc"), 2);
  EXPECT_EQ(InStr(3, u"abcd", u"bc"), 0);
  EXPECT_EQ(InStr(4, u"abcdef", u""), 4);
  EXPECT_EQ(InStr(20, u"abcdef", u""), 0);
  EXPECT_EQ(InStr(4, u"", u""), 0);
  EXPECT_EQ(InStr(2, u"", u"abcd"), 0);
  EXPECT_EQ(InStr(5, u"abcd", u"bc"), 0);
  EXPECT_EQ(FailureOf([] { InStr(-20, u"abcd", u"abcd", CompareMode::Text); }), 5);
  EXPECT_EQ(FailureOf([] { InStr(2, u"abcd", u"x", static_cast<CompareMode>(10)); }), 5);
  EXPECT_EQ(InStr(1, u"abcABC", u"aB", CompareMode::Text), 1);
  EXPECT_EQ(InStr(1, u"abcABC", u"aB", CompareMode::Binary), 0);
  EXPECT_EQ(InStr(1, u"xx\u00C9t\u00E9", u"\u00E9T", CompareMode::Text), 3);

  EXPECT_EQ(InStrRev(u"abcabc", u"bc"), 5);
  EXPECT_EQ(InStrRev(u"abcabc", u"bc", 4), 2);
  EXPECT_EQ(InStrRev(u"abcabc", u"bc", 2), 0);  // must end at or before start
  EXPECT_EQ(InStrRev(u"abcabc", u"BC", -1, CompareMode::Text), 5);
  EXPECT_EQ(InStrRev(u"abc", u"", 2), 2);
  EXPECT_EQ(InStrRev(u"abc", u"a", 9), 0);
  EXPECT_EQ(InStrRev(u"", u"a"), 0);
  EXPECT_EQ(FailureOf([] { InStrRev(u"abc", u"a", 0); }), 5);
}

TEST(ReplaceSplitJoin, StartCountAndEmptyCases) {
  EXPECT_EQ(Replace(u"aXbX", u"X", u"-"), u"a-b-");
  EXPECT_EQ(Replace(u"aXbXcX", u"X", u"-", 3), u"b-c-");  // result starts at start
  EXPECT_EQ(Replace(u"aXbXcX", u"X", u"-", 1, 2), u"a-b-cX");
  EXPECT_EQ(Replace(u"axbXc", u"x", u"", 1, -1, CompareMode::Text), u"abc");
  EXPECT_EQ(Replace(u"abc", u"", u"-"), u"abc");
  EXPECT_EQ(Replace(u"abc", u"b", u"-", 4), u"");
  EXPECT_EQ(Replace(u"aaa", u"aa", u"b"), u"ba");
  EXPECT_EQ(FailureOf([] { Replace(u"abc", u"b", u"", 0); }), 5);
  EXPECT_EQ(FailureOf([] { Replace(u"abc", u"b", u"", 1, -2); }), 5);

  EXPECT_EQ(Split(u"a b  c"), (std::vector<Text>{u"a", u"b", u"", u"c"}));
  EXPECT_EQ(Split(u"a,b,c", u",", 2), (std::vector<Text>{u"a", u"b,c"}));
  EXPECT_EQ(Split(u"a,b,", u","), (std::vector<Text>{u"a", u"b", u""}));
  EXPECT_TRUE(Split(u"").empty());
  EXPECT_TRUE(Split(u"a b", u" ", 0).empty());
  EXPECT_EQ(Split(u"a b", u""), (std::vector<Text>{u"a b"}));
  EXPECT_EQ(Split(u"aXbxc", u"x", -1, CompareMode::Text), (std::vector<Text>{u"a", u"b", u"c"}));
  EXPECT_EQ(Join({u"a", u"", u"c"}, u"--"), u"a----c");
  EXPECT_EQ(Join({}, u","), u"");
}

TEST(SmallFunctions, TrimSpaceReverseAscChr) {
  EXPECT_EQ(Trim(u"\tx "), u"\tx");
  EXPECT_EQ(Trim(u"  a b  "), u"a b");
  EXPECT_EQ(Trim(u"\u00A0a\u00A0"), u"\u00A0a\u00A0");
  EXPECT_EQ(LTrim(u"  a "), u"a ");
  EXPECT_EQ(RTrim(u"  a "), u"  a");
  EXPECT_EQ(Trim(u"   "), u"");
  EXPECT_EQ(Space(3), u"   ");
  EXPECT_EQ(String(2, u'z'), u"zz");
  EXPECT_EQ(FailureOf([] { Space(-1); }), 5);
  EXPECT_EQ(StrReverse(u"abc"), u"cba");
  EXPECT_EQ(Len(u"\u20ACx"), 2);

  EXPECT_EQ(Asc(u"A"), 65);
  EXPECT_EQ(Asc(u"test"), 116);
  EXPECT_EQ(FailureOf([] { Asc(u""); }), 5);
  EXPECT_EQ(Chr(65), u"A");
  EXPECT_EQ(Chr(128), u"\u20AC");
  EXPECT_EQ(FailureOf([] { Chr(-1); }), 5);
  EXPECT_EQ(FailureOf([] { Chr(256); }), 5);
  EXPECT_EQ(AscW(ChrW(0xFFFF)), -1);
  EXPECT_EQ(ChrW(-1), ChrW(0xFFFF));
  EXPECT_EQ(ChrW(-32768), Text(1, char16_t{0x8000}));
  EXPECT_EQ(FailureOf([] { ChrW(65536); }), 5);
  EXPECT_EQ(FailureOf([] { ChrW(-32769); }), 5);
}

}  // namespace
}  // namespace varnek
