// The script sequence store: a block of "name=content" records cut into an
// ordered list that the accessors read until the next processing.
#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

// text::CutBefore, with a Null separator (held as nullptr) cutting nothing.
Text CutRecord(const Text& content, size_t& offset, const Text* separator) {
  if (separator == nullptr) return Text();
  return text::CutBefore(content, offset, *separator);
}

// The field separator the first record suggests: whichever of "=", TAB and
// " " comes first in it, " " when none does.
Text DetectFieldSeparator(const Text& first) {
  int32_t s = text::Find(1, first, u" ");
  int32_t e = text::Find(1, first, u"=");
  int32_t t = text::Find(1, first, u"\t");
  if (e > 0 && (s > e || s == 0) && (t > e || t == 0)) return u"=";
  if (t > 0 && (e > t || e == 0) && (s > t || s == 0)) return u"\t";
  return u" ";
}

}  // namespace

Variant TextToolkit::Script_SecuenciaProcesa(const Variant& slContenido,
                                             const Variant& slSeparadorRecord,
                                             Variant& slSeparadorField) {
  if (slSeparadorField.IsMissing()) slSeparadorField = Variant(Text());
  if (slSeparadorField.IsEmpty() ||
      (slSeparadorField.IsString() && slSeparadorField.RawString().empty())) {
    Variant work = slContenido;
    Text first = Var_GetPart(work, slSeparadorRecord, true);
    slSeparadorField = Variant(DetectFieldSeparator(first));
  }

  const Text content = CStr(slContenido);
  std::optional<Text> record_sep;
  if (!slSeparadorRecord.IsNull()) record_sep = CStr(slSeparadorRecord);
  const Text* record_sep_ptr = record_sep ? &*record_sep : nullptr;

  std::vector<ScriptRecord> list(1);  // the placeholder at index 0
  size_t offset = 0;
  for (;;) {
    Text line = CutRecord(content, offset, record_sep_ptr);
    bool rest_empty = offset >= content.size();
    if (line.empty() && rest_empty) break;
    if (line.empty()) {
      // No separator left, or an empty record: all the rest is one record.
      line = content.substr(offset);
      offset = content.size();
    }
    Variant remaining{std::move(line)};
    Text name = Var_GetPart(remaining, slSeparadorField, true);
    if (name.empty()) name = Var_GetPart(remaining, Variant(u" "), true);
    ScriptRecord record;
    record.Variable = name.empty() ? remaining : Variant(std::move(name));
    record.Contenido = remaining;
    list.push_back(std::move(record));
  }
  int32_t count = static_cast<int32_t>(list.size()) - 1;
  script_secuencia_ = std::move(list);
  return Variant::Long(count);
}

Variant TextToolkit::Script_SecuenciaProcesa(const Variant& slContenido,
                                             const Variant& slSeparadorRecord) {
  Variant field = Variant::Missing();
  return Script_SecuenciaProcesa(slContenido, slSeparadorRecord, field);
}

Variant TextToolkit::RecordField(const Variant& Index, bool content) const {
  if (!script_secuencia_) Fail(kErrSubscript);  // the array has no bounds yet
  const auto& list = *script_secuencia_;
  if (Index.IsNull()) return Variant();  // a Null comparison is never true
  double at = CDbl(Index);
  if (at < 0 || at > static_cast<double>(list.size() - 1)) return Variant();
  const ScriptRecord& record = list[static_cast<size_t>(CLng(Index))];
  return content ? record.Contenido : record.Variable;
}

Variant TextToolkit::Script_RetornaContenidoIndex(const Variant& Index) {
  return RecordField(Index, true);
}

Variant TextToolkit::Script_RetornaVariableIndex(const Variant& Index) {
  return RecordField(Index, false);
}

Variant TextToolkit::Script_RetornaContenidoVariable(const Variant& NombreVariable) {
  if (!script_secuencia_) Fail(kErrSubscript);
  Text wanted = UCase(CStr(NombreVariable));
  for (const ScriptRecord& record : *script_secuencia_) {
    if (UCase(CStr(record.Variable)) == wanted) return record.Contenido;
  }
  return Variant();
}

}  // namespace varnek
