// The file system on Linux: POSIX calls, "/" as separator, hidden for names
// that begin with ".", labels and serials from mountinfo, /dev/disk and
// libblkid, and the shell's file operations done by hand.
#pragma once

#include "varnek/platform/files.h"

namespace varnek {

class LinuxFileSystem : public FileSystem {
 public:
  std::string ReadAll(TextView path, bool read_only) override;
  void WriteAll(TextView path, std::string_view bytes) override;
  void EditAll(TextView path, const std::function<bool(std::string& bytes)>& edit) override;
  void Append(TextView path, std::string_view bytes) override;
  int64_t Length(TextView path) override;
  void Copy(TextView from, TextView to) override;
  void Delete(TextView path) override;
  bool CreateDirectory(TextView path) override;
  bool Stat(TextView path, FileEntry& entry) override;
  bool SameEntry(TextView a, TextView b) override;
  bool Enumerate(TextView pattern, std::vector<FileEntry>& out) override;
  // The file system holding the path: its label from /dev/disk/by-label or
  // libblkid ("" when it has none), its serial from the first 32 bits of the
  // volume's UUID (for FAT volumes that is the classic serial itself), or,
  // for file systems with no UUID (tmpfs, overlay), the low 32 bits of the
  // statfs file-system id.
  bool VolumeInfo(TextView path, Text& label, uint32_t& serial) override;
  // Move, copy, delete and rename of NUL-separated lists with wildcards.
  // There is no one to ask, so it never confirms, whatever the flags:
  // existing targets are replaced, missing target folders are made. A delete
  // with "allow undo" moves the items to the desktop's trash
  // ($XDG_DATA_HOME/Trash, freedesktop.org layout, with .trashinfo files);
  // without it, deleting deletes. With "rename on collision" a copy onto an
  // existing name becomes "Copy of <name>" ("Copy (2) of <name>", ...).
  int32_t ShellOperation(const ShellFileRequest& request) override;
};

// The process-wide instance.
LinuxFileSystem& LinuxFiles();

}  // namespace varnek
