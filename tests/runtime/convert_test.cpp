// The classic conversions: rounding and overflow, CStr digits, Str, Hex, Val.
#include "runtime/convert.h"
#include "runtime/int16.h"

#include <gtest/gtest.h>

#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(IntegerConversions, RoundHalfToEvenThenRangeCheck) {
  struct Row {
    double in;
    int out;
  };
  for (Row r : {Row{0.5, 0}, {1.5, 2}, {2.5, 2}, {3.5, 4}, {-0.5, 0}, {-1.5, -2}, {-36.5, -36},
                {0.6, 1}, {-0.6, -1}, {36.75, 37}, {32767.49, 32767}, {-32768.5, -32768}}) {
    EXPECT_EQ(CInt(Variant(r.in)), r.out) << r.in;
  }
  EXPECT_EQ(FailureOf([] { CInt(Variant(32767.5)); }), 6);
  EXPECT_EQ(FailureOf([] { CInt(Variant(-32768.51)); }), 6);
  EXPECT_EQ(CLng(Variant(2.5)), 2);
  EXPECT_EQ(CLng(Variant(25427.55)), 25428);
  EXPECT_EQ(FailureOf([] { CLng(Variant(2147483647.5)); }), 6);
  EXPECT_EQ(CByte(Variant(125.5678)), 126);
  EXPECT_EQ(FailureOf([] { CByte(Variant(u"-1")); }), 6);
  EXPECT_EQ(FailureOf([] { CByte(Variant(255.5)); }), 6);
  // texts
  EXPECT_EQ(CInt(Variant(u"-0.5")), 0);
  EXPECT_EQ(CInt(Variant(u"  12  ")), 12);
  EXPECT_EQ(CInt(Variant(u"&HFFFF")), -1);
  EXPECT_EQ(CLng(Variant(u"&HFFFF")), -1);
  EXPECT_EQ(CLng(Variant(u"&H0FFFF")), 65535);
  EXPECT_EQ(CLng(Variant(u"1.5e3")), 1500);
  EXPECT_EQ(FailureOf([] { CInt(Variant(u"")); }), 13);
  EXPECT_EQ(FailureOf([] { CInt(Variant(u"TRUE")); }), 13);
  EXPECT_EQ(FailureOf([] { CInt(Variant(u"abc")); }), 13);
  EXPECT_EQ(FailureOf([] { CInt(Variant(u"1e")); }), 13);
  EXPECT_EQ(FailureOf([] { CInt(Variant(u"40000")); }), 6);
  EXPECT_EQ(FailureOf([] { CDbl(Variant(u"1e999")); }), 6);
  // Empty, Null, Boolean, Currency
  EXPECT_EQ(CLng(Variant()), 0);
  EXPECT_EQ(FailureOf([] { CLng(Variant::Null()); }), 94);
  EXPECT_EQ(CInt(Variant(true)), -1);
  EXPECT_EQ(CInt(Variant(Currency{25000})), 2);   // 2.5 -> 2
  EXPECT_EQ(CInt(Variant(Currency{35000})), 4);   // 3.5 -> 4
  EXPECT_EQ(CInt(Variant(Currency{-25001})), -3);
}

TEST(IntegerArithmetic, SixteenAndThirtyTwoBitLimits) {
  EXPECT_EQ(AddInt16(32766, 1), 32767);
  EXPECT_EQ(FailureOf([] { AddInt16(32767, 1); }), 6);
  EXPECT_EQ(FailureOf([] { SubInt16(-32768, 1); }), 6);
  EXPECT_EQ(FailureOf([] { MulInt16(-32768, -1); }), 6);
  EXPECT_EQ(MulInt16(-128, 256), -32768);
  EXPECT_EQ(ToInt16(-32768), -32768);
  EXPECT_EQ(FailureOf([] { ToInt16(32768); }), 6);
  EXPECT_EQ(FailureOf([] { AddInt32(INT32_MAX, 1); }), 6);
  EXPECT_EQ(FailureOf([] { MulInt32(2000 * 365, 3000); }), 6);
  EXPECT_EQ(MulInt32(-65536, 32768), INT32_MIN);
  EXPECT_EQ(FailureOf([] { ToInt32(int64_t{INT32_MIN} - 1); }), 6);
}

TEST(CStr, DoubleSingleAndOtherSubtypes) {
  struct Row {
    double in;
    const char16_t* out;
  };
  for (Row r : {Row{3.141592653589793, u"3.14159265358979"}, {999999999999999.0, u"999999999999999"},
                {1e15, u"1E+15"}, {1.2e15, u"1.2E+15"}, {5.6789e-11, u"0.000000000056789"},
                {5.6789e-12, u"5.6789E-12"}, {0.1 + 0.2, u"0.3"}, {-2.5, u"-2.5"}, {0.0, u"0"},
                {100.0, u"100"}, {1e100, u"1E+100"}, {-1e-20, u"-1E-20"}}) {
    EXPECT_EQ(CStr(Variant(r.in)), r.out) << r.in;
  }
  EXPECT_EQ(CStr(Variant(3.14159265f)), u"3.141593");
  EXPECT_EQ(CStr(Variant(1234.56789f)), u"1234.568");
  EXPECT_EQ(CStr(Variant(1e8f)), u"1E+08");
  EXPECT_EQ(CStr(Variant(true)), u"True");
  EXPECT_EQ(CStr(Variant(false)), u"False");
  EXPECT_EQ(CStr(Variant()), u"");
  EXPECT_EQ(FailureOf([] { CStr(Variant::Null()); }), 94);
  EXPECT_EQ(CStr(Variant(-32768)), u"-32768");
  EXPECT_EQ(CStr(Variant(Currency{12345000})), u"1234.5");
  EXPECT_EQ(CStr(Variant(Currency{-1})), u"-0.0001");
  EXPECT_EQ(CStr(Variant(Currency{INT64_MIN})), u"-922337203685477.5808");
  EXPECT_EQ(CStr(Variant(Date{38053.0})), u"2004-03-07");
  EXPECT_EQ(CStr(Variant(Date{38053.5})), u"2004-03-07 12:00:00");
  EXPECT_EQ(CStr(Variant(Date{0.25})), u"06:00:00");
  EXPECT_EQ(CStr(Variant(Date{0.0})), u"00:00:00");
  EXPECT_EQ(CStr(Variant(Date{-657434.0})), u"0100-01-01");
}

TEST(StrHexOctVal, ClassicForms) {
  EXPECT_EQ(Str(Variant(459)), u" 459");
  EXPECT_EQ(Str(Variant(-459.65)), u"-459.65");
  EXPECT_EQ(Str(Variant(459.001)), u" 459.001");
  EXPECT_EQ(Str(Variant(0.12)), u" .12");
  EXPECT_EQ(Str(Variant(-0.5)), u"-.5");
  EXPECT_EQ(Str(Variant(0)), u" 0");

  EXPECT_EQ(Hex(Variant(-1)).RawString(), u"FFFF");
  EXPECT_EQ(Hex(Variant(-32767)).RawString(), u"8001");
  EXPECT_EQ(Hex(Variant(-32768)).RawString(), u"8000");  // an int that fits is Integer
  EXPECT_EQ(Hex(Variant::Long(-32768)).RawString(), u"FFFF8000");
  EXPECT_EQ(Hex(Variant(228.5)).RawString(), u"E4");
  EXPECT_EQ(Hex(Variant()).RawString(), u"0");
  EXPECT_TRUE(Hex(Variant::Null()).IsNull());
  EXPECT_EQ(FailureOf([] { Hex(Variant(2147483647.5)); }), 6);
  EXPECT_EQ(FailureOf([] { Hex(Variant(u"test")); }), 13);
  EXPECT_EQ(Oct(Variant(-1)).RawString(), u"177777");
  EXPECT_EQ(Oct(Variant(8)).RawString(), u"10");

  EXPECT_EQ(Val(u"    1615 198th Street N.E."), 1615198);
  EXPECT_EQ(Val(u" 2 45 7"), 2457);
  EXPECT_EQ(Val(u"24 and 57"), 24);
  EXPECT_EQ(Val(u"&HFFFF"), -1);
  EXPECT_EQ(Val(u"&HFFFFF"), 1048575);
  EXPECT_EQ(Val(u"&O17"), 15);
  EXPECT_EQ(Val(u"1,234"), 1);
  EXPECT_EQ(Val(u"50%"), 50);
  EXPECT_EQ(FailureOf([] { Val(u"50.5%"); }), 13);
  EXPECT_EQ(Val(u"-1.5e2x"), -150);
  EXPECT_EQ(Val(u"1e"), 1);
  EXPECT_EQ(Val(u"abc"), 0);
  EXPECT_EQ(Val(u""), 0);
  EXPECT_EQ(Val(u".5"), 0.5);
}

}  // namespace
}  // namespace varnek
