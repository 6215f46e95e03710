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

class HostLoop {
 public:
  virtual ~HostLoop() = default;

  // Runs what is ready now: due timers, posted calls and I/O events. When
  // nothing is ready, blocks in the OS (the simulated loop moves its clock)
  // until the next event or timer, but no longer than max_wait_seconds, then
  // runs what became ready. max_wait_seconds <= 0 never blocks. May re-enter
  // any handler.
  virtual void Pump(double max_wait_seconds) = 0;
  // One pass without blocking: the classic DoEvents.
  void DoEvents() { Pump(0); }

  // The one wait every routine uses: pumps until `done()` is true, each pass
  // blocking no longer than `max_block()` seconds (<= 0: a pass that does not
  // block). Both are read again after every pass, since handlers ran.
  void PumpUntil(const std::function<bool()>& done, const std::function<double()>& max_block) {
    while (!done()) Pump(max_block());
  }
  // Pumps until Timer() reaches `end` (seconds since midnight) or `done()`
  // is true. Like the classic "Do While Timer < end: DoEvents", an `end`
  // past midnight is not reached before the clock wraps.
  void PumpUntilTimer(double end, const std::function<bool()>& done = {}) {
    PumpUntil([&] { return Timer() >= end || (done && done()); },
              [&] { return end - Timer(); });
  }

  virtual std::unique_ptr<LoopTimer> CreateTimer() = 0;
  // Runs fn on a later pass of the loop.
  virtual void Post(std::function<void()> fn) = 0;

  // The current local date and time as a classic date, whole seconds.
  virtual double Now() = 0;
  // Seconds since local midnight, single precision, with sub-second fraction.
  virtual float Timer() = 0;
  // Holds the host frozen for the given seconds: no event runs. The classic
  // code spins here; the Linux loop sleeps instead, which looks the same.
  virtual void Freeze(double seconds) = 0;

  // How many Pump calls are active on the current strand's stack (0 outside
  // any).
  virtual int PumpDepth() const = 0;
  // The deepest PumpDepth seen since the loop was made, for measurements.
  virtual int MaxPumpDepth() const = 0;

  virtual LoopMode Mode() const = 0;
  // A strand of its own for a source of events (a control, a connection).
  virtual StrandRef NewStrand() = 0;
  // The strand whose handler runs now; outside every handler a new one.
  virtual StrandRef CurrentStrand() = 0;
  // Runs fn on `strand` (null: a new one); see platform/strand_scheduler.h.
  // In one-stack mode it simply calls fn.
  virtual void RunOn(const StrandRef& strand, std::function<void()> fn) = 0;
  // Strands with a handler running or waiting now, and the most at once.
  virtual int LiveStrands() const = 0;
  virtual int MaxLiveStrands() const = 0;
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
