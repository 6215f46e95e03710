// Shared setup of the storage tests: a simulated platform on the real Linux
// files, a fresh temporary folder, a Storage, and a file system with faults.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <set>

#include "varnek/adds/store/storage.h"
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"

namespace varnek {

struct TestStorage : Storage {
  explicit TestStorage(Platform& p) : Storage(p) {}
  // Internals the tests pin down.
  using Storage::Win_LocaleDateOrder;
};

// A folder made with mkdtemp and removed with everything in it.
struct TempFolder {
  std::string path_;
  explicit TempFolder(const std::string& base = "/tmp") : path_(base + "/varnek-store-XXXXXX") {
    EXPECT_TRUE(mkdtemp(path_.data()));
  }
  ~TempFolder() { std::filesystem::remove_all(path_); }
  const std::string& path() const { return path_; }
  Text text() const { return Utf8ToText(path_); }
  Text operator/(const char* name) const { return Utf8ToText(path_ + "/" + name); }
};

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}
inline bool PathExists(const std::string& path) { return std::filesystem::exists(path); }

// The real file system, except: the first deletion of each path is refused
// (refuse_deletes) and folders under `unreadable` cannot be listed.
struct FaultyFiles : LinuxFileSystem {
  void Delete(TextView p) override {
    if (refuse_deletes && refused.insert(Text(p)).second) Fail(kErrPermissionDenied);
    LinuxFileSystem::Delete(p);
  }
  bool Enumerate(TextView p, std::vector<FileEntry>& o) override {
    if (!unreadable.empty() && p.substr(0, unreadable.size() + 1) == unreadable + u"/") return o.clear(), false;
    return LinuxFileSystem::Enumerate(p, o);
  }
  bool refuse_deletes = false;
  Text unreadable;
  std::set<Text> refused;
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
