// The loop core shared by every backend: one pass of the loop (the backend's
// wait, then posted calls and timers by due time, then the strands whose wait
// is over), the posted queue and the strand bookkeeping.
#include "varnek/platform/host_loop.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>
#include <utility>

#include "varnek/platform/internal/strand_scheduler.h"
#include "varnek/platform/internal/timer_table.h"

namespace varnek {

namespace {

// The loop whose pass this thread runs, if any: a Post from there is seen
// before that pass (or the next) blocks, so it needs no wake-up.
thread_local const HostLoop* pumping_loop = nullptr;

}  // namespace

struct HostLoop::Core {
  Core(std::unique_ptr<LoopBackend> b, LoopMode mode)
      : backend(std::move(b)),
        strands(mode, [this] { return backend->Clock(); }),
        timers([this] { return backend->Clock(); }) {}

  std::unique_ptr<LoopBackend> backend;
  StrandScheduler strands;
  TimerTable timers;
  int64_t pump_count = 0;

  struct Item {
    std::function<void()> fn;
    bool in_loop = false;  // a simulated device's step, not a handler
  };
  // Posted and delayed calls by (due, order); Post may come from any thread.
  std::mutex queue_mutex;
  std::map<std::pair<double, uint64_t>, Item> queue;
  uint64_t next_seq = 0;

  void Enqueue(double seconds, std::function<void()> fn, bool in_loop) {
    const double due = backend->Clock() + std::max(seconds, 0.0);
    std::lock_guard<std::mutex> lock(queue_mutex);
    queue.emplace(std::make_pair(due, next_seq++), Item{std::move(fn), in_loop});
  }

  double QueueDue() {
    std::lock_guard<std::mutex> lock(queue_mutex);
    return queue.empty() ? INFINITY : queue.begin()->first.first;
  }

  double NextDue() { return std::min({QueueDue(), timers.NextDue(), strands.NextWake()}); }

  // Runs the posted calls and timer ticks due now, by due time (a call
  // before a tick on a tie). Items are taken one at a time, so a nested pump
  // runs the rest; what is posted while this runs waits for a later pass.
  bool RunDue() {
    bool ran = false;
    const uint64_t pass = timers.BeginPass();
    uint64_t limit = 0;
    {
      std::lock_guard<std::mutex> lock(queue_mutex);
      limit = next_seq;
    }
    for (;;) {
      const double now = backend->Clock();
      const double timer_due = timers.PeekDue(now, pass);
      Item item;
      bool take = false;
      {
        std::lock_guard<std::mutex> lock(queue_mutex);
        auto it = queue.begin();
        const bool ready = it != queue.end() && it->first.first <= now && it->first.second < limit;
        if (ready && it->first.first <= timer_due) {
          item = std::move(it->second);
          queue.erase(it);
          take = true;
        }
      }
      if (take) {
        if (item.in_loop) {
          item.fn();
        } else {
          strands.RunOn(nullptr, std::move(item.fn));
        }
      } else if (!std::isfinite(timer_due) || !timers.TickNext(now, pass)) {
        break;
      }
      ran = true;
    }
    return ran;
  }
};

HostLoop::HostLoop(std::unique_ptr<LoopBackend> backend, LoopMode mode)
    : core_(std::make_unique<Core>(std::move(backend), mode)) {
  core_->timers.SetLoop(this);
  core_->backend->Attach(*this);
}

HostLoop::~HostLoop() = default;

LoopBackend& HostLoop::backend() { return *core_->backend; }

void HostLoop::Pump(double max_wait_seconds) { PumpFor(max_wait_seconds, false); }

void HostLoop::PumpFor(double max_wait_seconds, bool clock_only) {
  Core& c = *core_;
  ++c.pump_count;
  StrandScheduler::DepthScope depth(c.strands);
  if (c.strands.OnFiber()) {
    // Inside a handler: only this strand waits; the scheduler pumps.
    c.strands.Wait(max_wait_seconds, clock_only);
    return;
  }
  Pass(max_wait_seconds, true);
}

void HostLoop::RunReady() {
  Core& c = *core_;
  ++c.pump_count;
  StrandScheduler::DepthScope depth(c.strands);
  if (c.strands.OnFiber()) {
    c.strands.Wait(0);
    return;
  }
  Pass(0, false);
}

void HostLoop::Pass(double max_wait_seconds, bool host_events) {
  Core& c = *core_;
  const HostLoop* outer = pumping_loop;
  pumping_loop = this;
  struct Restore {
    const HostLoop* outer;
    ~Restore() { pumping_loop = outer; }
  } restore{outer};
  c.strands.BeginPass();
  // Block only when nothing is ready: no posted call, no due timer and no
  // strand whose wait is over.
  const double now = c.backend->Clock();
  double deadline = now;
  if (max_wait_seconds > 0) deadline = std::max(std::min(c.NextDue(), now + max_wait_seconds), now);
  bool ran = host_events ? c.backend->WaitUntil(deadline) : c.backend->RunReady();
  ran = c.RunDue() || ran;
  c.strands.EndPass(c.backend->Clock(), ran);
}

double HostLoop::SecondsToNextDue() {
  return std::max(core_->NextDue() - core_->backend->Clock(), 0.0);
}

std::unique_ptr<LoopTimer> HostLoop::CreateTimer() { return core_->timers.Create(); }

void HostLoop::Post(std::function<void()> fn) {
  core_->Enqueue(0, std::move(fn), false);
  // Every pass looks at the queue before it blocks; only a wait already
  // blocked (on another thread, or in a host's loop) has to be woken.
  if (pumping_loop != this) core_->backend->Wake();
}

void HostLoop::PostAfter(double seconds, std::function<void()> fn) {
  core_->Enqueue(seconds, std::move(fn), false);
  if (pumping_loop != this) core_->backend->Wake();
}

void HostLoop::PostInLoop(double seconds, std::function<void()> fn) {
  core_->Enqueue(seconds, std::move(fn), true);
  if (pumping_loop != this) core_->backend->Wake();
}

double HostLoop::Now() {
  const LocalReading local = core_->backend->Local();
  return static_cast<double>(local.day) + std::floor(local.seconds) / 86400.0;
}

float HostLoop::Timer() { return static_cast<float>(core_->backend->Local().seconds); }

void HostLoop::Freeze(double seconds) {
  if (seconds > 0) core_->backend->Freeze(seconds);
}

int HostLoop::PumpDepth() const { return core_->strands.Depth(); }
int HostLoop::MaxPumpDepth() const { return core_->strands.MaxDepth(); }
int64_t HostLoop::PumpCount() const { return core_->pump_count; }
LoopMode HostLoop::Mode() const { return core_->strands.mode(); }
StrandRef HostLoop::NewStrand() { return core_->strands.NewStrand(); }
StrandRef HostLoop::CurrentStrand() { return core_->strands.Current(); }
void HostLoop::RunOn(const StrandRef& strand, std::function<void()> fn) {
  core_->strands.RunOn(strand, std::move(fn));
}
int HostLoop::LiveStrands() const { return core_->strands.Live(); }
int HostLoop::MaxLiveStrands() const { return core_->strands.MaxLive(); }

}  // namespace varnek
