// The classic conversions, in one place: every routine reads a Variant as
// another subtype through these.
//
// Integer conversions round half to even, then fail with 6 when out of range.
// A Null where a concrete value is needed fails with 94; a text that is not a
// number fails with 13. Empty reads as 0 and as "".
//
//   CInt(2.5) == 2;  CInt(3.5) == 4;  CInt(32767.5) -> failure 6
//   CStr(Variant(0.1 + 0.2)) == u"0.3";  Str(459) == u" 459"
//   Hex(Variant(-1)) == u"FFFF";  Val(u"&HFFFF") == -1
#pragma once

#include <cstdint>

#include "varnek/runtime/variant.h"

namespace varnek {

// CStr: Double with 15 significant digits and Single with 7, trailing zeros
// dropped, "1E+15" form from the digit count on or below 1E-11; the locale's
// decimal mark. Currency up to 4 decimals. Boolean "True"/"False". Date in our
// locale-independent short form "yyyy-mm-dd hh:nn:ss" ("yyyy-mm-dd" at
// midnight, "hh:nn:ss" on day 0). Empty "". Null fails with 94, Missing with
// 449, an object with 438 (91 when Nothing), an array with 13.
Text CStr(const Variant& v);
int16_t CInt(const Variant& v);
int32_t CLng(const Variant& v);
float CSng(const Variant& v);
double CDbl(const Variant& v);
Currency CCur(const Variant& v);
Date CDate(const Variant& v);
bool CBool(const Variant& v);
uint8_t CByte(const Variant& v);

// Round half to even, the rule of every integer conversion.
double RoundHalfEven(double value);

// Int floors, Fix truncates; both keep the subtype.
Variant Int(const Variant& v);
Variant Fix(const Variant& v);

// Str: "." as decimal mark and a leading blank for numbers >= 0; like the
// classic runtime it drops the zero before the mark: Str(0.12) == u" .12".
// Boolean and Date read as CStr; Null fails with 94.
Text Str(const Variant& v);
// Hex/Oct: Integer subtypes give at most 4/6 digits of their 16-bit pattern,
// Long at most 8/11. Null gives Null; Empty gives "0".
Variant Hex(const Variant& v);
Variant Oct(const Variant& v);
// Val: the leading number of a text, blanks, tabs and line feeds skipped
// everywhere; "&H"/"&O" read with the 16-bit wrap. Only "." is a decimal mark
// and "," ends the number. "50%" reads 50 but "50.5%" fails with 13.
double Val(TextView text);

// True when the whole value reads as a number (Empty: True, Null: False,
// Date: False).
bool IsNumeric(const Variant& v);
// True when the value is a date, or a text that reads as a date or time.
bool IsDate(const Variant& v);

// Reads a number from text the way CDbl does (blanks, sign, exponent, "&H",
// the locale's decimal mark). Returns false when the text is not a number.
bool ParseNumber(TextView text, double& out);

// The classic Format for the patterns the code uses: numbers ("0", "00",
// "#,##0.00", ...) and dates ("yyyy-mm-dd hh:nn:ss", "yyyy-mm", "dd", ...).
// The supported subset is listed at the top of runtime/format.cpp. Never
// fails for a text value that reads as neither; it is returned as it is.
Text Format(const Variant& value, TextView pattern);

}  // namespace varnek
