// Calendar helpers shared by the date routines, the conversions and Format.
// Not part of the classic surface.
#pragma once

#include <cstdint>

namespace varnek {

// Days from 1970-01-01 of a proleptic Gregorian date, and back.
int64_t DaysFromCivil(int64_t year, int64_t month, int64_t day);
void CivilFromDays(int64_t days, int32_t& year, int32_t& month, int32_t& day);
// Serial day (days since 1899-12-30) of a calendar date.
int64_t SerialFromCivil(int64_t year, int64_t month, int64_t day);

// A classic date keeps a negative day's time as a positive fraction
// (-1.25 is 1899-12-29 06:00). Linear values count straight through:
// -1.25 <-> -0.75.
double LinearFromDate(double date);
double DateFromLinear(double linear);

// True when the date lies in 100-01-01 .. 9999-12-31 23:59:59.
bool DateInRange(double date);
// Fails with 5 outside that range.
void CheckDateRange(double date);

// A date split into fields, rounded to the nearest whole second; fails with 6
// outside the date range.
struct DateParts {
  int32_t year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
  int64_t serial_day = 0;     // whole days since 1899-12-30 (floor of the linear value)
  int64_t total_seconds = 0;  // linear value in whole seconds
};
DateParts SplitDate(double date);

}  // namespace varnek
