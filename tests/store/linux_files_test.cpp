// The Linux file system service: masks, enumeration, whole-file failures, the
// shell's operations, volume readings and the atomic replacement under SIGKILL.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include "platform/linux/linux_files.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

TEST(LinuxFilesTest, ClassicMaskRules) {
  const std::tuple<const char16_t*, const char16_t*, bool> rows[] = {
      {u"*.*", u"README", true},  {u"*.*", u".profile", true}, {u"*", u".", true},
      {u"*.", u"README", true},   {u"*.", u"a.txt", false},    {u"*.txt", u"b.c.txt", true},
      {u"*.txt", u"a.tx", false}, {u"*.txt", u"a.txtold", false}, {u"*.TXT", u"a.txt", true},
      {u"a?.txt", u"ab.txt", true}, {u"a?.txt", u"a.txt", true}, {u"a?.txt", u"abc.txt", false},
      {u"????????.???", u"README", true}, {u"????????.???", u"verylongname.txt", false},
      {u"b.txt", u"B.TXT", true}, {u"b.txt", u"b.txt2", false}, {u"a*b", u"axxc", false},
  };
  for (auto [mask, name, match] : rows)
    EXPECT_EQ(MaskMatches(mask, name), match) << TextToUtf8(mask) << " vs " << TextToUtf8(name);
}

TEST(LinuxFilesTest, EnumerateAndWholeFileFailures) {
  TempFolder tmp;
  LinuxFileSystem& fs = LinuxFiles();
  WriteBytes(tmp.path() + "/a.txt", "abc");
  std::vector<FileEntry> found;
  // a plain name is that exact name, a mask ignores case; no match, a missing
  // folder or a pattern ending in "/" is false with no entries
  ASSERT_TRUE(fs.Enumerate(tmp / "a.txt", found));
  EXPECT_EQ(found[0].size, 3);
  EXPECT_TRUE(fs.Enumerate(tmp / "A.TX?", found));
  for (const char* pattern : {"A.TXT", "*.doc", "nope/*", ""}) {
    EXPECT_FALSE(fs.Enumerate(tmp / pattern, found)) << pattern;
    EXPECT_TRUE(found.empty());
  }
  EXPECT_RUNTIME_ERROR(fs.ReadAll(tmp / "missing", true), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Length(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Copy(tmp / "missing", tmp / "x"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.WriteAll(tmp / "no/such/folder.txt", "x"), kErrFileNotFound);
  EXPECT_FALSE(fs.CreateDirectory(tmp.text()));  // already there
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp.text()), kErrPathFileAccess);
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(tmp.path()), {}), 1);  // no "x", no temp
}

TEST(LinuxFilesTest, ShellOperations) {
  TempFolder tmp;
  for (const char* f : {"a.txt", "b.txt", "c.log"}) WriteBytes(tmp.path() + "/src/" + f, f);
  auto run = [&](int32_t fn, int32_t flags, Text from, Text to) {
    return LinuxFiles().ShellOperation(ShellFileRequest{fn, flags, std::move(from), std::move(to)});
  };
  const Text nul(1, u'\0');
  // copy by mask into a folder that does not exist yet; then with rename on collision
  EXPECT_EQ(run(kShellCopy, kShellNoConfirmation, tmp / "src/*.txt" + nul, tmp / "dst" + nul), 0);
  EXPECT_EQ(run(kShellCopy, kShellRenameOnCollision, tmp / "src/a.txt", tmp / "dst"), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/dst/b.txt"), "b.txt");
  EXPECT_EQ(ReadBytes(tmp.path() + "/dst/Copy of a.txt"), "a.txt");
  EXPECT_FALSE(PathExists(tmp.path() + "/dst/c.log"));
  // two sources moved to parallel targets; rename refuses an existing target
  EXPECT_EQ(run(kShellMove, kShellMultiDestFiles, tmp / "src/a.txt" + nul + (tmp / "src/b.txt") + nul + nul,
                tmp / "m1" + nul + (tmp / "m2") + nul + nul), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/m2"), "b.txt");
  EXPECT_EQ(run(kShellRename, 0, tmp / "m1", tmp / "m2"), 0xB7);
  EXPECT_EQ(run(kShellDelete, kShellAllowUndo, tmp / "dst", u""), 0);  // with its content
  EXPECT_FALSE(PathExists(tmp.path() + "/dst"));
  EXPECT_EQ(run(kShellDelete, 0, tmp / "gone", u""), 2);
}

// A child saves two contents of different lengths in turn and is killed at
// some moment of its writing: the file must hold one of them whole.
TEST(LinuxFilesTest, KilledWriterLeavesOldOrNewContent) {
  TempFolder tmp;
  const std::string a(3 << 20, 'A'), b((3 << 20) + 12345, 'B');
  std::string path = tmp.path() + "/big.bin";
  LinuxFiles().WriteAll(Utf8ToText(path), a);
  for (int round = 0; round < 6; ++round) {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      for (int i = 0; i < 2000; ++i) LinuxFiles().WriteAll(Utf8ToText(path), i % 2 ? a : b);
      _exit(0);
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(15 + 17 * round));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    std::string got = ReadBytes(path);
    EXPECT_TRUE(got == a || got == b) << "round " << round << ": " << got.size() << " bytes";
  }
}

}  // namespace
}  // namespace varnek
