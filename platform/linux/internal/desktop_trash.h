// The desktop's trash on Linux, in the freedesktop.org layout the file
// managers share: $XDG_DATA_HOME/Trash/files/<name> holds what was deleted,
// $XDG_DATA_HOME/Trash/info/<name>.trashinfo where it came from and when.
#pragma once

#include <string>
#include <system_error>

namespace varnek::linux_io {

// Moves a file or folder (UTF-8 path) into the trash of linux_io::DataHome() under a free name
// ("a.txt", "a.txt.2", ...), writing its .trashinfo first. Nothing is asked.
// A path on another file system is copied into the trash whole, flushed to
// disk, and only then removed from its place; a part that cannot be removed
// stays there and leaves the trash, so no file is lost or doubled. The error
// of the step that failed; unless part of it was trashed, the path then
// stays where it was.
std::error_code MoveToTrash(const std::string& path);

}  // namespace varnek::linux_io
