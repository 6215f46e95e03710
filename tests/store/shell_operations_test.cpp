// The shell's file operations through File_Operacion (copy, move, rename,
// delete, the trash of "allow undo") and the generated file names.
#include <sys/stat.h>
#include <unistd.h>

#include <regex>

#include "tests/support/child_process.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

// The desktop's trash lives under the test's folder while a test runs.
struct ShellOperationsTest : StoreTest {
  bool Op(int32_t function, int32_t flags, const Text& from, const Text& to = Text()) {
    return store.File_Operacion(Variant(), function, flags, from, to);
  }
  // Two names as a NUL-separated list.
  Text List(const char* a, const char* b) { return T(a) + u'\0' + T(b) + u'\0' + u'\0'; }
  ScopedEnv data_home{"XDG_DATA_HOME", P("data")};
  const std::string trash = P("data/Trash");
};

TEST_F(ShellOperationsTest, CopyMoveRenameAndDelete) {
  for (auto [name, bytes] :
       {std::pair{"d/a.txt", "a"}, {"d/b.txt", "bb"}, {"d/c.log", "c"}, {"d/sub/s.txt", "s"}})
    WriteBytes(P(name), bytes);

  // copy: a mask of several files goes into a folder that is made
  EXPECT_TRUE(Op(kShellCopy, kShellNoConfirmation, T("d/*.txt"), T("out")));
  EXPECT_EQ(ReadBytes(P("out/a.txt")) + ReadBytes(P("out/b.txt")), "abb");
  EXPECT_TRUE(PathExists(P("d/a.txt")));
  EXPECT_FALSE(PathExists(P("out/c.log")));
  // onto an existing name: replaced, or with "rename on collision" a free copy name
  WriteBytes(P("d/a.txt"), "A2");
  EXPECT_TRUE(Op(kShellCopy, 0, T("d/a.txt"), T("out")));
  EXPECT_EQ(ReadBytes(P("out/a.txt")), "A2");
  EXPECT_TRUE(Op(kShellCopy, kShellRenameOnCollision, T("d/a.txt"), T("out")));
  EXPECT_TRUE(Op(kShellCopy, kShellRenameOnCollision, T("d/a.txt"), T("out")));
  EXPECT_TRUE(PathExists(P("out/Copy of a.txt")) && PathExists(P("out/Copy (2) of a.txt")));
  // one target per source
  EXPECT_TRUE(Op(kShellCopy, kShellMultiDestFiles, List("d/a.txt", "d/b.txt"), List("m/1", "m/2")));
  EXPECT_EQ(ReadBytes(P("m/1")) + ReadBytes(P("m/2")), "A2bb");
  // counts differ
  EXPECT_FALSE(Op(kShellCopy, kShellMultiDestFiles, List("d/a.txt", "d/b.txt"), T("m/3")));

  // move and rename
  EXPECT_TRUE(Op(kShellMove, 0, T("d/c.log"), T("moved/c2.log")));
  EXPECT_FALSE(PathExists(P("d/c.log")));
  EXPECT_EQ(ReadBytes(P("moved/c2.log")), "c");
  EXPECT_TRUE(Op(kShellRename, 0, T("m/1"), T("m/one")));
  EXPECT_FALSE(Op(kShellRename, 0, T("m/2"), T("m/one")));  // the new name exists
  EXPECT_FALSE(Op(kShellRename, 0, T("m/none"), T("m/x")));
  EXPECT_EQ(ReadBytes(P("m/one")) + ReadBytes(P("m/2")), "A2bb");

  // delete: "files only" leaves the subfolder; a missing source or an unknown
  // operation fails and deletes nothing
  EXPECT_FALSE(Op(kShellDelete, 0, List("d/a.txt", "d/missing.txt")));
  EXPECT_TRUE(PathExists(P("d/a.txt")));
  EXPECT_FALSE(Op(9, 0, T("d/a.txt")));
  EXPECT_TRUE(Op(kShellDelete, kShellFilesOnly | kShellNoConfirmation, T("d/*")));
  EXPECT_EQ(tmp.Names("d"), std::vector<std::string>{"sub"});
  EXPECT_TRUE(Op(kShellDelete, 0, T("d/sub")));  // a folder goes with its content
  EXPECT_FALSE(PathExists(P("d/sub")));
}

TEST_F(ShellOperationsTest, AllowUndoMovesToTheTrashWithoutAsking) {
  for (const char* name : {"d/x.txt", "d/my file.txt", "d/folder/in.txt"})
    WriteBytes(P(name), name);

  EXPECT_TRUE(Op(kShellDelete, kShellAllowUndo, T("d/x.txt")));
  EXPECT_FALSE(PathExists(P("d/x.txt")));
  EXPECT_EQ(ReadBytes(trash + "/files/x.txt"), "d/x.txt");
  std::string info = ReadBytes(trash + "/info/x.txt.trashinfo");
  EXPECT_TRUE(std::regex_match(
      info, std::regex("\\[Trash Info\\]\nPath=" + P("d/x.txt") +
                       "\nDeletionDate=\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\n")))
      << info;
  WriteBytes(P("d/x.txt"), "second");  // the same name again gets a free one
  EXPECT_TRUE(Op(kShellDelete, kShellAllowUndo | kShellSilent, T("d/x.txt")));
  EXPECT_EQ(ReadBytes(trash + "/files/x.txt.2"), "second");
  EXPECT_TRUE(PathExists(trash + "/info/x.txt.2.trashinfo"));
  // the path is percent-encoded
  EXPECT_TRUE(Op(kShellDelete, kShellAllowUndo, T("d/my file.txt")));
  EXPECT_NE(ReadBytes(trash + "/info/my file.txt.trashinfo").find("/d/my%20file.txt\n"),
            std::string::npos);
  EXPECT_TRUE(Op(kShellDelete, kShellAllowUndo, T("d/folder")));  // a folder goes whole
  EXPECT_EQ(ReadBytes(trash + "/files/folder/in.txt"), "d/folder/in.txt");

  // without the flag, or with flags past 16 bits (dropped), deletion is for good
  WriteBytes(P("d/y.txt"), "y");
  WriteBytes(P("d/z.txt"), "z");
  EXPECT_TRUE(Op(kShellDelete, 0, T("d/y.txt")));
  EXPECT_TRUE(Op(kShellDelete, 0x10000 | kShellAllowUndo, T("d/z.txt")));
  EXPECT_FALSE(PathExists(P("d/y.txt")) || PathExists(P("d/z.txt")));
  EXPECT_EQ(tmp.Names("data/Trash/files").size(), 4u);
}

TEST_F(ShellOperationsTest, FolderIsNeverCopiedIntoItself) {
  WriteBytes(P("d/a.txt"), "a");
  std::filesystem::create_directory(P("d/sub"));
  std::filesystem::create_directory_symlink(P("d"), P("alias"));
  // into a subfolder, onto itself (an existing folder takes it inside), or
  // through a link back to it: refused before anything is made
  for (const char* to : {"d/sub", "d/new", "d", "alias/sub"}) {
    EXPECT_FALSE(Op(kShellCopy, 0, T("d"), T(to))) << to;
    EXPECT_FALSE(Op(kShellMove, 0, T("d"), T(to))) << to;
  }
  EXPECT_EQ(std::distance(fs::recursive_directory_iterator(P("d")), {}), 2);
  EXPECT_TRUE(Op(kShellCopy, 0, T("d"), T("d2")));  // a sibling is fine
  EXPECT_EQ(ReadBytes(P("d2/a.txt")), "a");
}

TEST_F(ShellOperationsTest, NamesThatAreNotUtf8OpenCopyAndDeleteAgain) {
  // made by another program: Latin-1 bytes, and a UTF-8 name of U+FFFD, which
  // the first one must never be taken for
  WriteBytes(P("n/l\xE9.txt"), "latin");
  WriteBytes(P("n/l\xEF\xBF\xBD.txt"), "other");
  Variant folder = T("n");
  EXPECT_EQ(store.File_ContarArchivos(folder, u"l\u00e9.*"), 1);
  EXPECT_EQ(CStr(store.File_ContarArchivos_Lista->Item(1)), u"l\u00e9.txt");
  EXPECT_EQ(store.File_ReadBinary(T("n/") + u"l\u00e9.txt", true), u"latin");
  EXPECT_TRUE(Op(kShellCopy, 0, T("n/l?.txt"), T("c")));
  EXPECT_EQ(ReadBytes(P("c/l\xE9.txt")) + ReadBytes(P("c/l\xEF\xBF\xBD.txt")), "latinother");
  EXPECT_TRUE(Op(kShellDelete, 0, T("n/l\u00e9*")));
  EXPECT_EQ(PathExists(P("n/l\xE9.txt")) ? "kept" : ReadBytes(P("n/l\xEF\xBF\xBD.txt")), "other");
  // every byte the code page maps, alone in a name, lists and opens again
  for (int b = 0x80; b <= 0xFF; ++b)
    WriteBytes(P("all/") + std::string(1, static_cast<char>(b)), std::to_string(b));
  EXPECT_EQ(store.File_ContarArchivos(folder = T("all"), u"*"), 128);
  std::vector<Text> names;  // each read below counts again and refills the list
  for (int32_t i = 1; i <= 128; ++i)
    names.push_back(CStr(store.File_ContarArchivos_Lista->Item(i)));
  for (const Text& name : names)
    EXPECT_EQ(store.File_ReadBinary(T("all/") + name, true),
              Utf8ToText(std::to_string(UnitToByte(name[0]))));
}

// A folder on another file system goes to the trash as a copy: nothing may
// leave its place before the copy is whole, and a part that cannot be
// removed stays, with every file in exactly one of the two places.
TEST_F(ShellOperationsTest, TrashAcrossFileSystemsLosesNothing) {
  struct stat here {
  }, there{};
  if (stat(tmp.path().c_str(), &here) != 0 || stat("/dev/shm", &there) != 0 ||
      here.st_dev == there.st_dev)
    GTEST_SKIP() << "/dev/shm is not another file system here";
  TestFolder other("/dev/shm");
  for (const std::string& folder : {tmp.path(), other.path()})
    ASSERT_TRUE(geteuid() != 0 || chown(folder.c_str(), kNobody, kNobody) == 0);
  const std::string source = other.path() + "/d";
  const char* const names[] = {"a.txt", "b.txt", "locked/c.txt", "open/e.txt"};
  std::string got = AsNobody([&] {
    for (const char* name : names) WriteBytes(source + "/" + name, name);
    chmod((source + "/locked").c_str(), 0555);  // its file cannot be removed
    WriteBytes(other.path() + "/u/secret", "s");
    WriteBytes(other.path() + "/u/plain", "p");
    chmod((other.path() + "/u/secret").c_str(), 0);  // cannot be copied: nothing goes
    return std::string(Op(kShellDelete, kShellAllowUndo, Utf8ToText(source)) ? "deleted"
                                                                             : "refused") +
           (Op(kShellDelete, kShellAllowUndo, Utf8ToText(other.path() + "/u")) ? " deleted"
                                                                               : " refused");
  });
  chmod((source + "/locked").c_str(), 0755);
  EXPECT_EQ(got, "refused refused");
  EXPECT_EQ(ReadBytes(other.path() + "/u/plain") + (PathExists(trash + "/files/u") ? "+copy" : ""),
            "p");
  EXPECT_FALSE(PathExists(trash + "/info/u.trashinfo"));
  for (const char* name : names) {
    std::string in_source = ReadBytes(source + "/" + name),
                in_trash = ReadBytes(trash + "/files/d/" + name);
    EXPECT_EQ(in_source + in_trash, name) << "in both places or lost: " << name;
  }
  EXPECT_TRUE(PathExists(trash + "/info/d.trashinfo"));
}

TEST_F(ShellOperationsTest, GeneratedNames) {
  Text name = store.File_RandomFileName(u"txt") + store.File_RandomFileName(u".txt");
  EXPECT_TRUE(std::regex_match(TextToUtf8(name), std::regex("([A-Z]{8}\\.txt){2}")))
      << TextToUtf8(name);
  EXPECT_EQ(store.File_RandomFileName(u"").back(), u'.');
  // with a folder: "/" is added and a name already there is drawn again (the
  // clock stands still on the simulated loop, so a fresh Storage draws the
  // same first name)
  Text first = TestStorage(sim.platform).File_RandomFileName(u"dat");
  WriteBytes(TextToUtf8(tmp / "" + first), "taken");
  Variant folder = tmp.text();
  Text drawn = TestStorage(sim.platform).File_RandomFileName(u"dat", folder);
  EXPECT_EQ(CStr(folder), tmp.text() + u"/");
  EXPECT_NE(drawn, first);
  EXPECT_TRUE(std::regex_match(TextToUtf8(drawn), std::regex("[A-Z]{8}\\.dat")));
  EXPECT_EQ(CStr(store.File_FileNameFromDateTime()).size(), 16u);
}

}  // namespace
}  // namespace varnek
