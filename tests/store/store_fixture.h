// Shared setup of the storage tests: a simulated platform on the real Linux
// files, a fresh temporary folder, a Storage, and a file system with faults.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <set>
#include <sstream>
#include <string>

#include "adds/store/storage.h"
#include "platform/files.h"
#include "platform/sim/sim_platform.h"
#include "runtime/convert.h"
#include "runtime/dates.h"
#include "runtime/failure.h"

namespace varnek {

class TestStorage : public Storage {
 public:
  explicit TestStorage(Platform& p) : AddsCore(p), TextToolkit(p), Storage(p) {}
};

// A folder under /tmp made with mkdtemp and removed with everything in it.
class TempFolder {
 public:
  TempFolder() {
    std::string pattern = "/tmp/varnek-store-XXXXXX";
    if (mkdtemp(pattern.data())) path_ = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }
  const std::string& path() const { return path_; }
  Text text() const { return Utf8ToText(path_); }
  Text operator/(const char* name) const { return Utf8ToText(path_ + "/" + name); }

 private:
  std::string path_;
};

inline std::string ReadBytes(const std::string& path) {
  std::ostringstream out;
  out << std::ifstream(path, std::ios::binary).rdbuf();
  return out.str();
}
inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}
inline bool PathExists(const std::string& path) { return std::filesystem::exists(path); }

// The real file system, except: the first deletion of each path is refused
// (refuse_deletes), folders under `unreadable` cannot be listed, and a set
// serial replaces the volume's reading.
class FaultyFiles : public FileSystem {
 public:
  explicit FaultyFiles(FileSystem& real) : real_(real) {}
  std::string ReadAll(TextView p, bool r) override { return real_.ReadAll(p, r); }
  void WriteAll(TextView p, std::string_view b) override { real_.WriteAll(p, b); }
  void Append(TextView p, std::string_view b) override { real_.Append(p, b); }
  int64_t Length(TextView p) override { return real_.Length(p); }
  void Copy(TextView f, TextView t) override { real_.Copy(f, t); }
  void Delete(TextView p) override {
    if (refuse_deletes && refused_.insert(Text(p)).second) Fail(kErrPermissionDenied);
    real_.Delete(p);
  }
  bool CreateDirectory(TextView p) override { return real_.CreateDirectory(p); }
  bool Stat(TextView p, FileEntry& e) override { return real_.Stat(p, e); }
  bool Enumerate(TextView p, std::vector<FileEntry>& o) override {
    if (!unreadable.empty() && p.substr(0, unreadable.size() + 1) == unreadable + u"/") return o.clear(), false;
    return real_.Enumerate(p, o);
  }
  bool VolumeInfo(TextView p, Text& l, uint32_t& s) override {
    if (!serial) return real_.VolumeInfo(p, l, s);
    l = label, s = *serial;
    return true;
  }
  int32_t ShellOperation(const ShellFileRequest& r) override { return real_.ShellOperation(r); }

  bool refuse_deletes = false;
  Text unreadable, label;
  std::optional<uint32_t> serial;

 private:
  FileSystem& real_;
  std::set<Text> refused_;
};

class StoreTest : public ::testing::Test {
 protected:
  explicit StoreTest(double start = SimPlatform::kDefaultStart) : sim(start), store(sim.platform) {}
  std::string P(const char* name) const { return tmp.path() + "/" + name; }
  Text T(const char* name) const { return tmp / name; }

  TempFolder tmp;
  SimPlatform sim;
  TestStorage store;
};

// The classic number of the failure the call raises; 0 when it raises none.
inline int FailureNumber(const std::function<void()>& f) {
  try { f(); } catch (const RuntimeError& e) { return e.number(); }
  return 0;
}
#define EXPECT_RUNTIME_ERROR(statement, expected) \
  EXPECT_EQ(FailureNumber([&] { statement; }), expected) << #statement

}  // namespace varnek
