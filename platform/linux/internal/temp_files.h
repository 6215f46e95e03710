// Temporary files of the saves, made relative to an open folder so that
// neither a long name nor a long path makes them fail where the file itself
// can be written:
//
//   ".<name>.varnek-save-<pid>-XXXXXX"   when that fits in a name (255 bytes)
//   ".varnek-save-<pid>-XXXXXX"          otherwise
//
// A killed save leaves one behind; the next save in that folder removes
// those whose process is gone.
#pragma once

#include <string>

#include "varnek/platform/linux/internal/unique_fd.h"

namespace varnek::linux_io {

// Opens a folder for *at calls and fsync; -1 with errno on failure.
UniqueFd OpenFolder(const std::string& folder);

// Makes a new temporary file (mode 0600) for `base` in the folder; its name
// into `name`. -1 with errno, and `name` empty, on failure.
UniqueFd MakeTempAt(int folder_fd, const std::string& base, std::string& name);

// A new file for content on its way to a name in the folder: without a name
// (O_TMPFILE) where the file system allows, so that a process killed while
// writing it leaves nothing; else a temporary file as MakeTempAt makes it,
// its name into `name` ("" for a file without a name).
UniqueFd MakeUnnamedAt(int folder_fd, const std::string& base, std::string& name);

// Gives the file of MakeUnnamedAt the name `to` in the folder, over an
// existing file of that name when `replace`, else failing with EEXIST if
// there is one. On failure a temporary name may be left in `name`, for the
// caller to remove.
bool PlaceAt(int fd, int folder_fd, std::string& name, const std::string& base,
             const std::string& to, bool replace);

// Removes the temporary files of `base` (and the short ones of any file)
// whose process has ended.
void RemoveStaleTemps(int folder_fd, const std::string& base);

// Makes a rename or link in the folder durable; a failure changes nothing.
void SyncFolder(int folder_fd);

// A file with no name for content on its way to `path`: in the file's folder,
// else in $TMPDIR (or /tmp). A process killed while it holds one leaves
// nothing behind. -1 with errno on failure.
UniqueFd MakeScratchFile(const std::string& path);

}  // namespace varnek::linux_io
