// Dates as the classic double: calendar arithmetic, parts, DateAdd/DateDiff
// and the host's text form.
#include "varnek/runtime/dates.h"

#include <cmath>
#include <cstdio>

#include "varnek/runtime/date_math.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {
namespace {

// 1899-12-30 as days from 1970-01-01.
constexpr int64_t kEpochShift = -25569;
constexpr double kMinDate = -657434.0;  // 100-01-01
constexpr double kMaxDate = 2958465.0;  // 9999-12-31

}  // namespace

// Days from 1970-01-01 of a proleptic Gregorian date (month 1..12).
int64_t DaysFromCivil(int64_t y, int64_t m, int64_t d) {
  y -= m <= 2;
  const int64_t era = (y >= 0 ? y : y - 399) / 400;
  const int64_t yoe = y - era * 400;
  const int64_t doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const int64_t doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + doe - 719468;
}

void CivilFromDays(int64_t z, int32_t& year, int32_t& month, int32_t& day) {
  z += 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const int64_t doe = z - era * 146097;
  const int64_t yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const int64_t doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const int64_t mp = (5 * doy + 2) / 153;
  day = static_cast<int32_t>(doy - (153 * mp + 2) / 5 + 1);
  month = static_cast<int32_t>(mp < 10 ? mp + 3 : mp - 9);
  year = static_cast<int32_t>(yoe + era * 400 + (month <= 2));
}

int64_t SerialFromCivil(int64_t y, int64_t m, int64_t d) {
  return DaysFromCivil(y, m, d) - kEpochShift;
}

double LinearFromDate(double date) {
  if (date >= 0) return date;
  double whole = std::trunc(date);
  return whole + std::fabs(date - whole);
}

double DateFromLinear(double linear) {
  if (linear >= 0) return linear;
  double day = std::floor(linear);
  double time = linear - day;
  return time == 0 ? day : day - time;
}

// A negative day keeps its time as a positive fraction, so the first day
// spans -657434 .. -657434.99999 and the last 2958465 .. 2958465.99999.
bool DateInRange(double date) { return date > kMinDate - 1 && date < kMaxDate + 1; }

void CheckDateRange(double date) {
  if (!DateInRange(date)) Fail(kErrInvalidCall);
}

DateParts SplitDate(double date) {
  if (!DateInRange(date)) Fail(kErrOverflow);
  // Whole seconds of the linear value; half a second rounds up.
  int64_t total = static_cast<int64_t>(std::floor(LinearFromDate(date) * 86400.0 + 0.5));
  int64_t days = total >= 0 ? total / 86400 : -((-total + 86399) / 86400);
  int64_t secs = total - days * 86400;
  DateParts p;
  p.serial_day = days;
  CivilFromDays(days + kEpochShift, p.year, p.month, p.day);
  p.hour = static_cast<int32_t>(secs / 3600);
  p.minute = static_cast<int32_t>(secs / 60 % 60);
  p.second = static_cast<int32_t>(secs % 60);
  p.total_seconds = total;
  return p;
}

double DateSerial(int32_t year, int32_t month, int32_t day) {
  int64_t y = year;
  if (y >= 0 && y <= 29)
    y += 2000;
  else if (y >= 30 && y <= 99)
    y += 1900;
  int64_t m0 = int64_t{month} - 1;
  y += m0 >= 0 ? m0 / 12 : -((-m0 + 11) / 12);
  int64_t m = m0 - (m0 >= 0 ? m0 / 12 : -((-m0 + 11) / 12)) * 12 + 1;
  double serial = static_cast<double>(SerialFromCivil(y, m, 1) + int64_t{day} - 1);
  if (serial < kMinDate || serial > 2958465.0) Fail(kErrInvalidCall);
  return serial;
}

double TimeSerial(int32_t hour, int32_t minute, int32_t second) {
  int64_t total = int64_t{hour} * 3600 + int64_t{minute} * 60 + second;
  double linear = static_cast<double>(total) / 86400.0;
  double date = DateFromLinear(linear);
  CheckDateRange(date);
  return date;
}

int32_t Year(double date) { return SplitDate(date).year; }
int32_t Month(double date) { return SplitDate(date).month; }
int32_t Day(double date) { return SplitDate(date).day; }
int32_t Hour(double date) { return SplitDate(date).hour; }
int32_t Minute(double date) { return SplitDate(date).minute; }
int32_t Second(double date) { return SplitDate(date).second; }

int32_t Weekday(double date) {
  int64_t d = SplitDate(date).serial_day;  // serial day 0 was a Saturday
  int64_t r = ((d % 7) + 7) % 7;
  return static_cast<int32_t>((r + 6) % 7 + 1);
}

namespace {

enum class Interval { Year, Quarter, Month, DayOfYear, Day, Weekday, Week, Hour, Minute, Second };

Interval ParseInterval(TextView text) {
  Text t = LCase(text);
  if (t == u"yyyy") return Interval::Year;
  if (t == u"q") return Interval::Quarter;
  if (t == u"m") return Interval::Month;
  if (t == u"y") return Interval::DayOfYear;
  if (t == u"d") return Interval::Day;
  if (t == u"w") return Interval::Weekday;
  if (t == u"ww") return Interval::Week;
  if (t == u"h") return Interval::Hour;
  if (t == u"n") return Interval::Minute;
  if (t == u"s") return Interval::Second;
  Fail(kErrInvalidCall);
}

int64_t RoundCount(double number) {
  if (!std::isfinite(number) || std::fabs(number) > 2147483647.0) Fail(kErrOverflow);
  return static_cast<int64_t>(std::nearbyint(number));  // ties to even
}

int64_t FloorDiv(int64_t a, int64_t b) { return a / b - ((a % b != 0) && ((a < 0) != (b < 0))); }

}  // namespace

double DateAdd(TextView interval, double number, double date) {
  Interval iv = ParseInterval(interval);
  int64_t n = RoundCount(number);
  double linear = LinearFromDate(date);
  double result = 0;
  switch (iv) {
    case Interval::Year:
    case Interval::Quarter:
    case Interval::Month: {
      DateParts p = SplitDate(date);
      int64_t months = iv == Interval::Year ? n * 12 : (iv == Interval::Quarter ? n * 3 : n);
      int64_t index = int64_t{p.year} * 12 + (p.month - 1) + months;
      int64_t y = FloorDiv(index, 12);
      int64_t m = index - y * 12 + 1;
      if (y < 100 || y > 9999) Fail(kErrInvalidCall);
      int64_t last =
          SerialFromCivil(m == 12 ? y + 1 : y, m == 12 ? 1 : m + 1, 1) - SerialFromCivil(y, m, 1);
      int64_t d = std::min<int64_t>(p.day, last);
      double time = linear - std::floor(linear);
      result = static_cast<double>(SerialFromCivil(y, m, d)) + time;
      break;
    }
    case Interval::DayOfYear:
    case Interval::Day:
    case Interval::Weekday: result = linear + static_cast<double>(n); break;
    case Interval::Week: result = linear + 7.0 * static_cast<double>(n); break;
    case Interval::Hour: result = linear + static_cast<double>(n) / 24.0; break;
    case Interval::Minute: result = linear + static_cast<double>(n) / 1440.0; break;
    case Interval::Second: result = linear + static_cast<double>(n) / 86400.0; break;
  }
  double out = DateFromLinear(result);
  CheckDateRange(out);
  return out;
}

int64_t DateDiff(TextView interval, double date1, double date2) {
  Interval iv = ParseInterval(interval);
  DateParts a = SplitDate(date1), b = SplitDate(date2);
  switch (iv) {
    case Interval::Year: return int64_t{b.year} - a.year;
    case Interval::Quarter:
      return (int64_t{b.year} * 4 + (b.month - 1) / 3) - (int64_t{a.year} * 4 + (a.month - 1) / 3);
    case Interval::Month:
      return (int64_t{b.year} * 12 + b.month) - (int64_t{a.year} * 12 + a.month);
    case Interval::DayOfYear:
    case Interval::Day: return b.serial_day - a.serial_day;
    case Interval::Weekday: return (b.serial_day - a.serial_day) / 7;
    case Interval::Week:
      // Sundays (serial day 1 was one) in (date1, date2].
      return FloorDiv(b.serial_day - 1, 7) - FloorDiv(a.serial_day - 1, 7);
    case Interval::Hour: return FloorDiv(b.total_seconds, 3600) - FloorDiv(a.total_seconds, 3600);
    case Interval::Minute: return FloorDiv(b.total_seconds, 60) - FloorDiv(a.total_seconds, 60);
    case Interval::Second: return b.total_seconds - a.total_seconds;
  }
  return 0;
}

Text DateToHostText(double date) {
  DateParts p = SplitDate(date);
  char buf[48];
  std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour,
                p.minute, p.second);
  return Utf8ToText(buf);
}

double DateFromParts(int32_t year, int32_t month, int32_t day, int32_t hour, int32_t minute,
                     double second) {
  double linear = static_cast<double>(SerialFromCivil(year, month, day)) +
                  (hour * 3600.0 + minute * 60.0 + second) / 86400.0;
  return DateFromLinear(linear);
}

}  // namespace varnek
