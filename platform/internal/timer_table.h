// The periodic timers of a host loop, on whatever clock the loop keeps: the
// loop core asks when the next one is due and ticks the due ones, on every
// backend alike: each timer ticks at most once per pass,
// ties go to the older timer, and a late tick is not caught up. With strands
// each timer's ticks run on its own strand; in one-stack mode a tick handler
// does not re-enter itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "varnek/platform/host_loop.h"

namespace varnek {

class TimerTable {
 public:
  // clock: the loop's time in seconds (monotonic or virtual).
  explicit TimerTable(std::function<double()> clock);
  ~TimerTable();
  TimerTable(const TimerTable&) = delete;
  TimerTable& operator=(const TimerTable&) = delete;

  std::unique_ptr<LoopTimer> Create();
  // The loop whose strands run the ticks (unset: ticks are plain calls).
  void SetLoop(HostLoop* loop) { loop_ = loop; }

  // The earliest due time of an armed timer; infinity when none is armed.
  double NextDue() const;

  // A pass: each due timer ticks at most once in it. Passes nest (a handler
  // may pump), so each keeps its own number.
  uint64_t BeginPass();
  // The due time of the timer TickNext would tick at `now`; infinity if none.
  double PeekDue(double now, uint64_t pass) const;
  // Ticks the earliest due timer not yet ticked in this pass; false if none.
  bool TickNext(double now, uint64_t pass);
  // One pass ticking every due timer once, earliest first.
  bool TickAll(double now);

  struct State;

 private:
  State* Best(double now, uint64_t pass) const;
  std::shared_ptr<std::function<double()>> clock_;
  std::vector<std::shared_ptr<State>> timers_;
  HostLoop* loop_ = nullptr;
  uint64_t pass_ = 0;
  uint64_t next_order_ = 0;
};

}  // namespace varnek
