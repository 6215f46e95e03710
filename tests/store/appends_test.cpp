// Appends of logs, binary files and record files leave whole records or
// none: under SIGKILL, past RLIMIT_FSIZE and on a full tmpfs.
#include <sched.h>
#include <sys/mount.h>
#include <sys/xattr.h>

#include <cstdio>
#include <random>

#include "tests/store/append_kills.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

struct AppendsTest : StoreTest {
  static std::string Record(const std::string& a, const std::string& b) {
    return a + "\xF4" + b + "\xF4\xF5";
  }
  const std::string before = Record("a", "b");
  const long long torn = static_cast<long long>(before.size()) + 1000;

  // h.db holds `before` and the first 1,000 bytes of a 5,004-byte record:
  // SIGXFSZ killed the child that appended it. False if it did not tear.
  bool TearRecord() {
    WriteBytes(P("h.db"), before);
    std::string child = InChild([&] {
      LimitFileSize(static_cast<size_t>(torn));
      store.FileDB_Agregar(T("h.db"), Text(5000, u'x'), u"y");
      return "not killed";
    });
    return child == "child failed" && static_cast<long long>(ReadBytes(P("h.db")).size()) == torn;
  }
  // The marker of h.db: its extended attribute, or the file beside it where
  // the file system keeps no attributes ("" when there is none).
  std::string MarkerFile() const {
    for (const auto& entry : std::filesystem::directory_iterator(tmp.path()))
      if (entry.path().filename().string().rfind(".varnek-append-", 0) == 0) return entry.path();
    return {};
  }
  std::string Marker() const {
    char text[128];
    ssize_t n = getxattr(P("h.db").c_str(), kAttribute, text, sizeof text);
    if (n >= 0) return std::string(text, static_cast<size_t>(n));
    return MarkerFile().empty() ? "" : ReadBytes(MarkerFile());
  }
  static constexpr const char* kAttribute = "user.varnek.append";
};

// Mounts a file system of the type over `folder` in a mount namespace of the
// calling child's own; false where that is not allowed.
bool MountPrivately(const char* type, const char* options, const std::string& folder) {
  return geteuid() == 0 && unshare(CLONE_NEWNS) == 0 &&
         mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
         mount(type, folder.c_str(), type, 0, options) == 0;
}

// The marker a kill leaves decides: a tail between its two lengths, in the
// file it was written for, is cut by the next append or read-write open; a
// length it does not explain is another program's doing and stays.
TEST_F(AppendsTest, RecordTornByAKillIsCutBackByTheNextAppendOrOpen) {
  // What the marker says instead of the lengths after and the birth time it
  // was written with ("" keeps them), whether the next call reads, whether
  // the tail goes.
  const std::tuple<const char*, std::string, std::string, bool, bool> rows[] = {
      {"next append", "", "", false, true},
      {"next read", "", "", true, true},
      {"whole record", std::to_string(torn), "", false, false},
      {"other file", "9999", "1.1", false, false},
      {"unreadable", "x", "", false, false},
  };
  for (const auto& [label, after, other_birth, by_reading, cut] : rows) {
    ASSERT_TRUE(TearRecord()) << "no torn record to cut";
    std::string torn_bytes = ReadBytes(P("h.db"));
    long long lengths[2] = {0, 0};
    char birth[64] = "";
    ASSERT_EQ(std::sscanf(Marker().c_str(), "%lld %lld %63s", &lengths[0], &lengths[1], birth), 3)
        << label;
    EXPECT_EQ(lengths[1] - lengths[0], 5004) << label;
    std::string marker = std::to_string(lengths[0]) + " " +
                         (after.empty() ? std::to_string(lengths[1]) : after) + " " +
                         (other_birth.empty() ? birth : other_birth);
    ASSERT_EQ(setxattr(P("h.db").c_str(), kAttribute, marker.data(), marker.size(), 0), 0);
    std::string kept = cut ? before : torn_bytes;
    if (by_reading) {
      store.FileDB_Leer(T("h.db"));
    } else {  // never glued onto the torn one
      store.FileDB_Agregar(T("h.db"), u"c", u"d");
      kept += Record("c", "d");
    }
    EXPECT_EQ(ReadBytes(P("h.db")), kept) << label;
    EXPECT_EQ(Marker(), "") << label;
  }
}

// A file system that keeps no extended attributes (ramfs) gets the marker as
// a file beside the record file.
TEST_F(AppendsTest, MarkerFileWhereTheFileSystemKeepsNoAttributes) {
  std::string got = InChild([&] {
    if (!MountPrivately("ramfs", "", tmp.path())) return std::string("no mount");
    if (!TearRecord()) return std::string("not torn");
    std::string marker = MarkerFile();
    store.FileDB_Agregar(T("h.db"), u"c", u"d");
    return std::string(marker.empty() ? "no marker file" : "marker file") +
           (ReadBytes(P("h.db")) == before + Record("c", "d") ? ", cut" : ", kept") +
           (PathExists(marker) ? ", left" : ", removed");
  });
  if (got == "no mount") GTEST_SKIP() << "mounting a ramfs needs root";
  EXPECT_EQ(got, "marker file, cut, removed");
}

TEST_F(AppendsTest, ShortWriteCutsTheFileBackAndFails) {
  WriteBytes(P("s.log"), "old\r\n");
  std::string got = InChild([&] {
    LimitFileSize(100, true);
    std::string out =
        std::to_string(FailureOf([&] { LinuxFiles().Append(T("s.log"), std::string(500, 'z')); }));
    out += store.File_AppendBinary(T("s.log"), Text(500, u'z')) ? " true" : " false";
    Variant log = T("s.log");
    out += store.App_Log(u"op", Text(500, u'z'), log) ? " true" : " false";
    store.ARRAY_Append(T("s.log"), Text(500, u'z'), u"");
    return out;
  });
  EXPECT_EQ(got, "61 true false");  // disk full; the routines' results are as always
  EXPECT_EQ(ReadBytes(P("s.log")), "old\r\n");
  EXPECT_EQ(tmp.Names(), std::vector<std::string>{"s.log"});  // no marker left
  EXPECT_LT(getxattr(P("s.log").c_str(), kAttribute, nullptr, 0), 0);
}

TEST_F(AppendsTest, FullTmpfsKeepsWholeRecords) {
  std::string got = InChild([&] {
    if (!MountPrivately("tmpfs", "size=64k", tmp.path())) return std::string("no mount");
    std::string expected;
    for (int i = 0; i < 100; ++i) {
      std::string record = Record(std::to_string(i), std::string(3000 + 7 * i, 'r'));
      int error = FailureOf([&] { LinuxFiles().Append(T("full.db"), record); });
      if (error)
        return std::to_string(error) + (ReadBytes(P("full.db")) == expected ? " whole" : " torn");
      expected += record;
    }
    return std::string("never full");
  });
  if (got == "no mount") GTEST_SKIP() << "mounting a 64 KB tmpfs needs root";
  EXPECT_EQ(got, "61 whole");
}

// A few dozen kills per size here; bench/append_kills_bench.cpp counts 1,000.
TEST_F(AppendsTest, RandomKillsLeaveWholeRecords) {
  std::mt19937 random(20);
  const std::string path = P("k.db");
  RecordAppender append = [&](const std::string& a, const std::string& b) {
    store.FileDB_Agregar(Utf8ToText(path), BytesToText(a), BytesToText(b));
  };
  for (size_t size : {size_t{100}, size_t{305}, size_t{3000}, size_t{50000}, size_t{1} << 20}) {
    const int kills = size <= 3000 ? 24 : 12;
    for (int k = 0; k < kills; ++k) {
      auto delay = std::chrono::microseconds(std::uniform_int_distribution<int>(0, 3000)(random));
      EXPECT_EQ(KilledAppendRound(path, size, delay, append), 0) << size << " bytes, kill " << k;
    }
  }
}

}  // namespace
}  // namespace varnek
