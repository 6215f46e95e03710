// The host loop on a virtual clock: posted calls, scheduled events and timers
// run in a deterministic order, and time moves only when a pump would block.
#include "varnek/platform/sim/sim_loop.h"

#include "varnek/platform/strand_scheduler.h"
#include "varnek/platform/timer_table.h"

#include <cmath>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace varnek {

namespace {

constexpr double kSecondsPerDay = 86400.0;

}  // namespace

struct SimLoop::Impl {
  explicit Impl(LoopMode mode) : strands(mode, [this] { return elapsed; }) {}
  double start_day = 0;  // whole days of the start date
  double start_sod = 0;  // seconds since midnight of the start date
  double elapsed = 0;    // virtual seconds since the loop was made
  int64_t pump_count = 0;
  uint64_t next_seq = 0;
  struct Event {
    std::function<void()> fn;
    bool in_loop = false;  // a simulated device's step, not a handler
  };
  // Scheduled events and posted calls by (due, scheduling order).
  std::map<std::pair<double, uint64_t>, Event> events;
  StrandScheduler strands;
  TimerTable timers{[this] { return elapsed; }};

  // Seconds since the start date's midnight, which may run past one day.
  double TotalSeconds() const { return start_sod + elapsed; }

  // Runs what is ready at the current virtual time: events, posted calls and
  // timer ticks by due time (events first on a tie). Items are taken one at a
  // time, so a nested pump runs the rest; what is scheduled or posted while
  // this pass runs waits for a later pass.
  bool RunReady() {
    bool ran = false;
    const uint64_t pass = timers.BeginPass();
    const uint64_t limit = next_seq;
    for (;;) {
      auto ev = events.begin();
      bool event_ready = ev != events.end() && ev->first.first <= elapsed && ev->first.second < limit;
      const double timer_due = timers.PeekDue(elapsed, pass);
      const bool timer_ready = std::isfinite(timer_due);
      if (!event_ready && !timer_ready) break;
      ran = true;
      if (event_ready && (!timer_ready || ev->first.first <= timer_due)) {
        Event event = std::move(ev->second);
        events.erase(ev);
        if (event.in_loop) {
          event.fn();
        } else {
          strands.RunOn(nullptr, std::move(event.fn));
        }
      } else {
        timers.TickNext(elapsed, pass);
      }
    }
    return ran;
  }

  // The earliest virtual time at which something could become ready,
  // a waiting strand's deadline included.
  double NextDue() const {
    double next = INFINITY;
    if (!events.empty()) next = events.begin()->first.first;
    return std::min({next, timers.NextDue(), strands.NextWake()});
  }

  void Schedule(double seconds, std::function<void()> fn, bool in_loop) {
    const double due = elapsed + std::max(seconds, 0.0);
    events.emplace(std::make_pair(due, next_seq++), Event{std::move(fn), in_loop});
  }
};


SimLoop::SimLoop(double start_date, LoopMode mode) : impl_(std::make_unique<Impl>(mode)) {
  impl_->start_day = std::floor(start_date);
  // Round to the microsecond so a start like 23:59:59.5 reads back exactly.
  impl_->start_sod = std::round((start_date - impl_->start_day) * kSecondsPerDay * 1e6) / 1e6;
  impl_->timers.SetLoop(this);
}

SimLoop::~SimLoop() = default;

void SimLoop::Pump(double max_wait_seconds) {
  Impl& s = *impl_;
  ++s.pump_count;
  StrandScheduler::DepthScope depth(s.strands);
  if (s.strands.OnFiber()) {
    // Inside a handler: only this strand waits; the scheduler pumps.
    s.strands.Wait(max_wait_seconds);
    return;
  }
  s.strands.BeginPass();
  bool ran = s.RunReady();
  if (!ran && max_wait_seconds > 0) {
    double target = std::min(s.NextDue(), s.elapsed + max_wait_seconds);
    if (target > s.elapsed) s.elapsed = target;
    ran = s.RunReady();
  }
  s.strands.EndPass(s.elapsed, ran);
}

std::unique_ptr<LoopTimer> SimLoop::CreateTimer() { return impl_->timers.Create(); }

void SimLoop::Post(std::function<void()> fn) { After(0, std::move(fn)); }

double SimLoop::Now() {
  double total = impl_->TotalSeconds();
  double days = std::floor(total / kSecondsPerDay);
  double sod = std::floor(total - days * kSecondsPerDay);
  return impl_->start_day + days + sod / kSecondsPerDay;
}

float SimLoop::Timer() {
  double total = impl_->TotalSeconds();
  return static_cast<float>(total - std::floor(total / kSecondsPerDay) * kSecondsPerDay);
}

void SimLoop::Freeze(double seconds) {
  if (seconds > 0) impl_->elapsed += seconds;
}

int SimLoop::PumpDepth() const { return impl_->strands.Depth(); }
int SimLoop::MaxPumpDepth() const { return impl_->strands.MaxDepth(); }
LoopMode SimLoop::Mode() const { return impl_->strands.mode(); }
StrandRef SimLoop::NewStrand() { return impl_->strands.NewStrand(); }
StrandRef SimLoop::CurrentStrand() { return impl_->strands.Current(); }
void SimLoop::RunOn(const StrandRef& strand, std::function<void()> fn) {
  impl_->strands.RunOn(strand, std::move(fn));
}
int SimLoop::LiveStrands() const { return impl_->strands.Live(); }
int SimLoop::MaxLiveStrands() const { return impl_->strands.MaxLive(); }

void SimLoop::After(double seconds, std::function<void()> fn) {
  impl_->Schedule(seconds, std::move(fn), false);
}

void SimLoop::AfterInLoop(double seconds, std::function<void()> fn) {
  impl_->Schedule(seconds, std::move(fn), true);
}

double SimLoop::Elapsed() const { return impl_->elapsed; }

double SimLoop::ExactNow() const {
  double total = impl_->TotalSeconds();
  double days = std::floor(total / kSecondsPerDay);
  return impl_->start_day + days + (total - days * kSecondsPerDay) / kSecondsPerDay;
}

void SimLoop::RunFor(double seconds) {
  const double end = impl_->elapsed + seconds;
  while (impl_->elapsed < end) Pump(end - impl_->elapsed);
}

int64_t SimLoop::PumpCount() const { return impl_->pump_count; }

}  // namespace varnek
