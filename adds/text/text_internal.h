// Helpers shared by the text toolkit's files: searching, replacing in place and
// the byte reading of units, all without copying the input more than once.
#pragma once

#include <cstdint>
#include <string>

#include "varnek/runtime/text.h"

namespace varnek::text {

// The positions of the 16-bit working variables: a value above this can't be
// stored and its assignment fails.
inline constexpr int32_t kMaxInt16 = 32767;

// 0-based index of needle in text at or after from, or npos; no edge rules.
inline size_t FindFrom(TextView text, TextView needle, size_t from) {
  return text.find(needle, from);
}

// Var_GetPart(rest, separator, True) on rest = text[offset..], without
// copying rest: the piece before the separator, offset moved past it. A
// separator that is missing, or starts past the 16-bit limit of the walk,
// gives "" and leaves offset alone; the search never looks past that limit.
Text CutBefore(const Text& text, size_t& offset, TextView separator);

// Every occurrence of from (non-empty) replaced by to in one left-to-right
// sweep; text put in is never looked at again. Returns false when nothing was
// found (text is then untouched).
bool ReplaceAll(Text& text, TextView from, TextView to);

// The byte a unit stands for (Asc without the empty-text check), and back.
// Units below 0x80 and from 0xA0 to 0xFF are their own bytes in cp1252.
inline uint8_t UnitByte(char16_t unit) {
  if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return static_cast<uint8_t>(unit);
  return UnitToByte(unit);
}
// The unit of a byte: the runtime's mapping (runtime/text.h).
inline char16_t ByteUnit(uint8_t byte) { return ByteToUnit(byte); }

// Unpadded upper-case hexadecimal digits of a value ("0" for 0).
Text HexDigits(uint32_t value);

}  // namespace varnek::text
