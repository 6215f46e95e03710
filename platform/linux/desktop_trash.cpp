// Moving deleted files to the desktop's trash: see desktop_trash.h.
#include "varnek/platform/linux/internal/desktop_trash.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>
#include <utility>
#include <vector>

#include "varnek/platform/linux/internal/file_io.h"

namespace varnek::linux_io {

namespace fs = std::filesystem;

namespace {

// The path as a trashinfo "Path=" value: percent-encoded bytes, "/" kept.
std::string EncodePath(const std::string& path) {
  static const char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (unsigned char c : path) {
    bool plain = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                 c == '/' || c == '-' || c == '_' || c == '.' || c == '~';
    if (plain) {
      out += static_cast<char>(c);
    } else {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    }
  }
  return out;
}

std::string LocalTimeStamp() {
  time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  char text[32];
  strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
  return text;
}

std::error_code LastError() { return std::error_code(errno, std::generic_category()); }

// Removes what was copied to the trash from its source, deepest first. A
// part that cannot be removed stays where it was and its copy leaves the
// trash, so every file ends in exactly one of the two places. The first
// error, or none.
std::error_code RemoveCopied(const fs::path& source, const fs::path& copy) {
  std::error_code first, ignored;
  struct stat st {};
  if (lstat(source.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) {
    std::vector<fs::path> names;  // listed first: the folder changes below
    for (fs::directory_iterator it(source, first), end; !first && it != end; it.increment(first))
      names.push_back(it->path().filename());
    for (const fs::path& name : names) {
      std::error_code part = RemoveCopied(source / name, copy / name);
      if (!first) first = part;
    }
    if (rmdir(source.c_str()) == 0) return first;
    if (!first) first = LastError();
    rmdir(copy.c_str());  // kept while it holds what left the source
    return first;
  }
  if (unlink(source.c_str()) == 0) return {};
  first = LastError();
  fs::remove(copy, ignored);
  return first;
}

// Copies a file, link or folder tree; folders are made writable for the
// owner and their own modes noted in `modes`, to be given once the copy is
// done with (the copy of a read-only folder must still be filled and pruned).
std::error_code CopyTree(const fs::path& from, const fs::path& to,
                         std::vector<std::pair<fs::path, mode_t>>& modes) {
  std::error_code ec;
  struct stat st {};
  if (lstat(from.c_str(), &st) != 0) return LastError();
  if (S_ISLNK(st.st_mode)) {
    fs::copy_symlink(from, to, ec);
  } else if (S_ISREG(st.st_mode)) {
    fs::copy_file(from, to, ec);
  } else if (!S_ISDIR(st.st_mode)) {
    ec = std::make_error_code(std::errc::not_supported);  // a pipe or device stays where it is
  } else if (mkdir(to.c_str(), 0700) != 0) {
    ec = LastError();
  } else {
    modes.emplace_back(to, st.st_mode & 07777);
    for (fs::directory_iterator it(from, ec), end; !ec && it != end; it.increment(ec)) {
      ec = CopyTree(it->path(), to / it->path().filename(), modes);
      if (ec) break;
    }
  }
  return ec;
}

// A source on another file system: copied into the trash whole and flushed
// to its disk before anything of the source goes. A copy that fails is
// removed again and the source is left untouched.
std::error_code TrashAcrossFileSystems(const fs::path& source, const fs::path& target) {
  std::vector<std::pair<fs::path, mode_t>> modes;
  std::error_code ec = CopyTree(source, target, modes), ignored;
  if (!ec) {
    int folder = open(target.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder < 0 || syncfs(folder) != 0) ec = LastError();
    if (folder >= 0) close(folder);
  }
  if (ec) {
    fs::remove_all(target, ignored);
    return ec;
  }
  ec = RemoveCopied(source, target);
  for (auto it = modes.rbegin(); it != modes.rend(); ++it) chmod(it->first.c_str(), it->second);
  return ec;
}

}  // namespace

std::error_code MoveToTrash(const std::string& path) {
  std::error_code ec;
  fs::path source = fs::absolute(path, ec).lexically_normal();
  if (ec) return ec;
  if (!fs::exists(fs::symlink_status(source, ec)))
    return std::make_error_code(std::errc::no_such_file_or_directory);
  const fs::path trash = fs::path(DataHome()) / "Trash";
  for (const char* part : {"files", "info"}) {
    fs::create_directories(trash / part, ec);
    if (ec) return ec;
  }
  fs::permissions(trash, fs::perms::owner_all, ec);  // the trash is private
  ec.clear();
  std::string base = source.filename().string();
  for (int n = 1; n <= 10000; ++n) {
    std::string name = n == 1 ? base : base + "." + std::to_string(n);
    fs::path info = trash / "info" / (name + ".trashinfo");
    fs::path target = trash / "files" / name;
    int fd = open(info.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (fd < 0) {
      if (errno == EEXIST) continue;
      return LastError();
    }
    struct stat st {};
    if (lstat(target.c_str(), &st) == 0) {  // a stray file without its info
      close(fd);
      unlink(info.c_str());
      continue;
    }
    std::string text = "[Trash Info]\nPath=" + EncodePath(source.string()) +
                       "\nDeletionDate=" + LocalTimeStamp() + "\n";
    bool written = WriteFd(fd, text) && fsync(fd) == 0;
    std::error_code write_error = written ? std::error_code() : LastError();
    close(fd);
    if (written && rename(source.c_str(), target.c_str()) == 0) return {};
    if (written && errno == EXDEV) {
      ec = TrashAcrossFileSystems(source, target);
      if (!ec) return {};
      std::error_code ignored;
      if (fs::exists(fs::symlink_status(target, ignored))) return ec;  // part of it is in the trash
    } else {
      ec = written ? LastError() : write_error;
    }
    unlink(info.c_str());
    return ec;
  }
  return std::make_error_code(std::errc::file_exists);
}

}  // namespace varnek::linux_io
