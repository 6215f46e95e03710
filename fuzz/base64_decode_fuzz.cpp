// Fuzzes Base64_Decode: no crash, at most three units per four read, and
// every byte string comes back from Base64_Encode.
#include <cstdint>
#include <cstdlib>

#include "adds/text/text_toolkit.h"
#include "platform/sim/sim_platform.h"
#include "runtime/failure.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static SimPlatform sim;
  TextToolkit kit(sim.platform);
  Text input = BytesToText(std::string_view(reinterpret_cast<const char*>(data), size));
  try {
    Text decoded = kit.Base64_Decode(input);
    if (decoded.size() > input.size() / 4 * 3) abort();
    if (kit.Base64_Decode(kit.Base64_Encode(input)) != input) abort();
  } catch (const RuntimeError&) {
  }
  return 0;
}
