// Fuzzes URL_Decode: no crash, and the same text as the 255 literal passes of
// Var_Translate. Also runs URL_Encode over the same units.
#include "fuzz/toolkit_input.h"
#include "varnek/runtime/convert.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return CheckToolkit(data, size, [](TextToolkit& kit, const Text& input) {
    const Text decoded = CStr(kit.URL_Decode(input));
    return decoded == LiteralUrlDecode(kit, input) && decoded.size() <= input.size() &&
           CStr(kit.URL_Encode(input)).size() >= input.size();
  });
}
