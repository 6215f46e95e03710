// CLOCK_MONOTONIC, the local calendar and a sleep, for the Linux backends.
#include "varnek/platform/linux/internal/linux_clock.h"

#include <errno.h>
#include <time.h>

#include <algorithm>

#include "varnek/runtime/date_math.h"

namespace varnek::linux_clock {

double MonotonicSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

LocalReading LocalNow() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  // The time zone conversion is the dear part and every waiting strand reads
  // the clock after each pass: convert once per second.
  thread_local time_t cached_second = -1;
  thread_local LocalReading cached{};
  if (ts.tv_sec != cached_second) {
    tm local{};
    localtime_r(&ts.tv_sec, &local);
    cached.day = SerialFromCivil(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
    cached.seconds = local.tm_hour * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59);
    cached_second = ts.tv_sec;
  }
  return LocalReading{cached.day, cached.seconds + static_cast<double>(ts.tv_nsec) / 1e9};
}

void Sleep(double seconds) {
  if (!(seconds > 0)) return;
  timespec request{};
  request.tv_sec = static_cast<time_t>(seconds);
  request.tv_nsec = static_cast<long>((seconds - static_cast<double>(request.tv_sec)) * 1e9);
  timespec remaining{};
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &request, &remaining) == EINTR) request = remaining;
}

}  // namespace varnek::linux_clock
