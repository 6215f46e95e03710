// A fresh folder for one test, removed with everything in it, and whole-file
// reads and writes by path: shared by the tests that work on real files.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

// A folder made with mkdtemp under `base`.
struct TestFolder {
  std::string path_;
  explicit TestFolder(const std::string& base = "/tmp") : path_(base + "/varnek-test-XXXXXX") {
    EXPECT_TRUE(mkdtemp(path_.data()));
  }
  ~TestFolder() { std::filesystem::remove_all(path_); }
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string operator()(const std::string& name) const { return path_ + "/" + name; }
  Text text() const { return Utf8ToText(path_); }
  Text operator/(const char* name) const { return Utf8ToText(path_ + "/" + name); }
  // The names in the folder (or in `sub` below it), sorted.
  std::vector<std::string> Names(const std::string& sub = "") const {
    std::vector<std::string> names;
    for (const auto& e : std::filesystem::directory_iterator(sub.empty() ? path_ : (*this)(sub)))
      names.push_back(e.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
  }
};

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}
// Writes the file whole, making its folders first.
inline void WriteBytes(const std::string& path, const std::string& bytes) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}
inline bool PathExists(const std::string& path) { return std::filesystem::exists(path); }

}  // namespace varnek
