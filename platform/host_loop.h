// The host's event loop as the logic sees it: pumping, timers, posted calls
// and the clock. One thread, no locks: every wait in the logic is a pump.
// Handlers run on strands (platform/strand_scheduler.h): events of one strand
// nest inside its waits, events of different strands run side by side, and a
// wait suspends only the strand that waits. In one-stack mode every handler
// nests on the caller's stack instead.
//
//   // wait until `end` on the seconds-since-midnight clock, serving events:
//   loop.PumpUntilTimer(end);
//   // or until a condition holds, at most 10 s:
//   loop.PumpUntilTimer(loop.Timer() + 10, [&] { return socket.State() == 1; });
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/platform/loop_backend.h"

namespace varnek {

// How a loop runs handlers, chosen when it is made.
enum class LoopMode {
  kStrands,   // each strand on a fiber of its own (the default)
  kOneStack,  // every handler nested on the caller's stack, the classic way
};

class Strand;  // platform/strand_scheduler.h
using StrandRef = std::shared_ptr<Strand>;

// A periodic timer on the host's thread. Its ticks run on the timer's own
// strand: a tick due while the handler is inside a wait runs nested in that
// wait. In one-stack mode a tick does not re-enter its running handler: the
// next one waits until it has returned.
class LoopTimer {
 public:
  virtual ~LoopTimer() = default;
  virtual void SetInterval(int32_t milliseconds) = 0;
  virtual int32_t Interval() const = 0;
  // Enabling (re)starts the period from now; disabling drops a pending tick.
  virtual void SetEnabled(bool enabled) = 0;
  virtual bool Enabled() const = 0;
  std::function<void()> on_tick;
};

// The loop core: one for every backend (platform/loop_backend.h). It owns the
// strand scheduler, the posted calls, the timers, the pass and the waits the
// routines share; the backend under it only waits, wakes and tells the time.
class HostLoop {
 public:
  HostLoop(std::unique_ptr<LoopBackend> backend, LoopMode mode);
  virtual ~HostLoop();
  HostLoop(const HostLoop&) = delete;
  HostLoop& operator=(const HostLoop&) = delete;

  // Runs what is ready now: due timers, posted calls and I/O events. When
  // nothing is ready, blocks in the OS (the simulated loop moves its clock)
  // until the next event or timer, but no longer than max_wait_seconds, then
  // runs what became ready. max_wait_seconds <= 0 never blocks. May re-enter
  // any handler. On a backend inside a host's loop, the host's events run
  // in the wait too.
  void Pump(double max_wait_seconds);
  // One pass without blocking: the classic DoEvents.
  void DoEvents() { Pump(0); }
  // One pass without blocking that runs only Varnek's own work, never the
  // host's: what a host's loop calls when Varnek's descriptor is readable or
  // SecondsToNextDue has passed.
  void RunReady();
  // Seconds until something of Varnek's falls due (a timer, a posted call, a
  // waiting strand's deadline): 0 when work is ready, infinity when nothing
  // is scheduled. I/O readiness is told by the backend's descriptor.
  double SecondsToNextDue();

  // The one wait every routine uses: pumps until `done()` is true, each pass
  // blocking no longer than `max_block()` seconds (<= 0: a pass that does not
  // block). Both are read again after every pass, since handlers ran.
  void PumpUntil(const std::function<bool()>& done, const std::function<double()>& max_block) {
    while (!done()) Pump(max_block());
  }
  // Pumps until Timer() reaches `end` (seconds since midnight) or `done()`
  // is true. Like the classic "Do While Timer < end: DoEvents", an `end`
  // past midnight is not reached before the clock wraps.
  // Without `done` the wait watches the clock alone: on a strand it is
  // resumed by its deadline or its own events, not by other strands' work.
  void PumpUntilTimer(double end, const std::function<bool()>& done = {});

  // The calendar in whole seconds (the classic Now, as seconds since the
  // date origin), and how long a pump may block before it reaches `target`:
  // 0 once it has, at least a millisecond before.
  int64_t NowSeconds();
  double UntilSecond(int64_t target);
  // Pumps until the whole second `target` has begun or `done()` is true
  // (`done` is asked first).
  void PumpUntilSecond(int64_t target, const std::function<bool()>& done = {});
  // The classic sub-second pause on the seconds-since-midnight clock: an end
  // past midnight first holds the host frozen (no handler runs) until the
  // clock wraps, then pumps until the clock reaches the end. 0 pumps not at
  // all.
  void PauseTimer(double seconds);

  std::unique_ptr<LoopTimer> CreateTimer();
  // Runs fn on a later pass of the loop, on a strand of its own. Safe from
  // any thread: a pump blocked on another thread is woken.
  void Post(std::function<void()> fn);
  // The same, `seconds` from now on the loop's clock.
  void PostAfter(double seconds, std::function<void()> fn);

  // The current local date and time as a classic date, whole seconds.
  double Now();
  // Seconds since local midnight, single precision, with sub-second fraction.
  float Timer();
  // Holds the host frozen for the given seconds: no event runs. The classic
  // code spins here; the Linux loop sleeps instead, which looks the same.
  void Freeze(double seconds);

  // How many Pump calls are active on the current strand's stack (0 outside
  // any).
  int PumpDepth() const;
  // The deepest PumpDepth seen since the loop was made, for measurements.
  int MaxPumpDepth() const;
  // How many Pump and RunReady calls have run.
  int64_t PumpCount() const;

  LoopMode Mode() const;
  // A strand of its own for a source of events (a control, a connection).
  StrandRef NewStrand();
  // The strand whose handler runs now; outside every handler a new one.
  StrandRef CurrentStrand();
  // Runs fn on `strand` (null: a new one); see platform/strand_scheduler.h.
  // In one-stack mode it simply calls fn.
  void RunOn(const StrandRef& strand, std::function<void()> fn);
  // Strands with a handler running or waiting now, and the most at once.
  int LiveStrands() const;
  int MaxLiveStrands() const;

 protected:
  LoopBackend& backend();
  // For simulated devices and the steps of Linux services: fn runs
  // `seconds` from now in the loop itself, on no strand, in the order of the
  // posted calls.
  void PostInLoop(double seconds, std::function<void()> fn);

 private:
  // Pump, where `clock_only` marks a wait that only the clock can end.
  void PumpFor(double max_wait_seconds, bool clock_only);
  void Pass(double max_wait_seconds, bool host_events);
  struct Core;
  std::unique_ptr<Core> core_;
};

// Raises an event: runs a copy of `handler` (if set) on `strand`, made on
// first use. The copy lets a handler destroy its control and finish safely.
template <class Fn, class... Args>
void FireOn(HostLoop& loop, StrandRef& strand, const Fn& handler, Args... args) {
  if (!handler) return;
  if (!strand) strand = loop.NewStrand();
  loop.RunOn(strand, [copy = handler, args...]() mutable { copy(args...); });
}

}  // namespace varnek
