// Format: the subset of the classic patterns the code uses.
//
// Dates (tokens case-insensitive): yyyy yy y(day of year) q mmmm mmm mm m
// dddd ddd dd d hh h nn n ss s, AM/PM am/pm A/P a/p (12-hour clock). An m or
// mm right after an h/hh token (literals may stand between) means minutes; a
// d token cancels that. Names are English.
// Numbers: 0 (digit, shown even when zero), # (digit, dropped when leading or
// trailing zero), '.', ',' between digit placeholders (thousands groups),
// '%' (times 100), up to three ';' sections (positive;negative;zero).
// Both: "quoted" text and \x are literal, as is every other character ('/'
// and ':' too: our date forms do not follow the locale's separators).
// A text that reads as neither a number nor a date comes back unchanged.
// Named forms: "General Number", "Fixed", "Standard", "Percent",
// "General Date", "Short Date", "Long Time", "Short Time".
// An empty pattern gives CStr; Null gives "". Numbers round half away from
// zero on their 15-digit decimal form, as Format does (0.125 -> "0.13").
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/date_math.h"
#include "varnek/runtime/date_text.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/number_text.h"
#include "varnek/runtime/strings.h"

namespace varnek {
namespace {

const char* const kMonths[12] = {"January",   "February", "March",    "April",
                                 "May",       "June",     "July",     "August",
                                 "September", "October",  "November", "December"};
const char* const kDays[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                              "Thursday", "Friday", "Saturday"};

char16_t Lower(char16_t c) { return c >= u'A' && c <= u'Z' ? static_cast<char16_t>(c + 32) : c; }

Text Num(int v, int width) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%0*d", width, v);
  return Utf8ToText(buf);
}

// Skips a quoted or escaped literal at i, appending it to out; returns true
// when there was one.
bool TakeLiteral(TextView p, size_t& i, Text* out) {
  if (p[i] == u'"') {
    size_t end = p.find(u'"', i + 1);
    if (end == TextView::npos) end = p.size();
    if (out) out->append(p.substr(i + 1, end - i - 1));
    i = end < p.size() ? end + 1 : end;
    return true;
  }
  if (p[i] == u'\\') {
    if (out && i + 1 < p.size()) *out += p[i + 1];
    i += 2;
    return true;
  }
  return false;
}

bool StartsWithNoCase(TextView p, size_t i, TextView word) {
  if (i + word.size() > p.size()) return false;
  for (size_t k = 0; k < word.size(); ++k) {
    if (Lower(p[i + k]) != Lower(word[k])) return false;
  }
  return true;
}

bool IsDatePattern(TextView p) {
  for (size_t i = 0; i < p.size();) {
    if (TakeLiteral(p, i, nullptr)) continue;
    char16_t c = Lower(p[i]);
    if (c == u'y' || c == u'm' || c == u'd' || c == u'h' || c == u'n' || c == u's' || c == u'q' ||
        c == u'w' || StartsWithNoCase(p, i, u"am/pm") || StartsWithNoCase(p, i, u"a/p")) {
      return true;
    }
    ++i;
  }
  return false;
}

size_t RunLength(TextView p, size_t i) {
  size_t n = 1;
  while (i + n < p.size() && Lower(p[i + n]) == Lower(p[i])) ++n;
  return n;
}

Text FormatDate(double date, TextView p) {
  DateParts d = SplitDate(date);
  bool twelve = false;
  for (size_t i = 0; i < p.size(); ++i) {
    if (StartsWithNoCase(p, i, u"am/pm") || StartsWithNoCase(p, i, u"a/p")) twelve = true;
  }
  Text out;
  bool after_hour = false;
  for (size_t i = 0; i < p.size();) {
    if (TakeLiteral(p, i, &out)) continue;
    if (StartsWithNoCase(p, i, u"am/pm")) {
      bool upper = p[i] == u'A' || p[i] == u'P';
      out += d.hour < 12 ? (upper ? u"AM" : u"am") : (upper ? u"PM" : u"pm");
      i += 5;
      continue;
    }
    if (StartsWithNoCase(p, i, u"a/p")) {
      bool upper = p[i] == u'A' || p[i] == u'P';
      out += d.hour < 12 ? (upper ? u'A' : u'a') : (upper ? u'P' : u'p');
      i += 3;
      continue;
    }
    char16_t c = Lower(p[i]);
    size_t n = RunLength(p, i);
    int hour12 = d.hour % 12 == 0 ? 12 : d.hour % 12;
    switch (c) {
      case u'y':
        if (n >= 4)
          out += Num(d.year, 4), n = 4;
        else if (n >= 2)
          out += Num(d.year % 100, 2), n = 2;
        else
          out += Num(static_cast<int>(d.serial_day - SerialFromCivil(d.year, 1, 1) + 1), 1);
        break;
      case u'q': out += Num((d.month - 1) / 3 + 1, 1), n = 1; break;
      case u'm':
        if (after_hour && n <= 2) {
          out += Num(d.minute, static_cast<int>(n));
          after_hour = false;
        } else if (n >= 4)
          out += Utf8ToText(kMonths[d.month - 1]), n = 4;
        else if (n == 3)
          out += Utf8ToText(std::string(kMonths[d.month - 1], 3));
        else
          out += Num(d.month, static_cast<int>(n));
        break;
      case u'd':
        after_hour = false;
        if (n >= 4)
          out += Utf8ToText(kDays[Weekday(date) - 1]), n = 4;
        else if (n == 3)
          out += Utf8ToText(std::string(kDays[Weekday(date) - 1], 3));
        else
          out += Num(d.day, static_cast<int>(n));
        break;
      case u'w':
        if (n >= 2)
          out += Num(static_cast<int>(DateDiff(
                         u"ww", static_cast<double>(SerialFromCivil(d.year, 1, 1)), date)) +
                         1,
                     1),
              n = 2;
        else
          out += Num(Weekday(date), 1);
        break;
      case u'h':
        n = std::min<size_t>(n, 2);
        out += Num(twelve ? hour12 : d.hour, static_cast<int>(n));
        after_hour = true;
        break;
      case u'n': n = std::min<size_t>(n, 2), out += Num(d.minute, static_cast<int>(n)); break;
      case u's': n = std::min<size_t>(n, 2), out += Num(d.second, static_cast<int>(n)); break;
      default: out += p[i], n = 1; break;
    }
    i += n;
  }
  return out;
}

// Decimal digits of |value| rounded half away from zero at `decimals`
// places, from its 15-significant-digit form: integer and fraction parts.
void RoundDecimal(double value, int decimals, std::string& int_part, std::string& frac_part) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.14e", std::fabs(value));
  std::string s(buf);
  size_t e = s.find('e');
  int exponent = std::atoi(s.c_str() + e + 1);
  std::string mant;
  for (size_t i = 0; i < e; ++i) {
    if (s[i] >= '0' && s[i] <= '9') mant += s[i];  // printf's mark follows the locale
  }
  // digits = mant, decimal point after (exponent + 1) digits.
  int point = exponent + 1;
  if (point < 0) {
    mant.insert(0, static_cast<size_t>(-point), '0');
    point = 0;
  }
  if (static_cast<int>(mant.size()) < point + decimals)
    mant.append(static_cast<size_t>(point + decimals) - mant.size(), '0');
  std::string keep = mant.substr(0, static_cast<size_t>(point + decimals));
  bool up = static_cast<int>(mant.size()) > point + decimals &&
            mant[static_cast<size_t>(point + decimals)] >= '5';
  if (up) {
    int k = static_cast<int>(keep.size()) - 1;
    while (k >= 0 && keep[static_cast<size_t>(k)] == '9') keep[static_cast<size_t>(k--)] = '0';
    if (k >= 0)
      ++keep[static_cast<size_t>(k)];
    else
      keep = std::string(1, '1') + keep, ++point;
  }
  int_part = keep.substr(0, static_cast<size_t>(point));
  frac_part = keep.substr(static_cast<size_t>(point));
  size_t nz = int_part.find_first_not_of('0');
  int_part = nz == std::string::npos ? "" : int_part.substr(nz);
}

Text FormatNumberSection(double value, TextView p, bool show_sign) {
  // Pass 1: measure placeholders.
  int int_zeros = 0, int_places = 0, frac_zeros = 0, frac_places = 0;
  bool point = false, group = false, percent = false;
  for (size_t i = 0; i < p.size();) {
    if (TakeLiteral(p, i, nullptr)) continue;
    char16_t c = p[i];
    if (c == u'0' || c == u'#') {
      if (point) {
        ++frac_places;
        if (c == u'0') frac_zeros = frac_places;
      } else {
        ++int_places;
        if (c == u'0') ++int_zeros;
      }
    } else if (c == u'.') {
      point = true;
    } else if (c == u',' && !point && int_places > 0) {
      group = true;
    } else if (c == u'%') {
      percent = true;
    }
    ++i;
  }
  if (percent) value *= 100;
  std::string ip, fp;
  RoundDecimal(value, frac_places, ip, fp);
  while (static_cast<int>(fp.size()) > frac_zeros && !fp.empty() && fp.back() == '0') fp.pop_back();
  if (static_cast<int>(ip.size()) < int_zeros)
    ip.insert(0, static_cast<size_t>(int_zeros) - ip.size(), '0');
  if (group && ip.size() > 3) {
    std::string g;
    char16_t sep = LocaleThousandsSeparator();
    std::string sepstr = TextToUtf8(Text(1, sep ? sep : u','));
    for (size_t k = 0; k < ip.size(); ++k) {
      if (k && (ip.size() - k) % 3 == 0) g += sepstr;
      g += ip[k];
    }
    ip = g;
  }
  // Pass 2: emit literals in place; digits at the first placeholder and the
  // point. The sign stays even when the digits round to zero ("-0.00").
  Text out;
  if (value < 0 && show_sign) out += u'-';
  bool int_done = false;
  for (size_t i = 0; i < p.size();) {
    if (TakeLiteral(p, i, &out)) continue;
    char16_t c = p[i];
    if ((c == u'0' || c == u'#' || c == u',') && !int_done) {
      if (c != u',') {
        out += Utf8ToText(ip);
        int_done = true;
      }
    } else if (c == u'0' || c == u'#' || c == u',') {
      // consumed by the digits already written
    } else if (c == u'.') {
      if (!int_done) out += Utf8ToText(ip), int_done = true;
      out += LocaleDecimalMark();
      out += Utf8ToText(fp);
    } else {
      out += c;
    }
    ++i;
  }
  return out;
}

std::vector<TextView> SplitSections(TextView p) {
  std::vector<TextView> sections;
  size_t start = 0;
  for (size_t i = 0; i < p.size();) {
    if (TakeLiteral(p, i, nullptr)) continue;
    if (p[i] == u';') {
      sections.push_back(p.substr(start, i - start));
      start = i + 1;
    }
    ++i;
  }
  sections.push_back(p.substr(start));
  return sections;
}

Text FormatNumber(double value, TextView p) {
  std::vector<TextView> s = SplitSections(p);
  if (value == 0 && s.size() >= 3 && !s[2].empty()) return FormatNumberSection(0, s[2], false);
  if (value < 0 && s.size() >= 2 && !s[1].empty()) return FormatNumberSection(-value, s[1], false);
  return FormatNumberSection(value, s[0], true);
}

double DateValue(const Variant& v) {
  if (v.IsString()) {
    double d;
    if (ParseDateText(v.RawString(), d)) return d;
  }
  return CDate(v).serial;
}

}  // namespace

Text Format(const Variant& value, TextView pattern) {
  if (value.IsNull()) return Text();
  if (pattern.empty()) return value.IsEmpty() ? Text() : CStr(value);
  Text named = LCase(pattern);
  if (named == u"general number") return CStr(Variant(CDbl(value)));
  if (named == u"fixed") return FormatNumber(CDbl(value), u"0.00");
  if (named == u"standard") return FormatNumber(CDbl(value), u"#,##0.00");
  if (named == u"percent") return FormatNumber(CDbl(value), u"0.00%");
  if (named == u"general date") return DateToText(DateValue(value));
  if (named == u"short date") return FormatDate(DateValue(value), u"yyyy-mm-dd");
  if (named == u"long time") return FormatDate(DateValue(value), u"hh:nn:ss");
  if (named == u"short time") return FormatDate(DateValue(value), u"hh:nn");
  if (IsDatePattern(pattern)) {
    if (value.IsString() && !IsDate(value) && !IsNumeric(value)) return value.RawString();
    return FormatDate(DateValue(value), pattern);
  }
  if (value.IsString() && !IsNumeric(value)) return value.RawString();
  return FormatNumber(CDbl(value), pattern);
}

}  // namespace varnek
