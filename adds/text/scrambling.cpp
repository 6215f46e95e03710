// The repeating-key XOR scrambler and the compressor placeholders.
#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"

namespace varnek {

Text TextToolkit::Var_EnCrypt(const Variant& TempData, const Variant& PasswKey) {
  if (!PasswKey.IsNull() && CStr(PasswKey).empty()) return CStr(TempData);
  Text data = CStr(TempData);
  Text key = CStr(PasswKey);  // a Null key fails here (94)
  size_t k = 0;
  for (char16_t& unit : data) {
    uint8_t key_byte = text::UnitByte(key[k]);
    k = k + 1 == key.size() ? 0 : k + 1;
    unit = text::ByteUnit(static_cast<uint8_t>(text::UnitByte(unit) ^ key_byte));
  }
  return data;
}

// No compression stands behind these: the text goes through unchanged, so a
// stored result reads without Var_Decompress.
Text TextToolkit::Var_Compress(const Variant& sCompData) { return CStr(sCompData); }

Text TextToolkit::Var_Decompress(const Variant& sDecompData) { return CStr(sDecompData); }

}  // namespace varnek
