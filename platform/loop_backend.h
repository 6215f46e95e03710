// What a host loop needs from the machine under it, and nothing more: a clock,
// a wait for readiness up to a deadline, a wake-up, and a frozen pause. The
// loop core (platform/host_loop.h) owns everything else: strands, posted
// calls, timers and the waits of the routines. Backends: epoll (LinuxLoop),
// a host's own poll loop (ExternalLoop), a GLib main context (GLibLoop) and
// virtual time (SimLoop).
#pragma once

#include <cstdint>

namespace varnek {

class HostLoop;

// The local calendar now: a classic date's whole days, and the seconds since
// local midnight with their fraction.
struct LocalReading {
  int64_t day = 0;
  double seconds = 0;
};

class LoopBackend {
 public:
  virtual ~LoopBackend() = default;

  // Called once by the loop that owns the backend, before any other call.
  virtual void Attach(HostLoop& /*loop*/) {}

  // Seconds on a clock that never goes back (monotonic or virtual): the
  // deadlines of timers and waits.
  virtual double Clock() = 0;
  // The local date and time now.
  virtual LocalReading Local() = 0;

  // Blocks until a watched descriptor is ready or Clock() reaches `deadline`
  // (a deadline already passed: just looks), then runs the handlers of what
  // is ready. May let the host's own events run. True when a handler ran.
  virtual bool WaitUntil(double deadline) = 0;
  // Runs the handlers of what is ready now, never blocking and never running
  // the host's events: the pass a host's loop asks for.
  virtual bool RunReady() { return WaitUntil(0); }
  // Ends a blocked WaitUntil soon. Safe from any thread.
  virtual void Wake() = 0;
  // Holds the thread for `seconds` with nothing run.
  virtual void Freeze(double seconds) = 0;
};

}  // namespace varnek
