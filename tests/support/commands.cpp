// Commands, Chromium, files and temporary folders for the tests.
#include "tests/support/commands.h"

#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace varnek {

std::string RunCommand(const std::string& command, double seconds) {
  std::string output;
  FILE* pipe = ::popen(("timeout -k 2 " + std::to_string(seconds) + " " + command).c_str(), "r");
  char buf[4096];
  for (size_t n; pipe && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
  if (pipe) ::pclose(pipe);
  return output;
}

std::string ChromiumDom(const std::string& url, const std::string& profile_folder,
                        const std::string& extra_flags, double seconds) {
  return RunCommand(std::string(kChromium) +
                        " --headless --no-sandbox --disable-gpu"
                        " --disable-quic --no-first-run --disable-background-networking"
                        " --disable-component-update --disable-sync " +
                        extra_flags + " --user-data-dir=" + profile_folder + " --dump-dom '" + url +
                        "' 2>/dev/null",
                    seconds);
}

std::string ReadFile(const std::string& path) {
  std::stringstream bytes;
  bytes << std::ifstream(path, std::ios::binary).rdbuf();
  return bytes.str();
}

TempFolder::TempFolder(const std::string& stem) {
  std::string pattern = "/tmp/varnek-" + stem + "-XXXXXX";
  if (mkdtemp(pattern.data())) path = pattern;
}

TempFolder::~TempFolder() {
  std::error_code ignored;
  if (!path.empty()) std::filesystem::remove_all(path, ignored);
}

}  // namespace varnek
