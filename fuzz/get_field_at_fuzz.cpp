// Fuzzes Var_GetFieldAt: no crash, and the same field as walking the
// wrap-around search literally, position - 1 times.
#include "fuzz/toolkit_input.h"
#include "varnek/runtime/strings.h"

using namespace varnek;

namespace {

const char16_t* const kSeps[] = {u",", u"::", u"", u"\t", u"aa", u"=="};

// The field walk written plainly: advance the start p past position - 1
// separators, find the end q after it, cut between them; p and q are 16-bit,
// so a store that overflows is skipped and a failing cut gives "".
Text Literal(const Text& line, int32_t position, const Text& sep) {
  if (position == 0) return Text();
  auto find = [&](int32_t start) {
    if (line.empty() || start > static_cast<int32_t>(line.size())) return 0;
    if (sep.empty()) return start;
    size_t at = line.find(sep, static_cast<size_t>(start - 1));
    return at == Text::npos ? 0 : static_cast<int32_t>(at + 1);
  };
  int32_t p = 0;
  for (int32_t i = 1; i <= position - 1; ++i) {
    if (p == 32767) continue;  // p + 1 overflows: skipped
    int32_t next = find(p + 1);
    if (next <= 32767) p = next;
  }
  int32_t q = 0;
  if (p < 32767) {
    int32_t found = find(p + 1);
    if (found <= 32767) q = found;
  }
  if (q == 0 && static_cast<int32_t>(line.size()) + 1 <= 32767)
    q = static_cast<int32_t>(line.size()) + 1;
  if (position > 1 && p == 0) return Text();
  int32_t start = position == 1 ? p + 1 : p + static_cast<int32_t>(sep.size());
  int32_t count = position == 1 ? q - p - 1 : q - p - static_cast<int32_t>(sep.size());
  if (start < 1 || count < 0) return Text();
  return Mid(line, start, count);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 3) return 0;
  const int32_t position = static_cast<int8_t>(data[0]) * 4 + data[1] % 4;
  const Text sep = kSeps[data[2] % 6];
  const bool long_line = (data[2] & 0xC0) == 0xC0;  // reach the 16-bit limit
  return CheckToolkit(data + 3, size - 3, [&](TextToolkit& kit, const Text& input) {
    const Text line = long_line ? Text(32765, u'x') + input : input;
    return kit.Var_GetFieldAt(line, position, sep) == Literal(line, position, sep) &&
           kit.Var_GetFieldValue(line, u"", sep) == Literal(line, 1, sep);
  });
}
