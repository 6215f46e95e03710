// The clocks of the Linux loop backends: CLOCK_MONOTONIC for deadlines, the
// local calendar from CLOCK_REALTIME, and a frozen sleep.
#pragma once

#include "varnek/platform/loop_backend.h"

namespace varnek::linux_clock {

double MonotonicSeconds();
// The local date and time now; a leap second reads as second 59.
LocalReading LocalNow();
// Sleeps for `seconds`, on through signals.
void Sleep(double seconds);

}  // namespace varnek::linux_clock
