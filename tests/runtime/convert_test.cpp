// The classic conversions (rounding, overflow, digits, Str/Hex/Val, IsNumeric), Format, locale
// readings.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/int16.h"

#include <gtest/gtest.h>

#include "varnek/runtime/dates.h"
#include "varnek/runtime/date_text.h"
#include "varnek/runtime/locale_source.h"
#include "varnek/runtime/number_text.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

struct TextRow {
  Variant in;
  const char16_t* out;
};

TEST(IntegerConversions, RoundHalfToEvenThenRangeCheckAndArithmeticLimits) {
  // clang-format off
  struct Row { Variant in; int out; };
  const Row rows[] = {
      {0.5, 0}, {1.5, 2}, {2.5, 2}, {3.5, 4}, {-0.5, 0}, {-1.5, -2}, {-36.5, -36}, {0.6, 1},
      {-0.6, -1}, {36.75, 37}, {32767.49, 32767}, {-32768.5, -32768}, {u"-0.5", 0}, {u"  12  ", 12},
      {u"&HFFFF", -1}, {Variant(), 0}, {true, -1}, {Currency{25000}, 2}, {Currency{35000}, 4},
      {Currency{-25001}, -3}};
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(CInt(r.in), r.out) << "row " << &r - rows;
  // clang-format off
  const std::pair<Variant, int32_t> longs[] = {{2.5, 2}, {25427.55, 25428}, {u"&HFFFF", -1},
                                               {u"&H0FFFF", 65535}, {u"1.5e3", 1500}};
  // clang-format on
  for (const auto& [in, out] : longs) EXPECT_EQ(CLng(in), out) << out;
  EXPECT_EQ(CByte(Variant(125.5678)), 126);
  // clang-format off
  ExpectFailures({{6, [] { CInt(Variant(32767.5)); }}, {6, [] { CInt(Variant(-32768.51)); }},
                  {6, [] { CInt(Variant(u"40000")); }}, {6, [] { CLng(Variant(2147483647.5)); }},
                  {6, [] { CByte(Variant(u"-1")); }}, {6, [] { CByte(Variant(255.5)); }},
                  {6, [] { CDbl(Variant(u"1e999")); }}, {94, [] { CLng(Variant::Null()); }},
                  {13, [] { CInt(Variant(u"")); }}, {13, [] { CInt(Variant(u"TRUE")); }},
                  {13, [] { CInt(Variant(u"abc")); }}, {13, [] { CInt(Variant(u"1e")); }}});
  // clang-format on
  EXPECT_EQ(AddInt16(32766, 1), 32767);
  EXPECT_EQ(MulInt16(-128, 256), -32768);
  EXPECT_EQ(MulInt32(-65536, 32768), INT32_MIN);
  // clang-format off
  ExpectFailures({{6, [] { AddInt16(32767, 1); }}, {6, [] { SubInt16(-32768, 1); }},
                  {6, [] { MulInt16(-32768, -1); }}, {6, [] { ToInt16(32768); }},
                  {6, [] { AddInt32(INT32_MAX, 1); }}, {6, [] { MulInt32(2000 * 365, 3000); }},
                  {6, [] { ToInt32(int64_t{INT32_MIN} - 1); }}});
  // clang-format on
}

TEST(CStrStrHexVal, DigitRulesLeadingBlankWidthsBySubtypeAndHexWrap) {
  // clang-format off
  const TextRow rows[] = {
      {3.141592653589793, u"3.14159265358979"}, {999999999999999.0, u"999999999999999"},
      {1e15, u"1E+15"}, {1.2e15, u"1.2E+15"}, {5.6789e-11, u"0.000000000056789"},
      {5.6789e-12, u"5.6789E-12"}, {0.1 + 0.2, u"0.3"}, {-2.5, u"-2.5"}, {100.0, u"100"},
      {1e100, u"1E+100"}, {-1e-20, u"-1E-20"}, {3.14159265f, u"3.141593"},
      {1234.56789f, u"1234.568"}, {1e8f, u"1E+08"}, {true, u"True"}, {false, u"False"},
      {Variant(), u""}, {-32768, u"-32768"}, {Currency{12345000}, u"1234.5"},
      {Currency{-1}, u"-0.0001"}, {Currency{INT64_MIN}, u"-922337203685477.5808"},
      {Date{38053.0}, u"2004-03-07"}, {Date{38053.5}, u"2004-03-07 12:00:00"},
      {Date{0.25}, u"06:00:00"}, {Date{0.0}, u"00:00:00"}, {Date{-657434.0}, u"0100-01-01"}};
  // clang-format on
  for (const TextRow& r : rows) EXPECT_EQ(CStr(r.in), r.out) << "row " << &r - rows;
  EXPECT_EQ(FailureOf([] { CStr(Variant::Null()); }), 94);
  const TextRow strs[] = {
      {459, u" 459"}, {-459.65, u"-459.65"}, {0.12, u" .12"}, {-0.5, u"-.5"}, {0, u" 0"}};
  for (const TextRow& r : strs) EXPECT_EQ(Str(r.in), r.out) << "row " << &r - strs;
  // the width follows the subtype: an int that fits is Integer
  // clang-format off
  const TextRow hex[] = {{-1, u"FFFF"}, {-32767, u"8001"}, {-32768, u"8000"},
                         {Variant::Long(-32768), u"FFFF8000"}, {228.5, u"E4"}, {Variant(), u"0"}};
  // clang-format on
  for (const TextRow& r : hex) EXPECT_EQ(Hex(r.in).RawString(), r.out) << "row " << &r - hex;
  EXPECT_TRUE(Hex(Variant::Null()).IsNull());
  ExpectFailures({{6, [] { Hex(Variant(2147483647.5)); }}, {13, [] { Hex(Variant(u"test")); }}});
  EXPECT_EQ(Oct(Variant(-1)).RawString(), u"177777");
  EXPECT_EQ(Oct(Variant(8)).RawString(), u"10");

  // clang-format off
  struct ValRow { const char16_t* in; double out; };
  const ValRow vals[] = {{u"    1615 198th Street N.E.", 1615198}, {u" 2 45 7", 2457},
                         {u"24 and 57", 24}, {u"&HFFFF", -1}, {u"&HFFFFF", 1048575}, {u"&O17", 15},
                         {u"1,234", 1}, {u"50%", 50}, {u"-1.5e2x", -150}, {u"1e", 1}, {u"abc", 0},
                         {u"", 0}, {u".5", 0.5}};
  // clang-format on
  for (const ValRow& r : vals) EXPECT_EQ(Val(r.in), r.out) << TextToUtf8(r.in);
  EXPECT_EQ(FailureOf([] { Val(u"50.5%"); }), 13);
}

struct FormatRow {
  Variant in;
  const char16_t *pattern, *out;
};

void ExpectFormats(std::initializer_list<FormatRow> rows) {
  for (const FormatRow& r : rows)
    EXPECT_EQ(Format(r.in, r.pattern), r.out) << TextToUtf8(r.pattern);
}

TEST(Format, DateTokensTheMinuteRuleAndNumberPlaceholders) {
  Variant d(Date{DateFromParts(2004, 3, 7, 14, 5, 9)});
  Variant noon(Date{2.525});  // 1900-01-01 12:36:00
  // clang-format off
  ExpectFormats({{d, u"dd-mm-yyyy hh:nn:ss", u"07-03-2004 14:05:09"},
                 {d, u"yy m d h n s", u"04 3 7 14 5 9"},
                 {d, u"YYYY-MM-DD HH:NN:SS", u"2004-03-07 14:05:09"}, {d, u"yyyy-mm", u"2004-03"},
                 {d, u"ddd dddd mmm mmmm", u"Sun Sunday Mar March"}, {d, u"h:mm AM/PM", u"2:05 PM"},
                 {d, u"h:mm am/pm", u"2:05 pm"}, {d, u"\"at\" hh\\h", u"at 14h"},
                 {d, u"q y", u"1 67"}, {d, u"General Date", u"2004-03-07 14:05:09"},
                 {d, u"Long Time", u"14:05:09"},
                 // m after h means minutes, once; a d token cancels; mm before ss stays month
                 {noon, u"dd mm yyyy hh:mm:ss", u"01 01 1900 12:36:00"},
                 {noon, u"mm :mm:ss", u"01 :01:00"}, {noon, u"hh:mm :ss:mm", u"12:36 :00:01"},
                 {noon, u"hh:dd :mm:mm", u"12:01 :01:01"}, {noon, u"dd :mm:nn", u"01 :01:36"},
                 {u"2004-03-07 14:05:09", u"dd/mm/yy", u"07/03/04"},
                 {u"39697.11", u"mm-dd-yy", u"09-06-08"},  // texts and numbers read as dates
                 {u"not a date", u"yyyy", u"not a date"}});
  // clang-format on
  // read back
  EXPECT_EQ(CDate(Variant(Format(d, u"d mmmm yyyy hh:nn:ss"))).serial, d.RawDate().serial);
  EXPECT_EQ(CDate(Variant(Format(d, u"mmm d, yyyy h:nn:ss AM/PM"))).serial, d.RawDate().serial);
  // clang-format off
  ExpectFormats({{5, u"00", u"05"}, {1234, u"00", u"1234"}, {0, u"#", u""}, {12, u"#", u"12"},
                 {2.5, u"0", u"3"}, {-2.5, u"0", u"-3"}, {3.14159, u"0.00", u"3.14"},
                 {0.125, u"0.00", u"0.13"}, {1.005, u"0.00", u"1.01"},
                 {1234567.891, u"#,##0.00", u"1,234,567.89"}, {0.5, u"#,##0.00", u"0.50"},
                 {999.999, u"#,##0.00", u"1,000.00"}, {-1234.5, u"#,##0.00", u"-1,234.50"},
                 {0.5, u"#.##", u".5"}, {5, u"0.##", u"5."}, {0.256, u"0%", u"26%"},
                 {12, u"$0 \"USD\"", u"$12 USD"}, {-5, u"0;(0)", u"(5)"},
                 {0, u"0;(0);\"zero\"", u"zero"}, {1e15, u"0", u"1000000000000000"},
                 {-0.001, u"0.00", u"-0.00"}, {1e20, u"#,##0", u"100,000,000,000,000,000,000"},
                 {5, u"\\#0", u"#5"}, {u"12.5", u"0.00", u"12.50"}, {u"abc", u"0.00", u"abc"},
                 {2.5, u"", u"2.5"}, {Variant::Null(), u"0", u""},
                 {1234.5, u"Standard", u"1,234.50"}, {0.5, u"Percent", u"50.00%"}});
  // clang-format on
}

TEST(Conversions, IsNumericCBoolCCurIntFix) {
  for (const char16_t* yes : {u"53", u"459.95", u" -1 ", u"1e3", u"&HFF", u"+.5", u"5."}) {
    EXPECT_TRUE(IsNumeric(Variant(yes))) << TextToUtf8(yes);
  }
  for (const char16_t* no : {u"45 Help", u"rwrf", u"", u".", u"-", u"1e", u"2004-03-07", u"&H",
                             u"&HG", u"1,5"}) {  // no thousands separator in "C"
    EXPECT_FALSE(IsNumeric(Variant(no))) << TextToUtf8(no);
  }
  EXPECT_TRUE(IsNumeric(Variant()) && IsNumeric(Variant(true)));
  EXPECT_FALSE(IsNumeric(Variant::Null()) || IsNumeric(Variant(Date{1})));

  for (Variant yes : {Variant(u"TRUE"), Variant(u"-2"), Variant(0.1)})
    EXPECT_TRUE(CBool(yes)) << yes.ToUtf8();
  EXPECT_FALSE(CBool(Variant(u"false")) || CBool(Variant()));

  EXPECT_EQ(CCur(Variant(1.23456)).scaled, 12346);
  EXPECT_EQ(CCur(Variant(1.00005)).scaled, 10000);  // tie to even at 4 decimals
  EXPECT_EQ(CCur(Variant(1.00015)).scaled, 10002);
  ExpectFailures({{13, [] { CBool(Variant(u"yes")); }},
                  {94, [] { CBool(Variant::Null()); }},
                  {6, [] { CCur(Variant(1e16)); }},
                  {6, [] { CSng(Variant(1e300)); }}});

  EXPECT_EQ(Int(Variant(-1.99)).RawDouble(), -2);
  EXPECT_EQ(Fix(Variant(-1.99)).RawDouble(), -1);
  EXPECT_EQ(Int(Variant(-1.5f)).Type(), VarType::Single);  // the subtype stays
  EXPECT_EQ(Int(Variant(Currency{-15000})).RawCurrency().scaled, -20000);
  EXPECT_EQ(Fix(Variant(Currency{-15000})).RawCurrency().scaled, -10000);
  EXPECT_TRUE(Int(Variant::Null()).IsNull());
}

// German facts, as the Linux platform reads them from de_DE.UTF-8, installed
// for one test; the one before is put back.
struct GermanLocale : LocaleSource {
  GermanLocale() : before(InstallLocaleSource(this)) {}
  ~GermanLocale() override { InstallLocaleSource(before); }
  std::string DecimalPoint() override { return ","; }
  std::string ThousandsSeparator() override { return "."; }
  std::string ShortDatePattern() override { return "%d.%m.%Y"; }
  LocaleSource* before;
};

TEST(Locale, GermanMarksAndDayMonthOrder) {
  GermanLocale german;
  EXPECT_EQ(CStr(Variant(1.5)), u"1,5");
  EXPECT_EQ(CCur(Variant(u"1,23456")).scaled, 12346);
  EXPECT_EQ(CDbl(Variant(u"1.5")), 15);  // "." is the thousands separator here
  EXPECT_EQ(CDbl(Variant(u"1.234,5")), 1234.5);
  EXPECT_EQ(Str(Variant(1.5)), u" 1.5");  // Str and Val ignore the locale
  EXPECT_EQ(Val(u"1,5"), 1);
  EXPECT_EQ(Val(u"1.5"), 1.5);
  EXPECT_EQ(Format(Variant(1234.5), u"#,##0.00"), u"1.234,50");
  EXPECT_EQ(CDate(Variant(u"07.03.2004")).serial, DateSerial(2004, 3, 7));
  EXPECT_EQ(CDate(Variant(u"07/03/2004")).serial, DateSerial(2004, 3, 7));
  EXPECT_EQ(CDate(Variant(u"1970-1-13")).serial, 25581);  // year first in any locale
  EXPECT_EQ(CDate(Variant(u"12/13/2004")).serial, DateSerial(2004, 12, 13));  // swapped
  EXPECT_EQ(CStr(Variant(Date{38053.5})), u"2004-03-07 12:00:00");  // host form everywhere
}

struct PatternLocale : ClassicLocaleSource {
  explicit PatternLocale(std::string p)
      : pattern(std::move(p)), before(InstallLocaleSource(this)) {}
  ~PatternLocale() override { InstallLocaleSource(before); }
  std::string ShortDatePattern() override { return pattern; }
  std::string pattern;
  LocaleSource* before;
};

TEST(Locale, DateOrderFollowsTheInstalledPattern) {
  {  // year first: three numbers read year, month, day
    PatternLocale ymd("%Y/%m/%d");
    EXPECT_EQ(LocaleDateOrder(), DateOrder::YMD);
    EXPECT_EQ(CDate(Variant(u"04/03/07")).serial, DateSerial(2004, 3, 7));
  }
  {  // modifiers are skipped; a pattern that ends in one reads as month first
    PatternLocale modified("%Ed.%Om.%Y");
    EXPECT_EQ(LocaleDateOrder(), DateOrder::DMY);
    EXPECT_EQ(LocaleDateSeparator(), u'.');
    PatternLocale cut("%d%E");
    EXPECT_EQ(LocaleDateOrder(), DateOrder::MDY);
  }
  {  // a multi-unit mark does not count: "." and no separator
    struct Wide : ClassicLocaleSource {
      std::string DecimalPoint() override { return ",,"; }
      std::string ThousandsSeparator() override { return "\xC2\xA0"; }  // one unit in UTF-8
    } wide;
    LocaleSource* before = InstallLocaleSource(&wide);
    EXPECT_EQ(LocaleDecimalMark(), u'.');
    EXPECT_EQ(LocaleThousandsSeparator(), u'\u00A0');
    InstallLocaleSource(before);
  }
  EXPECT_EQ(LocaleDateOrder(), DateOrder::MDY);  // the classic source is back
  EXPECT_EQ(CStr(Variant(1.5)), u"1.5");
}

}  // namespace
}  // namespace varnek
