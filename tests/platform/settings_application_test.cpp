// The per-user settings file and the running program as the application.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "varnek/platform/classic_command_line.h"
#include "varnek/platform/linux/file_settings_store.h"
#include "varnek/platform/linux/linux_application.h"
#include "tests/store/child_process.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

struct TempRoot {
  std::string path;
  TempRoot() : path((fs::temp_directory_path() / "varnek-settings-XXXXXX").string()) { mkdtemp(path.data()); }
  ~TempRoot() { fs::remove_all(path); }
};

std::string ReadAll(std::istream&& in) { return std::string(std::istreambuf_iterator<char>(in), {}); }
std::string ReadFile(const std::string& path) { return ReadAll(std::ifstream(path, std::ios::binary)); }

TEST(FileSettingsStore, RoundTripsAwkwardTextsAndMatchesNamesWithoutCase) {
  TempRoot root;
  FileSettingsStore store(root.path);
  EXPECT_EQ(store.Get(u"VarnekGlobal", u"App", u"Missing", u"dflt"), u"dflt");
  const Text awkward = u"a=b\nline2\r\\[x];#c \u00e9\u20ac ";
  store.Set(u"VarnekGlobal", u"App", u"NAME", u"first");
  store.Set(u"VarnekGlobal", u"App", u"k=[1]", u"v");
  store.Set(u"VarnekGlobal", u"Other", u"Name", u"second family");
  store.Set(u"VarnekGlobal", u"app", u"Name", awkward);  // replaces, any case
  FileSettingsStore fresh(root.path);                    // nothing cached
  EXPECT_EQ(fresh.Get(u"varnekglobal", u"APP", u"name", u""), awkward);
  EXPECT_EQ(fresh.Get(u"VarnekGlobal", u"App", u"K=[1]", u""), u"v");
  EXPECT_EQ(fresh.Get(u"VarnekGlobal", u"Other", u"Name", u""), u"second family");
  const std::string file = store.GroupFile(u"VarnekGlobal");
  EXPECT_EQ(file, root.path + "/VarnekGlobal/settings.ini");
  EXPECT_EQ(ReadFile(file),
            "[App]\nName=a\\=b\\nline2\\r\\\\\\[x\\]\\;\\#c \xC3\xA9\xE2\x82\xAC \n"
            "k\\=\\[1\\]=v\n[Other]\nName=second family\n");
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
  const std::string original = "; kept comment\r\n[F]\r\nA=1\r\nnot an entry\r\n[Z]\r\nB=2\r\n";
  std::ofstream(file) << original;
  std::ifstream old_reader(file, std::ios::binary);  // keeps the old, whole content
  struct stat before{}, after{};
  ASSERT_EQ(stat(file.c_str(), &before), 0);
  store.Set(u"G", u"F", u"C", u"3");
  ASSERT_EQ(stat(file.c_str(), &after), 0);
  EXPECT_NE(before.st_ino, after.st_ino);  // a new file took the name
  EXPECT_EQ(ReadAll(std::move(old_reader)), original);
  EXPECT_EQ(ReadFile(file), "; kept comment\n[F]\nA=1\nC=3\nnot an entry\n[Z]\nB=2\n");
  EXPECT_EQ(std::distance(fs::directory_iterator(root.path + "/G"), {}), 1);  // no temporary left
  // The folder found without regard to case is reused, not doubled.
  store.Set(u"g", u"F", u"A", u"one");
  EXPECT_EQ(store.Get(u"G", u"F", u"A", u""), u"one");
  EXPECT_FALSE(fs::exists(root.path + "/g"));
}

TEST(FileSettingsStore, FailuresOfTheMediumAreClassicFileErrorsAndRootFollowsXdg) {
  TempRoot root;
  std::ofstream(root.path + "/plainfile") << "x";
  FileSettingsStore under_file(root.path + "/plainfile/sub");
  EXPECT_EQ(FailureOf([&] { under_file.Set(u"G", u"F", u"N", u"v"); }), kErrPathNotFound);
  EXPECT_EQ(under_file.Get(u"G", u"F", u"N", u"d"), u"d");  // reads never fail
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
  // the arguments gtest received, after the program name
  std::vector<std::string> argv = testing::internal::GetArgvs();
  argv.erase(argv.begin());
  EXPECT_EQ(app.CommandLine(), Utf8ToText(JoinClassicCommandLine(argv)));
}

// The classic reading of a command line, to read the quoting back.
std::vector<std::string> ClassicSplit(const std::string& line) {
  std::vector<std::string> out;
  size_t i = 0;
  while (i < line.size()) {
    while (i < line.size() && (line[i] == ' ' || line[i] == '\t')) ++i;
    if (i == line.size()) break;
    std::string arg;
    bool quoted = false;
    for (; i < line.size() && (quoted || (line[i] != ' ' && line[i] != '\t')); ++i) {
      size_t slashes = 0;
      while (i < line.size() && line[i] == '\\') ++slashes, ++i;
      if (i < line.size() && line[i] == '"') {
        arg.append(slashes / 2, '\\');
        if (slashes % 2) arg += '"';
        else quoted = !quoted;
      } else {
        arg.append(slashes, '\\');
        if (i == line.size()) break;
        if (!quoted && (line[i] == ' ' || line[i] == '\t')) break;
        arg += line[i];
      }
    }
    out.push_back(arg);
  }
  return out;
}

TEST(LinuxApplication, CommandLineKeepsItsQuotesForTheClassicReading) {
  const std::vector<std::string> args = {"a b", "", "say \"hi\"", "C:\\dir\\", "end\\\\", "\\\"", "tab\there",
                                         "plain\\path", "/port", "été"};
  const std::string line = JoinClassicCommandLine(args);
  EXPECT_EQ(line, R"("a b" "" "say \"hi\"" C:\dir\ end\\ "\\\"" "tab	here" plain\path /port été)");
  EXPECT_EQ(ClassicSplit(line), args);
  // read from the process's argument file, after the program's name
  TempRoot root;
  std::string file = root.path + "/cmdline", bytes = "prog";
  for (const std::string& a : args) bytes += std::string(1, '\0') + a;
  std::ofstream(file, std::ios::binary) << bytes + '\0';
  EXPECT_EQ(LinuxApplication("/bin/prog", file).CommandLine(), Utf8ToText(line));
  std::ofstream(file, std::ios::binary) << std::string("prog\0", 5);
  EXPECT_EQ(LinuxApplication("/bin/prog", file).CommandLine(), u"");
}

TEST(FileSettingsStore, AFileThatCannotBeReadIsNeverWrittenOver) {
  TempRoot root;
  FileSettingsStore store(root.path);
  store.Set(u"G", u"F", u"a", u"1");
  const std::string file = store.GroupFile(u"G");
  for (const std::string& p : {root.path, root.path + "/G", file}) (void)!chown(p.c_str(), kNobody, kNobody);
  chmod(file.c_str(), 0200);  // writable, not readable
  std::string got = AsNobody([&] {
    return std::to_string(FailureOf([&] { store.Set(u"G", u"F", u"b", u"2"); })) + "|" +
           TextToUtf8(store.Get(u"G", u"F", u"a", u"d"));
  });
  EXPECT_EQ(got, "70|d");
  EXPECT_EQ(ReadFile(file), "[F]\na=1\n");
}

TEST(LinuxApplication, FilesGoToTheDataFolderWhenTheProgramFolderIsReadOnly) {
  TempRoot root;
  fs::create_directories(root.path + "/bin");
  fs::create_directories(root.path + "/data");
  (void)!chown(root.path.c_str(), kNobody, kNobody);
  (void)!chown((root.path + "/data").c_str(), kNobody, kNobody);
  chmod((root.path + "/bin").c_str(), 0555);
  const char* saved = getenv("XDG_DATA_HOME");
  std::string saved_value = saved ? saved : "";
  setenv("XDG_DATA_HOME", (root.path + "/data").c_str(), 1);
  LinuxApplication installed(root.path + "/bin/prog");
  std::string got = AsNobody([&] { return TextToUtf8(installed.Path()) + "|" + TextToUtf8(installed.ProgramFolder()); });
  LinuxApplication writable(root.path + "/data/prog");  // a folder it may write: the program's own
  EXPECT_EQ(AsNobody([&] { return TextToUtf8(writable.Path()); }), root.path + "/data");
  if (saved) setenv("XDG_DATA_HOME", saved_value.c_str(), 1); else unsetenv("XDG_DATA_HOME");
  EXPECT_EQ(got, root.path + "/data/prog|" + root.path + "/bin");
  EXPECT_TRUE(fs::is_directory(root.path + "/data/prog"));  // made on first use
  chmod((root.path + "/bin").c_str(), 0755);
}

}  // namespace
}  // namespace varnek
