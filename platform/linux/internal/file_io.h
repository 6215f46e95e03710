// Small POSIX file helpers shared by the Linux file, profile and settings
// services: partial transfers handled once (EINTR through eintr.h), the one map from errno
// to classic file numbers, and whole-file reads that refuse anything but a
// regular file.
#pragma once

#include <new>
#include <string>
#include <string_view>

#include "varnek/runtime/failure.h"
#include "varnek/runtime/text.h"

namespace varnek::linux_io {

// File names between Text and the bytes the kernel keeps. A name that is
// valid UTF-8 reads as UTF-8; one that is not (made by another program in a
// legacy code page) reads one unit per byte through the code page, so it
// lists, opens, copies and deletes again:
//   PathText("caf\xC3\xA9") == u"café"      PathText("l\xE9.txt") == u"lé.txt"
// PathBytes gives UTF-8, except for a part whose UTF-8 form does not exist
// while its code-page form, which is not valid UTF-8, does: that part goes
// back as the code-page bytes it was read from. So PathBytes(PathText(b)) is
// b for every existing b (when both forms exist the UTF-8 one is meant), and
// a new name is made in UTF-8. Only paths with non-ASCII units cost a lookup.
std::string PathBytes(TextView path);
Text PathText(std::string_view bytes);
bool IsValidUtf8(std::string_view bytes);

// The classic file error number of an errno value:
//   ENOENT                 53 file not found, or 76 path not found when the
//                          path's folder is missing too (path given)
//   ENOTDIR, ELOOP         76 path not found
//   EACCES, EPERM, EROFS   70 permission denied
//   EBUSY, ETXTBSY         55 file already open
//   ENOSPC, EDQUOT, EFBIG  61 disk full (EFBIG: past RLIMIT_FSIZE)
//   ENAMETOOLONG, EINVAL   52 bad file name or number
//   EMFILE, ENFILE         67 too many files
//   EIO                    57 device I/O error
//   ENOMEM                  7 out of memory
//   anything else          75 path/file access error (a folder, a pipe, ...)
int ClassicFileError(int errno_value, const std::string& path = {});
// Fails with the classic number of the current errno.
[[noreturn]] void FailFromErrno(const std::string& path = {});

// Whole-fd transfers; false with errno set on failure. WriteFd hands the
// bytes to one write() and only loops when the kernel took a part of them.
// ReadFd fails with ENOMEM, before reading, for a file larger than the
// machine's memory and swap (or the address-space limit), and when memory
// runs out on the way: it never throws.
bool ReadFd(int fd, std::string& out);
bool WriteFd(int fd, std::string_view bytes);

// Runs a step that reads or edits a file's text; running out of memory on
// the way fails with 7 (Out of memory) rather than reaching the host as an
// exception of the language.
template <typename Step>
auto WithinMemory(Step step) -> decltype(step()) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    Fail(kErrOutOfMemory);
  }
}

// Opens a file for reading (flags O_RDONLY or O_RDWR, maybe O_CREAT) without
// ever blocking, and checks what it is: a folder fails with EISDIR, a pipe,
// socket or device with ENODEV, at once. The descriptor, or -1 with errno set.
int OpenRegular(const std::string& path, int flags);

// Reads a whole regular file; false with errno set when it cannot be opened
// or read, or is not a regular file.
bool ReadFile(const std::string& path, std::string& out);

// The folder part of a path ("." for a bare name, "/" for a root entry) and
// the last part.
std::string FolderOf(const std::string& path);
std::string BaseOf(const std::string& path);

// A per-user base folder: $<variable> when it is an absolute path, else
// $HOME/<under_home> (the home folder from the password database when $HOME
// is unset). DataHome() is XdgFolder("XDG_DATA_HOME", ".local/share").
std::string XdgFolder(const char* variable, const char* under_home);
std::string DataHome();

// A modification time as a classic local date (days since 1899-12-30).
double LocalDateFromTime(long long seconds_since_epoch);

}  // namespace varnek::linux_io
