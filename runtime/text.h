// Text as 16-bit code units, its cp1252 byte mapping, and UTF-8 at the
// host boundary.
//
// A unit stands for one byte on the wire and in files: TextToBytes/BytesToText
// map through cp1252, where the five bytes cp1252 leaves undefined (0x81 0x8D
// 0x8F 0x90 0x9D) map to the C1 unit of the same value, so all 256 bytes
// round-trip. A unit with no cp1252 byte becomes '?' (63).
//
//   Text t = BytesToText("caf\xE9");   // u"café"
//   std::string b = TextToBytes(t);    // "caf\xE9"
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace varnek {

using Text = std::u16string;
using TextView = std::u16string_view;

// The cp1252 byte of a unit, or 63 ('?') when the code page has none.
uint8_t UnitToByte(char16_t unit);
// The unit of a cp1252 byte. Total: every byte has one.
char16_t ByteToUnit(uint8_t byte);
// True when the unit has a cp1252 byte.
bool UnitHasByte(char16_t unit);

std::string TextToBytes(TextView text);
Text BytesToText(std::string_view bytes);

// UTF-8 at the host boundary. Invalid UTF-8 sequences become U+FFFD; units
// outside the BMP travel as surrogate pairs.
Text Utf8ToText(std::string_view utf8);
std::string TextToUtf8(TextView text);

// Short form for literals and host strings: T("abc") == u"abc".
inline Text T(std::string_view utf8) { return Utf8ToText(utf8); }

}  // namespace varnek
