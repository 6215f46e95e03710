// Small value conversions: numbers to and from byte strings, Roman numerals,
// colours, the compact date form, currency text and the pager filter.
#include <cmath>

#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/number_text.h"
#include "varnek/runtime/compare.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

// One decimal digit of a Roman numeral with its one, five and ten letters.
void RomanDigit(Text& out, int32_t digit, char16_t one, char16_t five, char16_t ten) {
  if (digit == 9) {
    out += one;
    out += ten;
  } else if (digit >= 5) {
    out += five;
    out.append(static_cast<size_t>(digit - 5), one);
  } else if (digit == 4) {
    out += one;
    out += five;
  } else if (digit > 0) {
    out.append(static_cast<size_t>(digit), one);
  }
}

Text ZeroPadded(int32_t value, size_t width) {
  Text digits = CStr(Variant::Long(value));
  if (digits.size() < width) digits.insert(0, width - digits.size(), u'0');
  return digits;
}

}  // namespace

Variant TextToolkit::Var_IntToChar(const Variant& Number, const Variant& LenBytes,
                                   bool TrueIsHex_FalseIsAscii) {
  double n = CDbl(Number);
  int32_t count = CLng(LenBytes);
  Text result;
  for (int32_t i = count; i >= 1; --i) {
    double b = n - 256 * std::floor(n / 256);
    n = std::floor(n / 256);
    Text piece = TrueIsHex_FalseIsAscii ? Hex(Variant(b)).ToText()
                                        : Chr(static_cast<int32_t>(RoundHalfEven(b)));
    result.insert(0, piece);
  }
  return Variant(std::move(result));
}

Variant TextToolkit::Var_CharToInt(const Variant& sString, bool TrueIsHex_FalseIsAscii) {
  Text hex;
  if (TrueIsHex_FalseIsAscii) {
    hex = CStr(sString);
  } else {
    for (char16_t unit : CStr(sString)) hex += text::HexDigits(text::UnitByte(unit));
  }
  // The runtime's reading of the "&H" literal decides width and sign.
  Text literal = u"&H" + hex;
  double value = 0;
  if (!ParseNumber(literal, value)) return Variant(std::move(literal));
  if (value == std::floor(value) && std::fabs(value) <= 2147483647.0) {
    return Variant(static_cast<int>(value));
  }
  return Variant(value);
}

Text TextToolkit::Var_ToRoman(int16_t& X) {
  Text result;
  int32_t x = X;
  int32_t thousands = static_cast<int32_t>(std::floor(x / 1000.0));
  if (thousands > 0) result.append(static_cast<size_t>(thousands), u'M');
  x -= thousands * 1000;
  X = ToInt16(x);
  int32_t hundreds = x / 100;
  RomanDigit(result, hundreds, u'C', u'D', u'M');
  x -= hundreds * 100;
  X = ToInt16(x);
  int32_t tens = x / 10;
  RomanDigit(result, tens, u'X', u'L', u'C');
  x -= tens * 10;
  X = ToInt16(x);
  RomanDigit(result, x, u'I', u'V', u'X');
  return result;
}

Variant TextToolkit::Var_PercentDiference(const Variant& Value1, const Variant& Value2) {
  double result = 100;
  Resume([&] {
    bool first_larger = VariantLess(Value2, Value1);
    double a = CDbl(first_larger ? Value1 : Value2);
    double b = CDbl(first_larger ? Value2 : Value1);
    if (a == 0) Fail(b == 0 ? kErrOverflow : kErrDivisionByZero);
    result = 100 - 100 * (b / a);
  });
  return Variant(result);
}

CollectionPtr TextToolkit::Var_ColorLongToRGB(const Variant& Color) {
  double color = CDbl(Color);
  double blue = std::trunc(color / 256 / 256);
  double green = std::trunc((color - 65536 * blue) / 256);
  double red = std::trunc(color - 65536 * blue - 256 * green);
  CollectionPtr parts = Collection::New();
  parts->Add(Variant(red));
  parts->Add(Variant(green));
  parts->Add(Variant(blue));
  return parts;
}

int32_t TextToolkit::Var_ColorRGBToLong(const Variant& Red, const Variant& Green,
                                        const Variant& Blue) {
  int16_t rgb[3] = {0, 0, 0};
  const Variant* parts[3] = {&Red, &Green, &Blue};
  for (int i = 0; i < 3; ++i) {
    Resume([&] { rgb[i] = CInt(*parts[i]); });
    if (rgb[i] > 255) rgb[i] = 255;
  }
  int32_t result = 0;
  Resume([&] { result = ToInt32(rgb[0] + 256LL * rgb[1] + 65536LL * rgb[2]); });
  return result;
}

Text TextToolkit::Var_DateToString(const Variant& NewDate) {
  Text result;
  int32_t (*const fields[6])(double) = {Year, Month, Day, Hour, Minute, Second};
  for (int i = 0; i < 6; ++i) {
    Resume([&] { result += ZeroPadded(fields[i](CDate(NewDate).serial), i == 0 ? 4 : 2); });
  }
  return result;
}

Date TextToolkit::Var_StringToDate(const Variant& NewString) {
  Text s = CStr(NewString);
  if (s.size() == 14) {
    auto field = [&](int32_t start, int32_t length) {
      return CInt(Variant(Mid(s, start, length)));
    };
    int16_t year = field(1, 4), month = field(5, 2), day = field(7, 2);
    int16_t hour = field(9, 2), minute = field(11, 2), second = field(13, 2);
    double date = DateSerial(year, month, day);
    double time = TimeSerial(hour, minute, second);
    // Before 1899-12-30 the serial is negative and the time still counts up.
    return Date{date >= 0 ? date + time : date - time};
  }
  // Another date text only tells that it is one: its value is not used.
  if (IsDate(NewString)) return Date{loop().Now()};
  return Date{0};
}

Variant TextToolkit::Var_CurrencyToString(const Variant& NewCurrency) {
  return Variant(CStr(NewCurrency));
}

Currency TextToolkit::Var_StringToCurrency(Variant& NewString) {
  Text s = CStr(NewString);
  if (Win_LocaleDecimalSeparator() != u".") {
    s = Var_Translate(s, u".", u",");
  } else {
    s = Var_Translate(s, u",", u".");
  }
  NewString = Variant(s);
  Currency value;
  Resume([&] { value = CCur(NewString); });
  return value;
}

Variant TextToolkit::Var_FiltraCaracteres(const Variant& InputText) {
  Text s = CStr(InputText);
  static constexpr const char16_t* kPlain[][2] = {
      {u"ñ", u"n"}, {u"Ñ", u"N"}, {u"á", u"a"},    {u"é", u"e"}, {u"í", u"i"},
      {u"ó", u"o"}, {u"ú", u"u"}, {u"Á", u"A"},    {u"É", u"E"}, {u"Í", u"I"},
      {u"Ó", u"O"}, {u"Ú", u"U"}, {u"\r\n", u" "}, {u"\r", u" "}};
  for (const auto& row : kPlain) text::ReplaceAll(s, row[0], row[1]);
  for (int i = 128; i <= 255; ++i) {
    char16_t unit = text::ByteUnit(static_cast<uint8_t>(i));
    text::ReplaceAll(s, TextView(&unit, 1), TextView());
  }
  for (int i = 0; i <= 31; ++i) {
    char16_t unit = static_cast<char16_t>(i);
    text::ReplaceAll(s, TextView(&unit, 1), TextView());
  }
  return Variant(std::move(s));
}

Text TextToolkit::Win_LocaleDecimalSeparator() const { return Text(1, LocaleDecimalMark()); }

}  // namespace varnek
