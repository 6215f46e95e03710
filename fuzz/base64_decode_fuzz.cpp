// Fuzzes Base64_Decode: no crash, at most three units per four read, and
// every byte string comes back from Base64_Encode.
#include "fuzz/toolkit_input.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return CheckToolkit(data, size, [](TextToolkit& kit, const Text& input) {
    return kit.Base64_Decode(input).size() <= input.size() / 4 * 3 &&
           kit.Base64_Decode(kit.Base64_Encode(input)) == input;
  });
}
