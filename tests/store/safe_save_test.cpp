// Saves that never lose a file: files and folders the user may not write,
// links, owners and modes, leftovers of killed saves, in-place saves under
// SIGKILL, two processes on one file, long names and paths, special files,
// appends under SIGKILL, wildcard names, and out of memory as failure 7.
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <climits>

#include "varnek/adds/store/variable_store.h"
#include "varnek/platform/linux/internal/file_settings_store.h"
#include "tests/support/child_process.h"
#include "tests/support/loopback.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

const std::string kIni = "[a]\r\nk=1\r\n[b]\r\nk=2\r\n";

struct SafeSaveTest : StoreTest {
  // The folder and the named files belong to the ordinary user (no-ops when
  // the tests do not run as root: the files are the user's already).
  void GiveToNobody(std::initializer_list<const char*> names) {
    (void)!chown(tmp.path().c_str(), kNobody, kNobody);
    for (const char* name : names) (void)!chown(P(name).c_str(), kNobody, kNobody);
  }
  // A file of `size` bytes that takes no room on disk.
  static void MakeSparse(const std::string& path, long long size) {
    fs::create_directories(fs::path(path).parent_path());
    int fd = open(path.c_str(), O_WRONLY | O_CREAT, 0600);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(ftruncate(fd, size), 0);
    close(fd);
  }
  // Six children save a and b in turn to `name` and are killed after their
  // save number 0, 1, ... 5; what each leaves must be a or b whole. Then a
  // save of a. The rounds that read anything else.
  std::string KillRounds(const char* name, const std::string& a, const std::string& b) {
    std::string report;
    for (int round = 0; round < 6; ++round) {
      KillWhenReady([&](int ready) {
        for (int i = 0; i < 2000; ++i) {
          LinuxFiles().WriteAll(T(name), i % 2 ? a : b);
          if (i == round) (void)!write(ready, "r", 1);
        }
      });
      std::string got = LinuxFiles().ReadAll(T(name), true);
      if (got != a && got != b)
        report += "round " + std::to_string(round) + ": " + std::to_string(got.size()) + " bytes; ";
    }
    LinuxFiles().WriteAll(T(name), a);
    return report;
  }
  struct stat Stat(const char* name) const {
    struct stat st {};
    EXPECT_EQ(lstat(P(name).c_str(), &st), 0) << name;
    return st;
  }
};

TEST_F(SafeSaveTest, FilesTheUserMayNotWriteStayAsTheyWere) {
  WriteBytes(P("ro.ini"), kIni);
  WriteBytes(P("none.ini"), kIni);
  WriteBytes(P("rec.db"), "x\xF4y\xF4\xF5");
  chmod(P("ro.ini").c_str(), 0444);
  chmod(P("none.ini").c_str(), 0200);  // may be written, not read
  GiveToNobody({"ro.ini", "none.ini", "rec.db"});
  std::string got = AsNobody([&] {
    std::string r;
    // the save reports true as it always does, but writes nothing
    r += store.File_SaveBinary(T("ro.ini"), u"x") ? "T" : "F";
    store.FileDB_Grabar(T("ro.ini"), store.ARRAY_Load(T("rec.db")));
    store.INI_SetFileName(T("ro.ini"));
    r += std::to_string(store.INI_PutString(u"a", u"k", u"9"));  // the write failed
    r += TextToUtf8(store.INI_GetString(u"b", u"k", u"d"));      // still readable
    store.INI_DeleteAppName(u"a");  // read through the read-only fallback, save refused
    store.INI_SetFileName(T("none.ini"));
    r += TextToUtf8(store.INI_GetString(u"b", u"k", u"d"));  // unreadable: the default
    store.INI_DeleteAppName(u"a");                           // the read failed: nothing is saved
    r += std::to_string(store.INI_PutString(u"a", u"k", u"9"));
    return r;
  });
  EXPECT_EQ(got, "T02d0");
  EXPECT_EQ(ReadBytes(P("ro.ini")), kIni);
  chmod(P("none.ini").c_str(), 0644);
  EXPECT_EQ(ReadBytes(P("none.ini")), kIni);
  EXPECT_EQ(tmp.Names(),
            (std::vector<std::string>{"none.ini", "rec.db", "ro.ini"}));  // no temporary file left
}

TEST_F(SafeSaveTest, AWritableFileInAnUnwritableFolderIsWrittenInPlace) {
  WriteBytes(P("f.txt"), "old content");
  WriteBytes(P("s.ini"), kIni);
  fs::create_directories(P("state"));  // where the old content is kept meanwhile
  ScopedEnv state("XDG_STATE_HOME", P("state"));
  GiveToNobody({"f.txt", "s.ini", "state"});
  chmod(tmp.path().c_str(), 0555);
  std::string got = AsNobody([&] {
    std::string r;
    store.File_SaveBinary(T("f.txt"), u"new");
    store.INI_SetFileName(T("s.ini"));
    r += std::to_string(store.INI_PutString(u"b", u"k", u"3"));
    store.INI_SetFileName(T("new.ini"));  // a new file needs the folder: refused
    r += std::to_string(store.INI_PutString(u"b", u"k", u"3"));
    return r;
  });
  chmod(tmp.path().c_str(), 0700);
  EXPECT_EQ(got, "10");
  EXPECT_EQ(ReadBytes(P("f.txt")), "new");
  EXPECT_EQ(ReadBytes(P("s.ini")), "[a]\r\nk=1\r\n[b]\r\nk=3\r\n");
  EXPECT_EQ(tmp.Names(), (std::vector<std::string>{"f.txt", "s.ini", "state"}));
  EXPECT_TRUE(fs::is_empty(P("state/varnek-keep")));
  EXPECT_EQ(Stat("f.txt").st_uid, geteuid() == 0 ? kNobody : geteuid());
}

TEST_F(SafeSaveTest, LinksModesAndOwnersAreKept) {
  WriteBytes(P("target.txt"), "old");
  ASSERT_EQ(symlink("target.txt", P("link.txt").c_str()), 0);
  ASSERT_EQ(symlink(P("link.txt").c_str(), P("chain.txt").c_str()), 0);
  ASSERT_EQ(symlink("made.txt", P("dangling.txt").c_str()), 0);
  store.File_SaveBinary(T("chain.txt"), u"through two links");
  EXPECT_TRUE(S_ISLNK(Stat("link.txt").st_mode) && S_ISLNK(Stat("chain.txt").st_mode));
  EXPECT_EQ(ReadBytes(P("target.txt")), "through two links");
  store.File_SaveBinary(T("dangling.txt"), u"made");  // the link's target is made
  EXPECT_TRUE(S_ISLNK(Stat("dangling.txt").st_mode));
  EXPECT_EQ(ReadBytes(P("made.txt")), "made");
  store.INI_SetFileName(T("link.txt"));  // the profile writer uses the same rules
  EXPECT_EQ(store.INI_PutString(u"s", u"k", u"v"), 1);
  EXPECT_TRUE(S_ISLNK(Stat("link.txt").st_mode));
  EXPECT_EQ(ReadBytes(P("target.txt")), "through two links\r\n[s]\r\nk=v\r\n");

  // both names of a hard link see the new content, one inode
  WriteBytes(P("h1"), "old");
  ASSERT_EQ(link(P("h1").c_str(), P("h2").c_str()), 0);
  store.File_SaveBinary(T("h2"), u"shared");
  EXPECT_EQ(ReadBytes(P("h1")), "shared");
  EXPECT_EQ(Stat("h1").st_ino, Stat("h2").st_ino);

  // mode (set-group-id bit included) and, when root saves another user's file, owner
  WriteBytes(P("m.txt"), "old");
  chmod(P("m.txt").c_str(), 02640);
  bool root = geteuid() == 0;
  if (root) {
    ASSERT_EQ(chown(P("m.txt").c_str(), kNobody, kNobody), 0);
    chmod(P("m.txt").c_str(), 02640);  // chown cleared the set-group-id bit
  }
  store.File_SaveBinary(T("m.txt"), u"new");
  EXPECT_EQ(ReadBytes(P("m.txt")), "new");
  EXPECT_EQ(Stat("m.txt").st_mode & 07777, 02640u);
  if (root) {
    EXPECT_EQ(std::pair(Stat("m.txt").st_uid, Stat("m.txt").st_gid), std::pair(kNobody, kNobody));
  }

  // the settings store replaces its files the same way
  FileSettingsStore settings(tmp.path() + "/cfg");
  settings.Set(u"G", u"F", u"a", u"1");
  std::string file = settings.GroupFile(u"G");
  fs::rename(file, P("real.ini"));
  ASSERT_EQ(symlink(P("real.ini").c_str(), file.c_str()), 0);
  chmod(P("real.ini").c_str(), 0640);
  settings.Set(u"G", u"F", u"b", u"2");
  EXPECT_TRUE(fs::is_symlink(file));
  EXPECT_EQ(ReadBytes(P("real.ini")), "[F]\na=1\nb=2\n");
  EXPECT_EQ(Stat("real.ini").st_mode & 0777, 0640u);
}

TEST_F(SafeSaveTest, LeftoversOfKilledSavesGoWithTheNextSave) {
  const pid_t gone = EndedProcessId();
  ASSERT_GT(gone, 0);
  const std::string dead = std::to_string(gone);
  for (const std::string& name : std::vector<std::string>{
           ".f.txt.varnek-save-" + dead + "-abcDEF", ".f.txt.varnek-save-1-abcDEF",
           ".g.txt.varnek-save-" + dead + "-abcDEF", ".f.txt.varnek-keep-" + dead + "-abcDEF"})
    WriteBytes(P(name.c_str()), "partial");
  store.File_SaveBinary(T("f.txt"), u"x");
  // the dead process's temporary file of f.txt goes; a live process's, another
  // file's and a kept old content stay
  EXPECT_EQ(tmp.Names(),
            (std::vector<std::string>{".f.txt.varnek-keep-" + dead + "-abcDEF",
                                      ".f.txt.varnek-save-1-abcDEF",
                                      ".g.txt.varnek-save-" + dead + "-abcDEF", "f.txt"}));
}

// Saves killed at random points, by rename (a plain file, and one of
// several MB) and in place (a second hard link; a folder the user may not
// write): the next open reads old or new, whole, and once saved again no
// temporary file or keep copy is left anywhere.
TEST_F(SafeSaveTest, KilledSavesLeaveOldOrNewAndNothingBehind) {
  for (const char* folder : {"ro", "state", "tmpdir"}) fs::create_directories(P(folder));
  ScopedEnv state("XDG_STATE_HOME", P("state")), tmpdir("TMPDIR", P("tmpdir"));
  const std::string a(1 << 18, 'A'), b((1 << 18) + 777, 'B');
  for (const char* name : {"plain", "linked", "ro/f"}) WriteBytes(P(name), a);
  ASSERT_EQ(link(P("linked").c_str(), P("second-name").c_str()), 0);
  GiveToNobody({"ro", "ro/f", "state", "tmpdir"});
  chmod(P("ro").c_str(), 0555);
  EXPECT_EQ(KillRounds("plain", a, b), "");
  EXPECT_EQ(KillRounds("big", std::string(3 << 20, 'A'), std::string((3 << 20) + 12345, 'B')), "");
  EXPECT_EQ(KillRounds("linked", a, b), "");
  EXPECT_EQ(AsNobody([&] { return KillRounds("ro/f", a, b); }), "");
  chmod(P("ro").c_str(), 0755);
  for (const auto& entry : fs::recursive_directory_iterator(tmp.path()))
    EXPECT_FALSE(entry.is_regular_file() &&
                 entry.path().filename().string().find("varnek-") != std::string::npos)
        << entry.path();
  EXPECT_EQ(ReadBytes(P("second-name")), a);
}

// Two processes writing different keys, families or sections of one file at
// once: every write of both is in the file at the end.
TEST_F(SafeSaveTest, TwoProcessesNeverUndoEachOthersWrites) {
  constexpr int kWrites = 20;
  FileSettingsStore settings(P("cfg"));
  const std::string settings_file = settings.GroupFile(u"VarnekGlobal");
  auto key = [](int i) { return Utf8ToText("k" + std::to_string(i)); };
  auto family = [](int c) { return Utf8ToText("Family" + std::to_string(c)); };
  auto ini_write = [&](int c, int i) {
    store.INI_PutString(family(c), key(i), Utf8ToText(std::to_string(i)));
  };
  auto ini_read = [&](int c, int i) {
    store.INI_PurgeBuffer();
    return store.INI_GetString(family(c), key(i), u"lost");
  };
  struct Case {
    const char* name;
    std::string file;
    enum { kMissing, kThere, kLinked } start;
    std::function<void(int c, int i)> write;
    std::function<Text(int c, int i)> read;
  };
  const std::vector<Case> cases = {
      {"settings families", settings_file, Case::kThere,
       [&](int c, int i) {
         settings.Set(u"VarnekGlobal", family(c), key(i), Utf8ToText(std::to_string(i)));
       },
       [&](int c, int i) { return settings.Get(u"VarnekGlobal", family(c), key(i), u"lost"); }},
      {"INI sections", P("two.ini"), Case::kThere, ini_write, ini_read},
      {"INI sections of a file made by both", P("new.ini"), Case::kMissing, ini_write, ini_read},
      {"INI sections written in place", P("linked.ini"), Case::kLinked, ini_write, ini_read},
      {"INI keys beside section deletions", P("del.ini"), Case::kThere,
       [&](int c, int i) {
         if (c == 0) return ini_write(0, i);
         store.INI_PutString(u"scratch", key(i), u"x");
         store.INI_DeleteAppName(u"scratch");
       },
       [&](int c, int i) { return c == 0 ? ini_read(0, i) : Utf8ToText(std::to_string(i)); }},
  };
  for (const Case& test : cases) {
    if (test.start != Case::kMissing) WriteBytes(test.file, "[start]\r\nk=v\r\n");
    if (test.start == Case::kLinked) {
      ASSERT_EQ(link(test.file.c_str(), (test.file + "-2").c_str()), 0);
    }
    store.INI_SetFileName(Utf8ToText(test.file));
    RunSideBySide(2, [&](int c) {
      for (int i = 0; i < kWrites; ++i) test.write(c, i);
    });
    int lost = 0;
    for (int c = 0; c < 2; ++c)
      for (int i = 0; i < kWrites; ++i) lost += test.read(c, i) != Utf8ToText(std::to_string(i));
    EXPECT_EQ(lost, 0) << test.name;
    if (test.start != Case::kMissing) {
      EXPECT_EQ(ReadBytes(test.file).rfind("[start]", 0), 0u) << test.name;
    }
  }
}

// A process reading a record file while another saves it in place (a second
// hard link) reads one table or the other whole, never a part of one.
TEST_F(SafeSaveTest, ReadersNeverSeeHalfASave) {
  std::string a, b;
  for (int i = 0; i < 600; ++i)
    a += std::string(80, 'a') +
         "\xF4"
         "x\xF4\xF5";
  for (int i = 0; i < 900; ++i)
    b += std::string(60, 'b') +
         "\xF4"
         "y\xF4\xF5";
  WriteBytes(P("h.db"), b);
  const Variant table_b = store.FileDB_Leer(T("h.db"));
  WriteBytes(P("h.db"), a);
  const Variant table_a = store.FileDB_Leer(T("h.db"));
  ASSERT_EQ(link(P("h.db").c_str(), P("h2.db").c_str()), 0);
  RunSideBySide(2, [&](int c) {
    int bad = 0;
    for (int i = 0; i < (c == 0 ? 40 : 300); ++i) {
      if (c == 0) {
        store.FileDB_Grabar(T("h.db"), i % 2 ? table_a : table_b);
      } else {
        const std::string got = TextToBytes(store.File_ReadBinary(T("h.db"), true));
        bad += got != a && got != b;
      }
    }
    if (c == 1) WriteBytes(P("bad-reads"), std::to_string(bad));
  });
  EXPECT_EQ(ReadBytes(P("bad-reads")), "0");
}

// A full disk (here a file size limit, which gives short writes and EFBIG):
// a save that cannot be written whole leaves the old content, by rename, in
// place and for a new file, and leaves nothing behind.
TEST_F(SafeSaveTest, AFullDiskKeepsTheOldContent) {
  const std::string old_content(50000, 'o');
  WriteBytes(P("plain"), old_content);
  WriteBytes(P("linked"), old_content);
  ASSERT_EQ(link(P("linked").c_str(), P("linked-2").c_str()), 0);
  GiveToNobody({"plain", "linked"});
  std::string got = AsNobody([&] {
    LimitFileSize(80000, true);
    std::string r;
    for (const char* name : {"plain", "linked", "new"})
      r += std::to_string(
               FailureOf([&] { LinuxFiles().WriteAll(T(name), std::string(100000, 'n')); })) +
           " ";
    return r;
  });
  EXPECT_EQ(got, "61 61 61 ");  // 61: disk full
  EXPECT_EQ(ReadBytes(P("plain")), old_content);
  EXPECT_EQ(ReadBytes(P("linked-2")), old_content);
  EXPECT_EQ(tmp.Names(), (std::vector<std::string>{"linked", "linked-2", "plain"}));
}

// Names of 255 bytes, in a folder and at the end of a path of PATH_MAX - 1
// bytes, save wherever the truncating write would: new, replaced by rename,
// and in place with a keep copy.
TEST_F(SafeSaveTest, LongNamesAndDeepPathsSave) {
  const std::string name(NAME_MAX, 'n');
  std::string deep = tmp.path();
  // folders of 200 bytes, then one that brings the path to PATH_MAX - 1
  auto last_folder = [&] {
    return static_cast<long>(PATH_MAX - 3 - NAME_MAX) - static_cast<long>(deep.size());
  };
  while (last_folder() > 200) deep += "/" + std::string(200, 'd');
  deep += "/" + std::string(static_cast<size_t>(last_folder()), 'e');
  fs::create_directories(deep);
  for (const std::string& path : {P(name.c_str()), deep + "/" + name}) {
    SCOPED_TRACE(path.size());
    const Text file = Utf8ToText(path);
    store.File_SaveBinary(file, u"new");
    EXPECT_EQ(ReadBytes(path), "new");
    store.File_SaveBinary(file, u"replaced");
    EXPECT_EQ(ReadBytes(path), "replaced");
    store.INI_SetFileName(file);
    EXPECT_EQ(store.INI_PutString(u"s", u"k", u"v"), 1);
    ASSERT_EQ(link(path.c_str(), P("other-name").c_str()), 0);
    store.File_SaveBinary(file, u"in place");
    EXPECT_EQ(ReadBytes(P("other-name")), "in place");
    fs::remove(P("other-name"));
  }
  EXPECT_EQ(deep.size() + 1 + NAME_MAX, size_t{PATH_MAX - 1});
}

TEST_F(SafeSaveTest, PipesSocketsAndDevicesFailAtOnce) {
  alarm(60);  // a read that waits would otherwise hang the whole suite
  ASSERT_EQ(mkfifo(P("fifo").c_str(), 0600), 0);
  const int sock = BoundToPath(P("sock"));
  ASSERT_GE(sock, 0);
  for (const char* name : {"fifo", "sock"}) {
    EXPECT_EQ(store.File_ReadBinary(T(name)), u"") << name;
    EXPECT_EQ(store.File_ReadBinary(T(name), true), u"") << name;
    EXPECT_RUNTIME_ERROR(LinuxFiles().ReadAll(T(name), false), kErrPathFileAccess);
    EXPECT_RUNTIME_ERROR(LinuxFiles().Append(T(name), "x"), kErrPathFileAccess);
    EXPECT_RUNTIME_ERROR(LinuxFiles().WriteAll(T(name), "x"), kErrPathFileAccess);
  }
  EXPECT_RUNTIME_ERROR(LinuxFiles().ReadAll(u"/dev/zero", true), kErrPathFileAccess);
  EXPECT_TRUE(store.FileDB_Leer(u"/dev/zero").IsEmpty());
  store.INI_SetFileName(T("fifo"));
  EXPECT_EQ(store.INI_GetString(u"a", u"k", u"d"), u"d");
  EXPECT_EQ(store.INI_PutString(u"a", u"k", u"v"), 0);
  EXPECT_TRUE(S_ISFIFO(Stat("fifo").st_mode));  // never replaced by a regular file
  close(sock);
  alarm(0);
}

TEST_F(SafeSaveTest, AWildcardNameIsNeverCreated) {
  WriteBytes(P("d/a.txt"), "a");
  EXPECT_EQ(store.File_ReadBinary(T("d/*.txt")) + store.File_ReadBinary(T("d/a?txt")), u"");
  EXPECT_EQ(tmp.Names("d"), std::vector<std::string>{"a.txt"});
  WriteBytes(P("d/*.log"), "literal");  // a file that has such a name is read
  EXPECT_EQ(store.File_ReadBinary(T("d/*.log")), u"literal");
}

bool UnderAddressSanitizer() {
#if defined(__SANITIZE_ADDRESS__)
  return true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
  return true;
#endif
#endif
  return false;
}

TEST_F(SafeSaveTest, OutOfMemoryIsFailureSeven) {
  // sparse files of 100 GB, more than the machine holds: the readers fail
  // with 7 (or their failure result) before reading, and nothing is written
  const long long huge = 100LL << 30;
  FileSettingsStore settings(P("cfg"));
  sim.platform.settings = settings;
  VariableStore variables(sim.platform);
  for (const std::string& path : {P("huge.ini"), settings.GroupFile(u"VarnekGlobal")})
    MakeSparse(path, huge);
  store.INI_SetFileName(T("huge.ini"));
  EXPECT_RUNTIME_ERROR(store.INI_GetString(u"a", u"k", u"d"), kErrOutOfMemory);
  EXPECT_EQ(store.INI_PutString(u"a", u"k", u"v"), 0);
  EXPECT_RUNTIME_ERROR(variables.Var_VariableGet(u"k", u"F"), kErrOutOfMemory);
  EXPECT_RUNTIME_ERROR(variables.Var_VariableSet(u"k", u"v", u"F"), kErrOutOfMemory);
  EXPECT_RUNTIME_ERROR(LinuxFiles().ReadAll(T("huge.ini"), true), kErrOutOfMemory);
  EXPECT_TRUE(store.File_ReadBinary(T("huge.ini"), true).empty());
  EXPECT_EQ(fs::file_size(P("huge.ini")), static_cast<uintmax_t>(huge));
  EXPECT_EQ(fs::file_size(settings.GroupFile(u"VarnekGlobal")), static_cast<uintmax_t>(huge));
  fs::remove(P("huge.ini"));

  if (UnderAddressSanitizer())
    GTEST_SKIP() << "the sanitizer reserves more address space than the limit";
  // a sparse file of 4 GB: reading it needs more memory than the child may have
  MakeSparse(P("huge.bin"), 4LL << 30);
  WriteBytes(P("ok.txt"), "fine");
  GiveToNobody({"huge.bin", "ok.txt"});
  std::string got = AsNobody([&] {
    rlimit limit{1LL << 30, 1LL << 30};
    if (setrlimit(RLIMIT_AS, &limit) != 0) return std::string("no limit");
    std::string r;
    r += Resume([] { std::string big(3LL << 30, 'x'); }) ? "swallowed? no|" : "resume|";
    int number = 0;
    Guarded([] { std::vector<char> big(3LL << 30); },
            [&](const RuntimeError& e) { number = e.number(); });
    r += std::to_string(number) + "|";
    r += TextToUtf8(FailureText(RuntimeError(number))) + "|";
    r += std::to_string(FailureOf([&] { LinuxFiles().ReadAll(T("huge.bin"), true); })) + "|";
    r += store.File_ReadBinary(T("huge.bin"), true).empty() ? "empty|" : "read|";
    r += TextToUtf8(store.File_ReadBinary(T("ok.txt"), true));  // the process goes on
    return r;
  });
  EXPECT_EQ(got, "resume|7|Error: (7) Out of memory|7|empty|fine");
}

}  // namespace
}  // namespace varnek
