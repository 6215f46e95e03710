// Temporary and scratch files of the saves: see temp_files.h.
#include "varnek/platform/linux/temp_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <string_view>

#include "varnek/platform/linux/eintr.h"
#include "varnek/platform/linux/file_io.h"

namespace varnek::linux_io {

namespace {

constexpr char kSaveMark[] = ".varnek-save-";
constexpr size_t kRandomLength = 6;

std::string RandomSuffix() {
  static const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
  unsigned char bytes[kRandomLength] = {};
  if (getrandom(bytes, sizeof bytes, GRND_NONBLOCK) != static_cast<ssize_t>(sizeof bytes)) {
    static unsigned counter = 0;  // no entropy yet: the O_EXCL retry still finds a free name
    for (unsigned char& b : bytes) b = static_cast<unsigned char>(getpid() + ++counter * 131);
  }
  std::string out;
  for (unsigned char b : bytes) out += kAlphabet[b % (sizeof kAlphabet - 1)];
  return out;
}

// The process id of a temporary name of `base` (long or short form), or 0.
long TempOwner(std::string_view name, const std::string& base) {
  const std::string long_prefix = "." + base + kSaveMark;
  std::string_view rest;
  if (name.substr(0, long_prefix.size()) == long_prefix) {
    rest = name.substr(long_prefix.size());
  } else if (name.substr(0, sizeof kSaveMark - 1) == kSaveMark) {
    rest = name.substr(sizeof kSaveMark - 1);
  } else {
    return 0;
  }
  size_t dash = rest.find('-');
  if (dash == 0 || dash == std::string_view::npos || rest.size() - dash - 1 != kRandomLength) return 0;
  long pid = 0;
  for (char c : rest.substr(0, dash)) {
    if (c < '0' || c > '9' || pid > 1L << 32) return 0;
    pid = pid * 10 + (c - '0');
  }
  return pid;
}

UniqueFd ScratchIn(const std::string& folder) {
  UniqueFd dir = OpenFolder(folder);
  if (!dir.ok()) return dir;
  UniqueFd fd(RetryOnEintr([&] { return openat(dir.get(), ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }));
  if (fd.ok() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  // No unnamed files on this file system: a named one, unlinked at once.
  std::string name;
  fd = MakeTempAt(dir.get(), "", name);
  if (fd.ok()) unlinkat(dir.get(), name.c_str(), 0);
  return fd;
}

}  // namespace

UniqueFd OpenFolder(const std::string& folder) {
  return UniqueFd(RetryOnEintr([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

UniqueFd MakeTempAt(int folder_fd, const std::string& base, std::string& name) {
  const std::string tail = kSaveMark + std::to_string(getpid()) + "-";
  const std::string prefix = !base.empty() && 1 + base.size() + tail.size() + kRandomLength <= NAME_MAX
                                 ? "." + base + tail
                                 : tail;
  for (int attempt = 0; attempt < 100; ++attempt) {
    name = prefix + RandomSuffix();
    int fd = RetryOnEintr(
        [&] { return openat(folder_fd, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
    if (fd >= 0) return UniqueFd(fd);
    if (errno != EEXIST) break;
  }
  name.clear();
  return UniqueFd();
}

void RemoveStaleTemps(int folder_fd, const std::string& base) {
  int listing = openat(folder_fd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (listing < 0) return;
  DIR* dir = fdopendir(listing);
  if (!dir) {
    close(listing);
    return;
  }
  while (dirent* entry = readdir(dir)) {
    long pid = TempOwner(entry->d_name, base);
    if (pid > 0 && pid != getpid() && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
      unlinkat(folder_fd, entry->d_name, 0);
  }
  closedir(dir);
}

void SyncFolder(int folder_fd) { fsync(folder_fd); }

UniqueFd MakeScratchFile(const std::string& path) {
  UniqueFd fd = ScratchIn(FolderOf(path));
  if (fd.ok()) return fd;
  const char* tmpdir = getenv("TMPDIR");
  return ScratchIn(tmpdir && *tmpdir == '/' ? tmpdir : "/tmp");
}

}  // namespace varnek::linux_io
