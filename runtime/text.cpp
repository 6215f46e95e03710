// The cp1252 byte mapping and UTF-8 conversion for 16-bit texts.
#include "varnek/runtime/text.h"

#include <algorithm>

namespace varnek {
namespace {

// Units of the bytes 0x80..0x9F. The five bytes the code page leaves undefined
// map to the C1 unit of the same value so that every byte round-trips.
constexpr char16_t kHighC1[32] = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80..87
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88..8F
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90..97
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98..9F
};

// The unit of every byte, built once from the table above.
struct ByteUnitTable {
  char16_t units[256];
  constexpr ByteUnitTable() : units() {
    for (int b = 0; b < 256; ++b) {
      units[b] = b >= 0x80 && b < 0xA0 ? kHighC1[b - 0x80] : static_cast<char16_t>(b);
    }
  }
};
constexpr ByteUnitTable kByteUnits;

// Returns the byte of a unit, or -1 when the code page has none.
int LookupByte(char16_t unit) {
  if (unit < 0x80 || (unit >= 0xA0 && unit <= 0xFF)) return unit;
  for (int i = 0; i < 32; ++i) {
    if (kHighC1[i] == unit) return 0x80 + i;
  }
  return -1;
}

void AppendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

}  // namespace

uint8_t UnitToByte(char16_t unit) {
  int b = LookupByte(unit);
  return b < 0 ? uint8_t{63} : static_cast<uint8_t>(b);
}

char16_t ByteToUnit(uint8_t byte) { return kByteUnits.units[byte]; }

bool UnitHasByte(char16_t unit) { return LookupByte(unit) >= 0; }

// Both sized once and filled by index: every answer the server sends and
// every request it reads passes through here.
std::string TextToBytes(TextView text) {
  std::string out(text.size(), '\0');
  for (size_t i = 0; i < text.size(); ++i) {
    const char16_t u = text[i];
    out[i] = static_cast<char>(u < 0x80 ? u : UnitToByte(u));
  }
  return out;
}

Text BytesToText(std::string_view bytes) {
  Text out(bytes.size(), u'\0');
  for (size_t i = 0; i < bytes.size(); ++i) out[i] = ByteToUnit(static_cast<uint8_t>(bytes[i]));
  return out;
}

// Decodes strictly: overlong forms, encoded surrogates, code points past
// U+10FFFF and truncated sequences each become one U+FFFD.
Text Utf8ToText(std::string_view utf8) {
  Text out;
  out.reserve(utf8.size());
  size_t i = 0;
  const size_t n = utf8.size();
  while (i < n) {
    uint8_t b = static_cast<uint8_t>(utf8[i]);
    if (b < 0x80) {
      out += static_cast<char16_t>(b);
      ++i;
      continue;
    }
    int extra;
    uint32_t cp;
    uint32_t min;
    if ((b & 0xE0) == 0xC0) {
      extra = 1, cp = b & 0x1F, min = 0x80;
    } else if ((b & 0xF0) == 0xE0) {
      extra = 2, cp = b & 0x0F, min = 0x800;
    } else if ((b & 0xF8) == 0xF0) {
      extra = 3, cp = b & 0x07, min = 0x10000;
    } else {
      out += u'\uFFFD';
      ++i;
      continue;
    }
    size_t j = i + 1;
    bool ok = true;
    for (int k = 0; k < extra; ++k, ++j) {
      if (j >= n || (static_cast<uint8_t>(utf8[j]) & 0xC0) != 0x80) {
        ok = false;
        break;
      }
      cp = (cp << 6) | (static_cast<uint8_t>(utf8[j]) & 0x3F);
    }
    if (!ok || cp < min || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) {
      out += u'\uFFFD';
      i = ok ? j : std::max(j, i + 1);
      continue;
    }
    if (cp >= 0x10000) {
      cp -= 0x10000;
      out += static_cast<char16_t>(0xD800 + (cp >> 10));
      out += static_cast<char16_t>(0xDC00 + (cp & 0x3FF));
    } else {
      out += static_cast<char16_t>(cp);
    }
    i = j;
  }
  return out;
}

// Surrogate pairs become one 4-byte sequence; a lone surrogate becomes U+FFFD.
std::string TextToUtf8(TextView text) {
  std::string out;
  out.reserve(text.size());
  for (size_t i = 0; i < text.size(); ++i) {
    uint32_t u = text[i];
    if (u >= 0xD800 && u <= 0xDBFF && i + 1 < text.size() && text[i + 1] >= 0xDC00 &&
        text[i + 1] <= 0xDFFF) {
      uint32_t cp = 0x10000 + ((u - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      AppendUtf8(out, cp);
      ++i;
    } else if (u >= 0xD800 && u <= 0xDFFF) {
      AppendUtf8(out, 0xFFFD);
    } else {
      AppendUtf8(out, u);
    }
  }
  return out;
}

}  // namespace varnek
