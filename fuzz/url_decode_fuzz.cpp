// Fuzzes URL_Decode: no crash, and the same text as the 255 literal passes of
// Var_Translate. Also runs URL_Encode over the same units.
#include <cstdint>
#include <cstdlib>

#include "fuzz/toolkit_input.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ToolkitInput in(data, size);
  TextToolkit& kit = in.kit;
  const Text& input = in.text;
  try {
    Text decoded = CStr(kit.URL_Decode(input));
    Text literal = kit.Var_Translate(input, u"+", u" ");
    const char16_t digits[] = u"0123456789ABCDEF";
    for (int i = 1; i <= 255; ++i) {
      Text escape{u'%', digits[i / 16], digits[i % 16]};
      literal = kit.Var_Translate(literal, escape, Text(1, ByteToUnit(static_cast<uint8_t>(i))));
    }
    if (decoded != literal) abort();
    if (decoded.size() > input.size()) abort();
    Text encoded = CStr(kit.URL_Encode(input));
    if (encoded.size() < input.size()) abort();
  } catch (const RuntimeError&) {
  }
  return 0;
}
