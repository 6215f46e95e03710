// Fuzzes the control-character aliases: no crash, and the same text as the
// classic alias-by-alias Var_Translate passes, both ways. Bytes 0xAB and 0xBB
// are the guillemets in the code page.
#include "fuzz/toolkit_input.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  return CheckToolkit(data, size, [](TextToolkit& kit, const Text& input) {
    return kit.Var_ConvierteCharControlToText(input) == LiteralControlAliases(kit, input, false) &&
           kit.Var_ConvierteTextToCharControl(input) == LiteralControlAliases(kit, input, true);
  });
}
