// Record files (ARRAY_ and FileDB_) and DB_InitSource with a test form.
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

using FileDbTest = StoreTest;

// Fields 0 to 2 of a row joined by "|", Empty shown as "~".
Text Row(const Variant& table, int32_t row) {
  Text out;
  for (int32_t col = 0; col < 3; ++col) {
    const Variant& v = table.RawArray()->At({row, col});
    out += (col ? u"|" : u"") + (v.IsEmpty() ? Text(u"~") : CStr(v));
  }
  return out;
}

std::string Records(int count) {
  std::string out;
  for (int i = 0; i < count; ++i) out += "r" + std::to_string(i) + "\xF4x\xF4\xF5";
  return out;
}

TEST_F(FileDbTest, AppendLoadAndSave) {
  EXPECT_EQ(store.ARRAY_Append(T("t.db"), u"a", u"b").Type(), VarType::String);  // started
  EXPECT_TRUE(store.ARRAY_Append(T("t.db"), u"c", 5).IsEmpty());
  EXPECT_EQ(ReadBytes(P("t.db")),
            "a\xF4"
            "b\xF4\xF5"
            "c\xF4"
            "5\xF4\xF5");
  Variant table = store.ARRAY_Load(T("t.db"));
  EXPECT_EQ(table.RawArray()->upper, (std::vector<int32_t>{500, 50}));
  EXPECT_EQ(Row(table, 0) + u"/" + Row(table, 1) + u"/" + Row(table, 2), u"a|b|~/c|5|~/~|~|~");
  EXPECT_EQ(Row(store.ARRAY_Load(T("nothere.db")), 0), u"~|~|~");  // still the table
  EXPECT_TRUE(store.FileDB_Leer(T("nothere.db")).IsEmpty());       // but Empty here

  store.FileDB_Agregar(T("e.db"), u"", u"x");
  store.FileDB_Agregar(T("e.db"), u"", u"");  // appended, and read back as two ""
  store.FileDB_Agregar(T("e.db"), u"z", u"");
  EXPECT_EQ(ReadBytes(P("e.db")), "\xF4x\xF4\xF5\xF4\xF4\xF5z\xF4\xF4\xF5");
  table = store.FileDB_Leer(T("e.db"));
  EXPECT_EQ(table.RawArray()->upper, (std::vector<int32_t>{1500, 50}));
  EXPECT_EQ(Row(table, 1), u"||~");
  store.FileDB_Grabar(T("e.db"), table);  // stops at the first row with both fields empty
  EXPECT_EQ(ReadBytes(P("e.db")), "\xF4x\xF4\xF5");
  table.RawArray()->At({0, 2}) = Variant(u"dropped");  // only fields 0 and 1 are written
  store.ARRAY_Save(T("e.db"), table);
  EXPECT_EQ(ReadBytes(P("e.db")), "\xF4x\xF4\xF5");
  store.ARRAY_Save(T("e.db"), Variant(u"no table"));  // the failure jumps to the save: truncated
  EXPECT_EQ(ReadBytes(P("e.db")), "");
}

TEST_F(FileDbTest, FramingAndLimits) {
  // "c" had no 0xF4 before the 0xF5: the rest became record 1
  store.ARRAY_Append(T("f.db"), Text(u"a") + ByteToUnit(0xF4) + u"b",
                     Text(u"c") + ByteToUnit(0xF5) + u"d");
  Variant table = store.ARRAY_Load(T("f.db"));
  EXPECT_EQ(Row(table, 0) + u"/" + Row(table, 1), u"a|b|~/d|~|~");
  // a line end between records joins the next first field; text after the last 0xF5 is ignored
  WriteBytes(P("g.db"),
             "a\xF4"
             "b\xF4\xF5\r\nc\xF4"
             "d\xF4\xF5tail\xF4");
  table = store.ARRAY_Load(T("g.db"));
  EXPECT_EQ(Row(table, 1) + u"/" + Row(table, 2), u"\r\nc|d|~/~|~|~");

  WriteBytes(P("502.db"), Records(502));
  EXPECT_RUNTIME_ERROR(store.ARRAY_Load(T("502.db")), kErrSubscript);
  EXPECT_EQ(Row(store.FileDB_Leer(T("502.db")), 501), u"r501|x|~");
  WriteBytes(P("1502.db"), Records(1502));
  EXPECT_RUNTIME_ERROR(store.FileDB_Leer(T("1502.db")), kErrSubscript);
  WriteBytes(P("wide.db"), std::string(52, '\xF4') + "\xF5");  // 51 fields fit, 52 do not
  EXPECT_RUNTIME_ERROR(store.ARRAY_Load(T("wide.db")), kErrSubscript);
  // a table full to its last row runs off the end: what was collected is saved
  WriteBytes(P("501.db"), Records(501));
  store.ARRAY_Save(T("copy.db"), store.ARRAY_Load(T("501.db")));
  EXPECT_EQ(ReadBytes(P("copy.db")), Records(501));
}

// A form with two data controls and a text box between them.
struct TestData : DataControl {
  void SetConnect(const Text& c) override { connect = c; }
  void SetDatabaseName(const Text& n) override { database = n; }
  void Refresh() override { ++refreshes; }
  Text connect, database;
  int refreshes = 0;
};
struct TestTextBox : FormControl {
  Text TypeName() const override { return u"TextBox"; }
};
struct TestForm : HostForm {
  int32_t ControlCount() const override { return 3; }
  FormControl& Control(int32_t i) override {
    return i == 1 ? static_cast<FormControl&>(box) : i ? second : first;
  }
  TestData first, second;
  TestTextBox box;
};

TEST_F(FileDbTest, InitSourceWritesANewDbIniAndKeepsAnExistingOne) {
  std::string ini = TextToUtf8(sim.app.Path()) + "/DB.ini";
  TestForm form;
  store.DB_InitSource(form, u"data.mdb");  // with no earlier INI file it stays on DB.ini
  EXPECT_EQ(CStr(store.INI_FileName), sim.app.Path() + u"/DB.ini");
  EXPECT_EQ(form.first.connect + u";" + form.first.database,
            u"Access;" + sim.app.Path() + u"/data.mdb");
  EXPECT_EQ(form.second.refreshes, 1);
  EXPECT_EQ(ReadBytes(ini), "[DBSource]\r\nConnect=Access\r\nDatabaseName=" +
                                TextToUtf8(sim.app.Path()) + "/data.mdb\r\n");
  // an existing file is not rewritten and its values win over the argument
  WriteBytes(ini, "[DBSource]\r\nConnect=ODBC;x\r\nDatabaseName=/srv/db\r\n");
  store.INI_SetFileName(T("host.ini"));
  TestForm again;
  store.DB_InitSource(again, u"other.mdb");
  EXPECT_EQ(again.second.connect + u";" + again.second.database, u"ODBC;x;/srv/db");
  EXPECT_EQ(ReadBytes(ini), "[DBSource]\r\nConnect=ODBC;x\r\nDatabaseName=/srv/db\r\n");
  EXPECT_EQ(CStr(store.INI_FileName), T("host.ini"));  // back on the host's file
}

}  // namespace
}  // namespace varnek
