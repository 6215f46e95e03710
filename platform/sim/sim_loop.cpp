// The host loop on a virtual clock: posted calls, scheduled events and timers
// run in a deterministic order, and time moves only when a pump would block.
#include "platform/sim/sim_loop.h"

#include <cmath>
#include <map>
#include <memory>
#include <utility>
#include <vector>

namespace varnek {

namespace {

constexpr double kSecondsPerDay = 86400.0;

// Timer state shared by the loop and the timer object, so either may go first.
struct TimerState {
  LoopTimer* owner = nullptr;     // null once the timer object is gone
  const double* clock = nullptr;  // the loop's elapsed time; null once it is gone
  int32_t interval_ms = 0;
  bool enabled = false;
  bool running = false;  // the tick handler is on the stack
  double due = 0;        // virtual elapsed seconds of the next tick
  uint64_t order = 0;    // creation order, breaks ties between timers
  uint64_t last_pass = 0;
};

}  // namespace

struct SimLoop::Impl {
  double start_day = 0;  // whole days of the start date
  double start_sod = 0;  // seconds since midnight of the start date
  double elapsed = 0;    // virtual seconds since the loop was made
  int depth = 0;
  int max_depth = 0;
  int64_t pump_count = 0;
  uint64_t next_seq = 0;
  uint64_t next_timer_order = 0;
  uint64_t pass_serial = 0;
  // Scheduled events and posted calls by (due, scheduling order).
  std::map<std::pair<double, uint64_t>, std::function<void()>> events;
  std::vector<std::shared_ptr<TimerState>> timers;

  // Seconds since the start date's midnight, which may run past one day.
  double TotalSeconds() const { return start_sod + elapsed; }

  void DropDeadTimers() {
    std::erase_if(timers, [](const std::shared_ptr<TimerState>& t) { return t->owner == nullptr; });
  }

  // The due timer to tick next, or null: enabled, not already ticking, and
  // not yet ticked in this pass.
  TimerState* NextDueTimer(uint64_t pass) {
    TimerState* best = nullptr;
    for (auto& t : timers) {
      if (!t->owner || !t->enabled || t->running || t->interval_ms <= 0) continue;
      if (t->due > elapsed || t->last_pass == pass) continue;
      if (!best || t->due < best->due || (t->due == best->due && t->order < best->order)) {
        best = t.get();
      }
    }
    return best;
  }

  void Tick(TimerState* raw) {
    // Hold the state: the handler may destroy the timer object.
    std::shared_ptr<TimerState> state;
    for (auto& t : timers) {
      if (t.get() == raw) state = t;
    }
    state->last_pass = pass_serial;
    state->due = elapsed + state->interval_ms / 1000.0;
    std::function<void()> fn = state->owner->on_tick;
    state->running = true;
    if (fn) fn();
    state->running = false;
  }

  // Runs what is ready at the current virtual time: events, posted calls and
  // timer ticks by due time (events first on a tie). Items are taken one at a
  // time, so a nested pump runs the rest; what is scheduled or posted while
  // this pass runs waits for a later pass.
  bool RunReady() {
    bool ran = false;
    const uint64_t pass = ++pass_serial;
    const uint64_t limit = next_seq;
    for (;;) {
      auto ev = events.begin();
      bool event_ready = ev != events.end() && ev->first.first <= elapsed && ev->first.second < limit;
      TimerState* timer = NextDueTimer(pass);
      if (!event_ready && !timer) break;
      ran = true;
      if (event_ready && (!timer || ev->first.first <= timer->due)) {
        std::function<void()> fn = std::move(ev->second);
        events.erase(ev);
        fn();
      } else {
        Tick(timer);
      }
    }
    DropDeadTimers();
    return ran;
  }

  // The earliest virtual time at which something could become ready.
  double NextDue() const {
    double next = INFINITY;
    if (!events.empty()) next = events.begin()->first.first;
    for (auto& t : timers) {
      if (t->owner && t->enabled && !t->running && t->interval_ms > 0) next = std::min(next, t->due);
    }
    return next;
  }
};

namespace {

class SimTimer : public LoopTimer {
 public:
  explicit SimTimer(std::shared_ptr<TimerState> state) : state_(std::move(state)) {}
  ~SimTimer() override { state_->owner = nullptr; }

  void SetInterval(int32_t milliseconds) override {
    state_->interval_ms = milliseconds;
    Restart();
  }
  int32_t Interval() const override { return state_->interval_ms; }
  void SetEnabled(bool enabled) override {
    state_->enabled = enabled;
    Restart();
  }
  bool Enabled() const override { return state_->enabled; }

 private:
  void Restart() {
    if (state_->clock) state_->due = *state_->clock + state_->interval_ms / 1000.0;
  }
  std::shared_ptr<TimerState> state_;
};

}  // namespace

SimLoop::SimLoop(double start_date) : impl_(new Impl) {
  impl_->start_day = std::floor(start_date);
  // Round to the microsecond so a start like 23:59:59.5 reads back exactly.
  impl_->start_sod = std::round((start_date - impl_->start_day) * kSecondsPerDay * 1e6) / 1e6;
}

SimLoop::~SimLoop() {
  for (auto& t : impl_->timers) t->clock = nullptr;
  delete impl_;
  impl_ = nullptr;
}

void SimLoop::Pump(double max_wait_seconds) {
  Impl& s = *impl_;
  ++s.pump_count;
  ++s.depth;
  s.max_depth = std::max(s.max_depth, s.depth);
  bool ran = s.RunReady();
  if (!ran && max_wait_seconds > 0) {
    double target = std::min(s.NextDue(), s.elapsed + max_wait_seconds);
    if (target > s.elapsed) s.elapsed = target;
    s.RunReady();
  }
  --s.depth;
}

std::unique_ptr<LoopTimer> SimLoop::CreateTimer() {
  auto state = std::make_shared<TimerState>();
  state->order = impl_->next_timer_order++;
  state->clock = &impl_->elapsed;
  auto timer = std::make_unique<SimTimer>(state);
  state->owner = timer.get();
  impl_->timers.push_back(state);
  return timer;
}

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

int SimLoop::PumpDepth() const { return impl_->depth; }
int SimLoop::MaxPumpDepth() const { return impl_->max_depth; }

void SimLoop::After(double seconds, std::function<void()> fn) {
  double due = impl_->elapsed + std::max(seconds, 0.0);
  impl_->events.emplace(std::make_pair(due, impl_->next_seq++), std::move(fn));
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
