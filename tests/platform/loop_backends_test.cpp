// The loop core's waits, and the backends that leave the waiting to a host's
// loop: ExternalLoop (one descriptor and a timeout) and GLibLoop (a GSource).
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "tests/support/pump.h"
#include "tests/support/type_names.h"
#include "varnek/platform/linux/external_loop.h"
#include "varnek/platform/linux/glib/glib_loop.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/sim_loop.h"
#include "varnek/runtime/dates.h"

namespace varnek {
namespace {

bool Readable(int fd, int ms) {
  pollfd p{fd, POLLIN, 0};
  return poll(&p, 1, ms) == 1;
}

TEST(LoopWaits, WholeSecondsEndExactlyAsTheTargetSecondBegins) {
  SimLoop loop(DateFromParts(2026, 1, 1, 12, 0, 0.25));
  const int64_t start = loop.NowSeconds();
  EXPECT_DOUBLE_EQ(loop.UntilSecond(start + 2), 1.75);
  EXPECT_EQ(loop.UntilSecond(start), 0);
  loop.PumpUntilSecond(start + 2);
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 1.75);
  // `done` ends the wait before its second.
  bool flag = false;
  loop.After(0.5, [&] { flag = true; });
  loop.PumpUntilSecond(start + 100, [&] { return flag; });
  EXPECT_DOUBLE_EQ(loop.Elapsed(), 2.25);
}

TEST(LoopWaits, PauseTimerAcrossMidnightHoldsFrozenThenPumps) {
  SimLoop loop(DateFromParts(2026, 1, 1, 23, 59, 59.5));
  bool ran_before_midnight = false;
  loop.Post([&] { ran_before_midnight = loop.Timer() > 86000; });
  loop.PauseTimer(1);
  EXPECT_FALSE(ran_before_midnight);  // the posted call ran only once the day had turned
  EXPECT_NEAR(loop.Elapsed(), 1.0, 1e-6);
}

// A one-stack loop read in units of its test: virtual seconds, exactly, on the
// simulated loop; 5 ms of real time on the Linux loop, where a busy machine may
// run a tick up to `kLate` units after its moment.
struct SimOneStack {
  static constexpr const char* kName = "Sim";
  static constexpr double kUnit = 1, kLate = 1e-9;
  SimLoop loop{46023, LoopMode::kOneStack};
  double Now() const { return loop.Elapsed(); }
};
struct LinuxOneStack {
  static constexpr const char* kName = "Linux";
  static constexpr double kUnit = 0.005, kLate = 60;
  LinuxLoop loop{LoopMode::kOneStack};
  SteadyClock::time_point start = SteadyClock::now();
  double Now() const { return SecondsSince(start) / kUnit; }
};
template <class Env>
struct OneStackTimers : ::testing::Test {
  Env env;
  // Pumps for `units` or until `done`, as a wait inside a handler does.
  bool Run(
      double units, const std::function<bool()>& done = [] { return false; }) {
    const double end = env.Now() + units;
    for (int i = 0; i < 100000 && !done() && env.Now() < end; ++i)
      env.loop.Pump((end - env.Now()) * Env::kUnit);
    return done();
  }
};
using OneStackLoops = ::testing::Types<SimOneStack, LinuxOneStack>;
TYPED_TEST_SUITE(OneStackTimers, OneStackLoops, TypeNames);

TYPED_TEST(OneStackTimers, TickOnTheirPeriodDoNotReenterAndMayDropThemselves) {
  auto timer = this->env.loop.CreateTimer();
  std::vector<double> ticks;
  int depth = 0, max_depth = 0;
  timer->on_tick = [&] {
    ticks.push_back(this->env.Now());
    max_depth = std::max(max_depth, ++depth);
    if (ticks.size() == 2) this->Run(35);  // a long wait inside the tick
    --depth;
  };
  timer->SetInterval(static_cast<int32_t>(10 * 1000 * TypeParam::kUnit));
  this->Run(15);
  EXPECT_TRUE(ticks.empty());  // not enabled
  const double first = this->env.Now();
  timer->SetEnabled(true);  // the period starts now
  // The second tick waits 35 units inside; the held ticks give one at the next
  // pump, and the period counts from there.
  ASSERT_TRUE(this->Run(200, [&] { return ticks.size() == 4; }));
  EXPECT_EQ(max_depth, 1);

  // Disabling drops the pending tick; re-enabling restarts the period.
  timer->SetEnabled(false);
  this->Run(15);
  EXPECT_EQ(ticks.size(), 4u);
  const double again = this->env.Now();
  timer->SetEnabled(true);
  ASSERT_TRUE(this->Run(100, [&] { return ticks.size() == 5; }));
  // Each tick on its moment: never before it, and exactly on it in virtual time.
  const double at[] = {first + 10, first + 20, first + 55, first + 65, again + 10};
  for (size_t k = 0; k < ticks.size(); ++k) {
    EXPECT_GE(ticks[k], at[k] - 1e-9) << k;
    EXPECT_LE(ticks[k], at[k] + TypeParam::kLate) << k;
  }
  timer->on_tick = [&] { timer.reset(); };  // a tick that drops its own timer
  EXPECT_TRUE(this->Run(100, [&] { return !timer; }));
}

TEST(ExternalLoop, TellsItsTimeoutAndRunsWhatIsReadyWithoutBlocking) {
  ExternalLoop loop;
  EXPECT_EQ(loop.TimeoutMilliseconds(), -1);  // nothing scheduled
  auto timer = loop.CreateTimer();
  int ticks = 0;
  timer->on_tick = [&] { ++ticks; };
  timer->SetInterval(300);
  timer->SetEnabled(true);
  const int timeout = loop.TimeoutMilliseconds();
  EXPECT_GT(timeout, 0);
  EXPECT_LE(timeout, 300);
  EXPECT_FALSE(Readable(loop.Descriptor(), 0));
  // The host sleeps until the timeout, then asks Varnek to run.
  const auto start = SteadyClock::now();
  while (ticks == 0 && SecondsSince(start) < 10) {
    Readable(loop.Descriptor(), loop.TimeoutMilliseconds());
    loop.RunReady();
  }
  EXPECT_EQ(ticks, 1);
  EXPECT_GE(SecondsSince(start), 0.25);
}

TEST(ExternalLoop, AHostThatNeverCallsBackStallsOnlyVarnek) {
  ExternalLoop loop;
  std::atomic<int> ran{0};
  // Another thread posts while the host never runs Varnek: nothing blocks.
  std::thread poster([&] {
    for (int k = 0; k < 1000; ++k) loop.Post([&] { ++ran; });
  });
  poster.join();
  EXPECT_EQ(ran, 0);
  EXPECT_TRUE(Readable(loop.Descriptor(), 1000));  // Varnek asks to run
  EXPECT_EQ(loop.TimeoutMilliseconds(), 0);
  loop.RunReady();
  EXPECT_EQ(ran, 1000);
}

// A host timer on `context` counting its ticks.
struct HostTicker {
  explicit HostTicker(GMainContext* context) {
    source = g_timeout_source_new(10);
    g_source_set_callback(
        source,
        [](gpointer n) -> gboolean {
          ++*static_cast<int*>(n);
          return G_SOURCE_CONTINUE;
        },
        &ticks, nullptr);
    g_source_attach(source, context);
  }
  ~HostTicker() {
    g_source_destroy(source);
    g_source_unref(source);
  }
  GSource* source;
  int ticks = 0;
};

struct GLibContext {
  GLibContext() : context(g_main_context_new()) {}
  ~GLibContext() {
    if (context) g_main_context_unref(context);
  }
  GMainContext* context;
};

TEST(GLibLoop, AWaitOnAStrandReturnsControlToTheHostsLoop) {
  GLibContext host;
  GLibLoop loop(host.context, LoopMode::kStrands);
  HostTicker ticker(host.context);
  int ticks_in_wait = -1;
  bool done = false;
  loop.Post([&] {
    const int before = ticker.ticks;
    loop.Pump(0.3);  // suspends this strand; the host's context runs on
    ticks_in_wait = ticker.ticks - before;
    done = true;
  });
  const auto start = SteadyClock::now();
  while (!done && SecondsSince(start) < 10) g_main_context_iteration(host.context, TRUE);
  EXPECT_TRUE(done);
  EXPECT_GE(SecondsSince(start), 0.29);
  EXPECT_GT(ticks_in_wait, 3);
  EXPECT_EQ(loop.PumpDepth(), 0);
}

TEST(GLibLoop, AWaitOnOneStackIteratesTheHostsContext) {
  GLibContext host;
  GLibLoop loop(host.context, LoopMode::kOneStack);
  HostTicker ticker(host.context);
  int ticks_in_wait = -1;
  loop.Post([&] {
    const int before = ticker.ticks;
    loop.PumpUntilTimer(loop.Timer() + 0.3);  // the classic nested DoEvents
    ticks_in_wait = ticker.ticks - before;
  });
  const auto start = SteadyClock::now();
  while (ticks_in_wait < 0 && SecondsSince(start) < 10)
    g_main_context_iteration(host.context, TRUE);
  EXPECT_GT(ticks_in_wait, 3);
  EXPECT_GT(loop.MaxPumpDepth(), 1);
}

TEST(GLibLoop, AContextDestroyedUnderTheLoopFailsClearly) {
  GLibContext host;
  GLibLoop loop(host.context);
  g_main_context_unref(std::exchange(host.context, nullptr));
  try {
    loop.Pump(0.01);
    FAIL() << "a wait on a destroyed context returned";
  } catch (const std::runtime_error& e) {
    EXPECT_NE(std::string(e.what()).find("GMainContext has been destroyed"), std::string::npos);
  }
  loop.Post([] {});  // posting still costs nothing and fails nothing
}

}  // namespace
}  // namespace varnek
