// Waits on a strand that watch only the clock sleep through other strands'
// work, while a wait with a condition still looks after every pass.
#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "varnek/platform/sim/sim_loop.h"

namespace varnek {
namespace {

constexpr double kNoon = 46023.5;

// Runs `wait` on a strand of its own while 200 events of other strands run
// 1 ms apart, the host pumping from outside. Gives the pumps the waiting
// strand made, and the virtual second its wait ended.
struct Busy {
  int64_t own_pumps = 0;
  double ended_at = -1;
};
Busy WaitAmidOthers(SimLoop& loop, const std::function<void()>& wait) {
  Busy busy;
  bool ended = false;
  const double start = loop.Elapsed();
  for (int k = 1; k <= 200; ++k) loop.After(0.001 * k, [] {});
  loop.Post([&] {
    wait();
    busy.ended_at = loop.Elapsed() - start;
    ended = true;
  });
  const int64_t before = loop.PumpCount();
  int64_t outer = 0;
  for (; outer < 5000 && !ended; ++outer) loop.Pump(10);
  busy.own_pumps = loop.PumpCount() - before - outer;
  return busy;
}

TEST(ClockWaits, PausesSleepUntilTheirDeadlineAndConditionsLookAfterEveryPass) {
  SimLoop loop(kNoon);

  // The sub-second pause and the whole-second wait: one pump each, ending on time.
  Busy pause = WaitAmidOthers(loop, [&] { loop.PauseTimer(0.5); });
  EXPECT_LE(pause.own_pumps, 2);
  EXPECT_NEAR(pause.ended_at, 0.5, 0.01);
  Busy seconds = WaitAmidOthers(loop, [&] { loop.PumpUntilSecond(loop.NowSeconds() + 2); });
  EXPECT_LE(seconds.own_pumps, 2);
  EXPECT_GE(seconds.ended_at, 1.0);
  EXPECT_LE(seconds.ended_at, 2.0);

  // A condition another strand makes true ends the wait in that pass, long
  // before its 5 s.
  bool flag = false;
  loop.After(0.1, [&] { flag = true; });
  Busy condition =
      WaitAmidOthers(loop, [&] { loop.PumpUntilTimer(loop.Timer() + 5, [&] { return flag; }); });
  EXPECT_NEAR(condition.ended_at, 0.1, 0.01);

  // An event of the pausing strand still runs nested in the pause.
  std::string seen;
  StrandRef pausing;
  loop.Post([&] {
    pausing = loop.CurrentStrand();
    loop.PauseTimer(1);
    seen += " pause over";
  });
  loop.After(0.3, [&] { loop.RunOn(pausing, [&] { seen += " nested"; }); });
  loop.RunFor(2);
  EXPECT_EQ(seen, " nested pause over");
}

}  // namespace
}  // namespace varnek
