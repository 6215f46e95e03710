// The Linux file system service: masks, enumeration, attributes, the shell's
// operations, volume readings and the atomic replacement under SIGKILL.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <chrono>
#include <thread>

#include "platform/linux/linux_files.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

TEST(FileMaskTest, ClassicMaskRules) {
  struct Row {
    const char16_t* mask;
    const char16_t* name;
    bool match;
  };
  const Row rows[] = {
      {u"*", u"README", true},          {u"*.*", u"README", true},
      {u"*.*", u".profile", true},      {u"*", u".profile", true},
      {u"*.", u"README", true},         {u"*.", u"a.txt", false},
      {u"*.txt", u"a.txt", true},       {u"*.txt", u"b.c.txt", true},
      {u"*.txt", u"a.tx", false},       {u"*.txt", u"a.txtold", false},
      {u"*.TXT", u"a.txt", true},       {u"a?.txt", u"ab.txt", true},
      {u"a?.txt", u"a.txt", true},      {u"a?.txt", u"abc.txt", false},
      {u"????????.???", u"README", true}, {u"????????.???", u"abc.de", true},
      {u"????????.???", u"verylongname.txt", false},
      {u"b.txt", u"B.TXT", true},       {u"b.txt", u"b.txt2", false},
      {u"*.sys", u"PAGEFILE.SYS", true}, {u"a*b", u"axxb", true},
      {u"a*b", u"axxc", false},         {u"*", u".", true},
  };
  for (const Row& r : rows)
    EXPECT_EQ(MaskMatches(r.mask, r.name), r.match)
        << TextToUtf8(r.mask) << " vs " << TextToUtf8(r.name);
}

TEST(LinuxFilesTest, EnumerateAndAttributes) {
  TempFolder tmp;
  LinuxFileSystem& fs = LinuxFiles();
  WriteBytes(tmp.path() + "/a.txt", "abc");
  WriteBytes(tmp.path() + "/.hidden.txt", "h");
  std::filesystem::create_directory(tmp.path() + "/sub");
  std::vector<FileEntry> found;

  // every entry, "." and ".." included
  ASSERT_TRUE(fs.Enumerate(tmp / "*", found));
  std::vector<Text> names;
  for (auto& e : found) names.push_back(e.name);
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<Text>{u".", u"..", u".hidden.txt", u"a.txt", u"sub"}));
  for (auto& e : found) {
    if (e.name == u"sub") {
      EXPECT_TRUE(e.directory);
    }
    if (e.name == u".hidden.txt") {
      EXPECT_TRUE(e.hidden);
    }
    if (e.name == u"a.txt") {
      EXPECT_FALSE(e.hidden || e.directory || e.system);
      EXPECT_EQ(e.size, 3);
      EXPECT_GT(e.date, 40000.0);  // a date of this century
    }
    if (e.name == u"." || e.name == u"..") {
      EXPECT_FALSE(e.hidden);
    }
  }

  // a plain name is that exact name; a mask ignores case; nothing matching is false
  ASSERT_TRUE(fs.Enumerate(tmp / "a.txt", found));
  EXPECT_EQ(found.size(), 1u);
  EXPECT_FALSE(fs.Enumerate(tmp / "A.TXT", found));
  ASSERT_TRUE(fs.Enumerate(tmp / "A.TX?", found));
  EXPECT_EQ(found.size(), 1u);
  EXPECT_FALSE(fs.Enumerate(tmp / "*.doc", found));
  EXPECT_TRUE(found.empty());
  // missing folder, pattern ending in "/"
  EXPECT_FALSE(fs.Enumerate(tmp / "nope/*", found));
  EXPECT_FALSE(fs.Enumerate(tmp.text() + u"/", found));
}

TEST(LinuxFilesTest, WholeFileOperationsFailWithClassicNumbers) {
  TempFolder tmp;
  LinuxFileSystem& fs = LinuxFiles();
  EXPECT_RUNTIME_ERROR(fs.ReadAll(tmp / "missing", true), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Length(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Copy(tmp / "missing", tmp / "x"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.WriteAll(tmp / "no/such/folder.txt", "x"), kErrFileNotFound);
  EXPECT_FALSE(PathExists(tmp.path() + "/x"));

  // read-write reading creates the file empty
  EXPECT_EQ(fs.ReadAll(tmp / "new", false), "");
  EXPECT_TRUE(PathExists(tmp.path() + "/new"));

  fs.WriteAll(tmp / "w", "one");
  fs.Append(tmp / "w", "two");
  EXPECT_EQ(ReadBytes(tmp.path() + "/w"), "onetwo");
  fs.WriteAll(tmp / "w", "");
  EXPECT_EQ(ReadBytes(tmp.path() + "/w"), "");
  // no temp file stays behind after a replacement
  int count = 0;
  for (auto& e : std::filesystem::directory_iterator(tmp.path())) count += e.path().filename().string()[0] == '.';
  EXPECT_EQ(count, 0);

  EXPECT_TRUE(fs.CreateDirectory(tmp / "d"));
  EXPECT_FALSE(fs.CreateDirectory(tmp / "d"));  // already there
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp / "d"), kErrPathFileAccess);
}

TEST(LinuxFilesTest, ShellOperations) {
  TempFolder tmp;
  LinuxFileSystem& fs = LinuxFiles();
  WriteBytes(tmp.path() + "/src/a.txt", "A");
  WriteBytes(tmp.path() + "/src/b.txt", "B");
  WriteBytes(tmp.path() + "/src/c.log", "C");
  auto req = [](int32_t fn, int32_t flags, Text from, Text to) {
    ShellFileRequest r;
    r.function = fn;
    r.flags = flags;
    r.from = std::move(from);
    r.to = std::move(to);
    return r;
  };

  // copy by mask into a folder that does not exist yet
  EXPECT_EQ(fs.ShellOperation(req(kShellCopy, kShellNoConfirmation, tmp / "src/*.txt" + Text(1, u'\0'),
                                  tmp / "dst" + Text(1, u'\0'))), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/dst/a.txt"), "A");
  EXPECT_EQ(ReadBytes(tmp.path() + "/dst/b.txt"), "B");
  EXPECT_FALSE(PathExists(tmp.path() + "/dst/c.log"));

  // copy onto an existing name with rename on collision
  EXPECT_EQ(fs.ShellOperation(req(kShellCopy, kShellRenameOnCollision, tmp / "src/a.txt", tmp / "dst")), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/dst/Copy of a.txt"), "A");

  // two sources in one NUL-separated list, moved to parallel targets
  Text from = tmp / "src/a.txt" + Text(1, u'\0') + (tmp / "src/b.txt") + Text(2, u'\0');
  Text to = tmp / "m1" + Text(1, u'\0') + (tmp / "m2") + Text(2, u'\0');
  EXPECT_EQ(fs.ShellOperation(req(kShellMove, kShellMultiDestFiles, from, to)), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/m1"), "A");
  EXPECT_EQ(ReadBytes(tmp.path() + "/m2"), "B");
  EXPECT_FALSE(PathExists(tmp.path() + "/src/a.txt"));

  // rename refuses an existing target, then works
  EXPECT_EQ(fs.ShellOperation(req(kShellRename, 0, tmp / "m1", tmp / "m2")), 0xB7);
  EXPECT_EQ(fs.ShellOperation(req(kShellRename, 0, tmp / "m1", tmp / "r1")), 0);
  EXPECT_EQ(ReadBytes(tmp.path() + "/r1"), "A");

  // delete a folder with its content; a missing source reports not found
  EXPECT_EQ(fs.ShellOperation(req(kShellDelete, kShellAllowUndo, tmp / "dst", u"")), 0);
  EXPECT_FALSE(PathExists(tmp.path() + "/dst"));
  EXPECT_EQ(fs.ShellOperation(req(kShellDelete, 0, tmp / "gone", u"")), 2);
  EXPECT_NE(fs.ShellOperation(req(99, 0, tmp / "r1", u"")), 0);
}

TEST(LinuxFilesTest, VolumeOfAPath) {
  TempFolder tmp;
  Text label;
  uint32_t serial = 0;
  EXPECT_TRUE(LinuxFiles().VolumeInfo(u"/", label, serial));
  std::printf("volume of /: label \"%s\", serial %08X\n", TextToUtf8(label).c_str(), serial);
  EXPECT_TRUE(LinuxFiles().VolumeInfo(tmp.text(), label, serial));
  EXPECT_FALSE(LinuxFiles().VolumeInfo(tmp / "missing", label, serial));
  EXPECT_FALSE(LinuxFiles().VolumeInfo(u"C:/", label, serial));
}

// A child saves two contents of different lengths in turn and is killed at
// some moment of its writing: the file must hold one of them whole.
TEST(LinuxFilesTest, KilledWriterLeavesOldOrNewContent) {
  TempFolder tmp;
  const std::string a(3 << 20, 'A');
  const std::string b((3 << 20) + 12345, 'B');
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
    int status = 0;
    waitpid(child, &status, 0);
    std::string got = ReadBytes(path);
    EXPECT_TRUE(got == a || got == b) << "round " << round << ": " << got.size() << " bytes";
  }
  // Temp files left by a kill show that some kills landed inside a write.
  int interrupted = 0;
  for (auto& e : std::filesystem::directory_iterator(tmp.path()))
    interrupted += e.path().filename().string().rfind(".big.bin.tmp", 0) == 0;
  std::printf("writes interrupted by the kill: %d of 6\n", interrupted);
}

}  // namespace
}  // namespace varnek
