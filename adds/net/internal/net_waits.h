// Shared by the network routines: a clock of whole seconds (the classic Now),
// pumps that block in the loop until an event comes or that clock reaches a
// limit, so no wait spins, and the socket control passed in by the host.
#pragma once

#include <cstdint>
#include <functional>

#include "varnek/platform/host_loop.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/failure.h"

namespace varnek::net_waits {

// Now as whole seconds since the date origin.
inline int64_t NowSeconds(HostLoop& loop) { return loop.NowSeconds(); }

// How long a pump may block before NowSeconds reaches `target`.
inline double UntilSecond(HostLoop& loop, int64_t target) { return loop.UntilSecond(target); }

// Pumps while `waiting()` holds and Now is before `limit`.
inline void PumpWhileBefore(HostLoop& loop, int64_t limit, const std::function<bool()>& waiting) {
  loop.PumpUntilSecond(limit, [&] { return !waiting(); });
}

// The control a routine was given; a null one fails as a member call on
// Nothing does (91).
inline SocketCtl& Control(SocketCtl* socket) {
  if (!socket) Fail(kErrObjectNotSet);
  return *socket;
}

}  // namespace varnek::net_waits
