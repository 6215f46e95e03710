// The classic conversions: CStr, CInt, CLng, CSng, CDbl, CCur, CDate, CBool,
// CByte, Int, Fix, Str, Hex, Oct, Val, IsNumeric and IsDate.
#include "varnek/runtime/convert.h"

#include <cctype>
#include <cfloat>
#include <charconv>
#include <cmath>
#include <string>

#include "varnek/runtime/date_math.h"
#include "varnek/runtime/date_text.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/number_text.h"
#include "varnek/runtime/strings.h"

namespace varnek {
namespace {

constexpr double kCurrencyLimit = 922337203685477.5807;

[[noreturn]] void FailForSubtype(const Variant& v) {
  if (v.IsNull()) Fail(kErrInvalidUseOfNull);
  if (v.IsMissing()) Fail(kErrArgumentNotOptional);
  Fail(kErrTypeMismatch);
}

double TextToDouble(TextView text) {
  ParsedNumber p;
  switch (ParseNumberText(text, p)) {
    case ParseStatus::Ok: return p.value;
    case ParseStatus::Overflow: Fail(kErrOverflow);
    case ParseStatus::NotNumber: break;
  }
  Fail(kErrTypeMismatch);
}

// The value as a double for the integer and float conversions.
double NumericValue(const Variant& v) {
  double value = 0;
  if (NumberSubtypeValue(v, value)) return value;
  if (v.IsString()) return TextToDouble(v.RawString());
  FailForSubtype(v);
}

// Rounds a currency's scaled value to whole units, ties to even.
int64_t CurrencyToWhole(int64_t scaled) {
  int64_t q = scaled / 10000, r = scaled % 10000;
  if (r > 5000 || (r == 5000 && (q & 1))) ++q;
  if (r < -5000 || (r == -5000 && (q & 1))) --q;
  return q;
}

int64_t RoundedInRange(const Variant& v, int64_t lo, int64_t hi) {
  if (v.Type() == VarType::Currency) {
    int64_t w = CurrencyToWhole(v.RawCurrency().scaled);
    if (w < lo || w > hi) Fail(kErrOverflow);
    return w;
  }
  double d = RoundHalfEven(NumericValue(v));
  if (!(d >= static_cast<double>(lo) && d <= static_cast<double>(hi))) Fail(kErrOverflow);
  return static_cast<int64_t>(d);
}

Text IntegerDigits(int64_t v) { return Utf8ToText(std::to_string(v)); }

// Hex/Oct digits of the low `bits` bits of a pattern.
Text RadixText(uint64_t pattern, int bits, int shift) {
  if (bits < 64) pattern &= (uint64_t{1} << bits) - 1;
  const char* digits = "0123456789ABCDEF";
  Text out;
  do {
    out.insert(out.begin(), static_cast<char16_t>(digits[pattern & ((1u << shift) - 1)]));
    pattern >>= shift;
  } while (pattern);
  return out;
}

Variant RadixOf(const Variant& v, int shift) {
  if (v.IsNull()) return Variant::Null();
  if (v.IsEmpty()) return Variant(Text(u"0"));
  int64_t pattern;
  int bits;
  switch (v.Type()) {
    case VarType::Integer:
    case VarType::Byte:
    case VarType::Boolean:
      pattern = CInt(v);
      bits = 16;
      break;
    default:
      pattern = CLng(v);
      bits = 32;
      break;
  }
  return Variant(RadixText(static_cast<uint64_t>(pattern), bits, shift));
}

}  // namespace

double RoundHalfEven(double value) { return std::nearbyint(value); }

Text CStr(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty: return Text();
    case VarType::Integer: return IntegerDigits(v.RawInteger());
    case VarType::Long: return IntegerDigits(v.RawLong());
    case VarType::Byte: return IntegerDigits(v.RawByte());
    case VarType::Single: return RealToText(v.RawSingle(), 7, LocaleDecimalMark());
    case VarType::Double: return RealToText(v.RawDouble(), 15, LocaleDecimalMark());
    case VarType::Currency: return CurrencyToText(v.RawCurrency(), LocaleDecimalMark());
    case VarType::Date: return DateToText(v.RawDate().serial);
    case VarType::Boolean: return v.RawBoolean() ? u"True" : u"False";
    case VarType::String: return v.RawString();
    case VarType::Object: Fail(v.RawObject() ? kErrNoSuchMember : kErrObjectNotSet);
    default: FailForSubtype(v);
  }
}

int16_t CInt(const Variant& v) {
  return static_cast<int16_t>(RoundedInRange(v, INT16_MIN, INT16_MAX));
}

int32_t CLng(const Variant& v) {
  return static_cast<int32_t>(RoundedInRange(v, INT32_MIN, INT32_MAX));
}

uint8_t CByte(const Variant& v) { return static_cast<uint8_t>(RoundedInRange(v, 0, 255)); }

float CSng(const Variant& v) {
  double d = NumericValue(v);
  if (std::fabs(d) > FLT_MAX) Fail(kErrOverflow);
  return static_cast<float>(d);
}

double CDbl(const Variant& v) { return NumericValue(v); }

Currency CCur(const Variant& v) {
  if (v.Type() == VarType::Currency) return v.RawCurrency();
  switch (v.Type()) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
    case VarType::Boolean: return Currency{int64_t{CLng(v)} * 10000};
    default: break;
  }
  double d = NumericValue(v);
  if (!(std::fabs(d) <= kCurrencyLimit)) Fail(kErrOverflow);
  // Round at 4 decimals through the 15-digit decimal form, so 1.00005 is a tie.
  std::string digits = TextToUtf8(RealToText(d * 10000.0, 15, u'.'));
  double exact = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), exact);
  double scaled = RoundHalfEven(exact);
  if (std::fabs(scaled) > 9.2233720368547758e18) Fail(kErrOverflow);
  return Currency{static_cast<int64_t>(scaled)};
}

Date CDate(const Variant& v) {
  if (v.Type() == VarType::Date) return v.RawDate();
  if (v.IsString()) {
    double d;
    if (ParseDateText(v.RawString(), d)) return Date{d};
    ParsedNumber p;
    if (ParseNumberText(v.RawString(), p) != ParseStatus::Ok) Fail(kErrTypeMismatch);
    if (!DateInRange(p.value)) Fail(kErrOverflow);
    return Date{p.value};
  }
  double d = NumericValue(v);
  if (!DateInRange(d)) Fail(kErrOverflow);
  return Date{d};
}

bool CBool(const Variant& v) {
  switch (v.Type()) {
    case VarType::Boolean: return v.RawBoolean();
    case VarType::Currency: return v.RawCurrency().scaled != 0;
    case VarType::String: {
      const Text& s = v.RawString();
      Text t = LCase(Trim(s));
      if (t == u"true") return true;
      if (t == u"false") return false;
      return NumericValue(v) != 0;
    }
    default: return NumericValue(v) != 0;
  }
}

namespace {

// Int and Fix: the whole part by floor (Int) or toward zero (Fix), keeping the
// subtype; integer subtypes come back as they are.
Variant WholePart(const Variant& v, bool floor) {
  auto whole = [floor](double x) { return floor ? std::floor(x) : std::trunc(x); };
  switch (v.Type()) {
    case VarType::Null: return Variant::Null();
    case VarType::Empty: return Variant::Integer(0);
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte: return v;
    case VarType::Boolean: return Variant::Integer(v.RawBoolean() ? -1 : 0);
    case VarType::Single: return Variant(static_cast<float>(whole(v.RawSingle())));
    case VarType::Currency: {
      const int64_t s = v.RawCurrency().scaled;
      const int64_t q = s / 10000 - ((floor && s % 10000 < 0) ? 1 : 0);
      return Variant(Currency{q * 10000});
    }
    case VarType::Date: return Variant(Date{whole(v.RawDate().serial)});
    default: return Variant(whole(NumericValue(v)));
  }
}

}  // namespace

Variant Int(const Variant& v) { return WholePart(v, true); }
Variant Fix(const Variant& v) { return WholePart(v, false); }

// Str drops the zero before the decimal mark: Str(0.12) is " .12".
Text Str(const Variant& v) {
  Text digits;
  switch (v.Type()) {
    case VarType::Null: Fail(kErrInvalidUseOfNull);
    case VarType::Boolean:
    case VarType::Date: return CStr(v);
    case VarType::Integer:
    case VarType::Long:
    case VarType::Byte:
    case VarType::Empty: digits = IntegerDigits(CLng(v)); break;
    case VarType::Single: digits = RealToText(v.RawSingle(), 7, u'.'); break;
    case VarType::Currency: digits = CurrencyToText(v.RawCurrency(), u'.'); break;
    default: digits = RealToText(NumericValue(v), 15, u'.'); break;
  }
  if (digits.rfind(u"0.", 0) == 0) digits.erase(0, 1);
  if (digits.rfind(u"-0.", 0) == 0) digits.erase(1, 1);
  if (digits[0] != u'-') digits.insert(digits.begin(), u' ');
  return digits;
}

Variant Hex(const Variant& v) { return RadixOf(v, 4); }
Variant Oct(const Variant& v) { return RadixOf(v, 3); }

// Val: blanks, tabs and line feeds vanish first; then the longest prefix that
// reads as a number. A '%' or '&' type suffix after a fraction fails with 13.
double Val(TextView text) {
  Text s;
  for (char16_t c : text) {
    if (c != u' ' && c != u'\t' && c != u'\n') s += c;
  }
  if (s.size() >= 2 && s[0] == u'&' &&
      (s[1] == u'H' || s[1] == u'h' || s[1] == u'O' || s[1] == u'o')) {
    bool hex = s[1] == u'H' || s[1] == u'h';
    size_t i = 2;
    while (i < s.size() && ((hex && std::isxdigit(s[i] < 128 ? s[i] : 0)) ||
                            (!hex && s[i] >= u'0' && s[i] <= u'7'))) {
      ++i;
    }
    if (i == 2) return 0;
    ParsedNumber p;
    if (ParseNumberText(TextView(s).substr(0, i), p) == ParseStatus::Overflow) Fail(kErrOverflow);
    return p.value;
  }
  std::string ascii;
  size_t i = 0;
  if (i < s.size() && (s[i] == u'+' || s[i] == u'-')) ascii += static_cast<char>(s[i++]);
  size_t digits = 0;
  bool fraction = false;
  while (i < s.size() && s[i] >= u'0' && s[i] <= u'9') ascii += static_cast<char>(s[i++]), ++digits;
  if (i < s.size() && s[i] == u'.') {
    ascii += '.';
    ++i;
    fraction = true;
    while (i < s.size() && s[i] >= u'0' && s[i] <= u'9')
      ascii += static_cast<char>(s[i++]), ++digits;
  }
  if (digits == 0) return 0;
  if (i < s.size() && (s[i] == u'e' || s[i] == u'E' || s[i] == u'd' || s[i] == u'D')) {
    size_t j = i + 1;
    std::string exp = "e";
    if (j < s.size() && (s[j] == u'+' || s[j] == u'-')) exp += static_cast<char>(s[j++]);
    size_t start = j;
    while (j < s.size() && s[j] >= u'0' && s[j] <= u'9') exp += static_cast<char>(s[j++]);
    if (j > start) {
      ascii += exp;
      i = j;
      fraction = true;
    }
  }
  if (fraction && i < s.size() && (s[i] == u'%' || s[i] == u'&')) Fail(kErrTypeMismatch);
  double value = 0;
  auto r = std::from_chars(ascii.data(), ascii.data() + ascii.size(), value);
  if (r.ec == std::errc::result_out_of_range) {
    if (ascii.find("e-") != std::string::npos) return 0;
    Fail(kErrOverflow);
  }
  return value;
}

bool IsNumeric(const Variant& v) {
  switch (v.Type()) {
    case VarType::Empty:
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency:
    case VarType::Boolean:
    case VarType::Byte: return true;
    case VarType::String: {
      ParsedNumber p;
      return ParseNumberText(v.RawString(), p) == ParseStatus::Ok;
    }
    default: return false;
  }
}

bool IsDate(const Variant& v) {
  if (v.Type() == VarType::Date) return true;
  if (!v.IsString()) return false;
  double d;
  return ParseDateText(v.RawString(), d);
}

bool ParseNumber(TextView text, double& out) {
  ParsedNumber p;
  if (ParseNumberText(text, p) != ParseStatus::Ok) return false;
  out = p.value;
  return true;
}

}  // namespace varnek
