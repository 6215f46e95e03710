// POSIX helpers of the Linux file services.
#include "platform/linux/file_io.h"

#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "runtime/failure.h"

namespace varnek::linux_io {

std::string PathBytes(TextView path) { return TextToUtf8(path); }

int ClassicFileError(int errno_value) {
  switch (errno_value) {
    case ENOENT:
      return kErrFileNotFound;
    case ENOTDIR:
      return kErrPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS:
      return kErrPermissionDenied;
    case ENOSPC:
      return 61;  // Disk full
    case ENAMETOOLONG:
    case EINVAL:
      return kErrBadFileNameOrNumber;
    default:
      return kErrPathFileAccess;
  }
}

void FailFromErrno() { Fail(ClassicFileError(errno)); }

bool ReadFd(int fd, std::string& out) {
  char chunk[65536];
  for (;;) {
    ssize_t n = read(fd, chunk, sizeof chunk);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (n == 0) return true;
    out.append(chunk, static_cast<size_t>(n));
  }
}

bool WriteFd(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = write(fd, bytes.data(), bytes.size());
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

bool ReadFile(const std::string& path, std::string& out) {
  int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  out.clear();
  bool ok = ReadFd(fd, out);
  int saved = errno;
  close(fd);
  errno = saved;
  return ok;
}

namespace {

// The folder part of a path ("." for a bare name, "/" for a root entry).
std::string FolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

mode_t DefaultMode() {
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

}  // namespace

bool ReplaceFileAtomically(const std::string& path, std::string_view bytes) {
  std::string folder = FolderOf(path);
  size_t slash = path.rfind('/');
  std::string base = slash == std::string::npos ? path : path.substr(slash + 1);
  std::string temp = folder + "/." + base + ".tmpXXXXXX";
  int fd = mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return false;
  struct stat old {};
  mode_t mode = stat(path.c_str(), &old) == 0 ? (old.st_mode & 07777) : DefaultMode();
  bool ok = fchmod(fd, mode) == 0 && WriteFd(fd, bytes) && fsync(fd) == 0;
  int saved = errno;
  if (close(fd) != 0 && ok) {
    ok = false;
    saved = errno;
  }
  if (ok && rename(temp.c_str(), path.c_str()) != 0) {
    ok = false;
    saved = errno;
  }
  if (!ok) {
    unlink(temp.c_str());
    errno = saved;
    return false;
  }
  int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    fsync(dir);  // makes the rename itself durable; a failure here changes nothing
    close(dir);
  }
  return true;
}

double LocalDateFromTime(long long seconds_since_epoch) {
  time_t t = static_cast<time_t>(seconds_since_epoch);
  struct tm local {};
  localtime_r(&t, &local);
  long long local_seconds = seconds_since_epoch + local.tm_gmtoff;
  // 1970-01-01 is day 25569 of the classic calendar.
  long long days = local_seconds >= 0 ? local_seconds / 86400 : -((-local_seconds + 86399) / 86400);
  long long rest = local_seconds - days * 86400;
  return 25569.0 + static_cast<double>(days) + static_cast<double>(rest) / 86400.0;
}

}  // namespace varnek::linux_io
