// Whole-record appends with a length marker: see whole_append.h.
#include "varnek/platform/linux/internal/whole_append.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/safe_replace.h"

namespace varnek::linux_io {

namespace {

constexpr char kAttribute[] = "user.varnek.append";

// The file's birth time as "seconds.nanoseconds" ("0.0" where the file system
// keeps none): a marker file left for a file since deleted never applies to
// a new file that got the same inode number.
std::string BirthOf(int fd) {
  struct statx stx {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &stx) != 0 || !(stx.stx_mask & STATX_BTIME))
    return "0.0";
  return std::to_string(stx.stx_btime.tv_sec) + "." + std::to_string(stx.stx_btime.tv_nsec);
}

// The marker of the file open at fd: an extended attribute of the file
// itself, or, where its file system keeps none for users, the file
// ".varnek-append-<inode>" in the folder of the file its links lead to.
class Marker {
 public:
  Marker(int fd, const std::string& path) : fd_(fd), path_(path) {}

  // The marker's text; false when there is none.
  bool Read(std::string& text) {
    char buffer[128];
    ssize_t n = fgetxattr(fd_, kAttribute, buffer, sizeof buffer);
    if (n >= 0) {
      text.assign(buffer, static_cast<size_t>(n));
      return true;
    }
    return errno == ENOTSUP && ReadFile(Beside(), text);
  }

  // False when no marker could be made.
  bool Write(const std::string& text) {
    if (fsetxattr(fd_, kAttribute, text.data(), text.size(), 0) == 0) return true;
    if (errno != ENOTSUP) return false;
    const std::string beside = Beside();
    int fd = RetryOnEintr([&] {
      return open(beside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644);
    });
    if (fd < 0) return false;
    bool written = WriteFd(fd, text);
    close(fd);
    if (!written) unlink(beside.c_str());
    return written;
  }

  void Remove() {
    if (fremovexattr(fd_, kAttribute) != 0 && errno == ENOTSUP) unlink(Beside().c_str());
  }

 private:
  std::string Beside() {
    struct stat st {};
    if (fstat(fd_, &st) != 0) return {};
    std::string real;
    if (!FollowLinks(path_, real)) real = path_;
    return FolderOf(real) + "/.varnek-append-" + std::to_string(static_cast<uintmax_t>(st.st_ino));
  }

  int fd_;
  const std::string& path_;
};

bool LockExclusive(int fd) {
  return RetryOnEintr([&] { return flock(fd, LOCK_EX); }) == 0;
}

// With the lock held: a length strictly between the marker's two figures, in
// the file the marker was written for, is a torn record of ours, cut back;
// the marker goes in every case.
void CutTornTail(int fd, Marker& marker) {
  std::string text;
  if (!marker.Read(text)) return;
  long long before = -1, after = -1;
  char birth[64] = "";
  struct stat st {};
  if (std::sscanf(text.c_str(), "%lld %lld %63s", &before, &after, birth) == 3 &&
      BirthOf(fd) == birth && fstat(fd, &st) == 0 && before < st.st_size && st.st_size < after &&
      ftruncate(fd, before) != 0)
    return;  // keep the marker: the next append tries again
  marker.Remove();
}

// The append proper, on a locked descriptor.
bool AppendLocked(int fd, Marker& marker, std::string_view bytes) {
  CutTornTail(fd, marker);
  if (bytes.empty()) return true;
  struct stat st {};
  if (fstat(fd, &st) != 0) return false;
  const long long before = st.st_size;
  const bool marked = marker.Write(std::to_string(before) + " " +
                                   std::to_string(before + static_cast<long long>(bytes.size())) +
                                   " " + BirthOf(fd) + "\n");
  if (WriteFd(fd, bytes)) {
    if (marked) marker.Remove();
    return true;
  }
  int error = errno;
  // A short write: back to the old length, and only then forget the marker.
  if (ftruncate(fd, before) == 0 && marked) marker.Remove();
  errno = error;
  return false;
}

}  // namespace

// True when the path still names the file open at fd: a whole-file save of
// another process may have renamed a new file over it while we waited for
// the lock, and a record written to the old one would be lost.
static bool StillNamed(int fd, const std::string& path) {
  struct stat open_st {
  }, named_st{};
  return fstat(fd, &open_st) == 0 && stat(path.c_str(), &named_st) == 0 &&
         open_st.st_dev == named_st.st_dev && open_st.st_ino == named_st.st_ino;
}

bool AppendRecord(const std::string& path, std::string_view bytes) {
  // A few tries: each lost race means another save just replaced the file.
  for (int attempt = 0;; ++attempt) {
    int fd = RetryOnEintr([&] {
      return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666);
    });
    if (fd < 0) return false;
    struct stat st {};
    bool ok = fstat(fd, &st) == 0;
    if (ok && !S_ISREG(st.st_mode)) {
      errno = ENODEV;  // a pipe or device: never waited on
      ok = false;
    }
    Marker marker(fd, path);
    ok = ok && LockExclusive(fd);
    if (ok && attempt < 20 && !StillNamed(fd, path)) {
      close(fd);
      continue;
    }
    ok = ok && AppendLocked(fd, marker, bytes);
    int error = errno;
    close(fd);
    errno = error;
    return ok;
  }
}

void CutTornAppend(int fd, const std::string& path) {
  Marker marker(fd, path);
  std::string text;
  if (marker.Read(text) && LockExclusive(fd)) CutTornTail(fd, marker);
}

}  // namespace varnek::linux_io
