// Appends that leave a whole record or none: the one append of the Linux
// file service (logs, binary appends, record files, the message history).
//
// Before the record is written, a marker notes the length before and after
// the append and the file's birth time: the extended attribute
// "user.varnek.append" of the file itself or, on file systems that keep no
// such attributes, a file ".varnek-append-<inode>" beside it (after its links
// are followed). It is removed once the record is in. Varnek's appenders
// take an exclusive flock on the file around this, so they never overlap. A
// process killed mid-record leaves the marker: the next append, or the next
// read-write open, sees a length between the two and cuts the torn tail
// back, while a length equal to the "after" figure (the record got in whole)
// or outside both (another program changed the file since) is left alone.
// A write cut short (disk full, EFBIG past RLIMIT_FSIZE) cuts the file back
// to its old length at once and fails. Where no marker can be made (a
// marker file in a folder that is not writable) the append still goes
// ahead, without the protection against kills.
//
//   if (!AppendRecord("/var/log/app/07.log", line)) FailFromErrno(...);
#pragma once

#include <string>
#include <string_view>

namespace varnek::linux_io {

// Appends bytes to the regular file at path (UTF-8), creating it with mode
// 0666 less the umask if need be. False with errno set on failure (ENODEV
// for a pipe, socket or device); the file then has its old length.
bool AppendRecord(const std::string& path, std::string_view bytes);

// Cuts back the tail a killed append left in the file open at fd (path names
// it), under the same lock. Nothing happens when no marker is there.
void CutTornAppend(int fd, const std::string& path);

}  // namespace varnek::linux_io
