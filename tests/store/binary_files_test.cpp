// Whole-file routines of Storage: read, save, append, rename, counting,
// folder paths and the log.
#include <unistd.h>

#include "tests/support/child_process.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

using BinaryFilesTest = StoreTest;

TEST_F(BinaryFilesTest, ReadsMissingFilesAsEmpty) {
  WriteBytes(P("d/a.txt"), "x");
  // a missing folder or file with a folder part, another case, a folder, Null
  for (Variant name : {Variant(T("a/b.txt")), Variant(T("b.txt")), Variant(T("d/A.TXT")),
                       Variant(tmp.text()), Variant::Null()})
    EXPECT_EQ(store.File_ReadBinary(name), u"");
  EXPECT_EQ(tmp.Names(), std::vector<std::string>{"d"});  // nothing made
  char old[4096];  // a bare name: read-only leaves none, read-write creates it empty
  ASSERT_TRUE(getcwd(old, sizeof old) && chdir(tmp.path().c_str()) == 0);
  EXPECT_EQ(store.File_ReadBinary(u"bare.txt", true), u"");
  EXPECT_FALSE(PathExists(P("bare.txt")));
  EXPECT_EQ(store.File_ReadBinary(u"bare.txt"), u"");
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(u"rel/one"), 2);  // relative levels
  EXPECT_TRUE(PathExists(P("bare.txt")) && std::filesystem::is_directory(P("rel/one")));
  ASSERT_EQ(chdir(old), 0);
}

TEST_F(BinaryFilesTest, SaveAppendCountAndFolders) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z"), BytesToText(all)));  // makes both folders
  EXPECT_EQ(ReadBytes(P("x/y/z")), all);
  EXPECT_EQ(store.File_ReadBinary(T("x/y/z"), true), BytesToText(all));
  EXPECT_TRUE(store.File_SaveBinary(T("x/y/z"), u"") &&
              store.File_AppendBinary(T("x/y/z"), u"ab\u20ac") &&
              store.File_AppendBinary(T("x/y/z"), 12, true));  // truncates, then appends
  EXPECT_EQ(ReadBytes(P("x/y/z")),
            "ab\x80"
            "12");                                       // no line ends added
  EXPECT_TRUE(store.File_SaveBinary(tmp.text(), u"x"));  // a folder: nothing written, still true

  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r")), 5);   // "/", "tmp/", "varnek-../", ...
  EXPECT_EQ(store.Disk_CrearRutaDirectorios(T("p/q/r/")), 5);  // existing levels are fine
  EXPECT_RUNTIME_ERROR(store.Disk_CrearRutaDirectorios(u"/"), kErrSubscript);

  for (const char* f : {"d/a.txt", "d/b.TXT", "d/c.log"}) WriteBytes(P(f), "1");
  std::filesystem::create_directory(P("d/sub.txt"));
  Variant folder = T("d");
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*.txt"), 3);  // folders count too
  EXPECT_EQ(CStr(folder), T("d") + u"/");                     // stored back with its "/"
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 3);
  EXPECT_EQ(store.File_ContarArchivos(folder, u"*"), 4);  // "." and ".." left out
  EXPECT_EQ(store.File_ContarArchivos(folder, u"none.*"), 0);
  EXPECT_EQ(store.File_ContarArchivos(folder = T("nothere"), u"*"), 0);  // a missing folder
  EXPECT_EQ(store.File_ContarArchivos_Lista->Count(), 0);
}

TEST_F(BinaryFilesTest, RenameCopiesVerifiesAndDeletes) {
  WriteBytes(P("old.txt"), "hello");
  WriteBytes(P("new.txt"), "something longer");
  EXPECT_TRUE(store.File_Renombrar(T("old.txt"), T("new.txt")));  // overwrites
  EXPECT_EQ(PathExists(P("old.txt")) ? "old kept" : ReadBytes(P("new.txt")), "hello");
  // a missing source: lengths differ from the existing new file, which goes
  EXPECT_FALSE(store.File_Renombrar(T("ghost.txt"), T("new.txt")) || PathExists(P("new.txt")));
  // lengths agree at 0 with no new file: ten deletions fail 0.2 s apart
  double before = sim.loop.Elapsed();
  EXPECT_FALSE(store.File_Renombrar(T("ghost.txt"), T("other.txt")));
  EXPECT_NEAR(sim.loop.Elapsed() - before, 2.0, 0.1);
  EXPECT_FALSE(PathExists(P("other.txt")));
  // the first try fails, the second deletes, but the failure stays pending:
  // all ten count as failed and the copy is rolled back
  FaultyFiles flaky;
  flaky.refuse_deletes = true, sim.platform.files = flaky;
  WriteBytes(P("old.txt"), "abc");
  EXPECT_FALSE(store.File_Renombrar(T("old.txt"), T("new.txt")));
  EXPECT_FALSE(PathExists(P("old.txt")) || PathExists(P("new.txt")));
}

TEST_F(BinaryFilesTest, RenameNeverDeletesASourceThatWasNotCopied) {
  // a copy cut short by a full disk, over a target of equal length: the
  // lengths "differ", the target goes and the source stays
  WriteBytes(P("src"), "new");
  WriteBytes(P("dst"), "old");
  EXPECT_EQ(InChild([&] {
              LimitFileSize(2, true);
              return std::string(store.File_Renombrar(T("src"), T("dst")) ? "renamed" : "refused");
            }),
            "refused");
  EXPECT_EQ(ReadBytes(P("src")) + (PathExists(P("dst")) ? "+dst" : ""), "new");
  // onto itself, directly or through a link that leads back: left in place
  std::filesystem::create_symlink(P("src"), P("link"));
  for (Text to : {tmp.text() + u"/./src", T("link")}) {
    EXPECT_FALSE(store.File_Renombrar(T("src"), to)) << TextToUtf8(to);
    EXPECT_EQ(ReadBytes(P("src")), "new");
  }
  EXPECT_FALSE(store.File_Renombrar(T("link"), T("src")));
  EXPECT_EQ(ReadBytes(P("src")), "new");
  // a second hard link of the same file is another name: renamed as usual
  std::filesystem::create_hard_link(P("src"), P("hard"));
  EXPECT_TRUE(store.File_Renombrar(T("src"), T("hard")));
  EXPECT_EQ(ReadBytes(P("hard")) + (PathExists(P("src")) ? "+src" : ""), "new");
}

struct AppLogTest : StoreTest {
  AppLogTest() : StoreTest(DateFromParts(2004, 3, 7, 9, 5, 3)) {}
};

TEST_F(AppLogTest, WritesTheDaysFileAndPumpsOnce) {
  int64_t pumps = sim.loop.PumpCount();
  EXPECT_FALSE(store.App_Log(u"a", u"b"));
  EXPECT_EQ(sim.loop.PumpCount(), pumps + 1);
  Variant name = Variant::Missing();
  store.App_Log(1, Variant::Null(), name);
  EXPECT_EQ(CStr(name), sim.app.Path() + u"/Log/2004-03/07.log");  // the default comes back
  EXPECT_EQ(ReadBytes(TextToUtf8(CStr(name))),
            "[07-03-2004 09:05:03]\ta\tb\r\n[07-03-2004 09:05:03]\t1\t\r\n");
  EXPECT_EQ(CStr(store.File_FileNameFromDateTime()), u"2004030709050300");
}

// A volume whose label and serial the test chooses.
struct ChosenVolume : LinuxFileSystem {
  bool VolumeInfo(TextView, Text& l, uint32_t& s) override {
    l = label;
    s = serial;
    return true;
  }
  Text label;
  uint32_t serial = 1;
};

TEST_F(BinaryFilesTest, VolumeLabelAndSerialKeepTheirQuirks) {
  Variant drive = u"Q";  // no such drive: 14 blanks, and the argument normalised
  EXPECT_EQ(store.Disk_GetLabel(drive), Text(14, u' '));
  EXPECT_EQ(CStr(drive), u"Q:/");
  ChosenVolume volume;
  sim.platform.files = volume;
  // The low half unpadded; the divisor is 65535, so -1 carries into the high half.
  for (auto [serial, text] : {std::pair{0x123400FFu, u"1234FF"},
                              {0x0001FFFFu, u"2FFFF"},
                              {0xFFFFFFFFu, u"FFFFFFFF"},
                              {0x7FFEFFFFu, u"7FFFFFFF"}}) {
    volume.serial = serial;
    EXPECT_EQ(store.Disk_GetSerial(), text) << std::hex << serial;
  }
  volume.serial = 32768u * 65535u;  // the high half overflows 16 bits, for both
  EXPECT_RUNTIME_ERROR(store.Disk_GetSerial(), kErrOverflow);
  EXPECT_RUNTIME_ERROR(store.Disk_GetLabel(), kErrOverflow);
  volume.serial = 1;
  volume.label = u"   ";
  EXPECT_EQ(store.Disk_GetLabel(), u"(no label)");
  volume.label = u"A_VERY_LONG_LABEL";  // the 14-unit buffer keeps 13
  EXPECT_EQ(store.Disk_GetLabel(), u"A_VERY_LONG_L");
}

}  // namespace
}  // namespace varnek
