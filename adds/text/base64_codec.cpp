// Base64_Encode and Base64_Decode on units that stand for bytes. The decoder
// is the lenient one of Basic authentication: nothing is refused or skipped.
#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"

namespace varnek {

namespace {

constexpr char16_t kAlphabet[] =
    u"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Shifts of a byte by 1 to 7 bits, keeping the low 8; 0 bits leaves it and
// any other count gives 0.
uint8_t Byte_ShiftLeft(uint8_t Value, int16_t Bits) {
  if (Bits == 0) return Value;
  if (Bits < 1 || Bits > 7) return 0;
  return static_cast<uint8_t>((Value << Bits) & 0xFF);
}

uint8_t Byte_ShiftRight(uint8_t Value, int16_t Bits) {
  if (Bits == 0) return Value;
  if (Bits < 1 || Bits > 7) return 0;
  return static_cast<uint8_t>(Value >> Bits);
}

// The value of each byte's character: 0..63 for the alphabet, 64 for "=",
// -1 for the rest.
struct DecodeTable {
  int16_t values[256];
  constexpr DecodeTable() : values() {
    for (int b = 0; b < 256; ++b) values[b] = -1;
    for (int i = 0; i < 64; ++i)
      values[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int16_t>(i);
    values[static_cast<uint8_t>('=')] = 64;
  }
};
constexpr DecodeTable kDecodeTable;

void EncodeGroup(const uint8_t bytes[3], char16_t out[4]) {
  out[0] = kAlphabet[Byte_ShiftRight(bytes[0], 2)];
  out[1] = kAlphabet[Byte_ShiftLeft(bytes[0] & 3, 4) | Byte_ShiftRight(bytes[1], 4)];
  out[2] = kAlphabet[Byte_ShiftLeft(bytes[1] & 15, 2) | Byte_ShiftRight(bytes[2], 6)];
  out[3] = kAlphabet[bytes[2] & 63];
}

// Writes the group's three units; returns how many of them stay.
size_t DecodeGroup(const int16_t values[4], char16_t out[3]) {
  // The values are bytes of 0..64; shifts keep the low 8 bits, so "=" (64)
  // adds nothing where it is masked or shifted out.
  auto d = [&](int i) { return static_cast<uint8_t>(values[i]); };
  out[0] = text::ByteUnit(Byte_ShiftLeft(d(0), 2) | (Byte_ShiftRight(d(1), 4) & 3));
  out[1] = text::ByteUnit(Byte_ShiftLeft(d(1) & 15, 4) | (Byte_ShiftRight(d(2), 2) & 15));
  out[2] = text::ByteUnit(Byte_ShiftLeft(d(2) & 3, 6) | d(3));
  // A fourth "=" drops the last unit, then a third "=" one more.
  return 3 - (values[3] == 64 ? 1 : 0) - (values[2] == 64 ? 1 : 0);
}

}  // namespace

Text TextToolkit::Base64_Encode(const Text& sInput) {
  Text out;
  out.reserve((sInput.size() + 2) / 3 * 4);
  size_t whole = sInput.size() / 3 * 3;
  uint8_t bytes[3];
  char16_t chars[4];
  for (size_t i = 0; i < whole; i += 3) {
    bytes[0] = text::UnitByte(sInput[i]);
    bytes[1] = text::UnitByte(sInput[i + 1]);
    bytes[2] = text::UnitByte(sInput[i + 2]);
    EncodeGroup(bytes, chars);
    out.append(chars, 4);
  }
  size_t left = sInput.size() - whole;
  if (left > 0) {
    bytes[0] = text::UnitByte(sInput[whole]);
    bytes[1] = left == 2 ? text::UnitByte(sInput[whole + 1]) : 0;
    bytes[2] = 0;
    EncodeGroup(bytes, chars);
    out.append(chars, left + 1);
    out.append(left == 1 ? u"==" : u"=");
  }
  return out;
}

Text TextToolkit::Base64_Decode(const Text& sEncoded) {
  Text out(sEncoded.size() / 4 * 3, u'\0');
  size_t length = 0;
  int16_t values[4];
  int held = 0;
  for (char16_t unit : sEncoded) {
    int16_t v = kDecodeTable.values[text::UnitByte(unit)];
    values[held++] = v < 0 ? 0 : v;  // an invalid character reads as "A"
    if (held == 4) {
      length += DecodeGroup(values, &out[length]);
      held = 0;
    }
  }
  out.resize(length);  // a short last group is dropped
  return out;
}

}  // namespace varnek
