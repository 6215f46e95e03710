// URL and Base64 codecs: their required deviations from the strict codecs.
#include <random>

#include "runtime/strings.h"

#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, UrlEncodeEscapesAllButLettersAndDigits) {
  EXPECT_EQ(CStr(kit.URL_Encode(u"a b-c")), u"a+b%2Dc");
  EXPECT_EQ(CStr(kit.URL_Encode(u"\r\n\t")), u"%D%A%9");  // short, unpadded forms
  EXPECT_EQ(CStr(kit.URL_Encode(u"x_y.z~")), u"x%5Fy%2Ez%7E");
  EXPECT_EQ(CStr(kit.URL_Encode(u"\u00f1\u20ac")), u"%F1%80");  // cp1252 bytes
  EXPECT_EQ(CStr(kit.URL_Encode(Text(1, u'\0'))), u"%0");
  EXPECT_EQ(CStr(kit.URL_Encode(u"")), u"");
  EXPECT_EQ(CStr(kit.URL_Encode(42)), u"42");
  EXPECT_EQ(FailureOf([&] { kit.URL_Encode(Variant::Null()); }), kErrInvalidUseOfNull);
}

TEST_F(ToolkitTest, UrlDecodeMatchesEscapesLiterallyInAscendingPasses) {
  struct Row {
    const char16_t* in;
    const char16_t* want;
  };
  const Row rows[] = {
      {u"a+b%2Dc", u"a b-c"},
      {u"%2d", u"%2d"},        // lower-case digits stay
      {u"100%", u"100%"},      {u"%", u"%"}, {u"%4", u"%4"},
      {u"%A", u"%A"},          // the encoder's one-digit form does not decode
      {u"%0A%0D", u"\n\r"},
      {u"%00", u"%00"},        // no pass for 0
      {u"%2B", u"+"},          // a decoded "+" stays
      {u"%2541", u"A"},        // 37 frees "%41", decoded at 65
      {u"%2510", u"%10"},      // pass 16 was already over
      {u"%2525", u"%25"},      // the freed "%25" is behind the scan of pass 37
      {u"%%2541", u"%A"},
      {u"%4%41", u"J"},        // pass 65 frees "%4A", decoded at 74
      {u"%3%33", u"%33"},      // "3" freed at 51 forms "%33" behind the scan
      {u"%F1%80%FF", u"\u00f1\u20ac\u00ff"},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(CStr(kit.URL_Decode(r.in)), r.want) << TextToUtf8(r.in);
  }
}

// The decoder as the classic code runs it: 255 global Var_Translate passes.
Text LiteralUrlDecode(TextToolkit& kit, Text s) {
  s = kit.Var_Translate(s, u"+", u" ");
  for (int i = 1; i <= 255; ++i) {
    const char16_t digits[] = u"0123456789ABCDEF";
    Text escape{u'%', digits[i / 16], digits[i % 16]};
    s = kit.Var_Translate(s, escape, Chr(i));
  }
  return s;
}

TEST_F(ToolkitTest, UrlDecodeAgreesWithTheLiteralPasses) {
  // An alphabet dense in escapes, so that decoded units form new ones.
  const Text alphabet = u"%%%0123456789ABCDEFa+";
  std::mt19937 rng(12345);
  for (int round = 0; round < 3000; ++round) {
    Text s;
    size_t length = rng() % 24;
    for (size_t i = 0; i < length; ++i) s += alphabet[rng() % alphabet.size()];
    ASSERT_EQ(CStr(kit.URL_Decode(s)), LiteralUrlDecode(kit, s)) << TextToUtf8(s);
  }
}

TEST_F(ToolkitTest, UrlRoundTripForUnitsOf16AndAbove) {
  Text all;
  for (int b = 16; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  EXPECT_EQ(CStr(kit.URL_Decode(kit.URL_Encode(all))), all);
}

TEST_F(ToolkitTest, Base64EncodeGoldenValues) {
  EXPECT_EQ(kit.Base64_Encode(u""), u"");
  EXPECT_EQ(kit.Base64_Encode(u"a"), u"YQ==");
  EXPECT_EQ(kit.Base64_Encode(u"ab"), u"YWI=");
  EXPECT_EQ(kit.Base64_Encode(u"abc"), u"YWJj");
  EXPECT_EQ(kit.Base64_Encode(u"user:pass"), u"dXNlcjpwYXNz");
  EXPECT_EQ(kit.Base64_Encode(u"\u00ff\u00fe\u20ac"), u"//6A");  // bytes FF FE 80
}

TEST_F(ToolkitTest, Base64DecodeIsLenient) {
  EXPECT_EQ(kit.Base64_Decode(u"YQ=="), u"a");
  EXPECT_EQ(kit.Base64_Decode(u"YWI="), u"ab");
  EXPECT_EQ(kit.Base64_Decode(u"dXNlcjpwYXNz"), u"user:pass");
  EXPECT_EQ(kit.Base64_Decode(u"YQ"), u"");          // short group dropped
  EXPECT_EQ(kit.Base64_Decode(u"YWJjYQ"), u"abc");
  EXPECT_EQ(kit.Base64_Decode(u"YW Jj"), kit.Base64_Decode(u"YWAJ"));  // space reads as "A"
  EXPECT_EQ(kit.Base64_Decode(u"YW Jj").size(), 3u);
  // "=" third with a real fourth: one unit removed, two kept.
  EXPECT_EQ(kit.Base64_Decode(u"YQ=x"), Text(u"a\0", 2));
  // "=" reads as 64, shifted out of the first two units: one NUL stays.
  EXPECT_EQ(kit.Base64_Decode(u"===="), Text(1, u'\0'));
  EXPECT_EQ(kit.Base64_Decode(u"YQ==\r\nYQ=="), Text(u"a\0\x06\x10", 4));  // a break shifts all
  EXPECT_EQ(kit.Base64_Decode(u"//6A"), u"\u00ff\u00fe\u20ac");
}

TEST_F(ToolkitTest, Base64RoundTripsEveryByte) {
  Text all;
  for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  for (size_t cut = 0; cut < 4; ++cut) {
    Text part = all.substr(cut);
    EXPECT_EQ(kit.Base64_Decode(kit.Base64_Encode(part)), part);
  }
}

}  // namespace
}  // namespace varnek

namespace varnek {
namespace {

TEST_F(ToolkitTest, CodecsReadUnitsThroughTheCodePageForAllBytes) {
  // Each byte's code-page unit is read back as that byte and written as it.
  for (int b = 0; b < 256; ++b) {
    Text unit(1, ByteToUnit(static_cast<uint8_t>(b)));
    Text encoded = kit.Base64_Encode(unit);
    EXPECT_EQ(kit.Base64_Decode(encoded), unit) << b;
    char16_t expect_first = u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/"[b >> 2];
    EXPECT_EQ(encoded[0], expect_first) << b;
    EXPECT_EQ(CStr(kit.Var_IntToChar(b, 1)), unit) << b;
  }
  // A unit with no byte in the code page reads as "?" (63).
  EXPECT_EQ(kit.Base64_Encode(u"\u4e2d"), kit.Base64_Encode(u"?"));
  EXPECT_EQ(CStr(kit.URL_Encode(u"\u4e2d")), u"%3F");
}

}  // namespace
}  // namespace varnek
