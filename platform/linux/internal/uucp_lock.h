// UUCP lock files: the convention by which Linux programs that dial (cu,
// minicom, modem managers) share a serial line. A line is held by whoever
// owns /var/lock/LCK..<device> (or /run/lock when /var/lock is missing),
// a file holding the owner's pid as ten ASCII columns and a newline. Unlike
// the kernel's exclusive flag, the lock holds for root too.
//
//   std::string lock = TakeUucpLock("/dev/ttyS0");  // fails with 8005 when held
//   ...
//   ReleaseUucpLock(lock);
#pragma once

#include <string>

namespace varnek {

// The lock file's name for a device: the path (symbolic links resolved)
// below /dev with "/" as "_", so /dev/ttyS0 gives "LCK..ttyS0" and
// /dev/pts/3 "LCK..pts_3".
std::string UucpLockName(const std::string& device);

// The lock directory: VARNEK_LOCK_DIR when set, else /var/lock, else
// /run/lock; "" when none exists.
std::string UucpLockDirectory();

// Takes the lock of `device` for this process and gives the lock file's
// path. A lock whose pid is not running is stale and removed first. A live
// holder (this process included) fails with 8005 "Port already open: DEVICE
// is held by pid N". With no lock directory this program may write to, no
// lock is taken ("" comes back) and only a live holder's lock is honoured.
std::string TakeUucpLock(const std::string& device);

// Removes the lock file when it still holds this process's pid; "" does
// nothing.
void ReleaseUucpLock(const std::string& lock_path);

// The pid a lock file names: ten ASCII columns (or any decimal text), or the
// old four-byte binary form; 0 when it names none.
int UucpLockOwner(const std::string& lock_path);

}  // namespace varnek
