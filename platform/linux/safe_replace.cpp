// Replacing a whole file without ever losing it: see safe_replace.h.
#include "varnek/platform/linux/safe_replace.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "varnek/platform/linux/file_io.h"

namespace varnek::linux_io {

namespace {

constexpr char kSaveMark[] = ".varnek-save-";
constexpr char kKeepMark[] = ".varnek-keep-";

mode_t DefaultMode() {
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// Closes a descriptor at the end of a scope, keeping errno.
class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { Reset(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  int Release() {
    int fd = fd_;
    fd_ = -1;
    return fd;
  }
  void Reset(int fd = -1) {
    if (fd_ >= 0) {
      int saved = errno;
      close(fd_);
      errno = saved;
    }
    fd_ = fd;
  }

 private:
  int fd_;
};

void SyncFolder(const std::string& folder) {
  int dir = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dir >= 0) {
    fsync(dir);  // makes a rename durable; a failure here changes nothing
    close(dir);
  }
}

// A temporary file "<folder>/.<base><mark><pid>-XXXXXX"; its name into temp.
int MakeTemp(const std::string& folder, const std::string& base, const char* mark, std::string& temp) {
  temp = folder + "/." + base + mark + std::to_string(getpid()) + "-XXXXXX";
  return mkostemp(temp.data(), O_CLOEXEC);
}

// Removes ".<base>.varnek-save-<pid>-*" files of processes that are gone.
void RemoveStaleTemps(const std::string& folder, const std::string& base) {
  DIR* dir = opendir(folder.c_str());
  if (!dir) return;
  const std::string prefix = "." + base + kSaveMark;
  while (dirent* entry = readdir(dir)) {
    std::string name = entry->d_name;
    if (name.compare(0, prefix.size(), prefix) != 0) continue;
    char* end = nullptr;
    long pid = strtol(name.c_str() + prefix.size(), &end, 10);
    if (pid <= 0 || !end || *end != '-' || std::string_view(end + 1).size() != 6) continue;
    if (pid != getpid() && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH)
      unlinkat(dirfd(dir), entry->d_name, 0);
  }
  closedir(dir);
}

bool HasAcl(int fd) { return fgetxattr(fd, "system.posix_acl_access", nullptr, 0) > 0; }

// Writes bytes into fd from its start, fsyncs, and cuts the file there.
bool WriteWhole(int fd, std::string_view bytes) {
  return ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0 && WriteFd(fd, bytes) && fsync(fd) == 0;
}

// The atomic way: a temporary file with the old owner and mode, renamed over
// the target. Returns 1 on success, 0 on a failure that left the target
// untouched (errno set), -1 when the temporary file cannot be made or cannot
// take the old owner: the caller then writes in place.
int ReplaceByRename(const std::string& target, const struct stat* old, mode_t new_mode,
                    std::string_view bytes) {
  const std::string folder = FolderOf(target);
  const std::string base = BaseOf(target);
  std::string temp;
  Fd fd(MakeTemp(folder, base, kSaveMark, temp));
  if (fd.get() < 0) return old ? -1 : 0;
  auto fail = [&](int result) {
    int saved = errno;
    fd.Reset();
    unlink(temp.c_str());
    errno = saved;
    return result;
  };
  if (old) {
    if ((old->st_uid != geteuid() || old->st_gid != getegid()) &&
        fchown(fd.get(), old->st_uid, old->st_gid) != 0)
      return fail(-1);
    if (fchmod(fd.get(), old->st_mode & 07777) != 0) return fail(-1);
  } else if (fchmod(fd.get(), new_mode) != 0) {
    return fail(0);
  }
  if (!WriteFd(fd.get(), bytes) || fsync(fd.get()) != 0) return fail(0);
  if (close(fd.Release()) != 0) {
    int saved = errno;
    unlink(temp.c_str());
    errno = saved;
    return 0;
  }
  if (rename(temp.c_str(), target.c_str()) != 0) {
    int saved = errno;
    unlink(temp.c_str());
    errno = saved;
    return 0;
  }
  SyncFolder(folder);
  return 1;
}

// The in-place way, on a descriptor open for writing: the old content is
// copied aside and synced first, then the file is rewritten; a failed write
// puts the old content back.
bool ReplaceInPlace(const std::string& target, int fd, std::string_view bytes) {
  std::string old_bytes;
  bool have_old = ReadFile(target, old_bytes);
  std::string keep;
  Fd keep_fd;
  if (have_old) {
    const std::string base = BaseOf(target);
    keep_fd.Reset(MakeTemp(FolderOf(target), base, kKeepMark, keep));
    if (keep_fd.get() < 0) {
      const char* tmpdir = getenv("TMPDIR");
      keep_fd.Reset(MakeTemp(tmpdir && *tmpdir == '/' ? tmpdir : "/tmp", base, kKeepMark, keep));
    }
    if (keep_fd.get() < 0) return false;  // nowhere to keep the old content safe
    fchmod(keep_fd.get(), 0600);
    if (!WriteFd(keep_fd.get(), old_bytes) || fsync(keep_fd.get()) != 0) {
      int saved = errno;
      unlink(keep.c_str());
      errno = saved;
      return false;
    }
  }
  if (WriteWhole(fd, bytes)) {
    if (have_old) unlink(keep.c_str());
    return true;
  }
  int saved = errno;
  if (have_old && WriteWhole(fd, old_bytes)) unlink(keep.c_str());
  errno = saved;
  return false;
}

}  // namespace

bool FollowLinks(const std::string& path, std::string& target) {
  target = path;
  for (int hops = 0; hops <= 40; ++hops) {
    struct stat st {};
    if (lstat(target.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return true;
    std::string link(PATH_MAX, '\0');
    ssize_t n = readlink(target.c_str(), link.data(), link.size());
    if (n < 0) return false;
    link.resize(static_cast<size_t>(n));
    target = link[0] == '/' ? link : FolderOf(target) + "/" + link;
  }
  errno = ELOOP;
  return false;
}

bool ReplaceFile(const std::string& path, std::string_view bytes, mode_t new_mode) {
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  std::string target;
  if (!FollowLinks(path, target)) return false;
  RemoveStaleTemps(FolderOf(target), BaseOf(target));

  // Writability as the truncating open would see it, without truncating.
  Fd fd(open(target.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC));
  if (fd.get() < 0) {
    if (errno != ENOENT) return false;
    return ReplaceByRename(target, nullptr, new_mode ? new_mode : DefaultMode(), bytes) == 1;
  }
  struct stat st {};
  if (fstat(fd.get(), &st) != 0) return false;
  if (!S_ISREG(st.st_mode)) {
    errno = ENODEV;
    return false;
  }
  fcntl(fd.get(), F_SETFL, fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
  if (st.st_nlink == 1 && !HasAcl(fd.get())) {
    int done = ReplaceByRename(target, &st, 0, bytes);
    if (done >= 0) return done == 1;
  }
  return ReplaceInPlace(target, fd.get(), bytes);
}

}  // namespace varnek::linux_io
