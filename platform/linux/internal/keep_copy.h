// The old content of a file that is rewritten in place (a file with hard
// links or an ACL, or in a folder the caller may not write), kept aside until
// the new content is on disk. A save cut short leaves it; the next open or
// save of the file puts it back, so the file reads old or new, whole.
//
// Each file has one keep copy at most, under a fixed name made of its device
// and inode, in the first place that takes it:
//   1. the file's own folder:          ".varnek-keep-<dev>-<ino>"
//   2. the user's state folder:        $XDG_STATE_HOME/varnek-keep/<dev>-<ino>
//                                      (default ~/.local/state)
//   3. the temporary folder:           $TMPDIR/varnek-keep-<uid>/<dev>-<ino>
// It starts with a line "VARNEK-KEEP" and the file's path, so that a copy is
// only ever put back into the file it was taken from (not into a later file
// that got the same inode, nor through another of its hard links).
#pragma once

#include <sys/types.h>

#include <string>
#include <string_view>

#include "varnek/platform/linux/internal/unique_fd.h"

namespace varnek::linux_io {

class KeepCopy {
 public:
  // For the regular file open as fd; folder_fd is the folder that holds it.
  KeepCopy(int fd, int folder_fd);

  // Writes the copy whole and synced under a temporary name, then renames it
  // to its fixed name. False with errno when no place takes it.
  bool Make(std::string_view old_bytes);
  // A copy of this file left by a save that was cut short: its content.
  bool FindLeft(std::string& old_bytes);
  // Removes the copy made or found.
  void Remove();

 private:
  static constexpr int kPlaces = 3;
  int OpenPlace(int place, bool create);
  std::string Name(int place) const;
  std::string Header();

  int fd_;
  int folder_fd_;
  dev_t dev_ = 0;
  ino_t ino_ = 0;
  bool known_ = false;
  std::string path_;  // read from /proc once it is needed
  bool have_path_ = false;
  UniqueFd places_[kPlaces];
  int used_ = -1;  // the place of the copy made or found
};

}  // namespace varnek::linux_io
