// The loop core's waits, and the backends that leave the waiting to a host's
// loop: ExternalLoop (one descriptor and a timeout) and GLibLoop (a GSource).
#include <gtest/gtest.h>
#include <poll.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <thread>

#include "tests/support/pump.h"
#include "varnek/platform/linux/external_loop.h"
#include "varnek/platform/linux/glib/glib_loop.h"
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
