// The waits the routines share, on the loop core's clock: whole seconds of
// the calendar, and the classic sub-second pause with its midnight rule.
#include <algorithm>
#include <cmath>

#include "varnek/platform/host_loop.h"

namespace varnek {

namespace {

constexpr double kSecondsPerDay = 86400.0;

}  // namespace

int64_t HostLoop::NowSeconds() { return std::llround(Now() * kSecondsPerDay); }

double HostLoop::UntilSecond(int64_t target) {
  // One reading for both the whole second and its fraction, in double
  // precision, so the block ends as the target second begins.
  const LocalReading local = backend().Local();
  const double whole = std::floor(local.seconds);
  const int64_t now = local.day * 86400 + static_cast<int64_t>(whole);
  if (now >= target) return 0;
  return std::max(static_cast<double>(target - now) - (local.seconds - whole), 0.001);
}

// Both waits watch only the clock unless given a condition: a strand that
// pauses then sleeps until its deadline (or an event of its own) instead of
// looking at the clock after every other strand's event.
void HostLoop::PumpUntilSecond(int64_t target, const std::function<bool()>& done) {
  while (!((done && done()) || NowSeconds() >= target)) PumpFor(UntilSecond(target), !done);
}

void HostLoop::PumpUntilTimer(double end, const std::function<bool()>& done) {
  while (!(Timer() >= end || (done && done()))) PumpFor(end - Timer(), !done);
}

void HostLoop::PauseTimer(double seconds) {
  const float start = Timer();
  double end = start + seconds;
  if (end >= kSecondsPerDay) {
    // The end lies in the next day: hold the host frozen until the clock
    // wraps. No handler runs here.
    end -= kSecondsPerDay;
    for (float t = Timer(); t > end; t = Timer()) Freeze(std::max(kSecondsPerDay - t, 0.001));
  }
  PumpUntilTimer(end);
}

}  // namespace varnek
