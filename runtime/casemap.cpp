// Case mapping and text-compare weights from our own tables.
#include "varnek/runtime/casemap.h"

namespace varnek {
namespace {

// Base letters (upper case) of Latin-1 0xC0..0xFF; 0 marks a non-letter.
constexpr char kLatin1Base[64] = {
    'A', 'A', 'A', 'A', 'A', 'A', 'A', 'C', 'E', 'E', 'E', 'E', 'I', 'I', 'I', 'I',  // C0
    'D', 'N', 'O', 'O', 'O', 'O', 'O', 0,   'O', 'U', 'U', 'U', 'U', 'Y', '[', 'S',  // D0
    'A', 'A', 'A', 'A', 'A', 'A', 'A', 'C', 'E', 'E', 'E', 'E', 'I', 'I', 'I', 'I',  // E0
    'D', 'N', 'O', 'O', 'O', 'O', 'O', 0,   'O', 'U', 'U', 'U', 'U', 'Y', '[', 'Y',  // F0
};

// Base letters of Latin Extended-A 0x0100..0x017F, by runs.
struct BaseRun {
  char16_t first;
  char16_t last;
  char base;
};
constexpr BaseRun kExtendedABase[] = {
    {0x0100, 0x0105, 'A'}, {0x0106, 0x010D, 'C'}, {0x010E, 0x0111, 'D'}, {0x0112, 0x011B, 'E'},
    {0x011C, 0x0123, 'G'}, {0x0124, 0x0127, 'H'}, {0x0128, 0x0133, 'I'}, {0x0134, 0x0135, 'J'},
    {0x0136, 0x0138, 'K'}, {0x0139, 0x0142, 'L'}, {0x0143, 0x014B, 'N'}, {0x014C, 0x0153, 'O'},
    {0x0154, 0x0159, 'R'}, {0x015A, 0x0161, 'S'}, {0x0162, 0x0167, 'T'}, {0x0168, 0x0173, 'U'},
    {0x0174, 0x0175, 'W'}, {0x0176, 0x0178, 'Y'}, {0x0179, 0x017E, 'Z'}, {0x017F, 0x017F, 'S'},
};

// Latin Extended-A pairs: in 0100..0137 and 014A..0177 upper is even; in
// 0139..0148 and 0179..017E upper is odd.
bool ExtendedAUpperIsEven(char16_t u) {
  return (u >= 0x0100 && u <= 0x0137) || (u >= 0x014A && u <= 0x0177);
}
bool ExtendedAUpperIsOdd(char16_t u) {
  return (u >= 0x0139 && u <= 0x0148) || (u >= 0x0179 && u <= 0x017E);
}

}  // namespace

char16_t UpperUnit(char16_t u) {
  if (u < 0x80) return (u >= 'a' && u <= 'z') ? static_cast<char16_t>(u - 32) : u;
  if (u >= 0xE0 && u <= 0xFE && u != 0xF7) return static_cast<char16_t>(u - 32);
  if (u == 0xFF) return 0x0178;
  if (u == 0x0131) return u'I';
  if (u == 0x017F) return u'S';
  if (ExtendedAUpperIsEven(u)) return (u & 1) ? static_cast<char16_t>(u - 1) : u;
  if (ExtendedAUpperIsOdd(u)) return (u & 1) ? u : static_cast<char16_t>(u - 1);
  if (u == 0x0192) return 0x0191;
  if (u >= 0x03B1 && u <= 0x03C9 && u != 0x03C2) return static_cast<char16_t>(u - 32);
  if (u == 0x03C2) return 0x03A3;
  if (u >= 0x0430 && u <= 0x044F) return static_cast<char16_t>(u - 32);
  if (u >= 0x0450 && u <= 0x045F) return static_cast<char16_t>(u - 80);
  return u;
}

char16_t LowerUnit(char16_t u) {
  if (u < 0x80) return (u >= 'A' && u <= 'Z') ? static_cast<char16_t>(u + 32) : u;
  if (u >= 0xC0 && u <= 0xDE && u != 0xD7) return static_cast<char16_t>(u + 32);
  if (u == 0x0178) return 0xFF;
  if (u == 0x0130) return u'i';
  if (u == 0x0131 || u == 0x0138 || u == 0x0149 || u == 0x017F) return u;
  if (ExtendedAUpperIsEven(u)) return (u & 1) ? u : static_cast<char16_t>(u + 1);
  if (ExtendedAUpperIsOdd(u)) return (u & 1) ? static_cast<char16_t>(u + 1) : u;
  if (u == 0x0191) return 0x0192;
  if (u >= 0x0391 && u <= 0x03A9 && u != 0x03A2) return static_cast<char16_t>(u + 32);
  if (u >= 0x0410 && u <= 0x042F) return static_cast<char16_t>(u + 32);
  if (u >= 0x0400 && u <= 0x040F) return static_cast<char16_t>(u + 80);
  return u;
}

// Latin letters weigh 0x10000 + 256 * base, past every other unit, so digits and
// punctuation sort first; other cased letters follow them by lower-case unit.
UnitWeight TextWeight(char16_t u) {
  char base = 0;
  if ((u >= 'A' && u <= 'Z') || (u >= 'a' && u <= 'z')) {
    return {0x10000u + 256u * static_cast<uint32_t>(UpperUnit(u)), 0};
  }
  if (u >= 0xC0 && u <= 0xFF) {
    base = kLatin1Base[u - 0xC0];
  } else if (u >= 0x0100 && u <= 0x017F) {
    for (const BaseRun& r : kExtendedABase) {
      if (u >= r.first && u <= r.last) base = r.base;
    }
  } else if (u == 0x0191 || u == 0x0192) {
    base = 'F';
  }
  if (base) {
    return {0x10000u + 256u * static_cast<uint32_t>(base), static_cast<uint32_t>(LowerUnit(u))};
  }
  if (UpperUnit(u) != LowerUnit(u) || LowerUnit(u) != u) {
    return {0x20000u + LowerUnit(u), 0};  // Greek and Cyrillic after Latin
  }
  return {static_cast<uint32_t>(u), 0};
}

}  // namespace varnek
