// The CStr form of dates and the date/time text reader of CDate and IsDate.
#include "varnek/runtime/date_text.h"

#include <cmath>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include "varnek/runtime/date_math.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/locale_source.h"

namespace varnek {

Text DateToText(double date) {
  DateParts p = SplitDate(date);
  char buf[48];
  bool has_time = p.total_seconds % 86400 != 0;
  if (p.serial_day == 0) {
    std::snprintf(buf, sizeof buf, "%02d:%02d:%02d", p.hour, p.minute, p.second);
  } else if (!has_time) {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d", p.year, p.month, p.day);
  } else {
    std::snprintf(buf, sizeof buf, "%04d-%02d-%02d %02d:%02d:%02d", p.year, p.month, p.day, p.hour,
                  p.minute, p.second);
  }
  return Utf8ToText(buf);
}

DateOrder LocaleDateOrder() {
  const std::string pattern = CurrentLocaleSource().ShortDatePattern();
  const char* fmt = pattern.c_str();
  int pos_d = -1, pos_m = -1, pos_y = -1, n = 0;
  for (const char* p = fmt; *p; ++p) {
    if (*p != '%' || !p[1]) continue;
    ++p;
    while (*p == 'E' || *p == 'O' || *p == '-' || *p == '_' || *p == '0' || *p == '^' ||
           *p == '#') {
      ++p;
    }
    if (*p == '\0') break;  // a pattern ending in modifiers
    switch (*p) {
      case 'd':
      case 'e': pos_d = n++; break;
      case 'm':
      case 'b':
      case 'B':
      case 'h': pos_m = n++; break;
      case 'y':
      case 'Y':
      case 'C': pos_y = n++; break;
      case 'D': return DateOrder::MDY;
      case 'F': return DateOrder::YMD;
      default: break;
    }
  }
  if (pos_y == 0) return DateOrder::YMD;
  if (pos_d >= 0 && pos_m >= 0 && pos_d < pos_m) return DateOrder::DMY;
  return DateOrder::MDY;
}

char16_t LocaleDateSeparator() {
  const std::string pattern = CurrentLocaleSource().ShortDatePattern();
  const char* fmt = pattern.c_str();
  for (const char* p = fmt; *p; ++p) {
    if (*p == '%') {
      if (p[1] == 'D') return u'/';
      if (p[1] == 'F') return u'-';
      ++p;
      continue;
    }
    if (*p == '/' || *p == '-' || *p == '.') return static_cast<char16_t>(*p);
  }
  return u'/';
}

namespace {

struct Field {
  int value;
  int digits;
};

bool IsDigit(char16_t c) { return c >= u'0' && c <= u'9'; }

// Reads "n{sep}n{sep}n" (2 or 3 numbers) with one separator kind; returns the
// count read, 0 when the text is not such a list.
size_t ReadNumbers(TextView t, const char16_t* seps, std::vector<Field>& out, char16_t& used) {
  out.clear();
  used = 0;
  size_t i = 0;
  while (true) {
    size_t start = i;
    int v = 0;
    while (i < t.size() && IsDigit(t[i]) && i - start < 5) v = v * 10 + (t[i++] - u'0');
    if (i == start || (i < t.size() && IsDigit(t[i]))) return 0;
    out.push_back({v, static_cast<int>(i - start)});
    if (i == t.size()) break;
    char16_t c = t[i];
    bool is_sep = false;
    for (const char16_t* s = seps; *s; ++s) is_sep = is_sep || c == *s;
    if (!is_sep || (used && c != used)) return 0;
    used = c;
    ++i;
  }
  return out.size();
}

int FullYear(const Field& y) {
  if (y.digits <= 2) return y.value < 30 ? 2000 + y.value : 1900 + y.value;
  return y.value;
}

bool ValidDay(int y, int m, int d) {
  if (y < 100 || y > 9999 || m < 1 || m > 12 || d < 1) return false;
  static const int kDays[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (d > kDays[m - 1]) return false;
  bool leap = (y % 4 == 0 && y % 100 != 0) || y % 400 == 0;
  return !(m == 2 && d == 29 && !leap);
}

bool MakeDate(int y, int m, int d, double& out) {
  if (!ValidDay(y, m, d)) return false;
  out = static_cast<double>(SerialFromCivil(y, m, d));
  return true;
}

// Three numbers with '-', '/' or the locale's order. Year-first when the first
// field has more than two digits; otherwise the locale's order, and when that
// reading is impossible the day and month swap.
bool ParseDatePart(TextView t, double& out) {
  std::vector<Field> f;
  char16_t sep;
  const char16_t seps[] = {u'/', u'-', LocaleDateSeparator(), 0};
  if (ReadNumbers(t, seps, f, sep) != 3) return false;
  if (f[0].digits > 2) {
    if (f[2].digits > 2) return false;
    return MakeDate(f[0].value, f[1].value, f[2].value, out);
  }
  if (f[2].digits > 4 || f[1].digits > 2) return false;
  int y = FullYear(f[2]);
  DateOrder order = LocaleDateOrder();
  int a = f[0].value, b = f[1].value;
  if (order == DateOrder::YMD) {
    // a two-digit year first reads as y-m-d only when the last field cannot be a year
    return MakeDate(FullYear(f[0]), f[1].value, f[2].value, out) || MakeDate(y, a, b, out) ||
           MakeDate(y, b, a, out);
  }
  if (order == DateOrder::DMY) return MakeDate(y, b, a, out) || MakeDate(y, a, b, out);
  return MakeDate(y, a, b, out) || MakeDate(y, b, a, out);
}

// "h:nn" or "h:nn:ss", optionally followed by AM/PM (ignored past hour 12).
// Where '.' does not separate dates it separates times: "04.28.14", "2.5".
bool ParseTimePart(TextView t, double& out) {
  TextView body = t;
  int ampm = 0;  // 1 am, 2 pm
  if (body.size() >= 2) {
    TextView tail = body.substr(body.size() - 2);
    auto up = [](char16_t c) { return c >= u'a' && c <= u'z' ? static_cast<char16_t>(c - 32) : c; };
    if (up(tail[1]) == u'M' && (up(tail[0]) == u'A' || up(tail[0]) == u'P')) {
      ampm = up(tail[0]) == u'A' ? 1 : 2;
      body = body.substr(0, body.size() - 2);
      while (!body.empty() && body.back() == u' ') body.remove_suffix(1);
    }
  }
  std::vector<Field> f;
  char16_t sep;
  const char16_t seps[] = {u':', LocaleDateSeparator() == u'.' ? u':' : u'.', 0};
  size_t n = ReadNumbers(body, seps, f, sep);
  if (n < 2 || n > 3) return false;
  int h = f[0].value, m = f[1].value, s = n == 3 ? f[2].value : 0;
  if (f[1].digits > 2 || (n == 3 && f[2].digits > 2) || f[0].digits > 2) return false;
  if (ampm && h <= 12) {
    if (ampm == 1 && h == 12) h = 0;
    if (ampm == 2 && h < 12) h += 12;
  }
  if (h > 23 || m > 59 || s > 59) return false;
  out = (h * 3600.0 + m * 60.0 + s) / 86400.0;
  return true;
}

// The number of an English month name or its first three letters, else 0.
int MonthFromName(TextView word) {
  static const char* const kNames[12] = {"january",   "february", "march",    "april",
                                         "may",       "june",     "july",     "august",
                                         "september", "october",  "november", "december"};
  if (word.size() < 3) return 0;
  for (int m = 0; m < 12; ++m) {
    std::string_view name = kNames[m];
    if (word.size() != 3 && word.size() != name.size()) continue;
    bool same = true;
    for (size_t i = 0; i < word.size() && same; ++i) {
      char16_t c =
          word[i] >= u'A' && word[i] <= u'Z' ? static_cast<char16_t>(word[i] + 32) : word[i];
      same = c == static_cast<char16_t>(name[i]);
    }
    if (same) return m + 1;
  }
  return 0;
}

bool ParseNumberField(TextView word, Field& f) {
  if (word.empty() || word.size() > 4) return false;
  f = {0, static_cast<int>(word.size())};
  for (char16_t c : word) {
    if (!IsDigit(c)) return false;
    f.value = f.value * 10 + (c - u'0');
  }
  return true;
}

// "7 Mar 2004", "Mar 7, 2004", "07-March-04": a named month with a day and a
// year (the month first or second), optionally followed by a time.
bool ParseNamedMonth(TextView t, double& out) {
  double time = 0;
  size_t colon = t.find(u':');
  if (colon != TextView::npos) {
    size_t start = t.rfind(u' ', colon);
    if (start == TextView::npos || !ParseTimePart(t.substr(start + 1), time)) return false;
    t = t.substr(0, start);
  }
  std::vector<TextView> words;
  size_t i = 0;
  while (i < t.size()) {
    while (i < t.size() && (t[i] == u' ' || t[i] == u',' || t[i] == u'-' || t[i] == u'/')) ++i;
    size_t start = i;
    while (i < t.size() && !(t[i] == u' ' || t[i] == u',' || t[i] == u'-' || t[i] == u'/')) ++i;
    if (i > start) words.push_back(t.substr(start, i - start));
  }
  if (words.size() != 3) return false;
  int month = MonthFromName(words[0]);
  Field day, year;
  if (month) {
    if (!ParseNumberField(words[1], day) || !ParseNumberField(words[2], year)) return false;
  } else {
    month = MonthFromName(words[1]);
    if (!month || !ParseNumberField(words[0], day) || !ParseNumberField(words[2], year))
      return false;
  }
  if (day.digits > 2) return false;
  double date;
  if (!MakeDate(FullYear(year), month, day.value, date)) return false;
  out = date + time;
  return true;
}

}  // namespace

bool ParseDateText(TextView text, double& out) {
  size_t b = 0, e = text.size();
  while (b < e && text[b] == u' ') ++b;
  while (e > b && text[e - 1] == u' ') --e;
  TextView t = text.substr(b, e - b);
  if (t.empty()) return false;
  double date = 0, time = 0;
  size_t space = t.find(u' ');
  if (space == TextView::npos) {
    if (ParseDatePart(t, date)) {
      out = date;
      return true;
    }
    if (ParseTimePart(t, time)) {
      out = time;
      return true;
    }
    return ParseNamedMonth(t, out);
  }
  TextView first = t.substr(0, space);
  TextView rest = t.substr(space + 1);
  while (!rest.empty() && rest.front() == u' ') rest.remove_prefix(1);
  if (ParseDatePart(first, date) && ParseTimePart(rest, time)) {
    out = date >= 0 ? date + time : date - time;
    return true;
  }
  // A lone time with its AM/PM marker after a blank: "10:30 PM".
  if (ParseTimePart(t, time)) {
    out = time;
    return true;
  }
  return ParseNamedMonth(t, out);
}

}  // namespace varnek
