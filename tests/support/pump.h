// Bounded pumping of a host loop: until a condition holds, for a short
// settle, for a stretch of real time, or while a client runs on a thread of
// its own. Every loop here ends after a bounded number of passes or seconds.
#pragma once

#include <chrono>
#include <future>
#include <utility>

#include "varnek/platform/host_loop.h"

namespace varnek {

using SteadyClock = std::chrono::steady_clock;

inline double SecondsSince(SteadyClock::time_point start) {
  return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

// Pumps until pred holds, at most `passes` pumps of up to 50 ms.
template <class P>
bool PumpUntil(HostLoop& loop, P pred, int passes = 200) {
  for (int i = 0; i < passes && !pred(); ++i) loop.Pump(0.05);
  return pred();
}

// Pumps until pred holds or `seconds` of real time pass: for a real loop,
// whose pumps return early on every event.
template <class P>
bool PumpUntilFor(HostLoop& loop, P pred, double seconds) {
  const auto start = SteadyClock::now();
  for (int i = 0; i < 1000000 && !pred() && SecondsSince(start) < seconds; ++i) loop.Pump(0.02);
  return pred();
}

// A few short pumps: lets events already on their way arrive.
inline void Settle(HostLoop& loop) {
  for (int i = 0; i < 5; ++i) loop.Pump(0.01);
}

// Pumps for `seconds` of real time.
inline void PumpFor(HostLoop& loop, double seconds) {
  const auto start = SteadyClock::now();
  while (SecondsSince(start) < seconds) loop.Pump(0.05);
}

// Runs `client` (which bounds its own waits) on a thread while this one pumps `loop`.
template <class Fn>
auto RunClientWhilePumping(HostLoop& loop, Fn client, double max_seconds = 20.0) {
  auto future = std::async(std::launch::async, std::move(client));
  const auto start = SteadyClock::now();
  while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready &&
         SecondsSince(start) < max_seconds) {
    loop.Pump(0.02);
  }
  return future.get();
}

}  // namespace varnek
