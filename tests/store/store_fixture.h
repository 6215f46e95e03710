// Shared setup of the storage tests: a simulated platform on the real Linux
// files, a fresh temporary folder, a Storage, and a file system with faults.
#pragma once

#include <gtest/gtest.h>

#include <set>

#include "varnek/adds/store/storage.h"
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "tests/runtime/test_folder.h"
#include "tests/runtime/test_util.h"

namespace varnek {

struct TestStorage : Storage {
  explicit TestStorage(Platform& p) : Storage(p) {}
  // Internals the tests pin down.
  using Storage::Win_LocaleDateOrder;
};

// The real file system, except: the first deletion of each path is refused
// (refuse_deletes) and folders under `unreadable` cannot be listed.
struct FaultyFiles : LinuxFileSystem {
  void Delete(TextView p) override {
    if (refuse_deletes && refused.insert(Text(p)).second) Fail(kErrPermissionDenied);
    LinuxFileSystem::Delete(p);
  }
  bool Enumerate(TextView p, std::vector<FileEntry>& o) override {
    if (!unreadable.empty() && p.substr(0, unreadable.size() + 1) == unreadable + u"/")
      return o.clear(), false;
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
  TestFolder tmp;
  SimPlatform sim;
  TestStorage store;
};

// The call must raise the failure of that classic number.
#define EXPECT_RUNTIME_ERROR(statement, expected) \
  EXPECT_EQ(FailureOf([&] { statement; }), expected) << #statement

}  // namespace varnek
