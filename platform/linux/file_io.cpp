// POSIX helpers of the Linux file services.
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/eintr.h"

#include <errno.h>
#include <fcntl.h>
#include <pwd.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <new>

#include "varnek/runtime/failure.h"

namespace varnek::linux_io {

namespace {

bool AllAscii(TextView text) {
  for (char16_t u : text)
    if (u >= 0x80) return false;
  return true;
}

bool Present(const std::string& path) {
  struct stat st {};
  return lstat(path.c_str(), &st) == 0;
}

// The bytes of one path part: UTF-8, or the code-page bytes it was read from
// (see PathText) when only those name an entry under the folder so far.
std::string PartBytes(const std::string& folder, TextView part) {
  std::string utf8 = TextToUtf8(part);
  if (AllAscii(part)) return utf8;
  for (char16_t u : part)
    if (!UnitHasByte(u)) return utf8;
  std::string legacy = TextToBytes(part);
  if (IsValidUtf8(legacy) || Present(folder + utf8) || !Present(folder + legacy)) return utf8;
  return legacy;
}

// The most a whole-file read may hold: the machine's memory and swap, or the
// process's address-space limit when that is lower.
unsigned long long MemoryForOneFile() {
  unsigned long long most = ~0ULL;
  struct sysinfo info {};
  if (sysinfo(&info) == 0)
    most = (static_cast<unsigned long long>(info.totalram) + info.totalswap) * info.mem_unit;
  struct rlimit limit {};
  if (getrlimit(RLIMIT_AS, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY && limit.rlim_cur < most)
    most = limit.rlim_cur;
  return most;
}

}  // namespace

bool IsValidUtf8(std::string_view bytes) {
  // Strict decoding turns every invalid sequence into U+FFFD, whose own
  // encoding differs from it: only valid UTF-8 comes back unchanged.
  bool ascii = true;
  for (char c : bytes) ascii = ascii && static_cast<unsigned char>(c) < 0x80;
  return ascii || TextToUtf8(Utf8ToText(bytes)) == bytes;
}

Text PathText(std::string_view bytes) {
  return IsValidUtf8(bytes) ? Utf8ToText(bytes) : BytesToText(bytes);
}

std::string PathBytes(TextView path) {
  std::string utf8 = TextToUtf8(path);
  if (AllAscii(path) || Present(utf8)) return utf8;
  std::string out;
  for (size_t start = 0;;) {
    size_t slash = path.find(u'/', start);
    out += PartBytes(out,
                     path.substr(start, slash == TextView::npos ? TextView::npos : slash - start));
    if (slash == TextView::npos) return out;
    out += '/';
    start = slash + 1;
  }
}

int ClassicFileError(int errno_value, const std::string& path) {
  switch (errno_value) {
    case ENOENT: {
      if (path.empty()) return kErrFileNotFound;
      struct stat st {};
      std::string folder = FolderOf(path);
      bool folder_there = stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
      return folder_there ? kErrFileNotFound : kErrPathNotFound;
    }
    case ENOTDIR:
    case ELOOP: return kErrPathNotFound;
    case EACCES:
    case EPERM:
    case EROFS: return kErrPermissionDenied;
    case EBUSY:
    case ETXTBSY: return kErrFileAlreadyOpen;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return kErrDiskFull;
    case ENAMETOOLONG:
    case EINVAL: return kErrBadFileNameOrNumber;
    case EMFILE:
    case ENFILE: return kErrTooManyFiles;
    case EIO: return kErrDeviceIO;
    case ENOMEM: return kErrOutOfMemory;
    default: return kErrPathFileAccess;
  }
}

void FailFromErrno(const std::string& path) { Fail(ClassicFileError(errno, path)); }

bool ReadFd(int fd, std::string& out) {
  // A regular file's size is known: one allocation, and a file too big for
  // memory fails at once (ENOMEM) rather than after reading most of it.
  struct stat st {};
  try {
    if (fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
      if (static_cast<unsigned long long>(st.st_size) > MemoryForOneFile()) {
        errno = ENOMEM;
        return false;
      }
      out.reserve(out.size() + static_cast<size_t>(st.st_size));
    }
    char chunk[65536];
    for (;;) {
      ssize_t n = RetryOnEintr([&] { return read(fd, chunk, sizeof chunk); });
      if (n < 0) return false;
      if (n == 0) return true;
      out.append(chunk, static_cast<size_t>(n));
    }
  } catch (const std::bad_alloc&) {
    errno = ENOMEM;
    return false;
  }
}

bool WriteFd(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    ssize_t n = RetryOnEintr([&] { return write(fd, bytes.data(), bytes.size()); });
    if (n < 0) return false;
    bytes.remove_prefix(static_cast<size_t>(n));
  }
  return true;
}

int OpenRegular(const std::string& path, int flags) {
  int fd = RetryOnEintr([&] { return open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC, 0666); });
  if (fd < 0) return -1;
  struct stat st {};
  int error = 0;
  if (fstat(fd, &st) != 0) {
    error = errno;
  } else if (S_ISDIR(st.st_mode)) {
    error = EISDIR;
  } else if (!S_ISREG(st.st_mode)) {
    error = ENODEV;  // a pipe, socket or device: its read could wait for ever
  }
  if (error != 0) {
    close(fd);
    errno = error;
    return -1;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  return fd;
}

bool ReadFile(const std::string& path, std::string& out) {
  int fd = OpenRegular(path, O_RDONLY);
  if (fd < 0) return false;
  out.clear();
  bool ok = ReadFd(fd, out);
  int saved = errno;
  close(fd);
  errno = saved;
  return ok;
}

std::string FolderOf(const std::string& path) {
  size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string BaseOf(const std::string& path) {
  size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::string XdgFolder(const char* variable, const char* under_home) {
  if (const char* xdg = getenv(variable); xdg && *xdg == '/') return xdg;
  const char* home = getenv("HOME");
  if (!home || !*home) {
    passwd* pw = getpwuid(getuid());
    home = pw ? pw->pw_dir : "/tmp";
  }
  return std::string(home) + "/" + under_home;
}

std::string DataHome() { return XdgFolder("XDG_DATA_HOME", ".local/share"); }

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
