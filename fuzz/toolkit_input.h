// What the text toolkit's fuzz targets share: a toolkit on a simulated
// platform, fresh for each input, the input's bytes as units, and the
// classic pass-by-pass forms that the toolkit's sweeps must agree with (the
// text tests check the same agreement on their own inputs).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/failure.h"

namespace varnek {

struct ToolkitInput {
  ToolkitInput(const uint8_t* data, size_t size)
      : kit(Sim().platform),
        text(BytesToText(std::string_view(reinterpret_cast<const char*>(data), size))) {}
  static SimPlatform& Sim() {
    static SimPlatform sim;
    return sim;
  }
  TextToolkit kit;
  Text text;  // one unit per byte
};

// Runs check(kit, text) on the input; a check that fails aborts, as the
// fuzzer wants, while the runtime's own failures end the input quietly.
template <class Check>
int CheckToolkit(const uint8_t* data, size_t size, Check check) {
  ToolkitInput in(data, size);
  try {
    if (!check(in.kit, in.text)) std::abort();
  } catch (const RuntimeError&) {
  }
  return 0;
}

// URL_Decode as the classic code runs it: "+" to blank, then 255 global
// Var_Translate passes, "%01" to "%FF" in turn.
inline Text LiteralUrlDecode(TextToolkit& kit, Text s) {
  static const char16_t digits[] = u"0123456789ABCDEF";
  s = kit.Var_Translate(s, u"+", u" ");
  for (int i = 1; i <= 255; ++i) {
    s = kit.Var_Translate(s, Text{u'%', digits[i / 16], digits[i % 16]},
                          Text(1, ByteToUnit(static_cast<uint8_t>(i))));
  }
  return s;
}

// The control-character aliases swapped as the classic code does it: one
// Var_Translate per code 0..31, with the extra TAB name after code 9 on the
// way back to characters.
inline Text LiteralControlAliases(TextToolkit& kit, Text s, bool to_chars) {
  for (int code = 0; code < 32; ++code) {
    const Text unit(1, static_cast<char16_t>(code)),
        alias = kit.Var_ConvierteCharControlToText(unit);
    s = to_chars ? kit.Var_Translate(s, alias, unit) : kit.Var_Translate(s, unit, alias);
    if (to_chars && code == 9) s = kit.Var_Translate(s, u"\u00abTAB\u00bb", u"\t");
  }
  return s;
}

}  // namespace varnek
