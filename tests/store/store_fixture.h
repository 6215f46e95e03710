// Shared setup of the storage tests: a simulated platform whose files are the
// real Linux ones, a fresh temporary folder, and a Storage on that platform.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "adds/store/storage.h"
#include "platform/sim/sim_platform.h"
#include "runtime/convert.h"
#include "runtime/dates.h"
#include "runtime/failure.h"

namespace varnek {

// The storage room of Adds on its own, without the other rooms.
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
  // The path of a name inside, as Text.
  Text operator/(const char* name) const { return Utf8ToText(path_ + "/" + name); }

 private:
  std::string path_;
};

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

inline bool PathExists(const std::string& path) { return std::filesystem::exists(path); }

class StoreTest : public ::testing::Test {
 protected:
  explicit StoreTest(double start = SimPlatform::kDefaultStart) : sim(start), store(sim.platform) {}
  std::string P(const char* name) const { return tmp.path() + "/" + name; }
  Text T(const char* name) const { return tmp / name; }

  TempFolder tmp;
  SimPlatform sim;
  TestStorage store;
};

// Runs a statement expected to fail with the given classic number.
#define EXPECT_RUNTIME_ERROR(statement, expected)                          \
  do {                                                                   \
    try {                                                                \
      statement;                                                         \
      ADD_FAILURE() << "no failure from " #statement;                    \
    } catch (const RuntimeError& e) {                                    \
      EXPECT_EQ(e.number(), expected) << #statement;                       \
    }                                                                    \
  } while (0)

}  // namespace varnek
