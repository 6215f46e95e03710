// Temporary and scratch files of the saves: see temp_files.h.
#include "varnek/platform/linux/internal/temp_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/random.h>
#include <sys/stat.h>

#include <string_view>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"

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
  if (dash == 0 || dash == std::string_view::npos || rest.size() - dash - 1 != kRandomLength)
    return 0;
  long pid = 0;
  for (char c : rest.substr(0, dash)) {
    if (c < '0' || c > '9' || pid > 1L << 32) return 0;
    pid = pid * 10 + (c - '0');
  }
  return pid;
}

// Calls make() with temporary names of `base` in `name` until it succeeds
// (true) or fails otherwise than with EEXIST (false, `name` empty).
template <typename Make>
bool TryTempNames(const std::string& base, std::string& name, Make make) {
  const std::string tail = kSaveMark + std::to_string(getpid()) + "-";
  const std::string prefix =
      !base.empty() && 1 + base.size() + tail.size() + kRandomLength <= NAME_MAX ? "." + base + tail
                                                                                 : tail;
  for (int attempt = 0; attempt < 100; ++attempt) {
    name = prefix + RandomSuffix();
    if (make()) return true;
    if (errno != EEXIST) break;
  }
  name.clear();
  return false;
}

UniqueFd ScratchIn(const std::string& folder) {
  UniqueFd dir = OpenFolder(folder);
  if (!dir.ok()) return dir;
  std::string name;
  UniqueFd fd = MakeUnnamedAt(dir.get(), "", name);
  if (fd.ok() && !name.empty()) unlinkat(dir.get(), name.c_str(), 0);  // a name for an instant only
  return fd;
}

}  // namespace

UniqueFd OpenFolder(const std::string& folder) {
  return UniqueFd(
      RetryOnEintr([&] { return open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
}

UniqueFd MakeTempAt(int folder_fd, const std::string& base, std::string& name) {
  int fd = -1;
  TryTempNames(base, name, [&] {
    fd = RetryOnEintr([&] {
      return openat(folder_fd, name.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    });
    return fd >= 0;
  });
  return UniqueFd(fd);
}

UniqueFd MakeUnnamedAt(int folder_fd, const std::string& base, std::string& name) {
  name.clear();
  static const bool proc = access("/proc/self/fd", X_OK) == 0;  // needed to link the file later
  if (proc) {
    UniqueFd fd(
        RetryOnEintr([&] { return openat(folder_fd, ".", O_TMPFILE | O_RDWR | O_CLOEXEC, 0600); }));
    if (fd.ok() || (errno != EOPNOTSUPP && errno != EISDIR && errno != EINVAL)) return fd;
  }
  return MakeTempAt(folder_fd, base, name);
}

bool PlaceAt(int fd, int folder_fd, std::string& name, const std::string& base,
             const std::string& to, bool replace) {
  if (name.empty()) {
    const std::string self = "/proc/self/fd/" + std::to_string(fd);
    auto link_as = [&](const std::string& as) {
      return linkat(AT_FDCWD, self.c_str(), folder_fd, as.c_str(), AT_SYMLINK_FOLLOW) == 0;
    };
    if (!replace) return link_as(to);
    // A link cannot replace a file: a temporary name first, renamed over it.
    if (!TryTempNames(base, name, [&] { return link_as(name); })) return false;
    return renameat(folder_fd, name.c_str(), folder_fd, to.c_str()) == 0;
  }
  if (replace) return renameat(folder_fd, name.c_str(), folder_fd, to.c_str()) == 0;
  if (renameat2(folder_fd, name.c_str(), folder_fd, to.c_str(), RENAME_NOREPLACE) == 0) return true;
  if (errno != EINVAL && errno != ENOSYS) return false;
  return renameat(folder_fd, name.c_str(), folder_fd, to.c_str()) == 0;  // a file system without it
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
