// Whole-record appends with a length marker: see whole_append.h.
#include "varnek/platform/linux/whole_append.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>

#include "varnek/platform/linux/eintr.h"
#include "varnek/platform/linux/file_io.h"
#include "varnek/platform/linux/safe_replace.h"

namespace varnek::linux_io {

namespace {

// The marker of the file open at fd: named after its inode, in the folder of
// the file its links lead to. "" when fd cannot be examined.
std::string MarkerOf(int fd, const std::string& path) {
  struct stat st {};
  if (fstat(fd, &st) != 0) return {};
  std::string real;
  if (!FollowLinks(path, real)) real = path;
  return FolderOf(real) + "/.varnek-append-" + std::to_string(static_cast<uintmax_t>(st.st_ino));
}

// The file's birth time as "seconds.nanoseconds" ("0.0" where the file system
// keeps none): a marker left for a file since deleted never applies to a
// new file that got the same inode number.
std::string BirthOf(int fd) {
  struct statx stx {};
  if (statx(fd, "", AT_EMPTY_PATH, STATX_BTIME, &stx) != 0 || !(stx.stx_mask & STATX_BTIME)) return "0.0";
  return std::to_string(stx.stx_btime.tv_sec) + "." + std::to_string(stx.stx_btime.tv_nsec);
}

bool LockExclusive(int fd) {
  return RetryOnEintr([&] { return flock(fd, LOCK_EX); }) == 0;
}

// With the lock held: a length strictly between the marker's two figures, in
// the file the marker was written for, is a torn record of ours, cut back;
// the marker goes in every case.
void CutTornTail(int fd, const std::string& marker) {
  std::string text;
  if (!ReadFile(marker, text)) return;
  long long before = -1, after = -1;
  char birth[64] = "";
  struct stat st {};
  if (std::sscanf(text.c_str(), "%lld %lld %63s", &before, &after, birth) == 3 && BirthOf(fd) == birth &&
      fstat(fd, &st) == 0 && before < st.st_size && st.st_size < after && ftruncate(fd, before) != 0)
    return;  // keep the marker: the next append tries again
  unlink(marker.c_str());
}

// Notes the lengths before and after the append; false when no marker could
// be made (the append then goes ahead unprotected).
bool WriteMarker(const std::string& marker, long long before, size_t length, const std::string& birth) {
  int fd = RetryOnEintr(
      [&] { return open(marker.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0644); });
  if (fd < 0) return false;
  std::string text = std::to_string(before) + " " + std::to_string(before + static_cast<long long>(length)) +
                     " " + birth + "\n";
  bool written = WriteFd(fd, text);
  close(fd);
  if (!written) unlink(marker.c_str());
  return written;
}

// The append proper, on a locked descriptor.
bool AppendLocked(int fd, const std::string& marker, std::string_view bytes) {
  if (!marker.empty()) CutTornTail(fd, marker);
  if (bytes.empty()) return true;
  struct stat st {};
  if (fstat(fd, &st) != 0) return false;
  const long long before = st.st_size;
  const bool marked = !marker.empty() && WriteMarker(marker, before, bytes.size(), BirthOf(fd));
  if (WriteFd(fd, bytes)) {
    if (marked) unlink(marker.c_str());
    return true;
  }
  int error = errno;
  // A short write: back to the old length, and only then forget the marker.
  if (ftruncate(fd, before) == 0 && marked) unlink(marker.c_str());
  errno = error;
  return false;
}

}  // namespace

bool AppendRecord(const std::string& path, std::string_view bytes) {
  int fd = RetryOnEintr(
      [&] { return open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_NONBLOCK | O_CLOEXEC, 0666); });
  if (fd < 0) return false;
  struct stat st {};
  bool ok = fstat(fd, &st) == 0;
  if (ok && !S_ISREG(st.st_mode)) {
    errno = ENODEV;  // a pipe or device: never waited on
    ok = false;
  }
  ok = ok && LockExclusive(fd) && AppendLocked(fd, MarkerOf(fd, path), bytes);
  int error = errno;
  close(fd);
  errno = error;
  return ok;
}

void CutTornAppend(int fd, const std::string& path) {
  std::string marker = MarkerOf(fd, path);
  struct stat st {};
  if (marker.empty() || lstat(marker.c_str(), &st) != 0) return;
  if (LockExclusive(fd)) CutTornTail(fd, marker);
}

}  // namespace varnek::linux_io
