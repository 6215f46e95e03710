// The post-order directory walks and the short-date order probe.
#include <algorithm>
#include <array>

#include "varnek/platform/date_locale.h"
#include "varnek/platform/linux/internal/linux_date_locale.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

struct RecordingLabel : CaptionControl {
  void SetCaption(const Text& caption) override {
    captions.push_back(caption);
    if (on_caption) on_caption(caption);
  }
  std::vector<Text> captions;
  std::function<void(const Text&)> on_caption;
};

struct RecordingList : ListControl {
  void Clear() override { items.clear(); }
  void AddItem(const Text& item) override { items.push_back(item); }
  std::vector<Text> items{u"old"};
};

struct ScanTest : StoreTest {
  void SetUp() override {
    for (const char* f :
         {"root/r.txt", "root/a/a.txt", "root/a/b/b.txt", "root/a/b/c/c.txt", "root/a/b/c/c.log"})
      WriteBytes(P(f), "x");
  }
  Text R(const char* rest) const { return T("root") + Utf8ToText(rest); }
  std::vector<Text> Scan(const char* root, const char16_t* mask, CaptionControl* label = nullptr,
                         bool dates = false) {
    store.Disk_ScanRecursiveFiles(T(root), mask, label, dates);
    return Listed();
  }
  static std::vector<Text> Sorted(std::vector<Text> items) {
    std::sort(items.begin(), items.end());
    return items;
  }
  std::vector<Text> Listed() {
    const CollectionPtr& list = store.Disk_ScanRecursiveFiles_Lista;
    return list ? ItemTexts(*list) : std::vector<Text>{};
  }
  const std::vector<Text> all_txt{R("/a/b/c/c.txt"), R("/a/b/b.txt"), R("/a/a.txt"), R("/r.txt")};
  const std::vector<Text> all_folders{R("/a/b/c"), R("/a/b"), R("/a"), R("")};
};

TEST_F(ScanTest, PostOrderWalksWithDates) {
  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("root/"), u"*.txt"));
  EXPECT_EQ(Listed(), all_txt);
  EXPECT_EQ(Scan("root", u""), all_folders);  // no mask: every folder, the root last
  RecordingList list;
  EXPECT_TRUE(store.Disk_ScanRecursiveDirAndOrFiles(&list, T("root/"), u"*.txt"));
  EXPECT_EQ(list.items, all_txt);
  store.Disk_ScanRecursiveDirAndOrFiles(&list, T("root"), u"");
  EXPECT_EQ(list.items, all_folders);
  EXPECT_TRUE(store.Disk_ScanRecursiveDirAndOrFiles(nullptr, T("root"), u""));  // fails quietly

  // local
  ASSERT_EQ(std::system(("touch -d '2021-05-06 07:08:09' " + P("root/a/b/c/c.txt")).c_str()), 0);
  EXPECT_EQ(Scan("root/a/b/c", u"c.txt", nullptr, true),
            std::vector<Text>{R("/a/b/c/c.txt\t20210506070809")});
  // the root with no mask carries its date in the default text form, subfolders none
  ASSERT_EQ(std::system(("touch -d '2020-02-29 12:00:01' " + P("root")).c_str()), 0);
  auto items = Scan("root", u"", nullptr, true);
  EXPECT_EQ(items, (std::vector<Text>{
                       R("/a/b/c"), R("/a/b"), R("/a"),
                       R("\t") + CStr(Variant(Date{DateFromParts(2020, 2, 29, 12, 0, 1)}))}));
}

TEST_F(ScanTest, WhatIsSkippedAndMissing) {
  // a hidden file is never listed, a hidden folder is walked, a folder named
  // PageFile.Sys is not walked but a file of that name is listed
  for (const char* f :
       {"skip/.hidden.txt", "skip/.hid/in.txt", "skip/PageFile.Sys/in.txt", "skip/pagefile.sys"})
    WriteBytes(P(f), "x");
  EXPECT_EQ(Sorted(Scan("skip", u"*.*")),
            (std::vector<Text>{T("skip/.hid/in.txt"), T("skip/pagefile.sys")}));

  EXPECT_TRUE(store.Disk_ScanRecursiveFiles(T("none"), u"*.txt") && Listed().empty());
  EXPECT_EQ(Scan("none", u""), std::vector<Text>{T("none")});
  EXPECT_TRUE(Scan("none", u"", nullptr, true).empty());  // no date to read
  // a host passing internal_Recursive appends and gets false; an internal call
  // lists no files of its own root
  Scan("root/a/b", u"");
  EXPECT_FALSE(store.Disk_ScanRecursiveFiles(T("root/a/b/c"), u"*.log", nullptr, false, u"x"));
  EXPECT_EQ(Listed(), (std::vector<Text>{R("/a/b/c"), R("/a/b")}));

  FaultyFiles fs;  // a folder that cannot be listed is passed over
  fs.unreadable = R("/a/b"), sim.platform.files = fs;
  EXPECT_EQ(Scan("root", u"*.txt"), (std::vector<Text>{R("/a/a.txt"), R("/r.txt")}));
  EXPECT_EQ(Scan("root", u""), (std::vector<Text>{R("/a/b"), R("/a"), R("")}));
}

TEST_F(ScanTest, LinksToFoldersAreListedButNeverWalked) {
  // links back to the root and to its parent would nest for ever; a link to a
  // folder elsewhere would list that folder's files under a second name
  WriteBytes(P("elsewhere/e.txt"), "x");
  ASSERT_EQ(symlink(".", P("root/a/self").c_str()), 0);
  ASSERT_EQ(symlink("..", P("root/a/up").c_str()), 0);
  ASSERT_EQ(symlink(P("elsewhere").c_str(), P("root/far").c_str()), 0);
  ASSERT_EQ(symlink("r.txt", P("root/r-link.txt").c_str()), 0);  // a link to a file is a file
  auto expected = all_txt;
  expected.push_back(R("/r-link.txt"));
  EXPECT_EQ(Sorted(Scan("root", u"*.txt")), Sorted(expected));
  auto folders = Scan("root", u"");  // each link once, as the folder the enumeration shows
  EXPECT_EQ(folders.size(), all_folders.size() + 3);
  EXPECT_EQ(std::count(folders.begin(), folders.end(), R("/a/up")), 1);
  EXPECT_EQ(folders.back(), R(""));

  // a folder reached a second way (as through a bind mount: here the links
  // pass for folders) is walked once, by device and inode
  struct LinksAsFolders : LinuxFileSystem {
    bool Enumerate(TextView p, std::vector<FileEntry>& o) override {
      bool found = LinuxFileSystem::Enumerate(p, o);
      for (FileEntry& e : o) e.link = false;
      return found;
    }
  } mounts;
  sim.platform.files = mounts;
  expected.push_back(R("/far/e.txt"));  // not seen before: walked
  EXPECT_EQ(Sorted(Scan("root", u"*.txt")), Sorted(expected));
  EXPECT_EQ(Scan("root", u"").size(), all_folders.size() + 3);
}

TEST_F(ScanTest, StatusLabelAndReentrantScan) {
  RecordingLabel label;
  Scan("root", u"*.txt", &label);
  // the root first, its first subfolder for the root's own files
  ASSERT_FALSE(label.captions.empty());
  EXPECT_EQ(label.captions.front() + u"|" + label.captions.back(), R("") + u"|" + R("/a"));
  label.captions.clear();
  EXPECT_EQ(Scan("root/a/b/c", u"*.txt", &label), std::vector<Text>{R("/a/b/c/c.txt")});
  EXPECT_EQ(label.captions, std::vector<Text>{R("/a/b/c")});  // no subfolder
  // a nested top-level scan replaces the list; c.txt was listed before it
  WriteBytes(P("other/o.txt"), "o");
  int seen = 0;
  label.on_caption = [&](const Text& caption) {
    if (caption == R("/a/b") && ++seen == 2) store.Disk_ScanRecursiveFiles(T("other"), u"*.txt");
  };
  EXPECT_EQ(Scan("root", u"*.txt", &label),
            (std::vector<Text>{T("other/o.txt"), R("/a/b/b.txt"), R("/a/a.txt"), R("/r.txt")}));
}

struct FixedDates : DateLocale {
  Text ShortDate(int32_t, int32_t, int32_t) override { return text; }
  Text text;
};

TEST_F(ScanTest, LocaleDateOrder) {
  FixedDates dates;
  sim.platform.dates = dates;
  const std::array<const char16_t*, 3> rows[] = {{u"08/25/58", u"mm/dd/yyyy", u"/"},
                                                 {u"25.08.1958", u"dd/mm/yyyy", u"."},
                                                 {u"25 ago 1958", u"dd/mm/yyyy", u" "},
                                                 {u"1958-08-25", u"yyyy/mm/dd", u"-"},
                                                 {u"25-Aug-58", u"dd/mm/yyyy", u"-"}};
  Text separator;
  for (auto [shown, order, sep] : rows) {
    dates.text = shown;
    EXPECT_EQ(store.Win_LocaleDateOrder(separator), order) << TextToUtf8(shown);
    EXPECT_EQ(separator, sep);
  }
  dates.text = u"19580825";  // no separator in the first five units
  EXPECT_RUNTIME_ERROR(store.Win_LocaleDateOrder(separator), kErrSubscript);
  sim.platform.dates = LinuxDates();  // the C locale of the test process
  EXPECT_EQ(store.Win_LocaleDateOrder(separator), u"mm/dd/yyyy");
  EXPECT_EQ(separator, u"/");
}

}  // namespace
}  // namespace varnek
