// The one way the Linux services replace a whole file (files, profiles and
// the settings store). It behaves like the truncating write the routines
// describe, and is atomic wherever that is safe:
//
//   - a file the caller could not open for writing (mode, owner, ACLs, a
//     read-only mount) fails as that open fails, and is left untouched;
//   - a symbolic link is followed: its target is written, the link stays;
//   - mode and owner are kept;
//   - normally the bytes go to a temporary file in the same folder (named
//     ".<name>.varnek-save-<pid>-XXXXXX"), which is fsynced and renamed over
//     the file, and the folder fsynced: a crash leaves old or new, whole;
//   - a file with more than one hard link, one with an ACL, one whose folder
//     the caller may not write, or whose owner a new file could not keep, is
//     written in place instead, after its old content has been copied to
//     ".<name>.varnek-keep-<pid>-XXXXXX" beside it (or in $TMPDIR when the
//     folder is not writable); that copy is removed once the new content is
//     on disk, and stays, holding the old content, if the save was cut short;
//   - leftover ".varnek-save-" files of the same name whose process is gone
//     (a save that was killed) are removed first.
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

namespace varnek::linux_io {

// Replaces the file at path (UTF-8) by bytes. new_mode is the mode of a file
// that does not exist yet (0 means 0666 less the umask). False with errno set
// on failure; the file then holds its old content.
bool ReplaceFile(const std::string& path, std::string_view bytes, mode_t new_mode = 0);

// The file a path names once its symbolic links are followed (up to 40, as
// the kernel does); a missing last target is returned as it stands. False
// with errno (ELOOP, ...) when the chain cannot be followed.
bool FollowLinks(const std::string& path, std::string& target);

}  // namespace varnek::linux_io
