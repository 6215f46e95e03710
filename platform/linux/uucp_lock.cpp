// UUCP lock files of serial lines: taken by link(2) of a complete temporary
// file, so no other program ever reads a half-written lock.
#include "varnek/platform/linux/internal/uucp_lock.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "varnek/platform/comm.h"
#include "varnek/platform/linux/internal/eintr.h"

namespace varnek {

namespace {

bool IsDirectory(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool Running(int pid) { return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM); }

// Writes this process's lock file under a temporary name; "" when the
// directory cannot be written.
std::string WriteTemporary(const std::string& directory) {
  const std::string path = directory + "/LTMP." + std::to_string(::getpid());
  const int fd = linux_io::RetryOnEintr([&] {
    return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0644);
  });
  if (fd < 0) return {};
  char text[16];
  const int length = std::snprintf(text, sizeof text, "%10d\n", static_cast<int>(::getpid()));
  const bool written = linux_io::RetryOnEintr([&] {
                         return ::write(fd, text, static_cast<size_t>(length));
                       }) == length;
  ::close(fd);
  if (!written) {
    ::unlink(path.c_str());
    return {};
  }
  return path;
}

}  // namespace

std::string UucpLockName(const std::string& device) {
  std::string path = device;
  if (char* real = ::realpath(device.c_str(), nullptr)) {
    path = real;
    ::free(real);
  }
  if (path.rfind("/dev/", 0) == 0) path.erase(0, 5);
  while (!path.empty() && path[0] == '/') path.erase(0, 1);
  for (char& c : path) {
    if (c == '/') c = '_';
  }
  return "LCK.." + path;
}

std::string UucpLockDirectory() {
  if (const char* dir = std::getenv("VARNEK_LOCK_DIR"); dir && *dir) return dir;
  for (const char* dir : {"/var/lock", "/run/lock"}) {
    if (IsDirectory(dir)) return dir;
  }
  return {};
}

int UucpLockOwner(const std::string& lock_path) {
  const int fd =
      linux_io::RetryOnEintr([&] { return ::open(lock_path.c_str(), O_RDONLY | O_CLOEXEC); });
  if (fd < 0) return 0;
  char text[64] = {};
  const ssize_t n = linux_io::RetryOnEintr([&] { return ::read(fd, text, sizeof text - 1); });
  ::close(fd);
  bool ascii = n > 0;
  for (ssize_t i = 0; i < n; ++i)
    ascii = ascii && (text[i] == ' ' || text[i] == '\n' || (text[i] >= '0' && text[i] <= '9'));
  if (n == 4 && !ascii) {  // the old binary form
    int32_t pid = 0;
    std::memcpy(&pid, text, 4);
    return pid > 0 ? pid : 0;
  }
  if (n <= 0) return 0;
  char* end = nullptr;
  const long pid = std::strtol(text, &end, 10);
  return end != text && pid > 0 && pid <= INT_MAX ? static_cast<int>(pid) : 0;
}

std::string TakeUucpLock(const std::string& device) {
  const std::string directory = UucpLockDirectory();
  if (directory.empty()) return {};
  const std::string lock = directory + "/" + UucpLockName(device);
  const std::string temporary = WriteTemporary(directory);
  for (int attempt = 0; attempt < 3; ++attempt) {
    if (!temporary.empty() && ::link(temporary.c_str(), lock.c_str()) == 0) {
      ::unlink(temporary.c_str());
      return lock;
    }
    if (!temporary.empty() && errno != EEXIST) break;
    const int holder = UucpLockOwner(lock);
    if (Running(holder)) {
      if (!temporary.empty()) ::unlink(temporary.c_str());
      Fail(kCommErrPortOpen,
           "Port already open: " + device + " is held by pid " + std::to_string(holder));
    }
    if (temporary.empty()) return {};  // no lock of ours to take; a stale one stays
    ::unlink(lock.c_str());            // a lock left by a process that is gone
  }
  if (!temporary.empty()) ::unlink(temporary.c_str());
  return {};
}

void ReleaseUucpLock(const std::string& lock_path) {
  if (lock_path.empty()) return;
  if (UucpLockOwner(lock_path) == ::getpid()) ::unlink(lock_path.c_str());
}

}  // namespace varnek
