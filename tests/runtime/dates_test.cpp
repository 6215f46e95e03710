// Dates: serials, fields, DateAdd/DateDiff, negative dates, text forms.
#include "varnek/runtime/dates.h"

#include <gtest/gtest.h>

#include <random>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/date_math.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(DateSerial, NormalisingTwoDigitYearsPartsAndNegativeDates) {
  // clang-format off
  struct Row { int y, m, d; double want; };
  const Row rows[] = {
      {2004, 3, 7, 38053}, {1899, 12, 30, 0}, {100, 1, 1, -657434}, {9999, 12, 31, 2958465},
      {2000, 14, 2, DateSerial(2001, 2, 2)}, {2000, 0, 1, DateSerial(1999, 12, 1)},
      {2000, -13, 1, DateSerial(1998, 11, 1)}, {1990, 1, 0, DateSerial(1989, 12, 31)},
      {2000, 3, 0, DateSerial(2000, 2, 29)}, {0, 2, 1, DateSerial(2000, 2, 1)},
      {29, 1, 1, DateSerial(2029, 1, 1)}, {30, 1, 1, DateSerial(1930, 1, 1)}};
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(DateSerial(r.y, r.m, r.d), r.want) << "row " << &r - rows;
  EXPECT_EQ(TimeSerial(10, 60, 2), TimeSerial(11, 0, 2));
  EXPECT_EQ(DateToHostText(TimeSerial(25, 2, 1)), u"1899-12-31 01:02:01");
  // a negative time is the previous day's hour, kept as a positive fraction
  EXPECT_EQ(DateToHostText(TimeSerial(-1, 0, 0)), u"1899-12-29 23:00:00");
  ExpectFailures({{5, [] { DateSerial(10000, 1, 1); }},
                  {5, [] { DateSerial(100, 1, 0); }},
                  {5, [] { TimeSerial(24 * 3000000, 0, 0); }}});
  double d = DateFromParts(2004, 3, 7, 14, 5, 9);
  EXPECT_EQ(Year(d) * 10000 + Month(d) * 100 + Day(d), 20040307);
  EXPECT_EQ(Hour(d) * 10000 + Minute(d) * 100 + Second(d), 140509);
  EXPECT_EQ(Weekday(d), 1);  // a Sunday
  EXPECT_EQ(Weekday(0), 7);  // 1899-12-30, a Saturday
  EXPECT_EQ(Weekday(-1), 6);
  EXPECT_EQ(DateFromParts(1899, 12, 29, 6, 0, 0), -1.25);
  // the whole days count back, the fraction is still the time; rounding to the second carries
  struct HostRow {
    double serial;
    const char16_t* text;
  };
  const HostRow hosts[] = {{-49192.24, u"1765-04-24 05:45:36"},
                           {-1.25, u"1899-12-29 06:00:00"},
                           {2958465.99, u"9999-12-31 23:45:36"},
                           {-657434.5, u"0100-01-01 12:00:00"},
                           {0.9999999, u"1899-12-31 00:00:00"}};
  for (const HostRow& r : hosts) EXPECT_EQ(DateToHostText(r.serial), r.text) << r.serial;
  ExpectFailures({{6, [] { Year(2958466.0); }},
                  {6, [] { DateToHostText(1e300); }},
                  {5, [] { DateAdd(u"d", 1, 2958465.5); }}});
}

TEST(DateAddDiff, MonthEndsBoundariesAndIntervals) {
  const auto D = DateSerial;
  // month ends clamp; a fraction of the number is cut; day of year and weekday step one day
  // clang-format off
  struct AddRow { const char16_t* interval; double number, date, want; };
  const AddRow adds[] = {{u"m", 1, D(1995, 1, 31), D(1995, 2, 28)},
                         {u"m", 1, D(1996, 1, 31), D(1996, 2, 29)},
                         {u"yyyy", 1, D(2000, 2, 29), D(2001, 2, 28)},
                         {u"q", -1, D(2000, 5, 31), D(2000, 2, 29)},
                         {u"ww", -1, D(2000, 1, 1), D(1999, 12, 25)},
                         {u"D", 2.5, D(2000, 1, 1), D(2000, 1, 3)}, {u"y", 1, 0, 1},
                         {u"w", 1, 0, 1}};
  // clang-format on
  for (const AddRow& r : adds)
    EXPECT_EQ(DateAdd(r.interval, r.number, r.date), r.want) << "row " << &r - adds;
  EXPECT_EQ(DateToHostText(DateAdd(u"h", 25, DateSerial(2000, 1, 1) + 0.5)),
            u"2000-01-02 13:00:00");
  EXPECT_EQ(DateToHostText(DateAdd(u"n", -1, DateSerial(2000, 1, 1))), u"1999-12-31 23:59:00");
  // time of day survives a month step, also on negative dates
  EXPECT_EQ(DateToHostText(DateAdd(u"m", 1, -1.25)), u"1900-01-29 06:00:00");
  EXPECT_EQ(DateToHostText(DateAdd(u"d", -1, 0.25)), u"1899-12-29 06:00:00");
  ExpectFailures({{5, [] { DateAdd(u"k", 1, 0); }},
                  {5, [] { DateAdd(u"yyyy", -1900, 0); }},
                  {5, [] { DateDiff(u"x", 0, 1); }}});

  double sat = D(2004, 3, 6), sun = D(2004, 3, 7);
  // clang-format off
  struct Row { const char16_t* interval; double from, to; int64_t want; };
  const Row rows[] = {
      {u"yyyy", D(2004, 12, 31), D(2005, 1, 1), 1}, {u"YYYY", D(2005, 1, 1), D(2004, 12, 31), -1},
      {u"m", D(2004, 1, 31), D(2004, 2, 1), 1}, {u"q", D(2004, 3, 31), D(2004, 4, 1), 1},
      {u"d", D(2004, 1, 1) + 0.9, D(2004, 1, 2) + 0.1, 1},
      {u"n", TimeSerial(10, 0, 59), TimeSerial(10, 1, 0), 1},
      {u"n", TimeSerial(10, 0, 0), TimeSerial(10, 0, 59), 0},
      {u"h", TimeSerial(10, 59, 0), TimeSerial(11, 1, 0), 1},
      {u"s", TimeSerial(10, 0, 0), TimeSerial(9, 59, 0), -60},
      // "ww" counts Sundays crossed; "w" whole weeks
      {u"ww", sat, sun, 1}, {u"ww", sun, sun + 6, 0}, {u"w", sat, sun, 0}, {u"w", sat, sat + 14, 2},
      {u"w", sat + 13, sat, -1},
      {u"h", -1.25, 0.25, 24}};  // across the negative boundary the linear value counts
  // clang-format on
  for (const Row& r : rows)
    EXPECT_EQ(DateDiff(r.interval, r.from, r.to), r.want) << "row " << &r - rows;
}

TEST(DateText, IsDateAndCDateReadings) {
  // host form, ISO, times, the "C" locale's month/day/year order, English month names
  // clang-format off
  struct Row { const char16_t* in; double serial; };
  const Row rows[] = {
      {u"2004-03-07 14:05:09", DateFromParts(2004, 3, 7, 14, 5, 9)}, {u"2004-03-07", 38053},
      {u"1970-1-13", 25581}, {u"07/03/2004", 38171},
      {u"13-1-1970", 25581},  // impossible order swapped
      {u"13/07/2004", DateSerial(2004, 7, 13)}, {u"1/2/29", DateSerial(2029, 1, 2)},
      {u"1/2/30", DateSerial(1930, 1, 2)}, {u"10:30", TimeSerial(10, 30, 0)},
      {u" 3:5 ", TimeSerial(3, 5, 0)}, {u"10:30:15 PM", TimeSerial(22, 30, 15)}, {u"12:00 AM", 0},
      {u"13:00 AM", TimeSerial(13, 0, 0)}, {u"1", 1}, {u"7 Mar 2004", 38053},
      {u"March 7, 2004", 38053}, {u"07-mar-04", 38053}, {u"7 MAR 2004 12:00", 38053.5},
      {u"04.28.14", TimeSerial(4, 28, 14)},
      {u"2.5", TimeSerial(2, 5, 0)}};  // with "/" dates, dots are times
  // clang-format on
  for (const Row& r : rows) EXPECT_EQ(CDate(Variant(r.in)).serial, r.serial) << TextToUtf8(r.in);
  for (const char16_t* yes : {u"04/28/2014", u"23:59:59", u"0:00", u"2/29/2000"}) {
    EXPECT_TRUE(IsDate(Variant(yes))) << TextToUtf8(yes);
  }
  for (const char16_t* no :
       {u"", u"True", u"4", u"24:00", u"0:60", u"nonsense", u"13/32/2014", u"7 Mars 2004",
        u"31 Feb 2004", u"Mar 2004", u"04.28.2014", u"2013-05-14 02:04:12.017", u"2/29/2001",
        u"2004-03-07 25:00", u"1:2:3:4"}) {
    EXPECT_FALSE(IsDate(Variant(no))) << TextToUtf8(no);
  }
  ExpectFailures({{13, [] { CDate(Variant(u"nonsense")); }}, {94, [] { CDate(Variant::Null()); }}});
  EXPECT_TRUE(IsDate(Variant(Date{5})) && !IsDate(Variant(5)));
}

TEST(DateText, RandomDatesRoundTripAndStepConsistently) {
  std::mt19937 rng(4242);
  std::uniform_int_distribution<int> day(-657434, 2958465), sec(0, 86399);
  for (int round = 0; round < 3000; ++round) {
    int d = day(rng), s = sec(rng);
    double date = DateFromLinear(d + s / 86400.0);
    // calendar fields rebuild the same day and second; the host text reads back
    ASSERT_EQ(DateSerial(Year(date), Month(date), Day(date)), d);
    EXPECT_EQ(Hour(date) * 3600 + Minute(date) * 60 + Second(date), s);
    EXPECT_EQ(DateToHostText(CDate(Variant(DateToHostText(date))).serial), DateToHostText(date));
    if (d > -657434 && d < 2958465) {
      EXPECT_EQ(Weekday(DateAdd(u"d", 1, date)) % 7, (Weekday(date) + 1) % 7);
      EXPECT_EQ(DateDiff(u"s", date, DateAdd(u"s", 3601, date)), 3601);
    }
  }
}

}  // namespace
}  // namespace varnek
