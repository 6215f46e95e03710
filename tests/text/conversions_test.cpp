// Number, colour, date and filter conversions.
#include "runtime/dates.h"
#include "runtime/strings.h"
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, IntToCharAndBack) {
  EXPECT_EQ(CStr(kit.Var_IntToChar(258, 2)), Text(u"\x01\x02"));
  EXPECT_EQ(CStr(kit.Var_IntToChar(258, 2, true)), u"12");
  EXPECT_EQ(CStr(kit.Var_IntToChar(4106, 2, true)), u"10A");
  EXPECT_EQ(CStr(kit.Var_IntToChar(1, 3)), Text(u"\0\0\x01", 3));
  EXPECT_EQ(CStr(kit.Var_IntToChar(65, 1)), u"A");
  EXPECT_EQ(CStr(kit.Var_IntToChar(0x41424344, 2)), u"CD");  // high bytes dropped
  EXPECT_EQ(CStr(kit.Var_IntToChar(128, 1)), u"\u20ac");      // through the code page
  EXPECT_EQ(CStr(kit.Var_IntToChar(5, 0)), u"");

  EXPECT_EQ(CDbl(kit.Var_CharToInt(u"A")), 65);
  EXPECT_EQ(CDbl(kit.Var_CharToInt(u"ff", true)), 255);
  EXPECT_EQ(CDbl(kit.Var_CharToInt(Text(u"\x01\x02"))), 18);  // lost leading zero
  EXPECT_EQ(CDbl(kit.Var_CharToInt(kit.Var_IntToChar(0x1020, 2))), 0x1020);
  EXPECT_EQ(CDbl(kit.Var_CharToInt(u"\u20ac")), 128);
  EXPECT_EQ(CDbl(kit.Var_CharToInt(u"\u00ff\u00ff")), -1);  // the 16-bit "&H" literal
  EXPECT_EQ(CDbl(kit.Var_CharToInt(u"12345678", true)), 0x12345678);
  EXPECT_EQ(CStr(kit.Var_CharToInt(u"xyz", true)), u"&Hxyz");
}

TEST_F(ToolkitTest, RomanNumeralsLeaveTheUnitsDigit) {
  struct Row {
    int16_t in;
    const char16_t* roman;
    int16_t left;
  };
  const Row rows[] = {{1994, u"MCMXCIV", 4}, {0, u"", 0},          {4, u"IV", 4},
                      {9, u"IX", 9},         {3888, u"MMMDCCCLXXXVIII", 8},
                      {40, u"XL", 0},        {400, u"CD", 0},       {4000, u"MMMM", 0},
                      {12345, u"MMMMMMMMMMMMCCCXLV", 5}};
  for (const Row& r : rows) {
    int16_t x = r.in;
    EXPECT_EQ(kit.Var_ToRoman(x), r.roman) << r.in;
    EXPECT_EQ(x, r.left) << r.in;
  }
}

TEST_F(ToolkitTest, PercentDifferenceAndColours) {
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(50, 100)), 50);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(100, 50)), 50);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(7, 7)), 0);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(0, 0)), 100);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(u"abc", 5)), 100);
  EXPECT_EQ(CDbl(kit.Var_PercentDiference(Variant::Null(), 5)), 100);

  auto rgb = kit.Var_ColorLongToRGB(255);
  ASSERT_EQ(rgb->Count(), 3);
  EXPECT_EQ(CDbl(rgb->Item(1)), 255);
  EXPECT_EQ(CDbl(rgb->Item(2)), 0);
  EXPECT_EQ(CDbl(rgb->Item(3)), 0);
  auto mixed = kit.Var_ColorLongToRGB(197121);
  EXPECT_EQ(CDbl(mixed->Item(1)), 1);
  EXPECT_EQ(CDbl(mixed->Item(2)), 2);
  EXPECT_EQ(CDbl(mixed->Item(3)), 3);
  EXPECT_EQ(FailureOf([&] { kit.Var_ColorLongToRGB(Variant::Null()); }), kErrInvalidUseOfNull);

  EXPECT_EQ(kit.Var_ColorRGBToLong(1, 2, 3), 197121);
  EXPECT_EQ(kit.Var_ColorRGBToLong(300, 1000, 256), 16777215);  // each capped at 255
  EXPECT_EQ(kit.Var_ColorRGBToLong(u"x", 1, 0), 256);            // a failing part is 0
  EXPECT_EQ(kit.Var_ColorRGBToLong(70000, 0, 0), 0);             // not a 16-bit value
}

TEST_F(ToolkitTest, CompactDates) {
  double when = DateFromParts(2004, 3, 7, 14, 5, 9);
  EXPECT_EQ(kit.Var_DateToString(Variant(Date{when})), u"20040307140509");
  EXPECT_EQ(kit.Var_DateToString(Variant(Date{DateFromParts(987, 12, 31, 0, 0, 0)})),
            u"09871231000000");
  EXPECT_EQ(kit.Var_DateToString(u"not a date"), u"");
  EXPECT_EQ(kit.Var_DateToString(Variant::Null()), u"");

  Date back = kit.Var_StringToDate(u"20040307140509");
  EXPECT_EQ(kit.Var_DateToString(Variant(back)), u"20040307140509");
  Date old = kit.Var_StringToDate(u"18500615183000");
  EXPECT_EQ(kit.Var_DateToString(Variant(old)), u"18500615183000");
  // Another date form is only checked: the result is the current moment.
  EXPECT_EQ(kit.Var_StringToDate(u"2004-03-07").serial, sim.platform.loop->Now());
  EXPECT_EQ(kit.Var_StringToDate(u"nonsense").serial, 0);
  EXPECT_EQ(FailureOf([&] { kit.Var_StringToDate(u"2004ab07140509"); }), kErrTypeMismatch);
}

class CommaLocaleToolkit : public TextToolkit {
 public:
  explicit CommaLocaleToolkit(Platform& platform) : AddsCore(platform), TextToolkit(platform) {}
  Text Win_LocaleDecimalSeparator() const override { return u","; }
};

TEST_F(ToolkitTest, CurrencyTextFollowsTheDecimalMark) {
  EXPECT_EQ(kit.Win_LocaleDecimalSeparator(), u".");  // the "C" numeric locale
  EXPECT_EQ(CStr(kit.Var_CurrencyToString(Variant(Currency{12345}))), u"1.2345");

  Variant s = u"12,5";
  EXPECT_EQ(kit.Var_StringToCurrency(s).scaled, 125000);
  EXPECT_EQ(CStr(s), u"12.5");  // the changed text is written back
  Variant bad = u"abc";
  EXPECT_EQ(kit.Var_StringToCurrency(bad).scaled, 0);
  Variant thousands = u"1,000.50";  // both marks become decimal marks
  EXPECT_EQ(kit.Var_StringToCurrency(thousands).scaled, 0);
  EXPECT_EQ(CStr(thousands), u"1.000.50");

  CommaLocaleToolkit comma(sim.platform);
  Variant t = u"3.25";
  comma.Var_StringToCurrency(t);
  EXPECT_EQ(CStr(t), u"3,25");
}

TEST_F(ToolkitTest, FilterKeepsPlainPrintableText) {
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"A\u00f1o\r\n\u00f1u")), u"Ano nu");
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"\u00c1\u00c9\u00cd\u00d3\u00da\u00e1\u00e9\u00ed\u00f3\u00fa\u00d1")),
            u"AEIOUaeiouN");
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"a\rb\nc\td")), u"a bcd");  // lone LF, TAB go
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"\u00fc\u20ac\u00ff~x")), u"~x");
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"\r\r\n")), u"  ");
  EXPECT_EQ(CStr(kit.Var_FiltraCaracteres(u"\u4e2d")), u"\u4e2d");  // no byte: not removed
}

}  // namespace
}  // namespace varnek
