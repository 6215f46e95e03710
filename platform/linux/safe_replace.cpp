// Replacing a whole file without ever losing it: see safe_replace.h.
#include "varnek/platform/linux/internal/safe_replace.h"

#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/keep_copy.h"
#include "varnek/platform/linux/internal/temp_files.h"

namespace varnek::linux_io {

namespace {

// Rounds of "open, lock, find the file replaced meanwhile" before giving up.
constexpr int kMaxLockRounds = 1000;

mode_t DefaultMode() {
  mode_t mask = umask(0);
  umask(mask);
  return 0666 & ~mask;
}

// New content: bytes, or a descriptor's whole content.
struct Content {
  std::string_view bytes;
  int fd = -1;

  bool WriteTo(int out) const {
    if (fd < 0) return WriteFd(out, bytes);
    char chunk[65536];
    for (off_t at = 0;;) {
      ssize_t n = RetryOnEintr([&] { return pread(fd, chunk, sizeof chunk, at); });
      if (n < 0) return false;
      if (n == 0) return true;
      if (!WriteFd(out, std::string_view(chunk, static_cast<size_t>(n)))) return false;
      at += n;
    }
  }
};

// Takes or drops the file's flock. A file system without locks (ENOLCK,
// EOPNOTSUPP, EINVAL) is read and saved unlocked rather than not at all.
bool Lock(int fd, int how) {
  if (RetryOnEintr([&] { return flock(fd, how); }) == 0) return true;
  return errno == ENOLCK || errno == EOPNOTSUPP || errno == EINVAL;
}

bool HasAcl(int fd) { return fgetxattr(fd, "system.posix_acl_access", nullptr, 0) > 0; }

// Writes the content into fd from its start, fsyncs, and cuts the file there.
bool WriteWhole(int fd, const Content& content) {
  return ftruncate(fd, 0) == 0 && lseek(fd, 0, SEEK_SET) == 0 && content.WriteTo(fd) &&
         fsync(fd) == 0;
}

// The outcome of writing new content beside the file.
enum class Staged { kDone, kFailed, kNoTemp };

// Writes the content to a new file in the folder with the old owner and mode
// (new_mode for a new file), synced, and gives it the name `to`. kNoTemp when
// the new file cannot be made or cannot take the old owner; kFailed (errno)
// when writing or naming it failed. Nothing is left behind on failure.
Staged WriteBeside(int dir, const std::string& base, const struct stat* old, mode_t new_mode,
                   const Content& content, bool replace) {
  std::string temp;
  UniqueFd fd = MakeUnnamedAt(dir, base, temp);
  if (!fd.ok()) return Staged::kNoTemp;
  Staged result = Staged::kDone;
  if (old && (old->st_uid != geteuid() || old->st_gid != getegid()) &&
      fchown(fd.get(), old->st_uid, old->st_gid) != 0) {
    result = Staged::kNoTemp;
  } else if (fchmod(fd.get(), old ? old->st_mode & 07777 : new_mode) != 0 ||
             !content.WriteTo(fd.get()) || fsync(fd.get()) != 0 ||
             !PlaceAt(fd.get(), dir, temp, base, base, replace)) {
    result = Staged::kFailed;
  }
  if (result != Staged::kDone && !temp.empty()) {
    int saved = errno;
    unlinkat(dir, temp.c_str(), 0);
    errno = saved;
  }
  if (result == Staged::kDone) SyncFolder(dir);
  return result;
}

// A file that is not there yet, made without overwriting: 1 made, 0 failed
// (errno), -1 someone else made it meanwhile.
int CreateNew(int dir, const std::string& base, mode_t mode, const Content& content) {
  if (WriteBeside(dir, base, nullptr, mode, content, false) == Staged::kDone) return 1;
  return errno == EEXIST ? -1 : 0;
}

// The atomic way: a new file with the old owner and mode, renamed over the
// file. 1 done, 0 failed with the file untouched (errno), -1 when the new
// file cannot be made or cannot take the old owner: the caller then writes
// in place.
int ReplaceByRename(int dir, const std::string& base, const struct stat& old,
                    const Content& content) {
  switch (WriteBeside(dir, base, &old, 0, content, true)) {
    case Staged::kDone: return 1;
    case Staged::kFailed: return 0;
    default: return -1;
  }
}

// The in-place way, on the locked descriptor: the old content is kept aside
// first, then the file is rewritten; a failed write puts the old content
// back. old: the old bytes when the caller has them already.
bool ReplaceInPlace(int dir, const std::string& base, int fd, const std::string* old,
                    const Content& content) {
  std::string read_now;
  if (!old) {
    UniqueFd in(
        RetryOnEintr([&] { return openat(dir, base.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
    // a write-only file has nothing to keep
    if (in.ok() && ReadFd(in.get(), read_now)) old = &read_now;
  }
  KeepCopy keep(fd, dir);
  if (old && !keep.Make(*old)) return false;  // nowhere to keep the old content safe
  if (WriteWhole(fd, content)) {
    keep.Remove();
    return true;
  }
  int saved = errno;
  if (old && WriteWhole(fd, Content{*old})) keep.Remove();
  errno = saved;
  return false;
}

// Puts back the old content of an in-place save of this file that was cut
// short; fd is locked and writable. False (errno) when that fails.
bool RestoreLeftKeep(int fd, int dir) {
  KeepCopy keep(fd, dir);
  std::string old;
  if (!keep.FindLeft(old)) return true;
  if (!WriteWhole(fd, Content{old})) return false;
  keep.Remove();
  return true;
}

// An edit of a file that may be read but not written: an edit that changes
// nothing succeeds; one that would write fails as the open for writing did.
bool EditReadOnly(int dir, const std::string& base, const Editor& edit) {
  const int refused = errno;
  UniqueFd fd(
      RetryOnEintr([&] { return openat(dir, base.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC); }));
  std::string bytes;
  if (!fd.ok() || !ReadSavedFd(fd.get(), bytes)) {
    errno = refused;
    return false;
  }
  Edit decided = edit(bytes, true);
  if (decided == Edit::kWrite) errno = refused;
  return decided == Edit::kLeave;
}

// A save of a file that is not there: the edit of "" made without
// overwriting. 1 made, 0 failed (errno), -1 made by another process meanwhile.
int SaveNew(int dir, const std::string& base, const Editor* edit, Content content, mode_t mode) {
  std::string bytes;
  if (edit) {
    Edit decided = (*edit)(bytes, false);
    if (decided != Edit::kWrite) return decided == Edit::kLeave ? 1 : 0;
    content = Content{bytes};
  }
  return CreateNew(dir, base, mode, content);
}

// Takes the exclusive lock of the open file. 1 locked, with st its state; 0
// failed (errno); -1 when a save that held the lock renamed a new file over
// this one meanwhile.
int LockCurrent(int dir, const std::string& base, int fd, struct stat& st) {
  struct stat now {};
  if (fstat(fd, &st) != 0) return 0;
  if (!S_ISREG(st.st_mode)) {
    errno = ENODEV;
    return 0;
  }
  fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) & ~O_NONBLOCK);
  if (!Lock(fd, LOCK_EX)) return 0;
  if (fstatat(dir, base.c_str(), &now, 0) != 0 || now.st_ino != st.st_ino ||
      now.st_dev != st.st_dev)
    return -1;
  return RestoreLeftKeep(fd, dir) && fstat(fd, &st) == 0 ? 1 : 0;
}

// The save of the locked file: the edit of its bytes, if any, then the
// replacement by rename where that keeps everything the file has, else in
// place.
bool SaveLocked(int dir, const std::string& base, int fd, const struct stat& st, const Editor* edit,
                Content content) {
  std::string bytes, old;
  if (edit) {
    if (lseek(fd, 0, SEEK_SET) != 0 || !ReadFd(fd, bytes)) return false;
    old = bytes;
    Edit decided = (*edit)(bytes, true);
    if (decided != Edit::kWrite) return decided == Edit::kLeave;
    content = Content{bytes};
  }
  if (st.st_nlink == 1 && !HasAcl(fd)) {
    int done = ReplaceByRename(dir, base, st, content);
    if (done >= 0) return done == 1;
  }
  return ReplaceInPlace(dir, base, fd, edit ? &old : nullptr, content);
}

// One save. With edit, the old bytes are read under the lock and edited into
// the new content; without, content is written as it is.
bool Save(const std::string& path, const Editor* edit, Content content, mode_t new_mode) {
  if (path.empty()) {
    errno = ENOENT;
    return false;
  }
  std::string target;
  if (!FollowLinks(path, target)) return false;
  const std::string base = BaseOf(target);
  UniqueFd dir = OpenFolder(FolderOf(target));
  if (!dir.ok()) return false;
  RemoveStaleTemps(dir.get(), base);
  const mode_t mode = new_mode ? new_mode : DefaultMode();
  for (int round = 0; round < kMaxLockRounds; ++round) {
    UniqueFd fd(RetryOnEintr([&] {
      return openat(dir.get(), base.c_str(), (edit ? O_RDWR : O_WRONLY) | O_NONBLOCK | O_CLOEXEC);
    }));
    if (!fd.ok() && edit &&
        (errno == EACCES || errno == EPERM || errno == EROFS || errno == ETXTBSY))
      return EditReadOnly(dir.get(), base, *edit);
    int state = 0;
    if (!fd.ok()) {
      if (errno != ENOENT) return false;
      state = SaveNew(dir.get(), base, edit, content, mode);
      if (state >= 0) return state == 1;
      continue;  // made by another process meanwhile: save over that one
    }
    struct stat st {};
    state = LockCurrent(dir.get(), base, fd.get(), st);
    if (state > 0) return SaveLocked(dir.get(), base, fd.get(), st, edit, content);
    if (state == 0) return false;
  }
  errno = EBUSY;
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
  return Save(path, nullptr, Content{bytes}, new_mode);
}

bool ReplaceFileFrom(const std::string& path, int source_fd, mode_t new_mode) {
  return Save(path, nullptr, Content{{}, source_fd}, new_mode);
}

bool EditFile(const std::string& path, const Editor& edit, mode_t new_mode) {
  return Save(path, &edit, Content{}, new_mode);
}

bool ReadSavedFd(int fd, std::string& out) {
  out.clear();
  if (!Lock(fd, LOCK_SH)) return false;
  const std::string self = "/proc/self/fd/" + std::to_string(fd);
  std::string path(PATH_MAX, '\0');
  ssize_t n = readlink(self.c_str(), path.data(), path.size());
  path.resize(n > 0 ? static_cast<size_t>(n) : 0);
  UniqueFd dir = path.empty() ? UniqueFd() : OpenFolder(FolderOf(path));
  std::string old;
  if (KeepCopy(fd, dir.get()).FindLeft(old)) {
    // A save of this file was cut short: put the old content back, under the
    // exclusive lock, or read it as it was kept when the file may not be written.
    Lock(fd, LOCK_UN);
    UniqueFd writer(RetryOnEintr([&] { return open(self.c_str(), O_WRONLY | O_CLOEXEC); }));
    if (!writer.ok()) {
      out = std::move(old);
      return true;
    }
    bool restored = Lock(writer.get(), LOCK_EX) && RestoreLeftKeep(writer.get(), dir.get());
    writer.Reset();
    if (!restored || !Lock(fd, LOCK_SH)) return false;
  }
  bool ok = lseek(fd, 0, SEEK_SET) == 0 && ReadFd(fd, out);
  int saved = errno;
  Lock(fd, LOCK_UN);
  errno = saved;
  return ok;
}

bool ReadSavedFile(const std::string& path, std::string& out) {
  UniqueFd fd(OpenRegular(path, O_RDONLY));
  return fd.ok() && ReadSavedFd(fd.get(), out);
}

}  // namespace varnek::linux_io
