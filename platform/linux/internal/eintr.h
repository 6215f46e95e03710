// The one retry of system calls that a signal interrupts before they did
// anything (EINTR) in the Linux platform.
#pragma once

#include <cerrno>

namespace varnek::linux_io {

// Longest run of interruptions RetryOnEintr sits through before it gives the
// EINTR failure back: a bound, far above any real burst of signals.
inline constexpr int kMaxEintrRetries = 10000;

// Runs call() again while it fails with -1 and errno EINTR, at most
// kMaxEintrRetries times more; returns its last result, errno as it left it.
// For calls that report failure as a negative result and errno (open, read,
// write, waitpid, ...).
template <class Call>
auto RetryOnEintr(Call&& call) -> decltype(call()) {
  auto result = call();
  for (int retry = 0; retry < kMaxEintrRetries && result < 0 && errno == EINTR; ++retry) {
    result = call();
  }
  return result;
}

}  // namespace varnek::linux_io
