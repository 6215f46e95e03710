// The shell's file operations on Linux: move, copy, delete and rename of
// NUL-separated lists whose last path part may hold a mask.
#include <errno.h>
#include <stdio.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "varnek/platform/linux/internal/desktop_trash.h"
#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/linux_files.h"

namespace varnek {

namespace fs = std::filesystem;

namespace {

constexpr int32_t kOk = 0;
constexpr int32_t kNotFound = 2;
constexpr int32_t kAccessDenied = 5;
constexpr int32_t kAlreadyExists = 0xB7;
constexpr int32_t kInvalidRequest = 0x7C;
constexpr int32_t kDestinationInsideSource = 0x76;

// Items of a list: each ended by NUL, the list by an empty item.
std::vector<Text> SplitList(TextView list) {
  std::vector<Text> items;
  size_t start = 0;
  while (start < list.size()) {
    size_t end = list.find(u'\0', start);
    if (end == TextView::npos) end = list.size();
    if (end == start) break;
    items.emplace_back(list.substr(start, end - start));
    start = end + 1;
  }
  return items;
}

int32_t CodeOf(const std::error_code& ec) {
  if (!ec) return kOk;
  if (ec == std::errc::no_such_file_or_directory) return kNotFound;
  if (ec == std::errc::permission_denied || ec == std::errc::operation_not_permitted)
    return kAccessDenied;
  if (ec == std::errc::file_exists) return kAlreadyExists;
  return kInvalidRequest;
}

fs::path PathOf(TextView text) { return fs::path(linux_io::PathBytes(text)); }

// Expands the sources: a mask in the last part becomes the matching entries.
int32_t ExpandSources(FileSystem& files, const std::vector<Text>& items, bool files_only,
                      std::vector<fs::path>& out) {
  for (const Text& item : items) {
    size_t slash = item.rfind(u'/');
    TextView last = slash == Text::npos ? TextView(item) : TextView(item).substr(slash + 1);
    if (last.find_first_of(u"*?") == TextView::npos) {
      if (!files.Exists(item)) return kNotFound;
      out.push_back(PathOf(item));
      continue;
    }
    std::vector<FileEntry> found;
    files.Enumerate(item, found);
    Text folder = slash == Text::npos ? Text() : item.substr(0, slash + 1);
    for (const FileEntry& e : found) {
      if (e.name == u"." || e.name == u"..") continue;
      if (files_only && e.directory) continue;
      out.push_back(PathOf(folder + e.name));
    }
  }
  return kOk;
}

// "Copy of name", "Copy (2) of name", ... : the first that is free.
fs::path FreeCopyName(const fs::path& target) {
  std::error_code ec;
  std::string base = target.filename().string();
  for (int n = 1;; ++n) {
    std::string name = n == 1 ? "Copy of " + base : "Copy (" + std::to_string(n) + ") of " + base;
    fs::path candidate = target.parent_path() / name;
    if (!fs::exists(candidate, ec)) return candidate;
  }
}

std::error_code CopyOne(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  if (to.has_parent_path()) fs::create_directories(to.parent_path(), ec);
  ec.clear();
  fs::copy(from, to,
           fs::copy_options::recursive | fs::copy_options::overwrite_existing |
               fs::copy_options::copy_symlinks,
           ec);
  return ec;
}

std::error_code MoveOne(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  if (to.has_parent_path()) fs::create_directories(to.parent_path(), ec);
  ec.clear();
  if (fs::is_directory(to, ec) && !fs::is_directory(from, ec)) {
    ec = std::make_error_code(std::errc::is_a_directory);
    return ec;
  }
  ec.clear();
  fs::rename(from, to, ec);
  if (ec == std::errc::cross_device_link) {
    ec = CopyOne(from, to);
    if (!ec) fs::remove_all(from, ec);
  }
  return ec;
}

// True when `to` is the folder `from` itself or lies inside it, once links
// are followed: copying there would copy its own copies without end.
bool InsideItself(const fs::path& from, const fs::path& to) {
  std::error_code ec;
  if (!fs::is_directory(from, ec)) return false;
  fs::path source = fs::weakly_canonical(from, ec);
  if (ec) return false;
  fs::path target = fs::weakly_canonical(to, ec);
  if (ec) return false;
  return std::mismatch(source.begin(), source.end(), target.begin(), target.end()).first ==
         source.end();
}

int32_t CopyOrMove(FileSystem& files, const ShellFileRequest& r, bool move) {
  std::vector<fs::path> sources;
  int32_t code = ExpandSources(files, SplitList(r.from), (r.flags & kShellFilesOnly) != 0, sources);
  if (code != kOk) return code;
  std::vector<Text> targets = SplitList(r.to);
  if (sources.empty() || targets.empty()) return kInvalidRequest;
  bool multi = (r.flags & kShellMultiDestFiles) != 0;
  if (multi && targets.size() != sources.size()) return kInvalidRequest;
  fs::path dest = PathOf(targets[0]);
  std::error_code ec;
  bool into_folder = !multi && (fs::is_directory(dest, ec) || sources.size() > 1);
  std::vector<fs::path> to(sources.size());
  for (size_t i = 0; i < sources.size(); ++i) {
    to[i] = multi ? PathOf(targets[i]) : into_folder ? dest / sources[i].filename() : dest;
    // before anything is written
    if (InsideItself(sources[i], to[i])) return kDestinationInsideSource;
  }
  for (size_t i = 0; i < sources.size(); ++i) {
    if (!move && (r.flags & kShellRenameOnCollision) && fs::exists(to[i], ec))
      to[i] = FreeCopyName(to[i]);
    std::error_code step = move ? MoveOne(sources[i], to[i]) : CopyOne(sources[i], to[i]);
    if (step) return CodeOf(step);
  }
  return kOk;
}

int32_t DeleteAll(FileSystem& files, const ShellFileRequest& r) {
  std::vector<fs::path> sources;
  int32_t code = ExpandSources(files, SplitList(r.from), (r.flags & kShellFilesOnly) != 0, sources);
  if (code != kOk) return code;
  if (sources.empty()) return kInvalidRequest;
  // With "allow undo" the items go to the desktop's trash; without it they
  // are deleted for good. No confirmation is ever asked.
  bool to_trash = (r.flags & kShellAllowUndo) != 0;
  for (const fs::path& p : sources) {
    std::error_code ec;
    if (to_trash) {
      ec = linux_io::MoveToTrash(p.string());
    } else {
      fs::remove_all(p, ec);
    }
    if (ec) return CodeOf(ec);
  }
  return kOk;
}

int32_t RenameOne(const ShellFileRequest& r) {
  std::vector<Text> from = SplitList(r.from);
  std::vector<Text> to = SplitList(r.to);
  if (from.size() != 1 || to.size() != 1) return kInvalidRequest;
  fs::path source = PathOf(from[0]);
  fs::path target = PathOf(to[0]);
  std::error_code ec;
  if (!fs::exists(fs::symlink_status(source, ec))) return kNotFound;
  if (fs::exists(fs::symlink_status(target, ec))) return kAlreadyExists;
  fs::rename(source, target, ec);
  return CodeOf(ec);
}

}  // namespace

int32_t LinuxFileSystem::ShellOperation(const ShellFileRequest& request) {
  switch (request.function) {
    case kShellMove: return CopyOrMove(*this, request, true);
    case kShellCopy: return CopyOrMove(*this, request, false);
    case kShellDelete: return DeleteAll(*this, request);
    case kShellRename: return RenameOne(request);
    default: return kInvalidRequest;
  }
}

}  // namespace varnek
