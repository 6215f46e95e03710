// Shared by the network routines: a clock of whole seconds (the classic Now),
// pumps that block in the loop until an event comes or that clock reaches a
// limit, so no wait spins, and the socket control passed in by the host.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <functional>

#include "varnek/platform/host_loop.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/failure.h"

namespace varnek::net_waits {

// Now as whole seconds since the date origin.
inline int64_t NowSeconds(HostLoop& loop) { return std::llround(loop.Now() * 86400.0); }

// How long a pump may block before NowSeconds reaches `target` (0 when it
// has; at least a millisecond otherwise).
inline double UntilSecond(HostLoop& loop, int64_t target) {
  const int64_t now = NowSeconds(loop);
  if (now >= target) return 0;
  const float timer = loop.Timer();
  const double into_second = timer - std::floor(timer);
  return std::max(0.001, static_cast<double>(target - now) - into_second);
}

// Pumps while `waiting()` holds and Now is before `limit`.
inline void PumpWhileBefore(HostLoop& loop, int64_t limit, const std::function<bool()>& waiting) {
  loop.PumpUntil([&] { return !waiting() || NowSeconds(loop) >= limit; },
                 [&] { return UntilSecond(loop, limit); });
}

// The control a routine was given; a null one fails as a member call on
// Nothing does (91).
inline SocketCtl& Control(SocketCtl* socket) {
  if (!socket) Fail(kErrObjectNotSet);
  return *socket;
}

}  // namespace varnek::net_waits
