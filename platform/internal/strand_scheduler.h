// Strands for the host loops: what nests with what. Each event runs on the
// strand of what raised it. A strand inside a wait gets its events nested in
// that wait, on its own fiber's stack, exactly as one stack would nest them;
// a strand with nothing running starts its event at once on a fresh fiber.
// A wait on a fiber suspends only that strand: the loop's scheduler (the
// host's own Pump, outside every handler) resumes it at the end of the first
// pass that began after the wait did, once that pass ran anything or the
// wait's deadline has come. Woken strands resume by deadline, then by the
// order they began waiting, so a virtual clock stays deterministic.
//
// In one-stack mode nothing of this is used: events run where they are raised.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <list>
#include <memory>
#include <set>
#include <tuple>
#include <unordered_map>

#include "varnek/platform/internal/fiber.h"
#include "varnek/platform/host_loop.h"

namespace varnek {

class Strand {
 public:
  Strand() = default;
  Strand(const Strand&) = delete;
  Strand& operator=(const Strand&) = delete;

 private:
  friend class StrandScheduler;
  std::unique_ptr<Fiber> fiber;  // while a handler of the strand is running
  // Events to nest in its wait. A list, since every control keeps its strand
  // between connections and an empty deque would still hold a 512-byte block.
  std::list<std::function<void()>> mailbox;
  bool waiting = false;
  bool wake = false;    // the innermost wait is over
  bool nested = false;  // the innermost wait has run events of its own
  uint64_t wait_pass = 0;
  int depth = 0;  // Pump calls active on this strand
};

class StrandScheduler {
 public:
  // clock: the loop's seconds (monotonic or virtual), for wait deadlines.
  StrandScheduler(LoopMode mode, std::function<double()> clock);
  ~StrandScheduler();
  StrandScheduler(const StrandScheduler&) = delete;
  StrandScheduler& operator=(const StrandScheduler&) = delete;

  LoopMode mode() const { return mode_; }
  bool OnFiber() const { return current_ != nullptr; }

  StrandRef NewStrand() { return std::make_shared<Strand>(); }
  // The strand running now; outside every handler a new one.
  StrandRef Current();
  // Runs fn on `strand` (null: a new one). From the scheduler it returns once
  // fn has finished or its strand waits; from a handler of the same strand it
  // calls fn at once (nesting); from another strand's handler it is queued
  // and runs as soon as that handler waits or ends. A failure fn throws
  // reaches the scheduler's caller.
  void RunOn(const StrandRef& strand, std::function<void()> fn);

  // The scheduler's side of a pass: BeginPass first; after the pass's events
  // EndPass resumes the strands whose wait is over.
  void BeginPass() { ++pass_; }
  void EndPass(double now, bool ran);
  // The earliest deadline of a waiting strand; infinity when none waits.
  double NextWake() const;

  // On a fiber: suspends the current strand for one wait of at most
  // `max_wait` seconds (<= 0: just until the next pass is over), running
  // its own events nested meanwhile. A `clock_only` wait (a pause, which
  // watches nothing but the clock) is not resumed by other strands' events:
  // only by its deadline or by events of its own. Fails with 28 when the
  // strand's stack has too little left to nest another wait.
  void Wait(double max_wait, bool clock_only = false);

  // Pump depth of the strand running now (the scheduler's own outside).
  class DepthScope {
   public:
    explicit DepthScope(StrandScheduler& s);
    ~DepthScope() { --*depth_; }
    DepthScope(const DepthScope&) = delete;
    DepthScope& operator=(const DepthScope&) = delete;

   private:
    int* depth_;
  };
  int Depth() const { return current_ ? current_->depth : main_depth_; }
  int MaxDepth() const { return max_depth_; }
  int Live() const { return static_cast<int>(live_.size()); }
  int MaxLive() const { return max_live_; }

 private:
  void Dispatch(const StrandRef& strand, std::function<void()> fn);
  void Resume(Strand& strand);
  void DrainPending();

  using WaitKey = std::tuple<double, uint64_t, Strand*>;
  LoopMode mode_;
  std::function<double()> clock_;
  FiberStackPool pool_;
  Strand* current_ = nullptr;                    // whose fiber runs now
  std::unordered_map<Strand*, StrandRef> live_;  // strands with a fiber
  std::set<WaitKey> waiting_;                    // by deadline, then arrival
  std::set<WaitKey> sleeping_;                   // clock-only waits: due by deadline alone
  std::deque<std::pair<StrandRef, std::function<void()>>> pending_;
  bool draining_ = false;
  uint64_t pass_ = 0;
  uint64_t next_seq_ = 0;
  int main_depth_ = 0;
  int max_depth_ = 0;
  int max_live_ = 0;
};

}  // namespace varnek
