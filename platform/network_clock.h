// The clock of a machine on the network, or of this one, as a time-of-day
// record: UTC fields and the zone in minutes west of UTC.
//
// Rules every implementation keeps (Linux and simulated alike):
// - Query never blocks and never calls `done` from inside itself: the answer
//   comes on a later pass of the host loop, exactly once per query.
// - An empty server names this machine's clock, which always answers.
// - A server is named with or without two leading backslashes; both forms
//   name the same server.
// - A server that cannot be reached, refuses or stays silent past the
//   clock's time limit answers nullopt.
//
//   clock.Query(u"\\\\timehost", [&](std::optional<TimeOfDayInfo> t) { ... });
//   loop.PumpUntil([&] { return answered; }, [] { return 1.0; });
#pragma once

#include <cstdint>
#include <functional>
#include <optional>

#include "varnek/runtime/text.h"

namespace varnek {

// Twelve 32-bit fields in the classic order. Hours, minutes and seconds are
// UTC; `timezone` is minutes west of UTC (-60 for UTC+1); `weekday` 0 is
// Sunday; `tinterval` is the clock's tick in 0.0001 s.
struct TimeOfDayInfo {
  int32_t elapsedt = 0;  // seconds since 1970-01-01 00:00 UTC
  int32_t msecs = 0;
  int32_t hours = 0;
  int32_t mins = 0;
  int32_t secs = 0;
  int32_t hunds = 0;
  int32_t timezone = 0;
  int32_t tinterval = 0;
  int32_t day = 0;
  int32_t month = 0;
  int32_t year = 0;
  int32_t weekday = 0;
};

// Fills a record from UTC seconds and milliseconds since 1970, with the zone
// of that moment given in minutes west of UTC.
TimeOfDayInfo TimeOfDayFromUnix(int64_t seconds, int32_t milliseconds, int32_t minutes_west);

// The server name without two leading backslashes.
Text BareServerName(const Text& server);

class NetworkClock {
 public:
  using Answer = std::function<void(std::optional<TimeOfDayInfo>)>;
  virtual ~NetworkClock() = default;
  virtual void Query(const Text& server, Answer done) = 0;
};

}  // namespace varnek
