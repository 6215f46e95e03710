// The loop core on a virtual clock: posted calls, scheduled events and timers
// run in a deterministic order, and time moves only when a pump would block.
#include "varnek/platform/sim/sim_loop.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <utility>

namespace varnek {

namespace {

constexpr double kSecondsPerDay = 86400.0;

}  // namespace

// Virtual time: a wait moves the clock to its deadline at once.
class SimLoop::Backend : public LoopBackend {
 public:
  explicit Backend(double start_date) {
    start_day = std::floor(start_date);
    // Round to the microsecond so a start like 23:59:59.5 reads back exactly.
    start_sod = std::round((start_date - start_day) * kSecondsPerDay * 1e6) / 1e6;
  }
  double Clock() override { return elapsed; }
  LocalReading Local() override {
    const double days = std::floor(Total() / kSecondsPerDay);
    return LocalReading{static_cast<int64_t>(start_day + days), Total() - days * kSecondsPerDay};
  }
  bool WaitUntil(double deadline) override {
    if (deadline > elapsed) elapsed = deadline;
    return false;
  }
  void Wake() override {}
  void Freeze(double seconds) override { elapsed += seconds; }

  // Seconds since the start date's midnight, which may run past one day.
  double Total() const { return start_sod + elapsed; }

  double start_day = 0;  // whole days of the start date
  double start_sod = 0;  // seconds since midnight of the start date
  double elapsed = 0;    // virtual seconds since the loop was made
};

SimLoop::SimLoop(double start_date, LoopMode mode)
    : HostLoop(std::make_unique<Backend>(start_date), mode),
      clock_(static_cast<Backend&>(backend())) {}

SimLoop::~SimLoop() = default;

void SimLoop::After(double seconds, std::function<void()> fn) { PostAfter(seconds, std::move(fn)); }

void SimLoop::AfterInLoop(double seconds, std::function<void()> fn) {
  PostInLoop(seconds, std::move(fn));
}

double SimLoop::Elapsed() const { return clock_.elapsed; }

double SimLoop::ExactNow() const {
  const double total = clock_.Total();
  const double days = std::floor(total / kSecondsPerDay);
  return clock_.start_day + days + (total - days * kSecondsPerDay) / kSecondsPerDay;
}

void SimLoop::RunFor(double seconds) {
  const double end = clock_.elapsed + seconds;
  while (clock_.elapsed < end) Pump(end - clock_.elapsed);
}

}  // namespace varnek
