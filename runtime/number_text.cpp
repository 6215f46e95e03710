// Number <-> text: classic digit counts, locale marks and the CDbl reader.
#include "varnek/runtime/number_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "varnek/runtime/locale_source.h"

namespace varnek {
namespace {

char16_t SingleUnitMark(const std::string& s) {
  if (s.empty()) return 0;
  Text t = Utf8ToText(s);
  return t.size() == 1 ? t[0] : 0;
}

bool IsBlank(char16_t c) { return c == u' ' || c == u'\t' || c == u'\r' || c == u'\n'; }

int HexDigit(char16_t c) {
  if (c >= u'0' && c <= u'9') return c - u'0';
  if (c >= u'a' && c <= u'f') return c - u'a' + 10;
  if (c >= u'A' && c <= u'F') return c - u'A' + 10;
  return -1;
}

// "&H..." / "&O..." after trimming. Width follows the classic literal rule.
ParseStatus ParseRadix(TextView body, bool hex, ParsedNumber& out) {
  if (body.empty()) return ParseStatus::NotNumber;
  uint64_t value = 0;
  for (char16_t c : body) {
    int d = HexDigit(c);
    if (d < 0 || (!hex && d > 7)) return ParseStatus::NotNumber;
    value = value * (hex ? 16 : 8) + static_cast<uint64_t>(d);
    if (value > 0xFFFFFFFFull) return ParseStatus::Overflow;
  }
  bool narrow = hex ? body.size() <= 4 : value <= 0xFFFF;
  if (narrow) {
    out.value = static_cast<int16_t>(static_cast<uint16_t>(value));
    out.integer_bits = 16;
  } else {
    out.value = static_cast<int32_t>(static_cast<uint32_t>(value));
    out.integer_bits = 32;
  }
  return ParseStatus::Ok;
}

}  // namespace

char16_t LocaleDecimalMark() {
  char16_t m = SingleUnitMark(CurrentLocaleSource().DecimalPoint());
  return m ? m : u'.';
}

char16_t LocaleThousandsSeparator() {
  return SingleUnitMark(CurrentLocaleSource().ThousandsSeparator());
}

Text RealToText(double value, int digits, char16_t mark) {
  if (value == 0) return u"0";
  if (std::isnan(value)) return u"NaN";
  if (std::isinf(value)) return value < 0 ? u"-Infinity" : u"Infinity";
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.*e", digits - 1, value);
  // buf: [-]d.ddddde[+-]xx
  std::string s(buf);
  bool negative = s[0] == '-';
  if (negative) s.erase(0, 1);
  size_t e = s.find('e');
  int exponent = std::atoi(s.c_str() + e + 1);
  std::string mant;
  for (size_t i = 0; i < e; ++i) {
    if (s[i] >= '0' && s[i] <= '9') mant += s[i];  // printf's mark follows the locale
  }
  while (mant.size() > 1 && mant.back() == '0') mant.pop_back();
  std::string out = negative ? "-" : "";
  std::string markstr = TextToUtf8(Text(1, mark));
  if (exponent >= digits || std::fabs(value) < 1e-11) {
    out += mant[0];
    if (mant.size() > 1) out += markstr + mant.substr(1);
    char ex[16];
    std::snprintf(ex, sizeof ex, "E%c%02d", exponent < 0 ? '-' : '+', std::abs(exponent));
    out += ex;
  } else if (exponent >= 0) {
    size_t int_len = static_cast<size_t>(exponent) + 1;
    if (mant.size() <= int_len) {
      out += mant + std::string(int_len - mant.size(), '0');
    } else {
      out += mant.substr(0, int_len) + markstr + mant.substr(int_len);
    }
  } else {
    out += "0" + markstr + std::string(static_cast<size_t>(-exponent - 1), '0') + mant;
  }
  return Utf8ToText(out);
}

Text CurrencyToText(Currency value, char16_t mark) {
  int64_t v = value.scaled;
  bool negative = v < 0;
  uint64_t mag = negative ? static_cast<uint64_t>(-(v + 1)) + 1 : static_cast<uint64_t>(v);
  std::string out = negative ? "-" : "";
  out += std::to_string(mag / 10000);
  uint64_t frac = mag % 10000;
  if (frac) {
    char buf[8];
    std::snprintf(buf, sizeof buf, "%04u", static_cast<unsigned>(frac));
    std::string f(buf);
    while (f.back() == '0') f.pop_back();
    out += TextToUtf8(Text(1, mark)) + f;
  }
  return Utf8ToText(out);
}

ParseStatus ParseNumberText(TextView text, ParsedNumber& out) {
  size_t b = 0, e = text.size();
  while (b < e && IsBlank(text[b])) ++b;
  while (e > b && IsBlank(text[e - 1])) --e;
  TextView t = text.substr(b, e - b);
  out = ParsedNumber{};
  if (t.size() >= 2 && t[0] == u'&') {
    char16_t k = t[1];
    if (k == u'H' || k == u'h') return ParseRadix(t.substr(2), true, out);
    if (k == u'O' || k == u'o') return ParseRadix(t.substr(2), false, out);
    return ParseStatus::NotNumber;
  }
  const char16_t mark = LocaleDecimalMark();
  const char16_t group = LocaleThousandsSeparator();
  std::string ascii;  // what from_chars reads: [-]digits[.digits][e[-]digits]
  size_t i = 0;
  if (i < t.size() && (t[i] == u'+' || t[i] == u'-')) {
    if (t[i] == u'-') ascii += '-';
    ++i;
  }
  size_t digits = 0;
  while (i < t.size()) {
    char16_t c = t[i];
    if (c >= u'0' && c <= u'9') {
      ascii += static_cast<char>(c);
      ++digits;
    } else if (group && c == group && digits > 0) {
      // thousands separators are skipped wherever they stand
    } else {
      break;
    }
    ++i;
  }
  if (i < t.size() && t[i] == mark) {
    ascii += '.';
    ++i;
    while (i < t.size() && t[i] >= u'0' && t[i] <= u'9') {
      ascii += static_cast<char>(t[i]);
      ++digits;
      ++i;
    }
  }
  if (digits == 0) return ParseStatus::NotNumber;
  if (i < t.size() && (t[i] == u'e' || t[i] == u'E' || t[i] == u'd' || t[i] == u'D')) {
    ascii += 'e';
    ++i;
    if (i < t.size() && (t[i] == u'+' || t[i] == u'-')) {
      if (t[i] == u'-') ascii += '-';
      ++i;
    }
    size_t exp_digits = 0;
    while (i < t.size() && t[i] >= u'0' && t[i] <= u'9') {
      ascii += static_cast<char>(t[i]);
      ++exp_digits;
      ++i;
    }
    if (exp_digits == 0) return ParseStatus::NotNumber;
  }
  if (i != t.size()) return ParseStatus::NotNumber;
  double v = 0;
  auto r = std::from_chars(ascii.data(), ascii.data() + ascii.size(), v);
  if (r.ec == std::errc::result_out_of_range) {
    // Underflow reads as 0; overflow is the classic failure.
    size_t epos = ascii.find('e');
    if (epos != std::string::npos && ascii[epos + 1] == '-') {
      out.value = 0;
      return ParseStatus::Ok;
    }
    return ParseStatus::Overflow;
  }
  if (r.ec != std::errc()) return ParseStatus::NotNumber;
  out.value = v;
  return ParseStatus::Ok;
}

bool NumberSubtypeValue(const Variant& v, double& out) {
  switch (v.Type()) {
    case VarType::Empty: out = 0; return true;
    case VarType::Integer: out = v.RawInteger(); return true;
    case VarType::Long: out = v.RawLong(); return true;
    case VarType::Single: out = v.RawSingle(); return true;
    case VarType::Double: out = v.RawDouble(); return true;
    case VarType::Currency:
      out = static_cast<double>(v.RawCurrency().scaled) / 10000.0;
      return true;
    case VarType::Date: out = v.RawDate().serial; return true;
    case VarType::Boolean: out = v.RawBoolean() ? -1 : 0; return true;
    case VarType::Byte: out = v.RawByte(); return true;
    default: return false;
  }
}

}  // namespace varnek
