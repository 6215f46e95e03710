// Dates: serials, parts, DateAdd/DateDiff, negative dates, text forms.
#include "runtime/dates.h"

#include <gtest/gtest.h>

#include "runtime/convert.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(DateSerial, SerialsNormalisingAndTwoDigitYears) {
  EXPECT_EQ(DateSerial(2004, 3, 7), 38053);
  EXPECT_EQ(DateSerial(2004, 7, 3), 38171);
  EXPECT_EQ(DateSerial(1970, 1, 2), 25570);
  EXPECT_EQ(DateSerial(1899, 12, 30), 0);
  EXPECT_EQ(DateSerial(100, 1, 1), -657434);
  EXPECT_EQ(DateSerial(9999, 12, 31), 2958465);
  EXPECT_EQ(DateSerial(2000, 14, 2), DateSerial(2001, 2, 2));
  EXPECT_EQ(DateSerial(2000, 0, 1), DateSerial(1999, 12, 1));
  EXPECT_EQ(DateSerial(2000, -13, 1), DateSerial(1998, 11, 1));
  EXPECT_EQ(DateSerial(1990, 1, 0), DateSerial(1989, 12, 31));
  EXPECT_EQ(DateSerial(2000, 3, 0), DateSerial(2000, 2, 29));
  EXPECT_EQ(DateSerial(50, 2, 1), DateSerial(1950, 2, 1));
  EXPECT_EQ(DateSerial(0, 2, 1), DateSerial(2000, 2, 1));
  EXPECT_EQ(DateSerial(29, 1, 1), DateSerial(2029, 1, 1));
  EXPECT_EQ(DateSerial(30, 1, 1), DateSerial(1930, 1, 1));
  EXPECT_EQ(FailureOf([] { DateSerial(10000, 1, 1); }), 5);
  EXPECT_EQ(FailureOf([] { DateSerial(100, 1, 0); }), 5);

  EXPECT_EQ(TimeSerial(25, 2, 1), 1 + TimeSerial(1, 2, 1));
  EXPECT_EQ(TimeSerial(10, 60, 2), TimeSerial(11, 0, 2));
  EXPECT_EQ(DateToHostText(TimeSerial(25, 2, 1)), u"1899-12-31 01:02:01");
  // a negative time is the previous day's hour, kept as a positive fraction
  EXPECT_EQ(DateToHostText(TimeSerial(-1, 0, 0)), u"1899-12-29 23:00:00");
}

TEST(DateParts, PartsWeekdayAndNegativeDates) {
  double d = DateFromParts(2004, 3, 7, 14, 5, 9);
  EXPECT_EQ(Year(d), 2004);
  EXPECT_EQ(Month(d), 3);
  EXPECT_EQ(Day(d), 7);
  EXPECT_EQ(Hour(d), 14);
  EXPECT_EQ(Minute(d), 5);
  EXPECT_EQ(Second(d), 9);
  EXPECT_EQ(Weekday(d), 1);  // a Sunday
  EXPECT_EQ(Weekday(0), 7);  // 1899-12-30, a Saturday
  EXPECT_EQ(Weekday(-1), 6);
  EXPECT_EQ(DateToHostText(d), u"2004-03-07 14:05:09");
  // -49192.24: the day part counts back, the fraction is still the time
  EXPECT_EQ(DateToHostText(-49192.24), u"1765-04-24 05:45:36");
  EXPECT_EQ(DateToHostText(-1.25), u"1899-12-29 06:00:00");
  EXPECT_EQ(DateFromParts(1899, 12, 29, 6, 0, 0), -1.25);
  EXPECT_EQ(DateToHostText(1), u"1899-12-31 00:00:00");
  EXPECT_EQ(DateToHostText(100000), u"2173-10-14 00:00:00");
  // the range ends where the classic date ends
  EXPECT_EQ(DateToHostText(2958465.99), u"9999-12-31 23:45:36");
  EXPECT_EQ(DateToHostText(-657434.5), u"0100-01-01 12:00:00");
  EXPECT_EQ(FailureOf([] { Year(2958466.0); }), 6);
  EXPECT_EQ(FailureOf([] { DateToHostText(1e300); }), 6);
  EXPECT_EQ(FailureOf([] { DateAdd(u"d", 1, 2958465.5); }), 5);
  EXPECT_EQ(FailureOf([] { TimeSerial(24 * 3000000, 0, 0); }), 5);
  // rounding to the second carries into the next day
  EXPECT_EQ(DateToHostText(0.9999999), u"1899-12-31 00:00:00");
}

TEST(DateAddDiff, ClampingBoundariesAndIntervals) {
  double jan31_95 = DateSerial(1995, 1, 31), jan31_96 = DateSerial(1996, 1, 31);
  EXPECT_EQ(DateAdd(u"m", 1, jan31_95), DateSerial(1995, 2, 28));
  EXPECT_EQ(DateAdd(u"m", 1, jan31_96), DateSerial(1996, 2, 29));
  EXPECT_EQ(DateAdd(u"yyyy", 1, DateSerial(2000, 2, 29)), DateSerial(2001, 2, 28));
  EXPECT_EQ(DateAdd(u"q", -1, DateSerial(2000, 5, 31)), DateSerial(2000, 2, 29));
  EXPECT_EQ(DateAdd(u"ww", -1, DateSerial(2000, 1, 1)), DateSerial(1999, 12, 25));
  EXPECT_EQ(DateAdd(u"D", 2.5, DateSerial(2000, 1, 1)), DateSerial(2000, 1, 3));  // 2.5 -> 2
  EXPECT_EQ(DateAdd(u"y", 1, 0), 1);
  EXPECT_EQ(DateAdd(u"w", 1, 0), 1);
  EXPECT_EQ(DateToHostText(DateAdd(u"h", 25, DateSerial(2000, 1, 1) + 0.5)), u"2000-01-02 13:00:00");
  EXPECT_EQ(DateToHostText(DateAdd(u"n", -1, DateSerial(2000, 1, 1))), u"1999-12-31 23:59:00");
  EXPECT_EQ(DateToHostText(DateAdd(u"s", 61, DateSerial(2000, 1, 1))), u"2000-01-01 00:01:01");
  // time of day survives a month step, also on negative dates
  EXPECT_EQ(DateToHostText(DateAdd(u"m", 1, -1.25)), u"1900-01-29 06:00:00");
  EXPECT_EQ(DateToHostText(DateAdd(u"d", -1, 0.25)), u"1899-12-29 06:00:00");
  EXPECT_EQ(FailureOf([] { DateAdd(u"k", 1, 0); }), 5);
  EXPECT_EQ(FailureOf([] { DateAdd(u"yyyy", -1900, 0); }), 5);

  EXPECT_EQ(DateDiff(u"yyyy", DateSerial(2004, 12, 31), DateSerial(2005, 1, 1)), 1);
  EXPECT_EQ(DateDiff(u"YYYY", DateSerial(2005, 1, 1), DateSerial(2004, 12, 31)), -1);
  EXPECT_EQ(DateDiff(u"m", DateSerial(2004, 1, 31), DateSerial(2004, 2, 1)), 1);
  EXPECT_EQ(DateDiff(u"q", DateSerial(2004, 3, 31), DateSerial(2004, 4, 1)), 1);
  EXPECT_EQ(DateDiff(u"d", DateSerial(2004, 1, 1) + 0.9, DateSerial(2004, 1, 2) + 0.1), 1);
  EXPECT_EQ(DateDiff(u"n", TimeSerial(10, 0, 59), TimeSerial(10, 1, 0)), 1);
  EXPECT_EQ(DateDiff(u"n", TimeSerial(10, 0, 0), TimeSerial(10, 0, 59)), 0);
  EXPECT_EQ(DateDiff(u"h", TimeSerial(10, 59, 0), TimeSerial(11, 1, 0)), 1);
  EXPECT_EQ(DateDiff(u"s", TimeSerial(10, 0, 0), TimeSerial(9, 59, 0)), -60);
  // "ww" counts Sundays crossed; "w" whole weeks
  double sat = DateSerial(2004, 3, 6), sun = DateSerial(2004, 3, 7);
  EXPECT_EQ(DateDiff(u"ww", sat, sun), 1);
  EXPECT_EQ(DateDiff(u"ww", sun, sun + 6), 0);
  EXPECT_EQ(DateDiff(u"w", sat, sun), 0);
  EXPECT_EQ(DateDiff(u"w", sat, sat + 14), 2);
  EXPECT_EQ(DateDiff(u"w", sat + 13, sat), -1);
  // across the negative boundary the linear value counts
  EXPECT_EQ(DateDiff(u"h", -1.25, 0.25), 24);
  EXPECT_EQ(FailureOf([] { DateDiff(u"x", 0, 1); }), 5);
}

TEST(DateText, IsDateAndCDateReadings) {
  // host form, ISO, times, the "C" locale's month/day/year order
  EXPECT_EQ(CDate(Variant(u"2004-03-07 14:05:09")).serial, DateFromParts(2004, 3, 7, 14, 5, 9));
  EXPECT_EQ(CDate(Variant(u"2004-03-07")).serial, 38053);
  EXPECT_EQ(CDate(Variant(u"1970-1-13")).serial, 25581);
  EXPECT_EQ(CDate(Variant(u"07/03/2004")).serial, 38171);
  EXPECT_EQ(CDate(Variant(u"13-1-1970")).serial, 25581);  // impossible order swapped
  EXPECT_EQ(CDate(Variant(u"13/07/2004")).serial, DateSerial(2004, 7, 13));
  EXPECT_EQ(CDate(Variant(u"1/2/29")).serial, DateSerial(2029, 1, 2));
  EXPECT_EQ(CDate(Variant(u"1/2/30")).serial, DateSerial(1930, 1, 2));
  EXPECT_EQ(CDate(Variant(u"10:30")).serial, TimeSerial(10, 30, 0));
  EXPECT_EQ(CDate(Variant(u" 3:5 ")).serial, TimeSerial(3, 5, 0));
  EXPECT_EQ(CDate(Variant(u"10:30:15 PM")).serial, TimeSerial(22, 30, 15));
  EXPECT_EQ(CDate(Variant(u"12:00 AM")).serial, 0);
  EXPECT_EQ(CDate(Variant(u"13:00 AM")).serial, TimeSerial(13, 0, 0));
  EXPECT_EQ(CDate(Variant(u"1")).serial, 1);
  // English month names, month first or second, with or without a time
  EXPECT_EQ(CDate(Variant(u"7 Mar 2004")).serial, 38053);
  EXPECT_EQ(CDate(Variant(u"March 7, 2004")).serial, 38053);
  EXPECT_EQ(CDate(Variant(u"07-mar-04")).serial, 38053);
  EXPECT_EQ(CDate(Variant(u"7 MAR 2004 12:00")).serial, 38053.5);
  EXPECT_FALSE(IsDate(Variant(u"7 Mars 2004")));
  EXPECT_FALSE(IsDate(Variant(u"31 Feb 2004")));
  EXPECT_FALSE(IsDate(Variant(u"Mar 2004")));
  // with '/' as the date separator, dots separate times
  EXPECT_EQ(CDate(Variant(u"04.28.14")).serial, TimeSerial(4, 28, 14));
  EXPECT_EQ(CDate(Variant(u"2.5")).serial, TimeSerial(2, 5, 0));
  EXPECT_FALSE(IsDate(Variant(u"04.28.2014")));
  for (const char16_t* yes : {u"04/28/2014", u"2004-03-07 14:05:09", u"23:59:59", u"0:00", u"2/29/2000"}) {
    EXPECT_TRUE(IsDate(Variant(yes))) << TextToUtf8(yes);
  }
  for (const char16_t* no : {u"", u"True", u"4", u"24:00", u"0:60", u"nonsense", u"13/32/2014",
                             u"2013-05-14 02:04:12.017", u"2/29/2001", u"2004-03-07 25:00", u"1:2:3:4"}) {
    EXPECT_FALSE(IsDate(Variant(no))) << TextToUtf8(no);
  }
  EXPECT_EQ(FailureOf([] { CDate(Variant(u"nonsense")); }), 13);
  EXPECT_EQ(FailureOf([] { CDate(Variant::Null()); }), 94);
  EXPECT_TRUE(IsDate(Variant(Date{5})));
  EXPECT_FALSE(IsDate(Variant(5)));
  // the host form reads back to the same second
  double d = DateFromParts(1765, 4, 24, 5, 45, 36);
  EXPECT_EQ(DateToHostText(CDate(Variant(DateToHostText(d))).serial), DateToHostText(d));
}

}  // namespace
}  // namespace varnek
