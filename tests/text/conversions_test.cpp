// Number, colour, date and filter conversions; the repeating-key scrambler.
#include "varnek/runtime/dates.h"
#include "varnek/runtime/strings.h"
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, IntToCharAndBack) {
  // high bytes dropped; a byte of 128 goes through the code page
  // clang-format off
  struct Row { int32_t value, width; bool hex; Text chars; };
  const Row rows[] = {{258, 2, false, u"\x01\x02"}, {4106, 2, true, u"10A"},
                      {1, 3, false, Text(u"\0\0\x01", 3)}, {0x41424344, 2, false, u"CD"},
                      {128, 1, false, u"\u20ac"}};
  // clang-format on
  for (const Row& r : rows)
    EXPECT_EQ(CStr(kit.Var_IntToChar(r.value, r.width, r.hex)), r.chars) << r.value;
  // a lost leading zero; "FFFF" read as the 16-bit "&H" literal
  // clang-format off
  struct Back { Text chars; bool hex; const char16_t* value; };
  const Back backs[] = {{u"ff", true, u"255"}, {u"\x01\x02", false, u"18"},
                        {u"\u20ac", false, u"128"}, {u"\u00ff\u00ff", false, u"-1"},
                        {u"xyz", true, u"&Hxyz"}};
  // clang-format on
  for (const Back& r : backs)
    EXPECT_EQ(CStr(kit.Var_CharToInt(r.chars, r.hex)), r.value) << TextToUtf8(r.chars);
}

TEST_F(ToolkitTest, RomanNumeralsLeaveTheUnitsDigit) {
  // clang-format off
  struct Row { int16_t in; const char16_t* roman; int16_t left; };
  const Row rows[] = {{1994, u"MCMXCIV", 4}, {0, u"", 0}, {9, u"IX", 9},
                      {3888, u"MMMDCCCLXXXVIII", 8}, {40, u"XL", 0}, {400, u"CD", 0},
                      {4000, u"MMMM", 0}, {12345, u"MMMMMMMMMMMMCCCXLV", 5}};
  // clang-format on
  for (const Row& r : rows) {
    int16_t x = r.in;
    EXPECT_EQ(kit.Var_ToRoman(x), r.roman) << r.in;
    EXPECT_EQ(x, r.left) << r.in;
  }
}

TEST_F(ToolkitTest, PercentDifferenceAndColours) {
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(50, 100)), 50);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(0, 0)), 100);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(Variant::Null(), 5)), 100);
  auto rgb = kit.Var_ColorLongToRGB(197121);
  ASSERT_EQ(rgb->Count(), 3);
  EXPECT_EQ(CStr(rgb->Item(1)) + CStr(rgb->Item(2)) + CStr(rgb->Item(3)), u"123");
  EXPECT_EQ(kit.Var_ColorRGBToLong(1, 2, 3), 197121);
  EXPECT_EQ(kit.Var_ColorRGBToLong(300, 1000, 256), 16777215);  // each capped at 255
  EXPECT_EQ(kit.Var_ColorRGBToLong(u"x", 1, 0), 256);           // a failing component is 0
  EXPECT_EQ(kit.Var_ColorRGBToLong(70000, 0, 0), 0);            // not a 16-bit value
}

TEST_F(ToolkitTest, CompactDatesAndTheZeroDate) {
  EXPECT_EQ(kit.Var_DateToString(Variant(Date{DateFromParts(2004, 3, 7, 14, 5, 9)})),
            u"20040307140509");
  EXPECT_EQ(kit.Var_DateToString(Variant(Date{DateFromParts(987, 12, 31, 0, 0, 0)})),
            u"09871231000000");
  EXPECT_EQ(kit.Var_DateToString(u"not a date") + kit.Var_DateToString(Variant::Null()), u"");
  for (const char16_t* compact : {u"20040307140509", u"18500615183000"}) {
    EXPECT_EQ(kit.Var_DateToString(Variant(kit.Var_StringToDate(compact))), compact);
  }
  // another date form is only checked: the result is the current moment; nonsense is the zero date
  EXPECT_EQ(kit.Var_StringToDate(u"2004-03-07").serial, sim.platform.loop->Now());
  EXPECT_EQ(kit.Var_StringToDate(u"nonsense").serial, 0);
  EXPECT_EQ(FailureOf([&] { kit.Var_StringToDate(u"2004ab07140509"); }), kErrTypeMismatch);
}

class CommaLocaleToolkit : public TextToolkit {
 public:
  explicit CommaLocaleToolkit(Platform& platform) : TextToolkit(platform) {}
  Text Win_LocaleDecimalSeparator() const override { return u","; }
};

TEST_F(ToolkitTest, CurrencyTextFollowsTheDecimalMarkAndIsWrittenBack) {
  EXPECT_EQ(kit.Win_LocaleDecimalSeparator(), u".");  // the "C" numeric locale
  EXPECT_EQ(CStr(kit.Var_CurrencyToString(Variant(Currency{12345}))), u"1.2345");
  Variant s = u"12,5", bad = u"abc", thousands = u"1,000.50";
  EXPECT_EQ(kit.Var_StringToCurrency(s).scaled, 125000);
  EXPECT_EQ(CStr(s), u"12.5");
  EXPECT_EQ(kit.Var_StringToCurrency(bad).scaled, 0);
  EXPECT_EQ(kit.Var_StringToCurrency(thousands).scaled, 0);  // both marks become decimal marks
  EXPECT_EQ(CStr(thousands), u"1.000.50");
  CommaLocaleToolkit comma(sim.platform);
  Variant t = u"3.25";
  comma.Var_StringToCurrency(t);
  EXPECT_EQ(CStr(t), u"3,25");
}

TEST_F(ToolkitTest, FilterKeepsPlainPrintableText) {
  const Text rows[][2] = {
      {u"A\u00f1o\r\n\u00f1u", u"Ano nu"},
      {u"a\rb\nc\td", u"a bcd"},  // lone LF, TAB go
      {u"\u00c1\u00c9\u00cd\u00d3\u00da\u00e1\u00e9\u00ed\u00f3\u00fa\u00d1", u"AEIOUaeiouN"},
      {u"\u00fc\u20ac\u00ff~x", u"~x"},
      {u"\r\r\n", u"  "},
      {u"\u4e2d", u"\u4e2d"}};  // no byte: not removed
  for (const auto& r : rows)
    EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(r[0])), r[1]) << TextToUtf8(r[0]);
}

TEST_F(ToolkitTest, EnCryptIsItsOwnInverseWithARepeatingKey) {
  Text all;
  for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  for (const Text key : {u"k", u"secret", u"\u20ac\u00ff\x01"}) {
    Text once = kit.Var_EnCrypt(all, key);
    EXPECT_EQ(once.size(), all.size());
    EXPECT_NE(once, all);
    EXPECT_EQ(kit.Var_EnCrypt(once, key), all);
  }
  EXPECT_EQ(kit.Var_EnCrypt(u"ab", u"\x01\x02\x03\x04"), u"``");
  EXPECT_EQ(kit.Var_EnCrypt(u"abc", u"\x01\x02"), u"``b");  // the key repeats
  EXPECT_EQ(kit.Var_EnCrypt(u"", u""), u"");
  EXPECT_EQ(kit.Var_EnCrypt(123, u""), u"123");
  EXPECT_EQ(kit.Var_Compress(12), u"12");  // the compressor placeholders pass text through
  EXPECT_EQ(kit.Var_Decompress(u"abc"), u"abc");
  ExpectFailures({{kErrInvalidUseOfNull, [&] { kit.Var_EnCrypt(u"x", Variant::Null()); }},
                  {kErrInvalidUseOfNull, [&] { kit.Var_Compress(Variant::Null()); }},
                  {kErrInvalidUseOfNull, [&] { kit.Var_ColorLongToRGB(Variant::Null()); }}});
}

}  // namespace
}  // namespace varnek
