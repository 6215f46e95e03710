// The program's name, folder and arguments from /proc/self, and the folder
// its files go to. File names are taken as UTF-8.
#include "varnek/platform/linux/internal/linux_application.h"

#include "varnek/platform/classic_command_line.h"
#include "varnek/platform/linux/internal/file_io.h"

#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace varnek {

namespace {

// The absolute path of the executable, or "" when /proc is not there.
std::string ExecutablePath() {
  std::string buffer(PATH_MAX, '\0');
  ssize_t n = readlink("/proc/self/exe", buffer.data(), buffer.size());
  if (n <= 0) return {};
  buffer.resize(static_cast<size_t>(n));
  return buffer;
}

// argv as the kernel keeps it: NUL-terminated strings one after the other.
std::vector<std::string> Arguments(const std::string& cmdline) {
  std::ifstream in(cmdline, std::ios::binary);
  std::string all((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::vector<std::string> args;
  size_t start = 0;
  while (start < all.size()) {
    size_t end = all.find('\0', start);
    if (end == std::string::npos) end = all.size();
    args.push_back(all.substr(start, end - start));
    start = end + 1;
  }
  return args;
}

std::string BaseName(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

}  // namespace

LinuxApplication::LinuxApplication(std::string executable, std::string cmdline)
    : executable_(std::move(executable)), cmdline_(std::move(cmdline)) {}

Text LinuxApplication::Title() {
  std::string exe = executable_.empty() ? ExecutablePath() : executable_;
  if (exe.empty()) {
    std::vector<std::string> args = Arguments(cmdline_);
    if (!args.empty()) exe = args.front();
  }
  return Utf8ToText(BaseName(exe));
}

Text LinuxApplication::Path() {
  Text folder = ProgramFolder();
  if (access(TextToUtf8(folder).c_str(), W_OK) == 0) return folder;
  // Installed where the process may not write: the per-application data
  // folder instead, so the log and the INI files are not lost.
  std::string data = linux_io::DataHome() + "/" + TextToUtf8(Title());
  for (size_t slash = data.find('/', 1);; slash = data.find('/', slash + 1)) {
    mkdir(data.substr(0, slash).c_str(), 0700);  // existing levels are fine
    if (slash == std::string::npos) break;
  }
  return Utf8ToText(data);
}

Text LinuxApplication::ProgramFolder() {
  std::string exe = executable_.empty() ? ExecutablePath() : executable_;
  size_t slash = exe.rfind('/');
  if (slash == std::string::npos) {
    // No /proc: the working folder is the best answer left.
    std::string cwd(PATH_MAX, '\0');
    if (!getcwd(cwd.data(), cwd.size())) return {};
    cwd.resize(cwd.find('\0'));
    return Utf8ToText(cwd);
  }
  return Utf8ToText(slash == 0 ? std::string("/") : exe.substr(0, slash));
}

Text LinuxApplication::CommandLine() {
  std::vector<std::string> args = Arguments(cmdline_);
  if (!args.empty()) args.erase(args.begin());
  return Utf8ToText(JoinClassicCommandLine(args));
}

}  // namespace varnek
