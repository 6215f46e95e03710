// Varnek's own Linux loop: the loop core over an epoll set, with timers by
// deadlines on CLOCK_MONOTONIC and local time from CLOCK_REALTIME.
#include "varnek/platform/linux/linux_loop.h"

#include <algorithm>

#include "varnek/platform/linux/internal/linux_clock.h"

namespace varnek {

double LinuxBackend::Clock() { return linux_clock::MonotonicSeconds(); }
LocalReading LinuxBackend::Local() { return linux_clock::LocalNow(); }
void LinuxBackend::Freeze(double seconds) { linux_clock::Sleep(seconds); }

bool LinuxBackend::WaitUntil(double deadline) {
  return epoll_.WaitAndDispatch(std::max(deadline - Clock(), 0.0));
}

LinuxLoop::LinuxLoop(LoopMode mode) : LinuxLoop(std::make_unique<LinuxBackend>(), mode) {}

LinuxLoop::LinuxLoop(std::unique_ptr<LinuxBackend> backend, LoopMode mode)
    : HostLoop(std::move(backend), mode),
      epoll_(static_cast<LinuxBackend&>(this->backend()).epoll()) {}

LinuxLoop::~LinuxLoop() = default;

}  // namespace varnek
