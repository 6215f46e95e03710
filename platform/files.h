// The file system as the logic sees it: whole files, directories, enumeration
// by mask, attributes, dates, the volume that holds a path and the shell's
// copy/move/delete/rename of file lists.
//
// Paths are Text; on Linux they travel to the kernel as UTF-8 and the
// separator is "/". Failures of the whole-file operations are RuntimeErrors
// with the classic file numbers (53 file not found, 76 path not found, 75
// path/file access error, 70 permission denied, 61 disk full), so the resume
// routines of Adds can swallow them statement by statement.
//
// Rules every implementation keeps:
//   - only regular files are read or written as files: a folder, pipe,
//     socket or device fails at once (75), never waits;
//   - a whole-file write behaves like the truncating write: a file the caller
//     may not write fails (70) and keeps its content; links are followed and
//     mode and owner kept; where it is safe the write is atomic;
//   - an append leaves the whole record or none, even when the process is
//     killed mid-way or the disk fills (the file is cut back and it fails);
//   - names read back from the disk open again, also names that are not
//     UTF-8 (made by other programs).
//
//   std::vector<FileEntry> found;
//   if (fs.Enumerate(u"/tmp/x/*.txt", found)) { ... }
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

// One entry of an enumeration, or the attributes of one path.
struct FileEntry {
  Text name;               // the bare name, without its folder
  bool directory = false;  // the classic directory bit (16)
  bool hidden = false;     // a name that begins with "." (never "." or "..")
  bool system = false;     // no Linux counterpart: always false
  double date = 0;         // last modification, as a classic local date
  int64_t size = 0;
  bool link = false;    // the name is a symbolic link (the rest describes its target)
  uint64_t device = 0;  // device and inode of what the name leads to:
  uint64_t inode = 0;   // equal pairs are one and the same file or folder
};

// The shell's file-operation request: operation code, "from" and "to" lists
// (each item ended by NUL, the list by a second NUL; a single name without
// NULs is a list of one), and the classic flags.
struct ShellFileRequest {
  int32_t function = 0;  // 1 move, 2 copy, 3 delete, 4 rename
  int32_t flags = 0;     // 16-bit flag word, see kShell* below
  Text from;
  Text to;
  int64_t window = 0;  // the parent window's handle; nothing shows on Linux
};

inline constexpr int32_t kShellMove = 1;
inline constexpr int32_t kShellCopy = 2;
inline constexpr int32_t kShellDelete = 3;
inline constexpr int32_t kShellRename = 4;
inline constexpr int32_t kShellMultiDestFiles = 0x1;
inline constexpr int32_t kShellSilent = 0x4;
inline constexpr int32_t kShellRenameOnCollision = 0x8;
inline constexpr int32_t kShellNoConfirmation = 0x10;
inline constexpr int32_t kShellAllowUndo = 0x40;
inline constexpr int32_t kShellFilesOnly = 0x80;
inline constexpr int32_t kShellNoConfirmMkdir = 0x200;

// Mask matching of the classic find-first/find-next, without regard to case:
//   "*" and "*.*"  every name, also "README" and ".profile"
//   "*."           names with no "." at all
//   "*.txt"        "a.txt", "b.c.txt" (a "*" before "." stops at the last ".")
//   "a?.txt"       "ab.txt" and "a.txt" ("?" matches one unit, or nothing
//                  at a "." or at the end)
//   "name"         that name alone
// There are no short 8.3 names, so "*.htm" never finds "x.html".
bool MaskMatches(TextView mask, TextView name);

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  // The whole file as bytes. read_only false opens for reading and writing
  // (a file that may not be written is still read) and creates a missing file
  // empty, unless its name holds "*" or "?"; read_only true fails with 53 on a
  // missing one. A folder, pipe, socket or device fails at once with 75; a
  // file too big for memory with 7, before it is read.
  virtual std::string ReadAll(TextView path, bool read_only) = 0;
  // Replaces the file with the bytes as the truncating write would, atomic
  // where that is safe (the Linux rules: platform/linux/internal/safe_replace.h). A file
  // the caller may not write fails with 70 and is left as it was.
  virtual void WriteAll(TextView path, std::string_view bytes) = 0;
  // Read, change and replace as one step that no other writer of the file
  // can come between (on Linux: under the file's lock, see
  // platform/linux/internal/safe_replace.h). edit gets the whole file ("" for a
  // missing one, which is then created, unless its name holds "*" or "?")
  // and answers true with the new bytes in place, or false to leave the file
  // as it is. Fails as ReadAll and WriteAll fail; a file that may be read but
  // not written fails with 70 once edit asks to write.
  virtual void EditAll(TextView path, const std::function<bool(std::string& bytes)>& edit) = 0;
  // Appends the bytes as one record, creating the file if need be: a process
  // killed mid-way leaves a torn tail that the next append (or read-write
  // ReadAll) cuts back; a write cut short (disk full: 61) cuts the file back
  // to its length before the call and fails. A pipe or device fails with 75.
  virtual void Append(TextView path, std::string_view bytes) = 0;
  // FileLen: the length in bytes; fails with 53 when the file is missing.
  virtual int64_t Length(TextView path) = 0;
  // FileCopy: copies the bytes over any existing target, which is replaced as
  // WriteAll does; fails with 53 on a missing source and 76/75/70 on a target
  // that cannot be written.
  virtual void Copy(TextView from, TextView to) = 0;
  // Kill: deletes one file; fails with 53 when it is missing.
  virtual void Delete(TextView path) = 0;
  // CreateDirectory: false when the folder could not be made (also when it
  // already exists), as the classic call reports.
  virtual bool CreateDirectory(TextView path) = 0;

  // True when the path names a file or folder; attributes into entry.
  virtual bool Stat(TextView path, FileEntry& entry) = 0;
  bool Exists(TextView path) {
    FileEntry e;
    return Stat(path, e);
  }
  // True when both paths lead, once their symbolic links are followed, to the
  // same entry of a folder ("a" and "./a", a link and the file it points
  // to); hard-linked names of one file are different entries.
  virtual bool SameEntry(TextView a, TextView b) = 0;
  bool IsDirectory(TextView path) {
    FileEntry e;
    return Stat(path, e) && e.directory;
  }

  // Find-first/find-next over "folder/mask" (a pattern without "/" looks in
  // the current folder). Entries come in the directory's own order and include
  // "." and ".." when the mask matches them. False, with no entries, when
  // nothing matches or the enumeration cannot start (a missing or unreadable
  // folder, a pattern that ends in "/"), as the classic find-first reports.
  virtual bool Enumerate(TextView pattern, std::vector<FileEntry>& out) = 0;

  // The label and 32-bit serial of the file system that holds the path. False
  // when the path does not exist.
  virtual bool VolumeInfo(TextView path, Text& label, uint32_t& serial) = 0;

  // The shell operation; 0 on success, otherwise a classic error code (2 not
  // found, 5 access denied, 0xB7 already exists, 0x7C invalid request, 0x76
  // a copy or move of a folder into itself, refused before anything is done).
  virtual int32_t ShellOperation(const ShellFileRequest& request) = 0;
};

}  // namespace varnek
