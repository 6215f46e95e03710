// Fuzzes Var_GetPart: no crash; cutting a text until nothing is found keeps
// every unit, in order, apart from the delimiters.
#include <cstdint>
#include <cstdlib>

#include "fuzz/toolkit_input.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

using namespace varnek;

namespace {
const char16_t* const kDelims[] = {u",", u"\r\n", u"", u"==", u"a", u"\u00ab"};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  ToolkitInput in(data + 1, size - 1);
  TextToolkit& kit = in.kit;
  Text delim = kDelims[data[0] % 6];
  bool clean = data[0] & 0x80;
  Text text = in.text;
  if (data[0] & 0x40) text = Text(32760, u'y') + text;  // reach the 16-bit limit
  try {
    Variant rest = text;
    Text joined;
    for (size_t round = 0; round <= text.size() + 1; ++round) {
      Text before = CStr(rest);
      Text piece = kit.Var_GetPart(rest, delim, clean);
      Text after = CStr(rest);
      if (piece.empty() && after == before) break;  // nothing found
      size_t cut = clean ? piece.size() : piece.size() - 1;
      if (after.size() + cut + delim.size() != before.size() && !delim.empty()) abort();
      if (before.compare(0, cut, piece, 0, cut) != 0) abort();
      if (before.compare(cut, delim.size(), delim) != 0) abort();
      if (delim.empty()) break;  // the rest is never consumed
      joined += before.substr(0, cut);
    }
  } catch (const RuntimeError&) {
  }
  return 0;
}
