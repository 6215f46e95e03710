// Whole-file routines of Storage: read, save, append, rename, counting,
// folder paths, generated names, the log and the volume readings.
#include <unistd.h>

#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

using BinaryFilesTest = StoreTest;

TEST_F(BinaryFilesTest, ReadsMissingFilesAsEmpty) {
  EXPECT_EQ(store.File_ReadBinary(T("a/b.txt")), u"");  // a missing folder is not made
  EXPECT_FALSE(PathExists(P("a")));
  EXPECT_EQ(store.File_ReadBinary(T("b.txt")), u"");  // nor a file with a folder part
  EXPECT_FALSE(PathExists(P("b.txt")));
  WriteBytes(P("d/a.txt"), "x");
  EXPECT_EQ(store.File_ReadBinary(T("d/A.TXT")), u"");  // case-sensitive, nothing created
  EXPECT_FALSE(PathExists(P("d/A.TXT")));
  EXPECT_EQ(store.File_ReadBinary(tmp.text()), u"");
  EXPECT_EQ(store.File_ReadBinary(Variant::Null()), u"");
  // a bare name: read-write creates it empty, read-only leaves none
  char old[4096];
  ASSERT_TRUE(getcwd(old, sizeof old) && chdir(tmp.path().c_str()) == 0);
  EXPECT_EQ(store.File_ReadBinary(u"bare.txt", true), u"");
  EXPECT_FALSE(PathExists(P("bare.txt")));
  EXPECT_EQ(store.File_ReadBinary(u"bare.txt"), u"");
  EXPECT_TRUE(PathExists(P("bare.txt")));
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(u"rel/one"), 2);  // relative levels
  EXPECT_TRUE(std::filesystem::is_directory(P("rel/one")));
  ASSERT_EQ(chdir(old), 0);
}

TEST_F(BinaryFilesTest, SaveAppendAndFolders) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z.bin"), BytesToText(all)));  // makes both folders
  EXPECT_EQ(ReadBytes(P("x/y/z.bin")), all);
  EXPECT_EQ(store.File_ReadBinary(T("x/y/z.bin"), true), BytesToText(all));
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z.bin"), u""));  // truncates
  EXPECT_TRUE(store.File_AppendBinary(T("x/y/z.bin"), u"ab"));
  EXPECT_TRUE(store.File_AppendBinary(T("x/y/z.bin"), 12, true));
  EXPECT_EQ(ReadBytes(P("x/y/z.bin")), "ab12");  // no line ends added
  EXPECT_TRUE(store.File_AppendBinary(T("new/dir/log.txt"), u"\u20ac"));
  EXPECT_EQ(ReadBytes(P("new/dir/log.txt")), "\x80");
  EXPECT_TRUE(store.File_SaveBinary(tmp.text(), u"x"));  // a folder: nothing written, still true
  EXPECT_TRUE(store.File_SaveBinary(u"", u"x"));

  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r")), 5);  // "/", "tmp/", "varnek-../", ...
  EXPECT_TRUE(std::filesystem::is_directory(P("p/q/r")));
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r/")), 5);  // existing levels are fine
  EXPECT_RUNTIME_ERROR(store.Disk_CrearRutaDirectorios(u"/"), kErrSubscript);

  WriteBytes(P("d/a.txt"), "1");
  WriteBytes(P("d/b.TXT"), "2");
  WriteBytes(P("d/c.log"), "3");
  std::filesystem::create_directory(P("d/sub.txt"));
  Variant folder = T("d");
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*.txt"), 3);  // folders count too
  EXPECT_EQ(CStr(folder), T("d") + u"/");                      // stored back with its "/"
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 3);
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*"), 4);  // "." and ".." left out
  EXPECT_EQ(store.File_ContarArchivos(folder, u"none.*"), 0);
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 0);
  Variant missing = T("nothere");
  EXPECT_EQ(store.File_ContarArchivos(missing, u"*"), 0);
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
  // lengths agree at 0 with no new file: ten deletions fail 0.2 s apart
  double before = sim.loop.Elapsed();
  EXPECT_FALSE(store.File_Renombrar(T("ghost.txt"), T("other.txt")));
  EXPECT_NEAR(sim.loop.Elapsed() - before, 2.0, 0.1);
  EXPECT_FALSE(PathExists(P("other.txt")));

  // the first try fails, the second deletes, but the failure stays pending:
  // all ten count as failed and the copy is rolled back
  FaultyFiles flaky(*sim.platform.files);
  flaky.refuse_deletes = true;
  sim.platform.files = &flaky;
  WriteBytes(P("old.txt"), "abc");
  EXPECT_FALSE(store.File_Renombrar(T("old.txt"), T("new.txt")));
  EXPECT_FALSE(PathExists(P("old.txt")));
  EXPECT_FALSE(PathExists(P("new.txt")));
}

TEST_F(BinaryFilesTest, VolumeLabelAndSerial) {
  Variant drive = u"Q";  // not there: 14 spaces, and the argument normalised
  EXPECT_EQ(store.Disk_GetLabel(drive), Text(14, u' '));
  EXPECT_EQ(CStr(drive), u"Q:/");
  Variant missing = T("nope");
  EXPECT_EQ(store.Disk_GetSerial(missing), u"");
  EXPECT_EQ(CStr(missing), T("nope") + u"/");

  FaultyFiles fake(*sim.platform.files);
  sim.platform.files = &fake;
  const std::pair<uint32_t, const char16_t*> rows[] = {
      {0x123400FF, u"1234FF"},    // the low half is not padded
      {0x0001FFFF, u"2FFFF"},     // 131071 / 65535 = 2: the divisor is 65535
      {0xFFFFFFFF, u"FFFFFFFF"},  // -1: high half 0 - 1
      {0x7FFEFFFF, u"7FFFFFFF"},  // the largest high half that fits
  };
  for (auto [serial, text] : rows) {
    fake.serial = serial;
    EXPECT_EQ(store.Disk_GetSerial(), text) << std::hex << serial;
  }
  fake.serial = 32768u * 65535u;  // the high half overflows 16 bits, for both
  EXPECT_RUNTIME_ERROR(store.Disk_GetSerial(), kErrOverflow);
  EXPECT_RUNTIME_ERROR(store.Disk_GetLabel(), kErrOverflow);
  fake.serial = 0x80000000u;  // high half -32769
  EXPECT_RUNTIME_ERROR(store.Disk_GetSerial(), kErrOverflow);
  fake.serial = 1;
  for (auto [label, shown] : {std::pair{u"", u"(no label)"}, {u"   ", u"(no label)"},
                              {u"A_VERY_LONG_LABEL", u"A_VERY_LONG_L"}}) {  // 14-unit buffer
    fake.label = label;
    EXPECT_EQ(store.Disk_GetLabel(), shown);
  }
}

TEST_F(BinaryFilesTest, GeneratedNames) {
  Text name = store.File_RandomFileName(u"txt");
  ASSERT_EQ(name.size(), 12u);
  EXPECT_EQ(name.substr(8), u".txt");
  for (int i = 0; i < 8; ++i) EXPECT_TRUE(name[i] >= u'A' && name[i] <= u'Z') << TextToUtf8(name);
  EXPECT_EQ(store.File_RandomFileName(u".txt").substr(8), u".txt");
  EXPECT_EQ(store.File_RandomFileName(u"").back(), u'.');
  Variant where = tmp.text();
  EXPECT_EQ(store.File_RandomFileName(u"dat", where).find(u'/'), Text::npos);  // bare name
  EXPECT_EQ(CStr(where), tmp.text() + u"/");
  EXPECT_EQ(CStr(store.File_FileNameFromDateTime()), u"2026010112000000");  // noon sharp
}

class AppLogTest : public StoreTest {
 protected:
  AppLogTest() : StoreTest(DateFromParts(2004, 3, 7, 9, 5, 3)) {}
};

TEST_F(AppLogTest, WritesTheDaysFileAndPumpsOnce) {
  int64_t pumps = sim.loop.PumpCount();
  EXPECT_FALSE(store.App_Log(u"a", u"b"));
  EXPECT_EQ(sim.loop.PumpCount(), pumps + 1);
  store.App_Log(1, Variant::Null());
  std::string log = TextToUtf8(sim.app.Path()) + "/Log/2004-03/07.log";
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
