// Record files: fields ended by 0xF4, records by 0xF5, no header and no
// escaping; tables of 501 (ARRAY_) or 1501 (FileDB_) rows of 51 fields.
#include <memory>

#include "varnek/adds/store/storage.h"
#include "varnek/platform/application.h"
#include "varnek/runtime/compare.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

constexpr int32_t kArrayRows = 501;
constexpr int32_t kFileDbRows = 1501;
constexpr int32_t kFields = 51;

char16_t FieldEnd() { return ByteToUnit(0xF4); }
char16_t RecordEnd() { return ByteToUnit(0xF5); }

std::shared_ptr<VariantArray> EmptyTable(int32_t rows) {
  auto table = std::make_shared<VariantArray>();
  table->lower = {0, 0};
  table->upper = {rows - 1, kFields - 1};
  table->items.resize(static_cast<size_t>(rows) * kFields);
  return table;
}

// One record as written: field A, 0xF4, field B, 0xF4, 0xF5.
Variant RecordText(const Variant& a, const Variant& b) {
  Text field_end(1, FieldEnd());
  Variant record = Concat(Concat(a, Variant(field_end)), b);
  return Concat(record, Variant(field_end + RecordEnd()));
}

}  // namespace

Variant Storage::LoadTable(const Text& text, int32_t rows) {
  // Cuts record by record and field by field; what follows the last 0xF5, or
  // a record's last 0xF4, is ignored. A place past the table fails with 9.
  auto table = EmptyTable(rows);
  const char16_t field_end = FieldEnd();
  const char16_t record_end = RecordEnd();
  size_t pos = 0;
  int32_t row = 0;
  for (size_t stop; (stop = text.find(record_end, pos)) != Text::npos; pos = stop + 1, ++row) {
    int32_t col = 0;
    size_t start = pos;
    for (size_t cut; (cut = text.find(field_end, start)) != Text::npos && cut < stop;
         start = cut + 1) {
      table->At({row, col}) = Variant(text.substr(start, cut - start));
      ++col;
    }
  }
  return Variant(table);
}

Variant Storage::ARRAY_Load(const Variant& Filename) {
  Text path = CStr(Filename);
  Text folder, name;
  if (SplitPath(path, folder, name)) {
    Variant where = folder;
    if (File_ContarArchivos(where, name) == 0) return Variant(EmptyTable(kArrayRows));
  }
  return LoadTable(File_ReadBinary(Filename), kArrayRows);
}

Variant Storage::FileDB_Leer(const Text& slFile) {
  Text text = File_ReadBinary(Variant(slFile));
  if (text.empty()) return Variant();
  return LoadTable(text, kFileDbRows);
}

void Storage::SaveTable(const Variant& Filename, const Variant& slArray) {
  // Guarded, with the failure jumping to the save: running off the table's
  // last row is the normal way out and what was collected is written.
  Text out;
  Guarded([&] {
    const auto& table = slArray.RawArray();
    if (!table) Fail(kErrTypeMismatch);
    for (int32_t i = 0;; ++i) {
      Text a = CStr(table->At({i, 0}));
      Text b = CStr(table->At({i, 1}));
      if (a.empty() && b.empty()) break;
      out += a + FieldEnd() + b + FieldEnd() + RecordEnd();
    }
  });
  File_SaveBinary(Filename, Variant(out));
}

Variant Storage::ARRAY_Save(const Variant& Filename, const Variant& slArray) {
  Text folder, name;
  if (SplitPath(CStr(Filename), folder, name)) {
    Variant where = folder;
    File_ContarArchivos(where, name);  // only refreshes File_ContarArchivos_Lista
  }
  SaveTable(Filename, slArray);
  return Variant();
}

Variant Storage::FileDB_Grabar(const Text& slFile, const Variant& slArray) {
  SaveTable(Variant(slFile), slArray);
  return Variant();
}

Variant Storage::ARRAY_Append(const Variant& Filename, const Variant& slContenidoA,
                              const Variant& slContenidoB) {
  Variant result;
  Text folder, name;
  if (SplitPath(CStr(Filename), folder, name)) {
    Variant where = folder;
    if (File_ContarArchivos(where, name) == 0) result = Text();
  }
  File_AppendBinary(Filename, RecordText(slContenidoA, slContenidoB));
  return result;
}

Variant Storage::FileDB_Agregar(const Text& slFile, const Variant& slContenidoA,
                                const Variant& slContenidoB) {
  File_AppendBinary(Variant(slFile), RecordText(slContenidoA, slContenidoB));
  return Variant();
}

void Storage::DB_InitSource(HostForm& Form, const Variant& DatabaseName) {
  Text folder = platform().app->Path();
  INI_SetFileName(folder + u"/DB.ini");
  bool is_new = INI_GetString(u"DBSource", u"Connect", u"").empty();
  Text connect = INI_GetString(u"DBSource", u"Connect", u"Access");
  Text database = folder + u"/" + CStr(DatabaseName);
  Text name = INI_GetString(u"DBSource", u"DatabaseName", database);
  if (is_new) {
    INI_PutString(u"DBSource", u"Connect", u"Access");
    INI_PutString(u"DBSource", u"DatabaseName", database);
  }
  for (int32_t i = 0; i < Form.ControlCount(); ++i) {
    FormControl& control = Form.Control(i);
    if (control.TypeName() != u"Data") continue;
    auto* data = dynamic_cast<DataControl*>(&control);
    if (!data) Fail(kErrNoSuchMember);
    data->SetConnect(connect);
    data->SetDatabaseName(name);
    data->Refresh();
  }
  INI_SetLastFileName();
}

}  // namespace varnek
