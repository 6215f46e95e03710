// Format patterns for dates and numbers, IsNumeric, CBool, CCur, Int/Fix.
#include <gtest/gtest.h>

#include "runtime/convert.h"
#include "runtime/dates.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(FormatDates, TokensAndTheMinuteRule) {
  Variant d(Date{DateFromParts(2004, 3, 7, 14, 5, 9)});
  EXPECT_EQ(Format(d, u"dd-mm-yyyy hh:nn:ss"), u"07-03-2004 14:05:09");
  EXPECT_EQ(Format(d, u"yyyy-mm-dd hh:nn:ss"), u"2004-03-07 14:05:09");
  EXPECT_EQ(Format(d, u"YYYY-MM-DD HH:NN:SS"), u"2004-03-07 14:05:09");
  EXPECT_EQ(Format(d, u"yy m d h n s"), u"04 3 7 14 5 9");
  EXPECT_EQ(Format(d, u"yyyy-mm"), u"2004-03");
  EXPECT_EQ(Format(d, u"ddd dddd mmm mmmm"), u"Sun Sunday Mar March");
  EXPECT_EQ(Format(d, u"h:mm AM/PM"), u"2:05 PM");
  EXPECT_EQ(Format(d, u"h:mm am/pm"), u"2:05 pm");
  EXPECT_EQ(Format(d, u"\"at\" hh\\h"), u"at 14h");
  EXPECT_EQ(Format(d, u"q y"), u"1 67");
  // m after h means minutes, once; a d token cancels; mm before ss stays month
  Variant noon(Date{2.525});  // 1900-01-01 12:36:00
  EXPECT_EQ(Format(noon, u"dd mm yyyy hh:mm:ss"), u"01 01 1900 12:36:00");
  EXPECT_EQ(Format(noon, u"mm :mm:ss"), u"01 :01:00");
  EXPECT_EQ(Format(noon, u"hh:mm :ss:mm"), u"12:36 :00:01");
  EXPECT_EQ(Format(noon, u"hh:dd :mm:mm"), u"12:01 :01:01");
  EXPECT_EQ(Format(noon, u"dd :mm:nn"), u"01 :01:36");
  // texts and numbers read as dates
  EXPECT_EQ(Format(Variant(u"2004-03-07 14:05:09"), u"dd/mm/yy"), u"07/03/04");
  EXPECT_EQ(Format(Variant(u"39697.11"), u"mm-dd-yy"), u"09-06-08");
  EXPECT_EQ(Format(Variant(u"not a date"), u"yyyy"), u"not a date");
  EXPECT_EQ(Format(d, u"General Date"), u"2004-03-07 14:05:09");
  EXPECT_EQ(Format(d, u"Long Time"), u"14:05:09");
  // what Format writes with names, CDate reads back
  EXPECT_EQ(CDate(Variant(Format(d, u"d mmmm yyyy hh:nn:ss"))).serial, d.RawDate().serial);
  EXPECT_EQ(CDate(Variant(Format(d, u"mmm d, yyyy h:nn:ss AM/PM"))).serial, d.RawDate().serial);
}

TEST(FormatNumbers, PlaceholdersRoundingAndSections) {
  struct Row {
    double in;
    const char16_t* pattern;
    const char16_t* out;
  };
  for (Row r : {Row{5, u"0", u"5"}, {5, u"00", u"05"}, {7, u"000", u"007"}, {1234, u"00", u"1234"},
                {0, u"#", u""}, {12, u"#", u"12"}, {2.5, u"0", u"3"}, {3.14159, u"0.00", u"3.14"},
                {0.125, u"0.00", u"0.13"}, {1.005, u"0.00", u"1.01"}, {-2.5, u"0", u"-3"},
                {1234567.891, u"#,##0.00", u"1,234,567.89"}, {0.5, u"#,##0.00", u"0.50"},
                {999.999, u"#,##0.00", u"1,000.00"}, {-1234.5, u"#,##0.00", u"-1,234.50"},
                {0.5, u"#.##", u".5"}, {5, u"0.##", u"5."}, {0.256, u"0%", u"26%"},
                {12, u"$0 \"USD\"", u"$12 USD"}, {-5, u"0;(0)", u"(5)"}, {0, u"0;(0);\"zero\"", u"zero"},
                {1e15, u"0", u"1000000000000000"}, {-0.001, u"0.00", u"-0.00"},
                {1e20, u"#,##0", u"100,000,000,000,000,000,000"}, {5, u"\\#0", u"#5"}}) {
    EXPECT_EQ(Format(Variant(r.in), r.pattern), r.out) << r.in << " " << TextToUtf8(r.pattern);
  }
  EXPECT_EQ(Format(Variant(u"12.5"), u"0.00"), u"12.50");
  EXPECT_EQ(Format(Variant(u"abc"), u"0.00"), u"abc");
  EXPECT_EQ(Format(Variant(2.5), u""), u"2.5");
  EXPECT_EQ(Format(Variant::Null(), u"0"), u"");
  EXPECT_EQ(Format(Variant(1234.5), u"Standard"), u"1,234.50");
  EXPECT_EQ(Format(Variant(0.5), u"Percent"), u"50.00%");
}

TEST(Conversions, IsNumericCBoolCCurIntFix) {
  for (const char16_t* yes : {u"53", u"459.95", u" -1 ", u"1e3", u"&HFF", u"+.5", u"5."}) {
    EXPECT_TRUE(IsNumeric(Variant(yes))) << TextToUtf8(yes);
  }
  for (const char16_t* no : {u"45 Help", u"rwrf", u"", u".", u"-", u"1e", u"2004-03-07", u"&H", u"&HG"}) {
    EXPECT_FALSE(IsNumeric(Variant(no))) << TextToUtf8(no);
  }
  EXPECT_TRUE(IsNumeric(Variant()));
  EXPECT_TRUE(IsNumeric(Variant(true)));
  EXPECT_FALSE(IsNumeric(Variant::Null()));
  EXPECT_FALSE(IsNumeric(Variant(Date{1})));

  EXPECT_TRUE(CBool(Variant(u"TRUE")));
  EXPECT_FALSE(CBool(Variant(u"false")));
  EXPECT_TRUE(CBool(Variant(u"-2")));
  EXPECT_TRUE(CBool(Variant(0.1)));
  EXPECT_FALSE(CBool(Variant()));
  EXPECT_EQ(FailureOf([] { CBool(Variant(u"yes")); }), 13);
  EXPECT_EQ(FailureOf([] { CBool(Variant::Null()); }), 94);

  EXPECT_EQ(CCur(Variant(1.23456)).scaled, 12346);
  EXPECT_EQ(CCur(Variant(1.00005)).scaled, 10000);  // tie to even at 4 decimals
  EXPECT_EQ(CCur(Variant(1.00015)).scaled, 10002);
  EXPECT_EQ(CCur(Variant(-7)).scaled, -70000);
  EXPECT_EQ(FailureOf([] { CCur(Variant(1e16)); }), 6);
  EXPECT_EQ(CSng(Variant(u"1.5")), 1.5f);
  EXPECT_EQ(FailureOf([] { CSng(Variant(1e300)); }), 6);

  EXPECT_EQ(Int(Variant(-1.99)).RawDouble(), -2);
  EXPECT_EQ(Fix(Variant(-1.99)).RawDouble(), -1);
  EXPECT_EQ(Int(Variant(7)).Type(), VarType::Integer);
  EXPECT_EQ(Int(Variant(-1.5f)).Type(), VarType::Single);
  EXPECT_EQ(Int(Variant(Currency{-15000})).RawCurrency().scaled, -20000);
  EXPECT_EQ(Fix(Variant(Currency{-15000})).RawCurrency().scaled, -10000);
  EXPECT_EQ(Int(Variant(Date{2.75})).RawDate().serial, 2);
  EXPECT_EQ(Int(Variant(u"2.5")).RawDouble(), 2);
  EXPECT_TRUE(Int(Variant::Null()).IsNull());
}

}  // namespace
}  // namespace varnek
