// Whole files, directories and enumeration on Linux.
#include "platform/linux/linux_files.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/linux/file_io.h"
#include "runtime/failure.h"

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
  return e;
}

// Opens for the whole-file operations, failing with the classic numbers.
int OpenOrFail(TextView path, int flags) {
  int fd;
  do {
    fd = open(PathBytes(path).c_str(), flags | O_CLOEXEC, 0666);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) FailFromErrno();
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
  int fd = OpenOrFail(path, read_only ? O_RDONLY : (O_RDWR | O_CREAT));
  FdCloser closer(fd);
  std::string bytes;
  if (!linux_io::ReadFd(fd, bytes)) FailFromErrno();
  return bytes;
}

void LinuxFileSystem::WriteAll(TextView path, std::string_view bytes) {
  if (path.empty()) Fail(kErrBadFileNameOrNumber);
  if (!linux_io::ReplaceFileAtomically(PathBytes(path), bytes)) FailFromErrno();
}

void LinuxFileSystem::Append(TextView path, std::string_view bytes) {
  int fd = OpenOrFail(path, O_WRONLY | O_APPEND | O_CREAT);
  FdCloser closer(fd);
  if (!linux_io::WriteFd(fd, bytes)) FailFromErrno();
}

int64_t LinuxFileSystem::Length(TextView path) {
  struct stat st {};
  if (stat(PathBytes(path).c_str(), &st) != 0) FailFromErrno();
  return st.st_size;
}

void LinuxFileSystem::Copy(TextView from, TextView to) {
  int in = OpenOrFail(from, O_RDONLY);
  FdCloser close_in(in);
  std::string bytes;
  if (!linux_io::ReadFd(in, bytes)) FailFromErrno();
  int out = OpenOrFail(to, O_WRONLY | O_CREAT | O_TRUNC);
  FdCloser close_out(out);
  if (!linux_io::WriteFd(out, bytes)) FailFromErrno();
}

void LinuxFileSystem::Delete(TextView path) {
  std::string p = PathBytes(path);
  struct stat st {};
  if (lstat(p.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) Fail(kErrPathFileAccess);
  if (unlink(p.c_str()) != 0) FailFromErrno();
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

bool LinuxFileSystem::Enumerate(TextView pattern, std::vector<FileEntry>& out) {
  out.clear();
  size_t slash = pattern.rfind(u'/');
  Text folder = slash == TextView::npos ? Text(u".") : Text(pattern.substr(0, slash == 0 ? 1 : slash));
  TextView mask = slash == TextView::npos ? pattern : pattern.substr(slash + 1);
  if (mask.empty()) return false;
  std::string folder_bytes = PathBytes(folder);

  if (!HasWildcard(mask)) {
    // A plain name designates one file, and Linux names are case-sensitive:
    // look that name up alone. (Matching it without regard to case would let
    // a read-write open create a second file beside the one found.)
    struct stat st {};
    std::string full = folder_bytes + "/" + PathBytes(mask);
    if (stat(full.c_str(), &st) != 0) return false;
    out.push_back(EntryFromStat(mask, st));
    return true;
  }

  DIR* dir = opendir(folder_bytes.c_str());
  if (!dir) return false;
  int dfd = dirfd(dir);
  while (struct dirent* d = readdir(dir)) {
    Text name = Utf8ToText(d->d_name);
    if (!MaskMatches(mask, name)) continue;
    struct stat st {};
    if (fstatat(dfd, d->d_name, &st, 0) != 0 && fstatat(dfd, d->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0)
      continue;  // vanished since readdir
    out.push_back(EntryFromStat(name, st));
  }
  closedir(dir);
  return !out.empty();
}

LinuxFileSystem& LinuxFiles() {
  static LinuxFileSystem files;
  return files;
}

}  // namespace varnek
