// Keep copies of files rewritten in place: see keep_copy.h.
#include "varnek/platform/linux/internal/keep_copy.h"

#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/temp_files.h"

namespace varnek::linux_io {

namespace {

constexpr char kMagic[] = "VARNEK-KEEP\n";

std::string Hex(unsigned long long n) {
  char buffer[32];
  snprintf(buffer, sizeof buffer, "%llx", n);
  return buffer;
}

// A private folder of the user's: made 0700 when missing, refused when it
// belongs to someone else or others may enter it.
UniqueFd OwnFolder(const std::string& path, bool create) {
  if (create && mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) return UniqueFd();
  UniqueFd dir = OpenFolder(path);
  struct stat st {};
  if (dir.ok() &&
      (fstat(dir.get(), &st) != 0 || st.st_uid != geteuid() || (st.st_mode & 077) != 0)) {
    dir.Reset();
    errno = EACCES;
  }
  return dir;
}

std::string StateFolder() { return XdgFolder("XDG_STATE_HOME", ".local/state"); }

std::string TempKeepFolder() {
  const char* tmpdir = getenv("TMPDIR");
  return std::string(tmpdir && *tmpdir == '/' ? tmpdir : "/tmp") + "/varnek-keep-" +
         std::to_string(geteuid());
}

}  // namespace

KeepCopy::KeepCopy(int fd, int folder_fd) : fd_(fd), folder_fd_(folder_fd) {
  struct stat st {};
  if (fstat(fd, &st) == 0) {
    dev_ = st.st_dev;
    ino_ = st.st_ino;
    known_ = true;
  }
}

std::string KeepCopy::Name(int place) const {
  std::string key = Hex(dev_) + "-" + Hex(ino_);
  return place == 0 ? ".varnek-keep-" + key : key;
}

std::string KeepCopy::Header() {
  if (!have_path_) {
    std::string link = "/proc/self/fd/" + std::to_string(fd_);
    path_.assign(PATH_MAX, '\0');
    ssize_t n = readlink(link.c_str(), path_.data(), path_.size());
    path_.resize(n > 0 ? static_cast<size_t>(n) : 0);
    have_path_ = true;
  }
  return kMagic + path_ + "\n";
}

int KeepCopy::OpenPlace(int place, bool create) {
  if (place == 0) return folder_fd_;
  if (!places_[place].ok()) {
    if (place == 1) {
      const std::string state = StateFolder();
      if (create) {
        std::string parent = FolderOf(state);
        mkdir(FolderOf(parent).c_str(), 0700);  // ~/.local
        mkdir(parent.c_str(), 0700);
        mkdir(state.c_str(), 0700);
      }
      places_[1] = OwnFolder(state + "/varnek-keep", create);
    } else {
      places_[2] = OwnFolder(TempKeepFolder(), create);
    }
  }
  return places_[place].get();
}

bool KeepCopy::Make(std::string_view old_bytes) {
  if (!known_) return false;
  const std::string header = Header();
  int error = EACCES;
  for (int place = 0; place < kPlaces; ++place) {
    int dir = OpenPlace(place, true);
    if (dir < 0) {
      error = errno;
      continue;
    }
    if (place > 0) RemoveStaleTemps(dir, "");
    // Written without a name and linked when whole: a kill leaves no part.
    std::string temp;
    UniqueFd out = MakeUnnamedAt(dir, "", temp);
    bool done = out.ok() && WriteFd(out.get(), header) && WriteFd(out.get(), old_bytes) &&
                fsync(out.get()) == 0 && PlaceAt(out.get(), dir, temp, "", Name(place), true);
    error = errno;
    if (done) {
      SyncFolder(dir);
      used_ = place;
      return true;
    }
    if (!temp.empty()) unlinkat(dir, temp.c_str(), 0);
  }
  errno = error;
  return false;
}

bool KeepCopy::FindLeft(std::string& old_bytes) {
  if (!known_) return false;
  for (int place = 0; place < kPlaces; ++place) {
    int dir = OpenPlace(place, false);
    if (dir < 0) continue;
    UniqueFd in(
        RetryOnEintr([&] { return openat(dir, Name(place).c_str(), O_RDONLY | O_CLOEXEC); }));
    if (!in.ok()) continue;
    std::string content;
    if (!ReadFd(in.get(), content)) continue;
    const std::string header = Header();
    if (content.compare(0, header.size(), header) != 0) continue;  // another file's
    old_bytes = content.substr(header.size());
    used_ = place;
    return true;
  }
  return false;
}

void KeepCopy::Remove() {
  if (used_ < 0) return;
  int dir = OpenPlace(used_, false);
  if (dir >= 0 && unlinkat(dir, Name(used_).c_str(), 0) == 0) SyncFolder(dir);
  used_ = -1;
}

}  // namespace varnek::linux_io
