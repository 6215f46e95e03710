// The host loop on a virtual clock, for tests. Nothing waits for real: a pump
// with nothing ready moves the clock on to the next scheduled event, timer or
// the pump's own deadline. Timing tests of seconds and minutes run in
// microseconds and never flake.
//
// platform/sim/ (library varnek_sim) is the simulated platform on virtual
// time and stands on the platform's interfaces alone: nothing in it includes
// platform/linux/. Its bundle with the real Linux files is SimPlatform, in
// platform/linux/test_doubles/.
//
//   SimLoop loop(DateFromParts(2026, 1, 1, 23, 59, 59.5));
//   loop.After(0.2, [&]{ ... });   // runs 0.2 virtual seconds from now
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/platform/host_loop.h"

namespace varnek {

class SimLoop : public HostLoop {
 public:
  // start_date: the virtual local date and time, as a classic date.
  explicit SimLoop(double start_date, LoopMode mode = LoopMode::kStrands);
  ~SimLoop() override;
  SimLoop(const SimLoop&) = delete;
  SimLoop& operator=(const SimLoop&) = delete;

  // Schedules fn at this many virtual seconds from now (events due at the same
  // moment run in the order they were scheduled). fn runs on a strand of its
  // own, as a posted call does.
  void After(double seconds, std::function<void()> fn);
  // The same for the simulated devices: fn runs in the loop itself, on no
  // strand, and raises its events on strands with RunOn. It must not pump.
  void AfterInLoop(double seconds, std::function<void()> fn);
  // Virtual seconds elapsed since the loop was made.
  double Elapsed() const;
  // The virtual date and time with its fraction of a second.
  double ExactNow() const;
  // Runs the loop, pumping, until `seconds` of virtual time have passed.
  void RunFor(double seconds);

 private:
  class Backend;
  Backend& clock_;
};

}  // namespace varnek
