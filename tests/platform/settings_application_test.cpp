// The per-user settings file and the running program as the application.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "platform/linux/file_settings_store.h"
#include "platform/linux/linux_application.h"
#include "runtime/failure.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

struct TempRoot {
  std::string path;
  TempRoot() {
    std::string pattern = (fs::temp_directory_path() / "varnek-settings-XXXXXX").string();
    path = mkdtemp(pattern.data());
  }
  ~TempRoot() { fs::remove_all(path); }
};

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

TEST(FileSettingsStore, RoundTripsAwkwardTextsAndMatchesNamesWithoutCase) {
  TempRoot root;
  FileSettingsStore store(root.path);
  EXPECT_EQ(store.Get(u"VarnekGlobal", u"App", u"Missing", u"dflt"), u"dflt");

  const Text awkward = u"a=b\nline2\r\\[x];#c \u00e9\u20ac ";
  store.Set(u"VarnekGlobal", u"App", u"Name", awkward);
  store.Set(u"VarnekGlobal", u"App", u"k=[1]", u"v");
  store.Set(u"VarnekGlobal", u"Other", u"Name", u"second family");
  store.Set(u"VarnekGlobal", u"app", u"NAME", u"");  // replaces, any case
  store.Set(u"VarnekGlobal", u"App", u"Name", awkward);

  FileSettingsStore fresh(root.path);  // nothing cached: read from the file
  EXPECT_EQ(fresh.Get(u"varnekglobal", u"APP", u"name", u""), awkward);
  EXPECT_EQ(fresh.Get(u"VarnekGlobal", u"App", u"K=[1]", u""), u"v");
  EXPECT_EQ(fresh.Get(u"VarnekGlobal", u"Other", u"Name", u""), u"second family");

  // One section per family, one line per name, everything on its own line.
  const std::string file = store.GroupFile(u"VarnekGlobal");
  EXPECT_EQ(file, root.path + "/VarnekGlobal/settings.ini");
  EXPECT_EQ(ReadFile(file),
            "[App]\n"
            "Name=a\\=b\\nline2\\r\\\\\\[x\\]\\;\\#c \xC3\xA9\xE2\x82\xAC \n"
            "k\\=\\[1\\]=v\n"
            "[Other]\n"
            "Name=second family\n");

  // A group never leaves the root.
  store.Set(u"../evil", u"F", u"N", u"x");
  EXPECT_EQ(store.GroupFile(u"../evil"), root.path + "/..%2Fevil/settings.ini");
  EXPECT_EQ(store.Get(u"../evil", u"F", u"N", u""), u"x");
}

TEST(FileSettingsStore, WritesReplaceTheFileAtomicallyAndKeepForeignLines) {
  TempRoot root;
  FileSettingsStore store(root.path);
  fs::create_directories(root.path + "/G");
  const std::string file = root.path + "/G/settings.ini";
  std::ofstream(file) << "; kept comment\r\n[F]\r\nA=1\r\nnot an entry\r\n[Z]\r\nB=2\r\n";

  // A reader that opened the old file keeps reading the old, whole content.
  std::ifstream old_reader(file, std::ios::binary);
  struct stat before{};
  ASSERT_EQ(stat(file.c_str(), &before), 0);

  store.Set(u"G", u"F", u"C", u"3");
  struct stat after{};
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);  // a new file took the name
  std::stringstream old_content;
  old_content << old_reader.rdbuf();
  EXPECT_EQ(old_content.str(), "; kept comment\r\n[F]\r\nA=1\r\nnot an entry\r\n[Z]\r\nB=2\r\n");

  EXPECT_EQ(ReadFile(file), "; kept comment\n[F]\nA=1\nC=3\nnot an entry\n[Z]\nB=2\n");
  EXPECT_EQ(store.Get(u"G", u"Z", u"B", u""), u"2");

  // No temporary file is left beside it.
  int files = 0;
  for (auto& entry : fs::directory_iterator(root.path + "/G")) files += entry.is_regular_file();
  EXPECT_EQ(files, 1);

  // The folder found without regard to case is reused, not doubled.
  store.Set(u"g", u"F", u"A", u"one");
  EXPECT_EQ(store.Get(u"G", u"F", u"A", u""), u"one");
  EXPECT_FALSE(fs::exists(root.path + "/g"));
}

TEST(FileSettingsStore, FailuresOfTheMediumAreClassicFileErrors) {
  TempRoot root;
  std::ofstream(root.path + "/plainfile") << "x";
  FileSettingsStore under_file(root.path + "/plainfile/sub");
  try {
    under_file.Set(u"G", u"F", u"N", u"v");
    FAIL() << "expected a failure";
  } catch (const RuntimeError& e) {
    EXPECT_EQ(e.number(), kErrPathNotFound);
  }
  EXPECT_EQ(under_file.Get(u"G", u"F", u"N", u"d"), u"d");  // reads never fail

  // The default root follows XDG_CONFIG_HOME.
  const char* saved = getenv("XDG_CONFIG_HOME");
  std::string saved_value = saved ? saved : "";
  setenv("XDG_CONFIG_HOME", root.path.c_str(), 1);
  FileSettingsStore by_env;
  if (saved) setenv("XDG_CONFIG_HOME", saved_value.c_str(), 1); else unsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(by_env.GroupFile(u"VarnekGlobal"), root.path + "/VarnekGlobal/settings.ini");
}

TEST(LinuxApplication, DescribesTheRunningProgram) {
  LinuxApplication app;
  const fs::path exe = fs::read_symlink("/proc/self/exe");
  EXPECT_EQ(app.Title(), Utf8ToText(exe.filename().string()));
  EXPECT_EQ(app.Path(), Utf8ToText(exe.parent_path().string()));
  EXPECT_NE(app.Path().back(), u'/');

  // The arguments as gtest itself received them, after the program name.
  std::string joined;
  const std::vector<std::string> argv = testing::internal::GetArgvs();
  for (size_t i = 1; i < argv.size(); ++i) joined += (i > 1 ? " " : "") + argv[i];
  EXPECT_EQ(app.CommandLine(), Utf8ToText(joined));
}

}  // namespace
}  // namespace varnek
