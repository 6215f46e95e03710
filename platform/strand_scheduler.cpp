// The strand scheduler the loop core (platform/host_loop.cpp) drives.
#include "varnek/platform/internal/strand_scheduler.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

#include "varnek/runtime/failure.h"

namespace varnek {

StrandScheduler::StrandScheduler(LoopMode mode, std::function<double()> clock)
    : mode_(mode), clock_(std::move(clock)) {}

StrandScheduler::~StrandScheduler() {
  // Fibers still suspended are abandoned with their stacks before the pool
  // goes; the strands themselves may outlive the loop in their controls.
  for (auto& [raw, strand] : live_) strand->fiber.reset();
}

StrandRef StrandScheduler::Current() {
  if (current_) {
    auto it = live_.find(current_);
    if (it != live_.end()) return it->second;
  }
  return NewStrand();
}

void StrandScheduler::RunOn(const StrandRef& strand, std::function<void()> fn) {
  if (mode_ == LoopMode::kOneStack) {
    fn();
    return;
  }
  StrandRef target = strand ? strand : NewStrand();
  if (current_) {
    if (current_ == target.get()) {
      fn();
    } else {
      pending_.emplace_back(std::move(target), std::move(fn));
    }
    return;
  }
  Dispatch(target, std::move(fn));
  DrainPending();
}

void StrandScheduler::Dispatch(const StrandRef& strand, std::function<void()> fn) {
  if (strand->fiber) {
    // On the scheduler, a strand with a fiber is always inside a wait.
    strand->mailbox.push_back(std::move(fn));
    Resume(*strand);
    return;
  }
  strand->fiber = std::make_unique<Fiber>(pool_, std::move(fn));
  live_.emplace(strand.get(), strand);
  max_live_ = std::max(max_live_, Live());
  Resume(*strand);
}

void StrandScheduler::Resume(Strand& strand) {
  // Keep the strand while its fiber runs: its control may drop it meanwhile.
  StrandRef hold = live_.at(&strand);
  current_ = &strand;
  try {
    strand.fiber->Resume();
  } catch (...) {
    current_ = nullptr;
    strand.fiber.reset();
    live_.erase(&strand);
    throw;
  }
  current_ = nullptr;
  if (strand.fiber->Finished()) {
    strand.fiber.reset();  // the stack goes back to the pool
    // Events that came while the last handler unwound start afresh.
    while (!strand.mailbox.empty()) {
      pending_.emplace_front(hold, std::move(strand.mailbox.back()));
      strand.mailbox.pop_back();
    }
    live_.erase(&strand);
  }
}

void StrandScheduler::DrainPending() {
  if (draining_) return;
  draining_ = true;
  struct Reset {
    bool& flag;
    ~Reset() { flag = false; }
  } reset{draining_};
  // Bounded: each item runs once; what it queues is appended behind it.
  while (!pending_.empty()) {
    auto [strand, fn] = std::move(pending_.front());
    pending_.pop_front();
    Dispatch(strand, std::move(fn));
  }
}

void StrandScheduler::EndPass(double now, bool ran) {
  if (mode_ == LoopMode::kOneStack) return;
  // A strand that ran nested events in this pass is due with it; resuming
  // one may nest events in another, so look again, a bounded number of times.
  // Clock-only waits are due by their deadline alone, so only the front of
  // their set is looked at.
  for (int round = 0; round < 8 && !(waiting_.empty() && sleeping_.empty()); ++round) {
    std::vector<WaitKey> due;
    for (const WaitKey& key : waiting_) {
      Strand* s = std::get<2>(key);
      if (s->wait_pass >= pass_) continue;  // began inside this pass
      if (ran || s->nested || std::get<0>(key) <= now) due.push_back(key);
    }
    const size_t general = due.size();
    for (const WaitKey& key : sleeping_) {
      if (std::get<0>(key) > now) break;
      if (std::get<2>(key)->wait_pass < pass_) due.push_back(key);
    }
    if (due.empty()) return;
    // Both sets by deadline, then arrival: resume them in that one order.
    std::inplace_merge(due.begin(), due.begin() + static_cast<std::ptrdiff_t>(general), due.end());
    for (const WaitKey& key : due) {
      Strand* s = std::get<2>(key);
      // A strand resumed earlier in this loop may have ended or waited anew.
      if (!waiting_.count(key) && !sleeping_.count(key)) continue;
      s->wake = true;
      Resume(*s);
      DrainPending();
    }
  }
}

double StrandScheduler::NextWake() const {
  const double general = waiting_.empty() ? INFINITY : std::get<0>(*waiting_.begin());
  const double sleeping = sleeping_.empty() ? INFINITY : std::get<0>(*sleeping_.begin());
  return std::min(general, sleeping);
}

void StrandScheduler::Wait(double max_wait, bool clock_only) {
  Strand& s = *current_;
  if (Fiber::StackLeft() < FiberStackPool::kWaitReserveBytes) Fail(28, "Out of stack space");
  const double deadline = clock_() + std::max(max_wait, 0.0);
  const uint64_t seq = next_seq_++;
  bool nested = false;
  for (;;) {
    const WaitKey key{deadline, seq, &s};
    s.waiting = true;
    s.wake = false;
    // A wait that ran nested events is over with the pass that ran them, as
    // a pump's own pass would be; otherwise with the first pass after it.
    s.nested = nested;
    s.wait_pass = nested && pass_ > 0 ? pass_ - 1 : pass_;
    std::set<WaitKey>& set = clock_only && !nested ? sleeping_ : waiting_;
    set.insert(key);
    Fiber::Suspend();
    set.erase(key);
    s.waiting = false;
    // Events of this strand run nested here, as they would in a pump.
    while (!s.mailbox.empty()) {
      std::function<void()> fn = std::move(s.mailbox.front());
      s.mailbox.pop_front();
      nested = true;
      fn();
    }
    if (s.wake) {
      s.wake = false;
      return;
    }
    // Its time is up while nested handlers ran: carry on at once, before
    // other strands, as the pump's caller would on one stack.
    if (nested && clock_() >= deadline) return;
  }
}

StrandScheduler::DepthScope::DepthScope(StrandScheduler& s)
    : depth_(s.current_ ? &s.current_->depth : &s.main_depth_) {
  ++*depth_;
  s.max_depth_ = std::max(s.max_depth_, *depth_);
}

}  // namespace varnek
