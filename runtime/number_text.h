// Number <-> text helpers behind CStr, Str, Val, CDbl and Format. Not part of
// the classic surface; other runtime files share them.
#pragma once

#include <cstdint>

#include "varnek/runtime/text.h"
#include "varnek/runtime/variant.h"

namespace varnek {

// The locale's decimal mark and thousands separator, as the installed
// LocaleSource gives them (runtime/locale_source.h); "." and none (0) in the
// "C" locale. Only one-unit marks count.
char16_t LocaleDecimalMark();
char16_t LocaleThousandsSeparator();

// A double with `digits` significant digits (15 for Double, 7 for Single),
// trailing zeros dropped, "1E+15" style when the exponent reaches `digits` or
// the magnitude is below 1E-11. `mark` is the decimal mark.
Text RealToText(double value, int digits, char16_t mark);
// Currency with up to four decimals, trailing zeros dropped.
Text CurrencyToText(Currency value, char16_t mark);

// The value of a number subtype (Integer .. Byte, Boolean as -1/0, Currency,
// Date) or Empty (0) as a double; false for any other subtype.
bool NumberSubtypeValue(const Variant& v, double& out);

// Result of reading a number from text.
enum class ParseStatus { Ok, NotNumber, Overflow };
struct ParsedNumber {
  double value = 0;
  // "&H"/"&O" texts: the width they typed as (16 or 32); 0 for decimals.
  int integer_bits = 0;
};
// Reads a whole text as CDbl does: blanks (space, tab, CR, LF) around it, a
// leading sign, the locale's thousands separator in the integer part, the
// locale's decimal mark, an exponent (E or D), or "&H"/"&O" with the 16-bit
// wrap for at most 4 hex digits (values up to &O177777 for octal).
ParseStatus ParseNumberText(TextView text, ParsedNumber& out);

}  // namespace varnek
