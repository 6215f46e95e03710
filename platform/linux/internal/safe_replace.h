// The one way the Linux services replace a whole file (files, profiles, the
// settings store, downloads). It behaves like the truncating write the
// routines describe, and never leaves a file that is neither old nor new:
//
//   - a file the caller could not open for writing (mode, owner, ACLs, a
//     read-only mount) fails as that open fails, and is left untouched;
//   - a symbolic link is followed: its target is written, the link stays;
//   - mode and owner are kept;
//   - every save holds an exclusive flock on the file from its reading to its
//     replacement, and every read of a saved file a shared one, so two
//     processes never undo each other's changes (EditFile) and a reader
//     never sees half a save;
//   - normally the bytes go to a temporary file in the same folder (see
//     temp_files.h), fsynced and renamed over the file, the folder fsynced;
//     a new file is put in place with a rename that does not overwrite, so
//     two processes that create it at once both see their change in it;
//   - a file with more than one hard link, one with an ACL, one whose folder
//     the caller may not write, or whose owner a new file could not keep, is
//     written in place, after its old content has been kept aside (see
//     keep_copy.h); a save or read that finds a keep copy left by a save that
//     was cut short puts the old content back first;
//   - all names are taken relative to the open folder, so a name of 255
//     bytes in a path up to PATH_MAX saves wherever the truncating write
//     would.
#pragma once

#include <sys/types.h>

#include <functional>
#include <string>
#include <string_view>

namespace varnek::linux_io {

// Replaces the file at path (UTF-8) by bytes. new_mode is the mode of a file
// that does not exist yet (0 means 0666 less the umask). False with errno set
// on failure; the file then holds its old content.
bool ReplaceFile(const std::string& path, std::string_view bytes, mode_t new_mode = 0);

// The same with the content of source_fd, read from its start.
bool ReplaceFileFrom(const std::string& path, int source_fd, mode_t new_mode = 0);

// What an edit of EditFile decides.
enum class Edit { kWrite, kLeave, kFail };

// Read, change and replace under the file's exclusive lock. edit gets the
// current bytes ("" with exists false for a missing file) and either leaves
// the new bytes in them and answers kWrite, answers kLeave to change nothing
// (EditFile then gives true), or kFail with errno set. A file that is there
// but cannot be read and written fails without calling edit.
using Editor = std::function<Edit(std::string& bytes, bool exists)>;
bool EditFile(const std::string& path, const Editor& edit, mode_t new_mode = 0);

// Reads a whole regular file as the saves above leave it: under a shared
// lock, after putting back the old content of an in-place save that was cut
// short (or reading that content, when the caller may not write the file).
// False with errno as ReadFile.
bool ReadSavedFile(const std::string& path, std::string& out);
// The same on a descriptor open for reading.
bool ReadSavedFd(int fd, std::string& out);

// The file a path names once its symbolic links are followed (up to 40, as
// the kernel does); a missing last target is returned as it stands. False
// with errno (ELOOP, ...) when the chain cannot be followed.
bool FollowLinks(const std::string& path, std::string& target);

}  // namespace varnek::linux_io
