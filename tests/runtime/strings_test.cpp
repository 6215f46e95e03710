// cp1252, UTF-8 and case tables; string functions; Variant comparison, StrComp, Concat and Like.
#include "varnek/runtime/strings.h"

#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <regex>

#include "varnek/runtime/compare.h"
#include "varnek/runtime/like.h"
#include "varnek/runtime/text.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(Cp1252, EveryByteRoundTripsAndCaseMapsWithinItsPairUtf8Replaces) {
  std::string all;
  for (int b = 0; b < 256; ++b) {
    char16_t u = ByteToUnit(static_cast<uint8_t>(b));
    EXPECT_TRUE(UnitHasByte(u)) << b;
    EXPECT_EQ(UnitToByte(u), b) << b;
    EXPECT_EQ(Asc(Chr(b)), b) << b;
    EXPECT_TRUE(u == b || (b >= 0x80 && b < 0xA0)) << b;
    all += static_cast<char>(b);
    Text up = UCase(Text(1, u)), lo = LCase(Text(1, u));  // back to the same letter in either case
    EXPECT_EQ(LCase(up), LCase(lo)) << b;
    EXPECT_EQ(UCase(lo), UCase(up)) << b;
  }
  EXPECT_EQ(TextToBytes(BytesToText(all)), all);
  // bytes 0x80..0x9F: the printable extras and the five C1 pass-throughs
  EXPECT_EQ(BytesToText("\x80\x8A\x96\x9F"), u"\u20AC\u0160\u2013\u0178");
  EXPECT_EQ(BytesToText("\x81\x8D\x8F\x90\x9D"), u"\u0081\u008D\u008F\u0090\u009D");
  // C1 units the code page replaces have no byte of their own
  EXPECT_FALSE(UnitHasByte(u'\u0080'));
  EXPECT_EQ(UnitToByte(u'\u0080'), 63);
  EXPECT_EQ(TextToBytes(u"a\u4E2Db"), "a?b");
  // cp1252 letters, Latin Extended-A pairs of both parities, Greek and Cyrillic; non-letters
  // (signs, sharp s) stay
  using P = std::pair<Text, Text>;
  for (auto [lower, upper] :
       {P{u"abc\u00E9\u00FF\u0161\u0153\u017E", u"ABC\u00C9\u0178\u0160\u0152\u017D"},
        P{u"\u0101\u013A\u017A\u03B1\u0436\u0451", u"\u0100\u0139\u0179\u0391\u0416\u0401"},
        P{u"\u00F7\u00D7\u00DF1[]@", u"\u00F7\u00D7\u00DF1[]@"}}) {
    EXPECT_EQ(UCase(lower), upper) << TextToUtf8(lower);
    EXPECT_EQ(LCase(upper), lower) << TextToUtf8(upper);
  }
  EXPECT_EQ(Utf8ToText("caf\xC3\xA9\xF0\x9F\x98\x80"), u"caf\u00E9\U0001F600");
  EXPECT_EQ(TextToUtf8(u"\u00E9\U0001F600"), "\xC3\xA9\xF0\x9F\x98\x80");
  // invalid input: stray continuation, overlong, encoded surrogate, truncated
  EXPECT_EQ(Utf8ToText("a\x80z|\xC0\xAF|\xED\xA0\x80|x\xE2\x82"),
            u"a\uFFFDz|\uFFFD|\uFFFD|x\uFFFD");
  // a lone surrogate never leaves as is
  EXPECT_EQ(TextToUtf8(Text(1, char16_t{0xD800})), "\xEF\xBF\xBD");
}

TEST(MidInStr, EdgesStartsEmptiesAndModes) {
  EXPECT_EQ(Mid(u"test", 2, 4), u"est");
  EXPECT_EQ(Mid(u"test", 5), u"");
  EXPECT_EQ(Mid(u"test", 4), u"t");
  EXPECT_EQ(Left(u"test", 10), u"test");
  EXPECT_EQ(Right(u"test", 2), u"st");
  EXPECT_EQ(Right(u"test", 9), u"test");
  ExpectFailures({{5, [] { Mid(u"test", 0, 3); }},
                  {5, [] { Mid(u"test", 1, -1); }},
                  {5, [] { Right(u"test", -1); }},
                  {5, [] { Left(u"test", -1); }}});
  Text s = u"abcdef";
  MidAssign(s, 2, -1, u"XYZ");
  EXPECT_EQ(s, u"aXYZef");
  MidAssign(s, 5, -1, u"1234");  // never grows the text
  EXPECT_EQ(s, u"aXYZ12");
  MidAssign(s, 1, 1, u"qq");
  EXPECT_EQ(s, u"qXYZ12");
  EXPECT_EQ(FailureOf([&] { MidAssign(s, 7, -1, u"x"); }), 5);
  constexpr CompareMode B = CompareMode::Binary, T = CompareMode::TextCompare;
  // clang-format off
  struct Row { int start; const char16_t *s, *find; CompareMode mode; int want; };
  const Row rows[] = {{1, u"abcd", u"bc", B, 2}, {3, u"abcd", u"bc", B, 0},
                      {4, u"abcdef", u"", B, 4}, {20, u"abcdef", u"", B, 0}, {4, u"", u"", B, 0},
                      {1, u"abcABC", u"aB", T, 1}, {1, u"abcABC", u"aB", B, 0},
                      {1, u"xx\u00C9t\u00E9", u"\u00E9T", T, 3}};
  // clang-format on
  for (const Row& r : rows)
    EXPECT_EQ(InStr(r.start, r.s, r.find, r.mode), r.want) << "row " << &r - rows;
  // InStrRev: a match must end at or before start
  // clang-format off
  const Row rev[] = {{-1, u"abcabc", u"bc", B, 5}, {4, u"abcabc", u"bc", B, 2},
                     {2, u"abcabc", u"bc", B, 0}, {-1, u"abcabc", u"BC", T, 5},
                     {2, u"abc", u"", B, 2}, {9, u"abc", u"a", B, 0}};
  // clang-format on
  for (const Row& r : rev)
    EXPECT_EQ(InStrRev(r.s, r.find, r.start, r.mode), r.want) << "row " << &r - rev;
  ExpectFailures({{5, [] { InStr(-20, u"abcd", u"abcd", CompareMode::TextCompare); }},
                  {5, [] { InStrRev(u"abc", u"a", 0); }},
                  {5, [] { InStr(2, u"abcd", u"x", static_cast<CompareMode>(10)); }}});
}

TEST(ReplaceSplitTrimChr, StartCountEmptyCasesAndRanges) {
  EXPECT_EQ(Replace(u"aXbXcX", u"X", u"-", 3), u"b-c-");  // result starts at start
  EXPECT_EQ(Replace(u"aXbXcX", u"X", u"-", 1, 2), u"a-b-cX");
  EXPECT_EQ(Replace(u"axbXc", u"x", u"", 1, -1, CompareMode::TextCompare), u"abc");
  EXPECT_EQ(Replace(u"abc", u"", u"-"), u"abc");
  EXPECT_EQ(Replace(u"abc", u"b", u"-", 4), u"");
  EXPECT_EQ(Replace(u"aaa", u"aa", u"b"), u"ba");
  ExpectFailures(
      {{5, [] { Replace(u"abc", u"b", u"", 0); }}, {5, [] { Replace(u"abc", u"b", u"", 1, -2); }}});
  EXPECT_EQ(Split(u"a b  c"), (std::vector<Text>{u"a", u"b", u"", u"c"}));
  EXPECT_EQ(Split(u"a,b,c", u",", 2), (std::vector<Text>{u"a", u"b,c"}));
  EXPECT_EQ(Split(u"a,b,", u","), (std::vector<Text>{u"a", u"b", u""}));
  EXPECT_TRUE(Split(u"").empty());
  EXPECT_TRUE(Split(u"a b", u" ", 0).empty());
  EXPECT_EQ(Split(u"a b", u""), (std::vector<Text>{u"a b"}));
  EXPECT_EQ(Split(u"aXbxc", u"x", -1, CompareMode::TextCompare),
            (std::vector<Text>{u"a", u"b", u"c"}));
  EXPECT_EQ(Join({u"a", u"", u"c"}, u"--"), u"a----c");
  EXPECT_EQ(Trim(u"\tx "), u"\tx");  // blanks only
  EXPECT_EQ(Trim(u"\u00A0a\u00A0"), u"\u00A0a\u00A0");
  EXPECT_EQ(LTrim(u"  a "), u"a ");
  EXPECT_EQ(RTrim(u"  a "), u"  a");
  EXPECT_EQ(Asc(u"test"), 116);
  EXPECT_EQ(AscW(ChrW(0xFFFF)), -1);
  EXPECT_EQ(ChrW(-32768), Text(1, char16_t{0x8000}));
  // clang-format off
  ExpectFailures({{5, [] { Space(-1); }}, {5, [] { Asc(u""); }}, {5, [] { Chr(-1); }},
                  {5, [] { Chr(256); }}, {5, [] { ChrW(65536); }}, {5, [] { ChrW(-32769); }}});
  // clang-format on
}

TEST(CompareVariants, MixedSubtypesEmptyAndNull) {
  // clang-format off
  struct Row { Variant a, b; int want; };
  const Row rows[] = {
      {2, 10.5, -1}, {true, -1, 0}, {Currency{15000}, 1.5, 0}, {Date{1.0}, 1, 0}, {u"5", u"4", 1},
      {u"10", 90, 1}, {90, u"10", -1},  // a number sorts below any text, unconverted
      {0, Variant(), 0}, {Variant(), u"", 0}, {Variant(), u"a", -1}, {Variant(), -1, 1},
      {0.1f, 0.1, 0}};  // Single against Double at single precision
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(CompareVariants(r.a, r.b), r.want) << "row " << &r - rows;
  EXPECT_NE(CompareVariants(Variant(0.1 + 0.2), Variant(0.3)), 0);
  // Null gives no answer, and an If reads it as False
  EXPECT_FALSE(CompareVariants(Variant::Null(), Variant(1)) ||
               CompareVariants(Variant(0), Variant::Null()));
  EXPECT_FALSE(VariantEqual(Variant::Null(), Variant::Null()) ||
               VariantLess(Variant::Null(), Variant(1)));
  EXPECT_TRUE(VariantEqual(Variant(u"ABC"), Variant(u"abc"), CompareMode::TextCompare));
  EXPECT_EQ(FailureOf([] { CompareVariants(Variant(1), Variant(std::make_shared<Object>())); }),
            13);
}

TEST(StrCompConcat, BinaryByCodeUnitTextBesideTheBaseLetter) {
  constexpr CompareMode B = CompareMode::Binary, T = CompareMode::TextCompare;
  // clang-format off
  struct Row { const char16_t *a, *b; CompareMode mode; int want; };
  const Row rows[] = {
      {u"ABCD", u"abcd", T, 0},  {u"ABCD", u"abcd", B, -1},  {u"ABCD", u"ABC", B, 1},
      {u"a", u"B", T, -1},       {u"a", u"B", B, 1},         {u"z", u"\u00C0", B, -1},
      {u"\u00E0", u"B", T, -1},  {u"\u00C0", u"\u00E0", T, 0}, {u"_", u"a", T, -1},
      {u"9", u"a", T, -1},       {u"\u00E9a", u"eb", T, -1}};  // base letters decide first
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(StrComp(r.a, r.b, r.mode), r.want) << "row " << &r - rows;
  EXPECT_EQ(StrComp(u"abcd", u"ABCD"), 1);  // binary by default
  EXPECT_EQ(FailureOf([] { StrComp(u"a", u"b", static_cast<CompareMode>(2)); }), 5);
  // Concat: a Null side adds nothing, two give Null; numbers join as their text
  EXPECT_EQ(Concat(Variant(u"ab "), Variant::Null()).RawString(), u"ab ");
  EXPECT_TRUE(Concat(Variant::Null(), Variant::Null()).IsNull());
  EXPECT_EQ(Concat(Variant(true), Concat(Variant(1), Variant(2.5))).RawString(), u"True12.5");
}

TEST(Like, WildcardsBracketsAndCaseByMode) {
  constexpr CompareMode T = CompareMode::TextCompare;
  // clang-format off
  struct Row { const char16_t *s, *p; bool want; CompareMode mode = CompareMode::Binary; };
  const Row rows[] = {
      {u"F", u"[!A-Z]", false},  {u"aM5b", u"a[L-P]#[!c-e]", true},  {u"CAT123khg", u"B?T*", false},
      {u"", u"*", true},  {u"", u"?", false},  {u"a*b", u"a[*]b", true},  {u"axb", u"a[*]b", false},
      {u"a[xyz", u"a[[]*", true},  {u"a?", u"a[?]", true},  {u"#1", u"[#]#", true},
      {u"a]", u"a]", true},
      {u"!", u"!", true},  {u"-", u"[-a]", true},  {u"-", u"[a-]", true},  {u"-", u"[!-a]", false},
      {u"ab", u"a[]b", true},  {u"Y", u"[A-CX-Z]", true},  {u"M", u"[A-CX-Z]", false},
      // case and accents follow the compare mode; ranges ascend in the mode's own order
      {u"ABC", u"abc", false},  {u"ABC", u"abc", true, T},  {u"a", u"[A-E]", false},
      {u"a", u"[A-E]", true, T},  {u"\u00C0", u"[A-E]", false},  {u"\u00E0", u"[A-E]", true, T},
      {u"e", u"[A-E]", true, T},  {u"\u00CA", u"[A-E]", false, T},  {u"\u00EA", u"[A-E]", false, T},
      {u"\u00E9X", u"\u00C9?", true, T},  {u"m", u"[a-Z]", true, T}};
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(Like(r.s, r.p, r.mode), r.want) << "row " << &r - rows;
  // an unclosed "[" and a descending range fail
  ExpectFailures({{93, [] { Like(u"a[xyz", u"a[*"); }},
                  {93, [] { Like(u"b", u"[Z-A]"); }},
                  {93, [] { Like(u"m", u"[a-Z]"); }}});
}

TEST(Like, ManyStarsStayFast) {
  Text text(5000, u'a'), pattern;
  for (int i = 0; i < 200; ++i) pattern += u"*a";
  pattern += u"*b";
  auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(Like(text, pattern));
  EXPECT_TRUE(Like(text + u"b", pattern));
  auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                  begin);
  EXPECT_LT(ms.count(), 2000);
}

TEST(Like, AgreesWithARegularExpressionReference) {
  // each pattern piece beside its regular-expression form; the reference is std::regex (binary
  // compare)
  // clang-format off
  const std::pair<Text, std::string> pieces[] = {
      {u"a", "a"},       {u"b", "b"},       {u"1", "1"},         {u"?", "."},    {u"*", ".*"},
      {u"#", "[0-9]"},   {u"[ab]", "[ab]"}, {u"[!a]", "[^a]"},   {u"[a-c]", "[a-c]"},
      {u"**", ".*.*"}};
  // clang-format on
  std::mt19937 rng(12345);
  int matches = 0;
  for (int round = 0; round < 4000; ++round) {
    Text s, p;
    std::string re;
    for (int n = static_cast<int>(rng() % 7); n > 0; --n) s += u"ab1c"[rng() % 4];
    for (int n = static_cast<int>(rng() % 5); n > 0; --n) {
      const auto& piece = pieces[rng() % 10];
      p += piece.first;
      re += piece.second;
    }
    bool expected = std::regex_match(TextToUtf8(s), std::regex(re));
    matches += expected;
    ASSERT_EQ(Like(s, p), expected) << TextToUtf8(s) << " like " << TextToUtf8(p);
  }
  EXPECT_GT(matches, 200);  // the sample covers both answers
}

}  // namespace
}  // namespace varnek
