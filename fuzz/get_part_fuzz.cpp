// Fuzzes Var_GetPart: no crash; cutting a text until nothing is found keeps
// every unit, in order, apart from the delimiters.
#include "fuzz/toolkit_input.h"
#include "varnek/runtime/convert.h"

using namespace varnek;

namespace {
const char16_t* const kDelims[] = {u",", u"\r\n", u"", u"==", u"a", u"\u00ab"};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Text delim = kDelims[data[0] % 6];
  const bool clean = data[0] & 0x80,
             long_text = data[0] & 0x40;  // the latter reaches the 16-bit limit
  return CheckToolkit(data + 1, size - 1, [&](TextToolkit& kit, const Text& input) {
    const Text text = long_text ? Text(32760, u'y') + input : input;
    Variant rest = text;
    for (size_t round = 0; round <= text.size() + 1; ++round) {
      const Text before = CStr(rest);
      const Text piece = kit.Var_GetPart(rest, delim, clean);
      const Text after = CStr(rest);
      if (piece.empty() && after == before) break;  // nothing found
      const size_t cut = clean ? piece.size() : piece.size() - 1;
      if (after.size() + cut + delim.size() != before.size() && !delim.empty()) return false;
      if (before.compare(0, cut, piece, 0, cut) != 0 ||
          before.compare(cut, delim.size(), delim) != 0)
        return false;
      if (delim.empty()) break;  // the rest is never consumed
    }
    return true;
  });
}
