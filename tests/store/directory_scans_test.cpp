// The post-order directory walks and the short-date order probe.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <functional>

#include "platform/date_locale.h"
#include "platform/files.h"
#include "platform/linux/linux_date_locale.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

class RecordingLabel : public CaptionControl {
 public:
  void SetCaption(const Text& caption) override {
    captions.push_back(caption);
    if (on_caption) on_caption(caption);
  }
  std::vector<Text> captions;
  std::function<void(const Text&)> on_caption;
};

class RecordingList : public ListControl {
 public:
  void Clear() override {
    ++clears;
    items.clear();
  }
  void AddItem(const Text& item) override { items.push_back(item); }
  int clears = 0;
  std::vector<Text> items;
};

std::vector<Text> Items(const CollectionPtr& list) {
  std::vector<Text> out;
  for (int32_t i = 1; list && i <= list->Count(); ++i) out.push_back(CStr(list->Item(i)));
  return out;
}

// Sets a path's modification time to a local date and time.
void Touch(const std::string& path, int y, int mo, int d, int h, int mi, int s) {
  struct tm when {};
  when.tm_year = y - 1900;
  when.tm_mon = mo - 1;
  when.tm_mday = d;
  when.tm_hour = h;
  when.tm_min = mi;
  when.tm_sec = s;
  when.tm_isdst = -1;
  struct timespec times[2] = {{mktime(&when), 0}, {mktime(&when), 0}};
  ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
}

class ScanTest : public StoreTest {
 protected:
  // root/r.txt, root/a/a.txt, root/a/b/b.txt, root/a/b/c/c.txt and a log
  void MakeChain() {
    WriteBytes(P("root/r.txt"), "r");
    WriteBytes(P("root/a/a.txt"), "a");
    WriteBytes(P("root/a/b/b.txt"), "b");
    WriteBytes(P("root/a/b/c/c.txt"), "c");
    WriteBytes(P("root/a/b/c/c.log"), "c");
  }
  Text R(const char* rest) const { return T("root") + Utf8ToText(rest); }
};

TEST_F(ScanTest, FilesComeInPostOrder) {
  MakeChain();
  std::vector<Text> expected{R("/a/b/c/c.txt"), R("/a/b/b.txt"), R("/a/a.txt"), R("/r.txt")};
  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("root"), u"*.txt"));
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), expected);
  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("root") + u"/", u"*.txt"));  // same entries
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), expected);

  // with no pattern: every folder once, deepest first, the root last
  store.Disk_ScanRecursiveFiles(T("root"), u"");
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista),
            (std::vector<Text>{R("/a/b/c"), R("/a/b"), R("/a"), R("")}));
}

TEST_F(ScanTest, DatesOfFilesAndOfTheRoot) {
  MakeChain();
  Touch(P("root/a/b/c/c.txt"), 2021, 5, 6, 7, 8, 9);
  Touch(P("root/r.txt"), 1999, 12, 31, 23, 59, 58);
  store.Disk_ScanRecursiveFiles(T("root/a/b/c"), u"c.txt", nullptr, true);
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista),
            (std::vector<Text>{R("/a/b/c/c.txt\t20210506070809")}));
  store.Disk_ScanRecursiveFiles(T("root"), u"r.txt", nullptr, true);
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista),
            (std::vector<Text>{R("/r.txt\t19991231235958")}));

  // the root with no pattern carries its date in the default text form;
  // subfolders carry none
  Touch(P("root"), 2020, 2, 29, 12, 0, 1);
  store.Disk_ScanRecursiveFiles(T("root"), u"", nullptr, true);
  auto items = Items(store.Disk_ScanRecursiveFiles_Lista);
  ASSERT_EQ(items.size(), 4u);
  EXPECT_EQ(items[2], R("/a"));
  EXPECT_EQ(items[3], R("\t") + CStr(Variant(Date{DateFromParts(2020, 2, 29, 12, 0, 1)})));
}

TEST_F(ScanTest, WhatIsSkipped) {
  WriteBytes(P("root/.hidden.txt"), "h");           // hidden file: never listed
  WriteBytes(P("root/.hid/in.txt"), "i");           // hidden folder: walked
  WriteBytes(P("root/PageFile.Sys/inner.txt"), "p");  // a folder of that name: not walked
  WriteBytes(P("root/pagefile.sys"), "p");           // but a file of that name is listed
  store.Disk_ScanRecursiveFiles(T("root"), u"*.*");
  auto items = Items(store.Disk_ScanRecursiveFiles_Lista);
  std::sort(items.begin(), items.end());
  EXPECT_EQ(items, (std::vector<Text>{R("/.hid/in.txt"), R("/pagefile.sys")}));
}

TEST_F(ScanTest, MissingRootAndInternalCalls) {
  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("none"), u"*.txt"));
  EXPECT_TRUE(Items(store.Disk_ScanRecursiveFiles_Lista).empty());
  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("none"), u""));
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), (std::vector<Text>{T("none")}));
  store.Disk_ScanRecursiveFiles(T("none"), u"", nullptr, true);  // no date to read
  EXPECT_TRUE(Items(store.Disk_ScanRecursiveFiles_Lista).empty());

  // a host passing internal_Recursive appends and gets false
  MakeChain();
  store.Disk_ScanRecursiveFiles(T("root/a/b"), u"");
  EXPECT_FALSE(store.Disk_ScanRecursiveFiles(T("root/a/b/c"), u"*.log", nullptr, false, u"x"));
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), (std::vector<Text>{R("/a/b/c"), R("/a/b")}));
  // (an internal call lists no files of its own root: that is the caller's job)
}

TEST_F(ScanTest, StatusLabelShowsTheFirstSubfolder) {
  MakeChain();
  RecordingLabel label;
  store.Disk_ScanRecursiveFiles(T("root"), u"*.txt", &label);
  ASSERT_FALSE(label.captions.empty());
  EXPECT_EQ(label.captions.front(), R(""));
  EXPECT_EQ(label.captions.back(), R("/a"));  // shown for the root's own files

  label.captions.clear();
  store.Disk_ScanRecursiveFiles(T("root/a/b/c"), u"*.txt", &label);  // no subfolder
  EXPECT_EQ(label.captions, (std::vector<Text>{R("/a/b/c")}));
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), (std::vector<Text>{R("/a/b/c/c.txt")}));
}

TEST_F(ScanTest, ReentrantTopLevelCallReplacesTheList) {
  MakeChain();
  WriteBytes(P("other/o.txt"), "o");
  RecordingLabel label;
  int seen = 0;
  label.on_caption = [&](const Text& caption) {
    if (caption == R("/a/b") && ++seen == 2) store.Disk_ScanRecursiveFiles(T("other"), u"*.txt");
  };
  store.Disk_ScanRecursiveFiles(T("root"), u"*.txt", &label);
  // c.txt was listed before the nested scan emptied the list
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista),
            (std::vector<Text>{T("other/o.txt"), R("/a/b/b.txt"), R("/a/a.txt"), R("/r.txt")}));
}

// A file system on which one folder cannot be listed.
class UnreadableFolder : public FileSystem {
 public:
  UnreadableFolder(FileSystem& real, Text folder) : real_(real), folder_(std::move(folder)) {}
  std::string ReadAll(TextView p, bool r) override { return real_.ReadAll(p, r); }
  void WriteAll(TextView p, std::string_view b) override { real_.WriteAll(p, b); }
  void Append(TextView p, std::string_view b) override { real_.Append(p, b); }
  int64_t Length(TextView p) override { return real_.Length(p); }
  void Copy(TextView f, TextView t) override { real_.Copy(f, t); }
  void Delete(TextView p) override { real_.Delete(p); }
  bool CreateDirectory(TextView p) override { return real_.CreateDirectory(p); }
  bool Stat(TextView p, FileEntry& e) override { return real_.Stat(p, e); }
  bool Enumerate(TextView p, std::vector<FileEntry>& o) override {
    if (p.substr(0, folder_.size() + 1) == folder_ + u"/") {
      o.clear();
      return false;
    }
    return real_.Enumerate(p, o);
  }
  bool VolumeInfo(TextView p, Text& l, uint32_t& s) override { return real_.VolumeInfo(p, l, s); }
  int32_t ShellOperation(const ShellFileRequest& r) override { return real_.ShellOperation(r); }

 private:
  FileSystem& real_;
  Text folder_;
};

TEST_F(ScanTest, UnreadableFolderIsPassedOver) {
  MakeChain();
  UnreadableFolder fs(*sim.platform.files, R("/a/b"));
  sim.platform.files = &fs;
  store.Disk_ScanRecursiveFiles(T("root"), u"*.txt");
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), (std::vector<Text>{R("/a/a.txt"), R("/r.txt")}));
  store.Disk_ScanRecursiveFiles(T("root"), u"");
  EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), (std::vector<Text>{R("/a/b"), R("/a"), R("")}));
}

// Root reads folders of mode 000, so as root the scan runs in a child that
// has dropped to the unprivileged user 65534.
TEST_F(ScanTest, UnreadableFolderOnTheRealFileSystem) {
  MakeChain();
  for (const char* p : {"", "/root", "/root/a", "/root/a/b/c"}) chmod((tmp.path() + p).c_str(), 0755);
  ASSERT_EQ(chmod(P("root/a/b").c_str(), 0), 0);
  std::vector<Text> expected{R("/a/a.txt"), R("/r.txt")};
  if (geteuid() != 0) {
    store.Disk_ScanRecursiveFiles(T("root"), u"*.txt");
    EXPECT_EQ(Items(store.Disk_ScanRecursiveFiles_Lista), expected);
  } else {
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      if (setgid(65534) != 0 || setuid(65534) != 0) _exit(2);
      store.Disk_ScanRecursiveFiles(T("root"), u"*.txt");
      _exit(Items(store.Disk_ScanRecursiveFiles_Lista) == expected ? 0 : 1);
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "1: wrong entries, 2: could not drop privileges";
  }
  chmod(P("root/a/b").c_str(), 0755);
}

TEST_F(ScanTest, IntoAListControl) {
  MakeChain();
  RecordingList list;
  list.items.push_back(u"old");
  EXPECT_TRUE(store.Disk_ScanRecursiveDirAndOrFiles(&list, T("root/"), u"*.txt"));
  EXPECT_EQ(list.clears, 1);
  EXPECT_EQ(list.items,
            (std::vector<Text>{R("/a/b/c/c.txt"), R("/a/b/b.txt"), R("/a/a.txt"), R("/r.txt")}));
  store.Disk_ScanRecursiveDirAndOrFiles(&list, T("root"), u"");
  EXPECT_EQ(list.items, (std::vector<Text>{R("/a/b/c"), R("/a/b"), R("/a"), R("")}));
  // no list control: every addition fails quietly and the walk still ends
  EXPECT_TRUE(store.Disk_ScanRecursiveDirAndOrFiles(nullptr, T("root"), u""));
}

class FixedDates : public DateLocale {
 public:
  Text ShortDate(int32_t, int32_t, int32_t) override { return text; }
  Text text;
};

TEST_F(ScanTest, LocaleDateOrder) {
  FixedDates dates;
  sim.platform.dates = &dates;
  struct Row {
    const char16_t* shown;
    const char16_t* order;
    const char16_t* separator;
  };
  const Row rows[] = {
      {u"08/25/58", u"mm/dd/yyyy", u"/"},    {u"25.08.1958", u"dd/mm/yyyy", u"."},
      {u"1958-08-25", u"yyyy/mm/dd", u"-"},  {u"25-Aug-58", u"dd/mm/yyyy", u"-"},
      {u"25 ago 1958", u"dd/mm/yyyy", u" "},
  };
  for (const Row& r : rows) {
    dates.text = r.shown;
    Text separator;
    EXPECT_EQ(store.Win_LocaleDateOrder(separator), r.order) << TextToUtf8(r.shown);
    EXPECT_EQ(separator, r.separator);
  }
  dates.text = u"19580825";  // no separator in the first five units
  Text separator;
  EXPECT_RUNTIME_ERROR(store.Win_LocaleDateOrder(separator), kErrSubscript);

  sim.platform.dates = &LinuxDates();  // the C locale of the test process
  EXPECT_EQ(store.Win_LocaleDateOrder(separator), u"mm/dd/yyyy");
  EXPECT_EQ(separator, u"/");
}

}  // namespace
}  // namespace varnek
