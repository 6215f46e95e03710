// cp1252 mapping of every byte, UTF-8 at the host boundary, case tables.
#include "runtime/text.h"

#include <gtest/gtest.h>

#include "runtime/strings.h"

namespace varnek {
namespace {

TEST(Cp1252, EveryByteRoundTripsThroughItsUnit) {
  for (int b = 0; b < 256; ++b) {
    char16_t u = ByteToUnit(static_cast<uint8_t>(b));
    EXPECT_TRUE(UnitHasByte(u)) << b;
    EXPECT_EQ(UnitToByte(u), b) << b;
    EXPECT_EQ(Asc(Chr(b)), b) << b;
    if (b < 0x80 || b >= 0xA0) {
      EXPECT_EQ(u, b) << b;
    }
  }
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(TextToBytes(BytesToText(all)), all);
}

TEST(Cp1252, HighControlRangeAndUnmappedUnits) {
  // bytes 0x80..0x9F: the printable extras and the five C1 pass-throughs
  EXPECT_EQ(ByteToUnit(0x80), u'\u20AC');
  EXPECT_EQ(ByteToUnit(0x8A), u'\u0160');
  EXPECT_EQ(ByteToUnit(0x9F), u'\u0178');
  EXPECT_EQ(ByteToUnit(0x96), u'\u2013');
  for (int b : {0x81, 0x8D, 0x8F, 0x90, 0x9D}) EXPECT_EQ(ByteToUnit(static_cast<uint8_t>(b)), b);
  EXPECT_EQ(Asc(u"\u20AC"), 128);
  EXPECT_EQ(AscW(u"\u20AC"), 8364);
  // C1 units the code page replaces have no byte of their own
  EXPECT_FALSE(UnitHasByte(u'\u0080'));
  EXPECT_EQ(UnitToByte(u'\u0080'), 63);
  EXPECT_EQ(UnitToByte(u'\u4E2D'), 63);
  EXPECT_EQ(TextToBytes(u"a\u4E2Db"), "a?b");
}

TEST(Utf8, DecodesAndEncodesWithReplacement) {
  EXPECT_EQ(Utf8ToText("caf\xC3\xA9"), u"caf\u00E9");
  EXPECT_EQ(Utf8ToText("\xE2\x82\xAC"), u"\u20AC");
  EXPECT_EQ(Utf8ToText("\xF0\x9F\x98\x80"), u"\U0001F600");
  EXPECT_EQ(TextToUtf8(u"\U0001F600"), "\xF0\x9F\x98\x80");
  EXPECT_EQ(TextToUtf8(u"\u00E9\u20AC"), "\xC3\xA9\xE2\x82\xAC");
  // invalid input: stray continuation, overlong, encoded surrogate, truncated
  EXPECT_EQ(Utf8ToText("a\x80z"), u"a\uFFFDz");
  EXPECT_EQ(Utf8ToText("\xC0\xAF"), u"\uFFFD");
  EXPECT_EQ(Utf8ToText("\xED\xA0\x80"), u"\uFFFD");
  EXPECT_EQ(Utf8ToText("x\xE2\x82"), u"x\uFFFD");
  // a lone surrogate never leaves as invalid UTF-8
  EXPECT_EQ(TextToUtf8(Text(1, char16_t{0xD800})), "\xEF\xBF\xBD");
  EXPECT_EQ(T("abc"), u"abc");
}

TEST(CaseMapping, AllCp1252BytesMapWithinTheirPairs) {
  for (int b = 0; b < 256; ++b) {
    char16_t u = ByteToUnit(static_cast<uint8_t>(b));
    Text up = UCase(Text(1, u)), lo = LCase(Text(1, u));
    // mapping back lands on the same letter in either case
    EXPECT_EQ(LCase(up), LCase(lo)) << b;
    EXPECT_EQ(UCase(lo), UCase(up)) << b;
  }
  EXPECT_EQ(UCase(u"abc\u00E9\u00FF\u0161\u0153\u017E"), u"ABC\u00C9\u0178\u0160\u0152\u017D");
  EXPECT_EQ(LCase(u"ABC\u00C9\u0178\u0160\u0152\u017D"), u"abc\u00E9\u00FF\u0161\u0153\u017E");
  // non-letters stay: multiplication/division signs, sharp s, digits, punctuation
  EXPECT_EQ(UCase(u"\u00F7\u00D7\u00DF1[]"), u"\u00F7\u00D7\u00DF1[]");
  EXPECT_EQ(LCase(u"\u00D7\u00F7@"), u"\u00D7\u00F7@");
  // Latin Extended-A pairs of both parities, Greek and Cyrillic
  EXPECT_EQ(UCase(u"\u0101\u013A\u017A\u03B1\u0436\u0451"), u"\u0100\u0139\u0179\u0391\u0416\u0401");
  EXPECT_EQ(LCase(u"\u0100\u0139\u0179\u0391\u0416\u0401"), u"\u0101\u013A\u017A\u03B1\u0436\u0451");
}

}  // namespace
}  // namespace varnek
