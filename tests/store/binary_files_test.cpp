// Whole-file routines of Storage: read, save, append, rename, counting,
// folder paths, generated names, the log and the volume readings.
#include <unistd.h>

#include <optional>
#include <set>

#include "platform/files.h"
#include "runtime/failure.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

using BinaryFilesTest = StoreTest;

// Runs the body with the current folder moved to `folder`.
template <class Body>
void InFolder(const std::string& folder, Body body) {
  char old[4096];
  ASSERT_NE(getcwd(old, sizeof old), nullptr);
  ASSERT_EQ(chdir(folder.c_str()), 0);
  body();
  ASSERT_EQ(chdir(old), 0);
}

TEST_F(BinaryFilesTest, ReadBinaryOfMissingFiles) {
  // with a folder part: "" and nothing is created, read-only or not
  EXPECT_EQ(store.File_ReadBinary(T("a/b.txt")), u"");
  EXPECT_FALSE(PathExists(P("a")));
  EXPECT_EQ(store.File_ReadBinary(T("b.txt")), u"");
  EXPECT_FALSE(PathExists(P("b.txt")));
  // a bare name: read-write creates it empty, read-only leaves none
  InFolder(tmp.path(), [&] {
    EXPECT_EQ(store.File_ReadBinary(u"bare.txt", true), u"");
    EXPECT_FALSE(PathExists(P("bare.txt")));
    EXPECT_EQ(store.File_ReadBinary(u"bare.txt"), u"");
    EXPECT_TRUE(PathExists(P("bare.txt")));
  });
  // names are case-sensitive: another case finds nothing and creates nothing
  WriteBytes(P("d/a.txt"), "x");
  EXPECT_EQ(store.File_ReadBinary(T("d/A.TXT")), u"");
  EXPECT_FALSE(PathExists(P("d/A.TXT")));
  // a folder or a Null name reads as ""
  EXPECT_EQ(store.File_ReadBinary(tmp.text()), u"");
  EXPECT_EQ(store.File_ReadBinary(Variant::Null()), u"");
}

TEST_F(BinaryFilesTest, SaveAndReadEveryByte) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  Text units = BytesToText(all);
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z.bin"), units));  // makes both folders
  EXPECT_EQ(ReadBytes(P("x/y/z.bin")), all);
  EXPECT_EQ(store.File_ReadBinary(T("x/y/z.bin")), units);
  EXPECT_EQ(store.File_ReadBinary(T("x/y/z.bin"), true), units);

  // "" truncates; append adds without line ends; both say true regardless
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z.bin"), u""));
  EXPECT_EQ(ReadBytes(P("x/y/z.bin")), "");
  EXPECT_TRUE(store.File_AppendBinary(T("x/y/z.bin"), u"ab"));
  EXPECT_TRUE(store.File_AppendBinary(T("x/y/z.bin"), 12, true));
  EXPECT_EQ(ReadBytes(P("x/y/z.bin")), "ab12");
  EXPECT_TRUE(store.File_AppendBinary(T("new/dir/log.txt"), u"\u20ac"));  // makes folders
  EXPECT_EQ(ReadBytes(P("new/dir/log.txt")), "\x80");
  EXPECT_TRUE(store.File_SaveBinary(T("nofolder"), u"x"));
  EXPECT_TRUE(store.File_SaveBinary(tmp.text(), u"x"));  // a folder: nothing written, still true
  EXPECT_TRUE(store.File_SaveBinary(u"", u"x"));
}

TEST_F(BinaryFilesTest, CountsEntriesByMask) {
  WriteBytes(P("d/a.txt"), "1");
  WriteBytes(P("d/b.TXT"), "2");
  WriteBytes(P("d/c.log"), "3");
  std::filesystem::create_directory(P("d/sub.txt"));
  Variant folder = T("d");
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*.txt"), 3);  // folders count too
  EXPECT_EQ(CStr(folder), T("d") + u"/");                      // stored back with its "/"
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 3);
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*"), 4);       // "." and ".." left out
  EXPECT_EQ(store.File_ContarArchivos(folder, u"none.*"), 0);
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 0);
  Variant missing = T("nothere");
  EXPECT_EQ(store.File_ContarArchivos(missing, u"*"), 0);
}

TEST_F(BinaryFilesTest, CreatesFolderPaths) {
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r")), 5);  // "/", "tmp/", "varnek-../", ...
  EXPECT_TRUE(std::filesystem::is_directory(P("p/q/r")));
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r/")), 5);  // existing levels are fine
  EXPECT_RUNTIME_ERROR(store.Disk_CrearRutaDirectorios(u"/"), kErrSubscript);
  InFolder(tmp.path(), [&] { EXPECT_EQ(store.Disk_CrearRutaDirectorios(u"rel/one"), 2); });
  EXPECT_TRUE(std::filesystem::is_directory(P("rel/one")));
}

TEST_F(BinaryFilesTest, RenameCopiesVerifiesAndDeletes) {
  WriteBytes(P("old.txt"), "hello");
  WriteBytes(P("new.txt"), "something longer");
  EXPECT_TRUE(store.File_Renombrar(T("old.txt"), T("new.txt")));  // overwrites
  EXPECT_FALSE(PathExists(P("old.txt")));
  EXPECT_EQ(ReadBytes(P("new.txt")), "hello");

  // a missing source: lengths differ from the existing new file, which goes
  EXPECT_FALSE(store.File_Renombrar(T("ghost.txt"), T("new.txt")));
  EXPECT_FALSE(PathExists(P("new.txt")));

  // a missing source and no new file: lengths agree at 0, the deletion fails
  // ten times (0.2 s apart on the virtual clock) and nothing is left
  double before = sim.loop.Elapsed();
  EXPECT_FALSE(store.File_Renombrar(T("ghost.txt"), T("other.txt")));
  EXPECT_NEAR(sim.loop.Elapsed() - before, 2.0, 0.1);
  EXPECT_FALSE(PathExists(P("other.txt")));
}

// A file system that refuses the first deletion of each path.
class FlakyDelete : public FileSystem {
 public:
  explicit FlakyDelete(FileSystem& real) : real_(real) {}
  std::string ReadAll(TextView p, bool r) override { return real_.ReadAll(p, r); }
  void WriteAll(TextView p, std::string_view b) override { real_.WriteAll(p, b); }
  void Append(TextView p, std::string_view b) override { real_.Append(p, b); }
  int64_t Length(TextView p) override { return real_.Length(p); }
  void Copy(TextView f, TextView t) override { real_.Copy(f, t); }
  void Delete(TextView p) override {
    if (refused_.insert(Text(p)).second) Fail(kErrPermissionDenied);
    real_.Delete(p);
  }
  bool CreateDirectory(TextView p) override { return real_.CreateDirectory(p); }
  bool Stat(TextView p, FileEntry& e) override { return real_.Stat(p, e); }
  bool Enumerate(TextView p, std::vector<FileEntry>& o) override { return real_.Enumerate(p, o); }
  bool VolumeInfo(TextView p, Text& l, uint32_t& s) override {
    if (serial_) {
      l = label_;
      s = *serial_;
      return true;
    }
    return real_.VolumeInfo(p, l, s);
  }
  int32_t ShellOperation(const ShellFileRequest& r) override { return real_.ShellOperation(r); }

  std::optional<uint32_t> serial_;
  Text label_;

 private:
  FileSystem& real_;
  std::set<Text> refused_;
};

TEST_F(BinaryFilesTest, OneFailedDeletionMarksTheWholeLoop) {
  FlakyDelete flaky(*sim.platform.files);
  sim.platform.files = &flaky;
  WriteBytes(P("old.txt"), "abc");
  // The first try fails, the second deletes the old file, but the failure is
  // still pending: all ten tries count as failed and the copy is rolled back.
  EXPECT_FALSE(store.File_Renombrar(T("old.txt"), T("new.txt")));
  EXPECT_FALSE(PathExists(P("old.txt")));
  EXPECT_FALSE(PathExists(P("new.txt")));
}

TEST_F(BinaryFilesTest, VolumeLabelAndSerial) {
  // a drive that is not there: 14 spaces and ""; the argument is normalised
  Variant drive = u"Q";
  EXPECT_EQ(store.Disk_GetLabel(drive), Text(14, u' '));
  EXPECT_EQ(CStr(drive), u"Q:/");
  Variant missing_path = T("nope");
  EXPECT_EQ(store.Disk_GetSerial(missing_path), u"");
  EXPECT_EQ(CStr(missing_path), T("nope") + u"/");
  EXPECT_FALSE(store.Disk_GetSerial().empty());  // the root file system

  FlakyDelete fake(*sim.platform.files);
  sim.platform.files = &fake;
  struct Row {
    uint32_t serial;
    const char16_t* text;
  };
  const Row rows[] = {
      {0x123400FF, u"1234FF"},    // the low half is not padded
      {0x00000000, u"00"},
      {0x0001FFFF, u"2FFFF"},     // 131071 / 65535 = 2: the divisor is 65535
      {0xFFFFFFFF, u"FFFFFFFF"},  // -1: high half 0 - 1
      {0x7FFEFFFF, u"7FFFFFFF"},  // the largest high half that fits
  };
  for (const Row& r : rows) {
    fake.serial_ = r.serial;
    Variant root = u"/";
    EXPECT_EQ(store.Disk_GetSerial(root), r.text) << std::hex << r.serial;
  }
  fake.serial_ = 32768u * 65535u;  // the high half overflows 16 bits
  EXPECT_RUNTIME_ERROR(store.Disk_GetSerial(), kErrOverflow);
  EXPECT_RUNTIME_ERROR(store.Disk_GetLabel(), kErrOverflow);  // both share the reading
  fake.serial_ = 0x80000000u;  // the most negative: high half -32769
  EXPECT_RUNTIME_ERROR(store.Disk_GetSerial(), kErrOverflow);

  fake.serial_ = 1;
  fake.label_ = u"";
  EXPECT_EQ(store.Disk_GetLabel(), u"(no label)");
  fake.label_ = u"   ";
  EXPECT_EQ(store.Disk_GetLabel(), u"(no label)");
  fake.label_ = u"DATA";
  EXPECT_EQ(store.Disk_GetLabel(), u"DATA");
  fake.label_ = u"A_VERY_LONG_LABEL";  // the 14-unit buffer keeps 13
  EXPECT_EQ(store.Disk_GetLabel(), u"A_VERY_LONG_L");
}

TEST_F(BinaryFilesTest, GeneratedNames) {
  for (const char16_t* ext : {u".txt", u"txt"}) {
    Text name = store.File_RandomFileName(ext);
    ASSERT_EQ(name.size(), 12u);
    EXPECT_EQ(name.substr(8), u".txt");
    for (int i = 0; i < 8; ++i) EXPECT_TRUE(name[i] >= u'A' && name[i] <= u'Z') << TextToUtf8(name);
  }
  EXPECT_EQ(store.File_RandomFileName(u"").back(), u'.');
  Variant where = tmp.text();
  Text name = store.File_RandomFileName(u"dat", where);
  EXPECT_EQ(CStr(where), tmp.text() + u"/");
  EXPECT_EQ(name.find(u'/'), Text::npos);  // the bare name only

  Text stamp = CStr(store.File_FileNameFromDateTime());
  EXPECT_EQ(stamp, u"2026010112000000");  // the virtual clock stands at noon sharp
}

class AppLogTest : public StoreTest {
 protected:
  AppLogTest() : StoreTest(DateFromParts(2004, 3, 7, 9, 5, 3)) {}
};

TEST_F(AppLogTest, WritesTheDaysFileAndPumpsOnce) {
  int64_t pumps = sim.loop.PumpCount();
  EXPECT_FALSE(store.App_Log(u"a", u"b"));
  EXPECT_EQ(sim.loop.PumpCount(), pumps + 1);
  std::string log = TextToUtf8(sim.app.Path()) + "/Log/2004-03/07.log";
  EXPECT_EQ(ReadBytes(log), "[07-03-2004 09:05:03]\ta\tb\r\n");
  store.App_Log(1, Variant::Null());
  EXPECT_EQ(ReadBytes(log), "[07-03-2004 09:05:03]\ta\tb\r\n[07-03-2004 09:05:03]\t1\t\r\n");

  Variant name = Variant::Missing();
  store.App_Log(u"x", u"y", name);
  EXPECT_EQ(CStr(name), sim.app.Path() + u"/Log/2004-03/07.log");  // the default comes back
  Variant own = T("own.log");
  store.App_Log(u"x", u"y", own);
  EXPECT_EQ(ReadBytes(P("own.log")), "[07-03-2004 09:05:03]\tx\ty\r\n");
}

}  // namespace
}  // namespace varnek
