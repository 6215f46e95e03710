// Whole files, directories and enumeration on Linux.
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/internal/eintr.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/safe_replace.h"
#include "varnek/platform/linux/internal/whole_append.h"
#include "varnek/runtime/failure.h"

namespace varnek {

using linux_io::FailFromErrno;
using linux_io::PathBytes;

namespace {

bool HasWildcard(TextView mask) { return mask.find_first_of(u"*?") != TextView::npos; }

FileEntry EntryFromStat(TextView name, const struct stat& st) {
  FileEntry e;
  e.name = Text(name);
  e.directory = S_ISDIR(st.st_mode);
  e.hidden = !name.empty() && name[0] == u'.' && name != u"." && name != u"..";
  e.date = linux_io::LocalDateFromTime(st.st_mtim.tv_sec);
  e.size = st.st_size;
  e.device = static_cast<uint64_t>(st.st_dev);
  e.inode = static_cast<uint64_t>(st.st_ino);
  return e;
}

// Opens a regular file for reading (see linux_io::OpenRegular).
int OpenRegularOrFail(TextView path, int flags) {
  std::string bytes = PathBytes(path);
  int fd = linux_io::OpenRegular(bytes, flags);
  if (fd < 0) FailFromErrno(bytes);
  return fd;
}

class FdCloser {
 public:
  explicit FdCloser(int fd) : fd_(fd) {}
  ~FdCloser() { close(fd_); }
  FdCloser(const FdCloser&) = delete;
  FdCloser& operator=(const FdCloser&) = delete;

 private:
  int fd_;
};

}  // namespace

std::string LinuxFileSystem::ReadAll(TextView path, bool read_only) {
  // A read-write open creates a missing file, but never one whose name holds
  // a wildcard: the classic open could not make such a name.
  size_t slash = path.rfind(u'/');
  TextView name = slash == TextView::npos ? path : path.substr(slash + 1);
  bool may_create = !read_only && !HasWildcard(name);
  std::string target = PathBytes(path);
  int fd =
      linux_io::OpenRegular(target, read_only ? O_RDONLY : (O_RDWR | (may_create ? O_CREAT : 0)));
  // As the classic binary open without an access clause, a file that may not
  // be written is still read.
  if (fd < 0 && !read_only && (errno == EACCES || errno == EPERM || errno == EROFS))
    fd = linux_io::OpenRegular(target, O_RDONLY);
  if (fd < 0) FailFromErrno(target);
  FdCloser closer(fd);
  if (!read_only) linux_io::CutTornAppend(fd, target);  // the tail a killed append left
  std::string bytes;
  // Fails with 7 when the file does not fit in memory.
  if (!linux_io::ReadSavedFd(fd, bytes)) FailFromErrno();
  return bytes;
}

void LinuxFileSystem::WriteAll(TextView path, std::string_view bytes) {
  if (path.empty()) Fail(kErrBadFileNameOrNumber);
  std::string target = PathBytes(path);
  if (!linux_io::ReplaceFile(target, bytes)) FailFromErrno(target);
}

void LinuxFileSystem::EditAll(TextView path, const std::function<bool(std::string& bytes)>& edit) {
  if (path.empty()) Fail(kErrBadFileNameOrNumber);
  size_t slash = path.rfind(u'/');
  const bool may_create = !HasWildcard(slash == TextView::npos ? path : path.substr(slash + 1));
  std::string target = PathBytes(path);
  bool edited = linux_io::EditFile(target, [&](std::string& bytes, bool exists) {
    if (!exists && !may_create) {
      errno = ENOENT;
      return linux_io::Edit::kFail;
    }
    return edit(bytes) ? linux_io::Edit::kWrite : linux_io::Edit::kLeave;
  });
  if (!edited) FailFromErrno(target);
}

void LinuxFileSystem::Append(TextView path, std::string_view bytes) {
  std::string target = PathBytes(path);
  if (!linux_io::AppendRecord(target, bytes)) FailFromErrno(target);
}

int64_t LinuxFileSystem::Length(TextView path) {
  struct stat st {};
  std::string p = PathBytes(path);
  if (stat(p.c_str(), &st) != 0) FailFromErrno(p);
  return st.st_size;
}

void LinuxFileSystem::Copy(TextView from, TextView to) {
  int in = OpenRegularOrFail(from, O_RDONLY);
  FdCloser close_in(in);
  std::string bytes;
  if (!linux_io::ReadSavedFd(in, bytes)) FailFromErrno();
  std::string target = PathBytes(to);
  if (!linux_io::ReplaceFile(target, bytes)) FailFromErrno(target);
}

void LinuxFileSystem::Delete(TextView path) {
  std::string p = PathBytes(path);
  struct stat st {};
  if (lstat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) Fail(kErrPathFileAccess);
  if (unlink(p.c_str()) != 0) FailFromErrno(p);
}

bool LinuxFileSystem::CreateDirectory(TextView path) {
  return mkdir(PathBytes(path).c_str(), 0777) == 0;
}

bool LinuxFileSystem::Stat(TextView path, FileEntry& entry) {
  struct stat st {};
  if (path.empty() || stat(PathBytes(path).c_str(), &st) != 0) return false;
  TextView name = path;
  while (name.size() > 1 && name.back() == u'/') name.remove_suffix(1);
  size_t slash = name.rfind(u'/');
  if (slash != TextView::npos && name.size() > 1) name = name.substr(slash + 1);
  entry = EntryFromStat(name, st);
  return true;
}

bool LinuxFileSystem::SameEntry(TextView a, TextView b) {
  std::string first = PathBytes(a), second = PathBytes(b);
  struct stat sa {
  }, sb{};
  if (stat(first.c_str(), &sa) != 0 || stat(second.c_str(), &sb) != 0) return false;
  if (sa.st_dev != sb.st_dev || sa.st_ino != sb.st_ino) return false;
  if (sa.st_nlink <= 1 || S_ISDIR(sa.st_mode)) return true;  // one name only
  // Hard links: one entry only if both resolve to the same path. A path that
  // cannot be resolved counts as the same entry, the safe answer.
  char* ra = realpath(first.c_str(), nullptr);
  char* rb = realpath(second.c_str(), nullptr);
  bool same = !ra || !rb || std::string_view(ra) == std::string_view(rb);
  free(ra);
  free(rb);
  return same;
}

bool LinuxFileSystem::Enumerate(TextView pattern, std::vector<FileEntry>& out) {
  out.clear();
  size_t slash = pattern.rfind(u'/');
  Text folder =
      slash == TextView::npos ? Text(u".") : Text(pattern.substr(0, slash == 0 ? 1 : slash));
  TextView mask = slash == TextView::npos ? pattern : pattern.substr(slash + 1);
  if (mask.empty()) return false;
  std::string folder_bytes = PathBytes(folder);

  if (!HasWildcard(mask)) {
    // A plain name designates one file, and Linux names are case-sensitive:
    // look that name up alone. (Matching it without regard to case would let
    // a read-write open create a second file beside the one found.)
    struct stat st {};
    std::string full = PathBytes(folder + u"/" + Text(mask));
    if (lstat(full.c_str(), &st) != 0) return false;
    bool link = S_ISLNK(st.st_mode);
    if (link) stat(full.c_str(), &st);
    out.push_back(EntryFromStat(mask, st));
    out.back().link = link;
    return true;
  }

  DIR* dir = opendir(folder_bytes.c_str());
  if (!dir) return false;
  int dfd = dirfd(dir);
  while (struct dirent* d = readdir(dir)) {
    Text name = linux_io::PathText(d->d_name);
    if (!MaskMatches(mask, name)) continue;
    struct stat st {};
    if (fstatat(dfd, d->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) continue;  // vanished since readdir
    bool link = S_ISLNK(st.st_mode);
    if (link) fstatat(dfd, d->d_name, &st, 0);  // a dangling link stays a link
    out.push_back(EntryFromStat(name, st));
    out.back().link = link;
  }
  closedir(dir);
  return !out.empty();
}

LinuxFileSystem& LinuxFiles() {
  static LinuxFileSystem files;
  return files;
}

}  // namespace varnek
