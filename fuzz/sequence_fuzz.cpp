// Fuzzes Script_SecuenciaProcesa: no crash, and the same records as cutting
// the block literally with Var_GetPart, one copy of the rest at a time.
#include "fuzz/toolkit_input.h"
#include "varnek/runtime/convert.h"

using namespace varnek;

namespace {

const char16_t* const kRecordSeps[] = {u"\r\n", u"\n", u";", u"", u"&", u"=="};
const char16_t* const kFieldSeps[] = {nullptr, u"", u"=", u": ", u" ", u"\t"};

// The processing as the classic code runs it, on copies of the rest.
std::vector<ScriptRecord> Literal(TextToolkit& kit, const Text& block, const Variant& record_sep,
                                  const Variant& field_sep) {
  std::vector<ScriptRecord> list(1);
  Variant rest = block;
  for (;;) {
    Text line = kit.Var_GetPart(rest, record_sep, true);
    if (line.empty() && CStr(rest).empty()) return list;
    if (line.empty()) {
      line = CStr(rest);
      rest = Variant(Text());
    }
    Variant remaining = line;
    Text name = kit.Var_GetPart(remaining, field_sep, true);
    if (name.empty()) name = kit.Var_GetPart(remaining, u" ", true);
    list.push_back({name.empty() ? remaining : Variant(name), remaining});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Variant record_sep = kRecordSeps[data[0] % 6];
  const char16_t* field_choice = kFieldSeps[(data[0] / 6) % 6];
  return CheckToolkit(data + 1, size - 1, [&](TextToolkit& kit, const Text& block) {
    Variant field_sep = field_choice ? Variant(field_choice) : Variant::Missing();
    const int32_t n = CLng(kit.Script_SecuenciaProcesa(block, record_sep, field_sep));
    const auto& list = *kit.ScriptSecuencia();
    if (n < 0 || static_cast<size_t>(n) + 1 != list.size()) return false;
    const auto literal = Literal(kit, block, record_sep, field_sep);
    if (literal.size() != list.size()) return false;
    for (size_t i = 1; i < list.size(); ++i) {
      const Text content = CStr(list[i].Contenido);
      if (CStr(list[i].Variable) != CStr(literal[i].Variable) ||
          content != CStr(literal[i].Contenido) ||
          CStr(kit.Script_RetornaContenidoIndex(static_cast<int>(i))) != content) {
        return false;
      }
    }
    if (!kit.Script_RetornaContenidoIndex(n + 1).IsEmpty()) return false;
    if (n > 0) kit.Script_RetornaContenidoVariable(list[1].Variable);
    return true;
  });
}
