// Outside programs and files for the tests: a command line run under
// `timeout`, headless Chromium's DOM of a page, a file's bytes and a folder
// of the test's own.
#pragma once

#include <string>

namespace varnek {

// Runs a command line under `timeout` (it kills its process group); its stdout.
std::string RunCommand(const std::string& command, double seconds = 10.0);

inline constexpr const char* kChromium = "/usr/bin/chromium";

// Headless Chromium's DOM of `url` after loading, with a profile of its own
// under `profile_folder`; "" when it did not finish within `seconds`.
std::string ChromiumDom(const std::string& url, const std::string& profile_folder,
                        const std::string& extra_flags = "", double seconds = 30.0);

// The bytes of a file; "" when it cannot be read.
std::string ReadFile(const std::string& path);

// A folder of the test's own under /tmp, removed with all it holds.
struct TempFolder {
  explicit TempFolder(const std::string& stem);
  ~TempFolder();
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string path;
};

}  // namespace varnek
