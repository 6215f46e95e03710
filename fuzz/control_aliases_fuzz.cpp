// Fuzzes the control-character aliases: no crash, and the same text as the
// classic alias-by-alias Var_Translate passes, both ways.
#include <cstdint>
#include <cstdlib>

#include "fuzz/toolkit_input.h"
#include "varnek/runtime/failure.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  ToolkitInput in(data, size);
  // Bytes 0xAB and 0xBB are the guillemets in the code page.
  TextToolkit& kit = in.kit;
  const Text& input = in.text;
  try {
    Text aliases[32];
    for (int code = 0; code < 32; ++code) {
      aliases[code] = kit.Var_ConvierteCharControlToText(Text(1, static_cast<char16_t>(code)));
    }
    Text to_text = input;
    Text to_chars = input;
    for (int code = 0; code < 32; ++code) {
      Text unit(1, static_cast<char16_t>(code));
      to_text = kit.Var_Translate(to_text, unit, aliases[code]);
      to_chars = kit.Var_Translate(to_chars, aliases[code], unit);
      if (code == 9) to_chars = kit.Var_Translate(to_chars, u"\u00abTAB\u00bb", u"\t");
    }
    if (kit.Var_ConvierteCharControlToText(input) != to_text) abort();
    if (kit.Var_ConvierteTextToCharControl(input) != to_chars) abort();
  } catch (const RuntimeError&) {
  }
  return 0;
}
