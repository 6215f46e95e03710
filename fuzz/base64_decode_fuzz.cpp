// Fuzzes Base64_Decode: no crash, at most three units per four read, and
// every byte string comes back from Base64_Encode.
#include <cstdint>
#include <cstdlib>

#include "fuzz/toolkit_input.h"
#include "varnek/runtime/failure.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ToolkitInput in(data, size);
  TextToolkit& kit = in.kit;
  const Text& input = in.text;
  try {
    Text decoded = kit.Base64_Decode(input);
    if (decoded.size() > input.size() / 4 * 3) abort();
    if (kit.Base64_Decode(kit.Base64_Encode(input)) != input) abort();
  } catch (const RuntimeError&) {
  }
  return 0;
}
