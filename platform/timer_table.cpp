// Periodic timers of the loop core, on its backend's clock.
#include "varnek/platform/internal/timer_table.h"

#include <cmath>
#include <utility>

namespace varnek {

// Shared by the table and the timer object, so either may go first.
struct TimerTable::State {
  LoopTimer* owner = nullptr;                    // null once the timer object is gone
  std::weak_ptr<std::function<double()>> clock;  // expires with the table
  int32_t interval_ms = 0;
  bool enabled = false;
  bool running = false;  // one stack: the tick handler is on the stack
  StrandRef strand;      // with strands: where the ticks run
  double due = 0;        // clock seconds of the next tick
  uint64_t order = 0;    // creation order, breaks ties
  uint64_t last_pass = 0;

  bool Armed() const { return owner && enabled && !running && interval_ms > 0; }
  void Restart() {
    if (auto now = clock.lock()) due = (*now)() + interval_ms / 1000.0;
  }
};

namespace {

class TableTimer : public LoopTimer {
 public:
  explicit TableTimer(std::shared_ptr<TimerTable::State> state) : state_(std::move(state)) {}
  ~TableTimer() override { state_->owner = nullptr; }
  void SetInterval(int32_t milliseconds) override {
    state_->interval_ms = milliseconds;
    state_->Restart();
  }
  int32_t Interval() const override { return state_->interval_ms; }
  void SetEnabled(bool enabled) override {
    state_->enabled = enabled;
    state_->Restart();
  }
  bool Enabled() const override { return state_->enabled; }

 private:
  std::shared_ptr<TimerTable::State> state_;
};

}  // namespace

TimerTable::TimerTable(std::function<double()> clock)
    : clock_(std::make_shared<std::function<double()>>(std::move(clock))) {}

TimerTable::~TimerTable() = default;

std::unique_ptr<LoopTimer> TimerTable::Create() {
  auto state = std::make_shared<State>();
  state->order = next_order_++;
  state->clock = clock_;
  auto timer = std::make_unique<TableTimer>(state);
  state->owner = timer.get();
  timers_.push_back(std::move(state));
  return timer;
}

double TimerTable::NextDue() const {
  double next = INFINITY;
  for (const auto& t : timers_) {
    if (t->Armed()) next = std::min(next, t->due);
  }
  return next;
}

TimerTable::State* TimerTable::Best(double now, uint64_t pass) const {
  State* best = nullptr;
  for (const auto& t : timers_) {
    if (!t->Armed() || t->due > now || t->last_pass == pass) continue;
    if (!best || t->due < best->due || (t->due == best->due && t->order < best->order))
      best = t.get();
  }
  return best;
}

uint64_t TimerTable::BeginPass() {
  // Timers whose object is gone leave here, where no pass walks the list.
  std::erase_if(timers_, [](const std::shared_ptr<State>& t) { return t->owner == nullptr; });
  return ++pass_;
}

double TimerTable::PeekDue(double now, uint64_t pass) const {
  const State* best = Best(now, pass);
  return best ? best->due : INFINITY;
}

bool TimerTable::TickNext(double now, uint64_t pass) {
  State* raw = Best(now, pass);
  if (!raw) return false;
  // Hold the state: the handler may destroy the timer object.
  std::shared_ptr<State> state;
  for (const auto& t : timers_) {
    if (t.get() == raw) state = t;
  }
  state->last_pass = pass;
  state->due = now + state->interval_ms / 1000.0;
  std::function<void()> fn = state->owner->on_tick;
  if (!fn) return true;
  if (loop_ && loop_->Mode() == LoopMode::kStrands) {
    FireOn(*loop_, state->strand, fn);
    return true;
  }
  struct Running {
    State& state;
    explicit Running(State& s) : state(s) { state.running = true; }
    ~Running() { state.running = false; }
  } running(*state);
  fn();
  return true;
}

bool TimerTable::TickAll(double now) {
  const uint64_t pass = BeginPass();
  bool ran = false;
  while (TickNext(now, pass)) ran = true;
  return ran;
}

}  // namespace varnek
