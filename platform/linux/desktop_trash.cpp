// Moving deleted files to the desktop's trash: see desktop_trash.h.
#include "varnek/platform/linux/desktop_trash.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <filesystem>

#include "varnek/platform/linux/file_io.h"

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

}  // namespace

std::error_code MoveToTrash(const std::string& path) {
  std::error_code ec;
  fs::path source = fs::absolute(path, ec).lexically_normal();
  if (ec) return ec;
  if (!fs::exists(fs::symlink_status(source, ec))) return std::make_error_code(std::errc::no_such_file_or_directory);
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
      fs::copy(source, target, fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
      if (!ec) fs::remove_all(source, ec);
      if (!ec) return {};
      std::error_code ignored;
      fs::remove_all(target, ignored);
    } else {
      ec = written ? LastError() : write_error;
    }
    unlink(info.c_str());
    return ec;
  }
  return std::make_error_code(std::errc::file_exists);
}

}  // namespace varnek::linux_io
