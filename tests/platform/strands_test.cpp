// Strands on both loops: side-by-side waits, nesting within a strand, timer
// ticks on their own strand, failures and the stack limits.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/sim_loop.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

constexpr double kNoon = 46023.5;

TEST(Strands, WaitsRunSideBySideAndEventsOfAWaitingStrandNestInIt) {
  SimLoop loop(kNoon);
  std::vector<std::string> seen;
  const auto wait = [&](double seconds) { loop.PumpUntilTimer(loop.Timer() + seconds); };
  StrandRef first;
  loop.After(1, [&] {
    first = loop.CurrentStrand();
    seen.push_back("a starts");
    wait(3);
    seen.push_back("a ends at " + std::to_string(static_cast<int>(loop.Elapsed())));
  });
  loop.After(1, [&] {
    seen.push_back("b starts");
    wait(1);
    seen.push_back("b ends at " + std::to_string(static_cast<int>(loop.Elapsed())));
  });
  // An event of a's strand while a waits: nested on a's stack, one pump deeper.
  loop.AfterInLoop(2.5, [&] {
    loop.RunOn(first, [&] { seen.push_back("nested depth " + std::to_string(loop.PumpDepth())); });
  });
  loop.RunFor(10);
  EXPECT_EQ(seen, (std::vector<std::string>{"a starts", "b starts", "b ends at 2", "nested depth 1",
                                            "a ends at 4"}));
  EXPECT_EQ(loop.LiveStrands(), 0);
  EXPECT_EQ(loop.MaxLiveStrands(), 2);
  EXPECT_EQ(loop.PumpDepth(), 0);

  // Equal deadlines wake in the order the waits began, on every run.
  seen.clear();
  for (const char* name : {"x", "y", "z"}) {
    loop.Post([&, name] {
      wait(2);
      seen.push_back(name);
    });
  }
  loop.RunFor(5);
  EXPECT_EQ(seen, (std::vector<std::string>{"x", "y", "z"}));
}

TEST(Strands, ATickWhileItsHandlerWaitsNestsInThatWait) {
  SimLoop loop(kNoon);
  auto timer = loop.CreateTimer();
  std::vector<int> depths;
  timer->on_tick = [&] {
    depths.push_back(loop.PumpDepth());
    if (depths.size() == 1) loop.PumpUntilTimer(loop.Timer() + 25);  // spans two more ticks
  };
  timer->SetInterval(10000);
  timer->SetEnabled(true);
  loop.RunFor(45);
  // Ticks at 10 (waits to 35), 20 and 30 nested in that wait, then 40 on its own.
  EXPECT_EQ(depths, (std::vector<int>{0, 1, 1, 0}));

  SimLoop classic(kNoon, LoopMode::kOneStack);
  auto held = classic.CreateTimer();
  int ticks = 0;
  held->on_tick = [&] {
    if (++ticks == 1) classic.RunFor(25);
  };
  held->SetInterval(10000);
  held->SetEnabled(true);
  classic.RunFor(30);
  EXPECT_EQ(ticks, 1);  // one stack holds the ticks back while the handler runs
}

TEST(Strands, AFailureOnAStrandReachesThePumpAndLeavesTheCountsRight) {
  for (LoopMode mode : {LoopMode::kStrands, LoopMode::kOneStack}) {
    SCOPED_TRACE(mode == LoopMode::kStrands ? "strands" : "one stack");
    LinuxLoop loop(mode);
    int ran = 0;
    loop.Post([&] {
      ++ran;
      loop.Pump(0);
      throw std::runtime_error("handler failed");
    });
    loop.Post([&] { ++ran; });
    loop.Post([&] { ++ran; });
    bool thrown = false;
    for (int k = 0; k < 10 && !(thrown && ran == 3); ++k) {
      try {
        loop.Pump(0.01);
      } catch (const std::runtime_error&) {
        thrown = true;
      }
    }
    EXPECT_TRUE(thrown);
    EXPECT_EQ(ran, 3);  // the rest of the batch still ran
    EXPECT_EQ(loop.PumpDepth(), 0);
    EXPECT_EQ(loop.LiveStrands(), 0);
  }
}

TEST(Strands, NestingBeyondTheStackFailsWith28) {
  SimLoop loop(kNoon);
  StrandRef strand = loop.NewStrand();
  int depth = 0, deepest = 0, failures = 0, events = 0;
  // Each event waits, and while it waits the next one of the same strand
  // comes: 10,000 events would nest 10,000 deep.
  std::function<void()> nest = [&] {
    deepest = std::max(deepest, ++depth);
    if (++events < 10000) loop.AfterInLoop(0, [&] { loop.RunOn(strand, nest); });
    try {
      loop.Pump(0);
    } catch (const RuntimeError& e) {
      failures += e.number() == 28;
    }
    --depth;
  };
  loop.RunOn(strand, nest);
  loop.RunFor(1);
  EXPECT_EQ(events, 10000);
  EXPECT_GE(failures, 1);  // each event past the limit fails instead of nesting
  EXPECT_GT(deepest, 50);
  EXPECT_LT(deepest, 10000);
  EXPECT_EQ(depth, 0);
  EXPECT_EQ(loop.LiveStrands(), 0);
}

int Recurse(int n) {
  volatile char frame[1024];
  frame[0] = static_cast<char>(n);
  return n <= 0 ? frame[0] : Recurse(n - 1) + frame[0];
}

TEST(StrandsDeathTest, RecursionPastTheGuardPageIsNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_DEATH(
      {
        SimLoop loop(kNoon);
        loop.Post([] { Recurse(100000); });
        loop.RunFor(1);
      },
      "overflowed its 256 KiB fiber stack");
}

TEST(StrandsDeathTest, ASentSegvStillEndsTheProcess) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        SimLoop loop(kNoon);
        loop.Post([] { raise(SIGSEGV); });  // a strand's fiber: the guard handler is in place
        loop.RunFor(1);
        std::exit(0);
      },
      // killed by the signal, or by the sanitizer's report of it under ASan
      [](int status) { return !(WIFEXITED(status) && WEXITSTATUS(status) == 0); }, "");
}

TEST(Strands, WatchSaysWhenEpollRefuses) {
  LinuxLoop loop;
  EXPECT_FALSE(loop.Watch(-1, 0, [](uint32_t) {}));
  EXPECT_FALSE(loop.ModifyWatch(12345, 0));
}

}  // namespace
}  // namespace varnek
