// The desktop's trash on Linux, in the freedesktop.org layout the file
// managers share: $XDG_DATA_HOME/Trash/files/<name> holds what was deleted,
// $XDG_DATA_HOME/Trash/info/<name>.trashinfo where it came from and when.
#pragma once

#include <string>
#include <system_error>

namespace varnek::linux_io {

// Moves a file or folder (UTF-8 path) into the trash of linux_io::DataHome() under a free name
// ("a.txt", "a.txt.2", ...), writing its .trashinfo first. Nothing is asked.
// A path on another file system is copied into the trash and then removed.
// The error of the step that failed; the path then stays where it was.
std::error_code MoveToTrash(const std::string& path);

}  // namespace varnek::linux_io
