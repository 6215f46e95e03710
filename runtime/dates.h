// Dates as the classic double: days since 1899-12-30, the fraction the time of
// day. The host's text form of a date and time is "yyyy-mm-dd hh:nn:ss"; it
// reads the same in every locale and IsDate accepts it back.
#pragma once

#include <cstdint>

#include "varnek/runtime/variant.h"

namespace varnek {

// DateSerial and TimeSerial normalise overflow (month 14, minute 60, ...);
// years 0..29 read as 20xx and 30..99 as 19xx. Results outside year 100..9999
// fail with 5.
double DateSerial(int32_t year, int32_t month, int32_t day);
double TimeSerial(int32_t hour, int32_t minute, int32_t second);

int32_t Year(double date);
int32_t Month(double date);
int32_t Day(double date);
int32_t Hour(double date);
int32_t Minute(double date);
int32_t Second(double date);
// 1 = Sunday .. 7 = Saturday.
int32_t Weekday(double date);

// DateAdd and DateDiff with the classic interval texts ("yyyy", "q", "m", "y",
// "d", "w", "ww", "h", "n", "s"); an unknown interval fails with 5.
double DateAdd(TextView interval, double number, double date);
int64_t DateDiff(TextView interval, double date1, double date2);

// "yyyy-mm-dd hh:nn:ss".
Text DateToHostText(double date);
// Reads a date or time text the way CDate does: the host form, year-first
// dates ("1970-1-13"), three numbers in the locale's short-date order with
// day and month swapped when that reading is impossible, English month names
// ("7 Mar 2004", "March 7, 2004"), times "h:nn[:ss]" with optional AM/PM, and
// a date followed by a time. Two-digit years: 0..29 -> 20xx, 30..99 -> 19xx.
// Not read: lone numbers, "24:00", fractional seconds, dates without a year.
// Returns false when it is not a date.
bool ParseDateText(TextView text, double& out);

// A date from broken-down local time fields (no normalisation check).
double DateFromParts(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                     double second);

}  // namespace varnek
