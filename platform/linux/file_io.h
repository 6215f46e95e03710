// Small POSIX file helpers shared by the Linux file and profile services:
// EINTR and partial transfers handled once, errno mapped to classic numbers,
// and the atomic replacement of a file.
#pragma once

#include <string>
#include <string_view>

#include "runtime/text.h"

namespace varnek::linux_io {

// The path as the kernel takes it: UTF-8.
std::string PathBytes(TextView path);

// The classic file error number of an errno value (53, 76, 75, 70, 61, ...).
int ClassicFileError(int errno_value);
// Fails with the classic number of the current errno.
[[noreturn]] void FailFromErrno();

// Whole-fd transfers; false with errno set on failure.
bool ReadFd(int fd, std::string& out);
bool WriteFd(int fd, std::string_view bytes);

// Reads a whole file; false with errno set when it cannot be opened or read.
bool ReadFile(const std::string& path, std::string& out);

// Replaces the file's content atomically: a temp file in the same folder,
// written and fsynced, then renamed over the target, and the folder fsynced.
// An existing file keeps its permission bits. False with errno set on failure;
// the target is then untouched and no temp file remains.
bool ReplaceFileAtomically(const std::string& path, std::string_view bytes);

// A modification time as a classic local date (days since 1899-12-30).
double LocalDateFromTime(long long seconds_since_epoch);

}  // namespace varnek::linux_io
