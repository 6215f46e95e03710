// Varnek inside any host loop (poll, libuv, Asio, libevent): the host watches
// one descriptor for reading and wakes after the time Varnek asks for, then
// calls RunReady, which runs what is ready and never blocks.
//
//   ExternalLoop loop;
//   pollfd fds[] = {{loop.Descriptor(), POLLIN, 0}, ...the host's own...};
//   for (;;) {
//     poll(fds, n, std::min(loop.TimeoutMilliseconds(), host_timeout));
//     loop.RunReady();
//     ...the host's own work...
//   }
//
// Waits inside Varnek's handlers: on strands a wait suspends its strand and
// RunReady returns to the host; in one-stack mode a wait blocks in the
// epoll set itself, so the host's own events wait until it returns.
#pragma once

#include "varnek/platform/linux/linux_loop.h"

namespace varnek {

class ExternalLoop : public LinuxLoop {
 public:
  explicit ExternalLoop(LoopMode mode = LoopMode::kStrands) : LinuxLoop(mode) {}

  // Readable whenever a socket or serial port of Varnek's is ready, or a
  // call was posted from another thread.
  int Descriptor() { return epoll().Descriptor(); }
  // Milliseconds until a timer, a posted call or a waiting strand falls due,
  // rounded up; 0 when work is ready; -1 when nothing is scheduled.
  int TimeoutMilliseconds();
};

}  // namespace varnek
