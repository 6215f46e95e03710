// The simulated host loop: order of events, nesting, timers and virtual time.
#include "platform/sim/sim_loop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "platform/sim/sim_platform.h"

namespace varnek {
namespace {

// 2026-01-01 as a classic date, and a time of day in seconds added to it.
constexpr double kDay = 46023.0;
double At(double seconds_of_day) { return kDay + seconds_of_day / 86400.0; }

TEST(SimLoop, RunsEventsInTimeThenSchedulingOrder) {
  SimLoop loop(At(43200));
  std::string seen;
  loop.After(2, [&] { seen += "c"; });
  loop.After(1, [&] { seen += "a"; });
  loop.After(1, [&] { seen += "b"; });
  loop.Post([&] { seen += "p"; });

  // Pump(0) runs only what is due now and never moves time.
  loop.Pump(0);
  EXPECT_EQ(seen, "p");
  EXPECT_EQ(loop.Elapsed(), 0);
  loop.Pump(0);
  EXPECT_EQ(seen, "p");
  EXPECT_EQ(loop.Elapsed(), 0);

  // With nothing ready, a pump moves to the next due event and runs all of that moment.
  loop.Pump(10);
  EXPECT_EQ(seen, "pab");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 1);

  // The pump's own deadline stops the clock before a later event.
  loop.Pump(0.25);
  EXPECT_EQ(seen, "pab");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 1.25);
  loop.RunFor(10);
  EXPECT_EQ(seen, "pabc");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 11.25);
  EXPECT_GE(loop.PumpCount(), 5);
}

TEST(SimLoop, WorkAddedDuringAPassWaitsForTheNextPass) {
  SimLoop loop(At(0));
  int posted_runs = 0;
  // A call that posts itself again must not spin inside one pump.
  std::function<void()> again = [&] {
    ++posted_runs;
    loop.Post(again);
  };
  loop.Post(again);
  loop.Pump(0);
  EXPECT_EQ(posted_runs, 1);
  loop.Pump(0);
  EXPECT_EQ(posted_runs, 2);
  // Ready work means the pump does not move the clock, whatever its max wait.
  loop.Pump(5);
  EXPECT_EQ(posted_runs, 3);
  EXPECT_EQ(loop.Elapsed(), 0);
}

TEST(SimLoop, NestedPumpsRunTheRestOfTheMoment) {
  SimLoop loop(At(0));
  std::vector<std::string> seen;
  loop.After(1, [&] {
    seen.push_back("outer-start depth " + std::to_string(loop.PumpDepth()));
    // A wait inside a handler: pump until 3 virtual seconds have passed.
    double end = loop.Elapsed() + 3;
    while (loop.Elapsed() < end) loop.Pump(end - loop.Elapsed());
    seen.push_back("outer-end");
  });
  loop.After(1, [&] { seen.push_back("same-moment depth " + std::to_string(loop.PumpDepth())); });
  loop.After(2, [&] { seen.push_back("later"); });
  loop.After(9, [&] { seen.push_back("much-later"); });

  loop.Pump(1);
  EXPECT_EQ(seen, (std::vector<std::string>{"outer-start depth 1", "same-moment depth 2", "later",
                                            "outer-end"}));
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 4);
  EXPECT_EQ(loop.PumpDepth(), 0);
  EXPECT_EQ(loop.MaxPumpDepth(), 2);
}

TEST(SimLoop, ClockReadingsFollowVirtualTimeAcrossMidnight) {
  SimLoop loop(At(86399.5));  // 23:59:59.5
  EXPECT_FLOAT_EQ(loop.Timer(), 86399.5f);
  EXPECT_DOUBLE_EQ(loop.Now(), At(86399));  // whole seconds only

  // Freeze moves the clock but runs nothing.
  bool ran = false;
  loop.After(0.1, [&] { ran = true; });
  loop.Freeze(0.6);
  EXPECT_FALSE(ran);
  EXPECT_NEAR(loop.Timer(), 0.1f, 1e-4);
  EXPECT_DOUBLE_EQ(loop.Now(), kDay + 1);
  EXPECT_NEAR(loop.ExactNow(), kDay + 1 + 0.1 / 86400, 1e-9);

  // The overdue event runs at the next pump, without the clock moving.
  loop.Pump(0);
  EXPECT_TRUE(ran);
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 0.6);

  // Whole days later the time of day reads the same.
  loop.RunFor(2 * 86400);
  EXPECT_NEAR(loop.Timer(), 0.1f, 1e-3);
  EXPECT_DOUBLE_EQ(loop.Now(), kDay + 3);
}

TEST(SimLoop, TimersTickOnTheirPeriodAndDoNotReenter) {
  SimLoop loop(At(0));
  auto timer = loop.CreateTimer();
  std::vector<double> ticks;
  int depth_in_tick = 0, max_depth_in_tick = 0;
  timer->on_tick = [&] {
    ticks.push_back(loop.Elapsed());
    ++depth_in_tick;
    max_depth_in_tick = std::max(max_depth_in_tick, depth_in_tick);
    if (ticks.size() == 2) loop.RunFor(35);  // a long wait inside the tick
    --depth_in_tick;
  };

  // Not enabled: no tick.
  timer->SetInterval(10000);
  loop.RunFor(25);
  EXPECT_TRUE(ticks.empty());

  timer->SetEnabled(true);  // the period starts now, at 25
  EXPECT_TRUE(timer->Enabled());
  EXPECT_EQ(timer->Interval(), 10000);
  // The second tick, at 45, waits 35 s inside; the ticks due meanwhile are
  // held, and one tick follows at the next pump after the handler returns.
  loop.RunFor(20);
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 80);
  ASSERT_EQ(ticks.size(), 2u);
  loop.RunFor(1);
  EXPECT_EQ(max_depth_in_tick, 1);
  ASSERT_EQ(ticks.size(), 3u);
  EXPECT_DOUBLE_EQ(ticks[0], 35);
  EXPECT_DOUBLE_EQ(ticks[1], 45);
  EXPECT_DOUBLE_EQ(ticks[2], 80);

  // Disabling drops the pending tick; re-enabling restarts the period.
  loop.RunFor(10);  // 91
  timer->SetEnabled(false);
  loop.RunFor(30);
  EXPECT_EQ(ticks.size(), 4u);  // the tick at 90 only
  timer->SetEnabled(true);      // at 121
  loop.RunFor(9.5);
  EXPECT_EQ(ticks.size(), 4u);
  loop.RunFor(1);
  ASSERT_EQ(ticks.size(), 5u);
  EXPECT_DOUBLE_EQ(ticks[4], 131);
}

TEST(SimLoop, TimerMayBeDestroyedInItsOwnTickOrOutliveTheLoop) {
  std::unique_ptr<LoopTimer> survivor;
  {
    SimLoop loop(At(0));
    auto timer = loop.CreateTimer();
    int ticks = 0;
    timer->on_tick = [&] {
      ++ticks;
      timer.reset();  // a handler that stops and drops its own timer
    };
    timer->SetInterval(1000);
    timer->SetEnabled(true);
    loop.RunFor(5);
    EXPECT_EQ(ticks, 1);
    EXPECT_EQ(timer, nullptr);

    survivor = loop.CreateTimer();
    survivor->SetInterval(500);
    survivor->SetEnabled(true);
  }
  // The loop is gone; the timer's setters must still be safe.
  survivor->SetEnabled(false);
  survivor->SetInterval(100);
  EXPECT_EQ(survivor->Interval(), 100);
}

TEST(SimPlatform, BundlesTheSimulatedServices) {
  std::string folder;
  {
    SimPlatform sim(At(3600), u"-a b");
    EXPECT_EQ(sim.platform.loop, &sim.loop);
    EXPECT_EQ(sim.platform.sockets, nullptr);
    EXPECT_EQ(sim.platform.app->Title(), u"VarnekTest");
    EXPECT_EQ(sim.platform.app->CommandLine(), u"-a b");
    Text path = sim.platform.app->Path();
    folder.assign(path.begin(), path.end());
    EXPECT_FALSE(folder.empty());
    EXPECT_NE(folder.back(), '/');
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_FLOAT_EQ(sim.loop.Timer(), 3600.0f);

    // Settings: names compare without regard to case; unknown gives the default.
    SettingsStore& store = *sim.platform.settings;
    EXPECT_EQ(store.Get(u"G", u"F", u"n", u"dflt"), u"dflt");
    store.Set(u"Grupo", u"Familia", u"Nombre", u"valor");
    EXPECT_EQ(store.Get(u"GRUPO", u"familia", u"nombre", u""), u"valor");
    EXPECT_EQ(store.Get(u"Grupo", u"Familia", u"Otro", u""), u"");
  }
  EXPECT_FALSE(std::filesystem::exists(folder));  // the made folder goes with it

  SimPlatform given(SimPlatform::kDefaultStart, u"", u"/srv/app");
  EXPECT_EQ(given.app.Path(), u"/srv/app");
  EXPECT_FLOAT_EQ(given.loop.Timer(), 43200.0f);
}

}  // namespace
}  // namespace varnek
