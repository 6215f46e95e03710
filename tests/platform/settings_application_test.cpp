// The per-user settings file and the running program as the application.
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <tuple>

#include "varnek/platform/classic_command_line.h"
#include "varnek/platform/linux/internal/file_settings_store.h"
#include "varnek/platform/linux/internal/linux_application.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "tests/runtime/test_util.h"
#include "tests/support/child_process.h"
#include "tests/support/commands.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

struct TempRoot : TempFolder {
  TempRoot() : TempFolder("settings") {}
};

std::string ReadAll(std::istream&& in) {
  return std::string(std::istreambuf_iterator<char>(in), {});
}

// The behaviour every settings store shares, run over the one in memory and
// the one in files; `fresh` reads what `store` wrote (for the file store a
// second instance, so nothing read comes from a cache).
struct InMemory {
  MemorySettingsStore store;
  SettingsStore& fresh = store;
};
struct InFiles {
  TempRoot root;
  FileSettingsStore store{root.path};
  FileSettingsStore fresh{root.path};
};

template <class Stores>
struct SettingsStoreContract : testing::Test {
  Stores stores;
  SettingsStore& store = stores.store;
  SettingsStore& fresh = stores.fresh;
};
using StoreKinds = testing::Types<InMemory, InFiles>;
TYPED_TEST_SUITE(SettingsStoreContract, StoreKinds);

TYPED_TEST(SettingsStoreContract, AwkwardTextsRoundTripAndMissingOnesGiveTheDefault) {
  const Text rows[] = {u"plain",
                       u"",
                       u"a=b\nline2\r\\[x];#c \u00e9\u20ac ",
                       u"  spaced  ",
                       u"\U0001F600 \\n",
                       u"[Section]",
                       u"; not a comment",
                       u"#"};
  int i = 0;
  for (const Text& text : rows) {
    SCOPED_TRACE(TextToUtf8(text));
    const Text name = Utf8ToText("k" + std::to_string(i++));
    this->store.Set(u"Group", u"Family", name, text);           // as a value
    this->store.Set(u"Group", text + u"=", u"name", u"v");      // as a family
    this->store.Set(u"Group", u"Names", text + u"=[1]", u"w");  // as a name
    EXPECT_EQ(this->fresh.Get(u"Group", u"Family", name, u"dflt"), text);
    EXPECT_EQ(this->fresh.Get(u"Group", text + u"=", u"name", u"dflt"), u"v");
    EXPECT_EQ(this->fresh.Get(u"Group", u"Names", text + u"=[1]", u"dflt"), u"w");
  }
  EXPECT_EQ(this->fresh.Get(u"Group", u"Family", u"missing", u"dflt"), u"dflt");
  EXPECT_EQ(this->fresh.Get(u"Group", u"Missing", u"k0", u"dflt"), u"dflt");
  EXPECT_EQ(this->fresh.Get(u"Missing", u"Family", u"k0", u"dflt"), u"dflt");
}

TYPED_TEST(SettingsStoreContract, NamesMatchWithoutLatinCaseAndKeepTheirPlaces) {
  this->store.Set(u"Grupo", u"Familia", u"Nombre", u"first");
  this->store.Set(u"GRUPO", u"FAMILIA", u"NOMBRE", u"second");  // replaces, any case
  this->store.Set(u"grupo", u"Otra", u"Nombre", u"other family");
  this->store.Set(u"Otro", u"Familia", u"Nombre", u"other group");
  this->store.Set(u"G", u"\u00e9t\u00e9", u"\u03b1", u"small");  // Greek is not folded
  this->store.Set(u"g", u"\u00c9T\u00c9", u"\u0391", u"capital");
  const std::tuple<const char16_t*, const char16_t*, const char16_t*, const char16_t*> rows[] = {
      {u"grupo", u"familia", u"nombre", u"second"},
      {u"Grupo", u"OTRA", u"nombre", u"other family"},
      {u"OTRO", u"familia", u"NOMBRE", u"other group"},
      {u"G", u"\u00c9t\u00e9", u"\u03b1", u"small"},
      {u"g", u"\u00e9T\u00c9", u"\u0391", u"capital"},
      {u"Grupo", u"Familia", u"Otro", u"none"},
  };
  for (auto [group, family, name, value] : rows) {
    SCOPED_TRACE(TextToUtf8(Text(group) + u"/" + family + u"/" + name));
    EXPECT_EQ(this->fresh.Get(group, family, name, u"none"), value);
  }
}

TEST(FileSettingsStore, LaysOutOneEscapedFilePerGroupInsideTheRoot) {
  TempRoot root;
  FileSettingsStore store(root.path);
  const Text awkward = u"a=b\nline2\r\\[x];#c \u00e9\u20ac ";
  store.Set(u"VarnekGlobal", u"App", u"NAME", u"first");
  store.Set(u"VarnekGlobal", u"App", u"k=[1]", u"v");
  store.Set(u"VarnekGlobal", u"Other", u"Name", u"second family");
  store.Set(u"VarnekGlobal", u"app", u"Name", awkward);  // replaces in place, new spelling
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
  struct stat before {
  }, after{};
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
  ScopedEnv config_home("XDG_CONFIG_HOME", root.path);
  FileSettingsStore by_env;
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
        if (slashes % 2)
          arg += '"';
        else
          quoted = !quoted;
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
  const std::vector<std::string> args = {"a b",  "",          "say \"hi\"",  "C:\\dir\\", "end\\\\",
                                         "\\\"", "tab\there", "plain\\path", "/port",     "été"};
  const std::string line = JoinClassicCommandLine(args);
  // The tab and the accents inside the raw text make the formatter flip this line.
  // clang-format off
  EXPECT_EQ(line, R"("a b" "" "say \"hi\"" C:\dir\ end\\ "\\\"" "tab	here" plain\path /port été)");
  // clang-format on
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
  for (const std::string& p : {root.path, root.path + "/G", file})
    (void)!chown(p.c_str(), kNobody, kNobody);
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
  ScopedEnv data_home("XDG_DATA_HOME", root.path + "/data");
  LinuxApplication installed(root.path + "/bin/prog");
  std::string got = AsNobody(
      [&] { return TextToUtf8(installed.Path()) + "|" + TextToUtf8(installed.ProgramFolder()); });
  LinuxApplication writable(root.path + "/data/prog");  // a folder it may write: the program's own
  EXPECT_EQ(AsNobody([&] { return TextToUtf8(writable.Path()); }), root.path + "/data");
  EXPECT_EQ(got, root.path + "/data/prog|" + root.path + "/bin");
  EXPECT_TRUE(fs::is_directory(root.path + "/data/prog"));  // made on first use
  chmod((root.path + "/bin").c_str(), 0755);
}

}  // namespace
}  // namespace varnek
