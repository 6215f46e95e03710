// The simulated host loop: order of events, nesting, timers and virtual time.
#include "varnek/platform/sim/sim_loop.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "varnek/platform/linux/test_doubles/sim_platform.h"

namespace varnek {
namespace {

// 2026-01-01 as a classic date, and a time of day in seconds added to it.
constexpr double kDay = 46023.0;
double At(double seconds_of_day) { return kDay + seconds_of_day / 86400.0; }

TEST(SimLoop, RunsEventsInTimeThenSchedulingOrderAndMovesTimeOnlyWhenIdle) {
  SimLoop loop(At(43200));
  std::string seen;
  loop.After(2, [&] { seen += "c"; });
  loop.After(1, [&] { seen += "a"; });
  loop.After(1, [&] { seen += "b"; });
  loop.Post([&] { seen += "p"; });
  loop.Pump(0);  // only what is due now, clock still
  loop.Pump(0);
  EXPECT_EQ(seen, "p");
  EXPECT_EQ(loop.Elapsed(), 0);
  loop.Pump(10);  // idle: on to the next moment, running all of it
  EXPECT_EQ(seen, "pab");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 1);
  loop.Pump(0.25);  // the pump's own deadline comes first
  EXPECT_EQ(seen, "pab");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 1.25);
  loop.RunFor(10);
  EXPECT_EQ(seen, "pabc");
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 11.25);

  // A call that posts itself runs once per pass, and ready work holds the clock.
  int runs = 0;
  std::function<void()> again = [&] { ++runs, loop.Post(again); };
  loop.Post(again);
  loop.Pump(0);
  EXPECT_EQ(runs, 1);
  loop.Pump(5);
  EXPECT_EQ(runs, 2);
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 11.25);
}

TEST(SimLoop, OneStackNestedPumpsRunTheRestOfTheMoment) {
  SimLoop loop(At(0), LoopMode::kOneStack);
  std::vector<std::string> seen;
  loop.After(1, [&] {
    seen.push_back("outer-start depth " + std::to_string(loop.PumpDepth()));
    double end = loop.Elapsed() + 3;  // a wait of 3 s inside a handler
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

TEST(SimLoop, ClockReadingsFollowVirtualTimeAcrossMidnightAndFreezeRunsNothing) {
  SimLoop loop(At(86399.5));  // 23:59:59.5
  EXPECT_FLOAT_EQ(loop.Timer(), 86399.5f);
  EXPECT_DOUBLE_EQ(loop.Now(), At(86399));  // whole seconds only
  bool ran = false;
  loop.After(0.1, [&] { ran = true; });
  loop.Freeze(0.6);
  EXPECT_FALSE(ran);
  EXPECT_NEAR(loop.Timer(), 0.1f, 1e-4);
  EXPECT_DOUBLE_EQ(loop.Now(), kDay + 1);
  EXPECT_NEAR(loop.ExactNow(), kDay + 1 + 0.1 / 86400, 1e-9);
  loop.Pump(0);  // the overdue event runs without the clock moving
  EXPECT_TRUE(ran);
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 0.6);
}

// A bundle cannot be made with a service left out or null.
static_assert(!std::is_default_constructible_v<Platform>);
static_assert(!std::is_constructible_v<Service<HostLoop>, std::nullptr_t>);
static_assert(!std::is_constructible_v<Service<HostLoop>, HostLoop*>);

TEST(SimPlatform, BundlesTheSimulatedServices) {
  std::string folder;
  std::unique_ptr<LoopTimer> survivor;
  {
    SimPlatform sim(At(3600), u"-a b");
    EXPECT_EQ(sim.platform.loop.get(), &sim.loop);
    SimNetwork other(sim.loop);
    Platform copy = sim.platform;  // re-pointing a copy leaves the original alone
    copy.sockets = other;
    EXPECT_EQ(copy.sockets.get(), &other);
    EXPECT_EQ(sim.platform.sockets.get(), &sim.net);
    EXPECT_EQ(sim.platform.app->Title(), u"VarnekTest");
    EXPECT_EQ(sim.platform.app->CommandLine(), u"-a b");
    Text path = sim.platform.app->Path();
    folder.assign(path.begin(), path.end());
    ASSERT_FALSE(folder.empty());
    EXPECT_NE(folder.back(), '/');
    EXPECT_TRUE(std::filesystem::is_directory(folder));
    EXPECT_FLOAT_EQ(sim.loop.Timer(), 3600.0f);
    SettingsStore& store = *sim.platform.settings;  // names without regard to case
    EXPECT_EQ(store.Get(u"G", u"F", u"n", u"dflt"), u"dflt");
    store.Set(u"Grupo", u"Familia", u"Nombre", u"valor");
    EXPECT_EQ(store.Get(u"GRUPO", u"familia", u"nombre", u""), u"valor");
    survivor = sim.loop.CreateTimer();
    survivor->SetEnabled(true);
  }
  EXPECT_FALSE(std::filesystem::exists(folder));  // the made folder goes with it
  survivor->SetEnabled(false);                    // a timer outliving its loop stays safe
  survivor->SetInterval(100);
  EXPECT_EQ(survivor->Interval(), 100);
  SimPlatform given(SimPlatform::kDefaultStart, u"", u"/srv/app");
  EXPECT_EQ(given.app.Path(), u"/srv/app");
  EXPECT_FLOAT_EQ(given.loop.Timer(), 43200.0f);
}

}  // namespace
}  // namespace varnek
