// The Linux host loop on real time: waking by I/O, Post and timers, bounded
// idle waits, re-entrancy, and the clock. Every wait here is at most ~200 ms.
#include "platform/linux/linux_loop.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <string>
#include <thread>
#include <vector>

namespace varnek {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_THREAD, &usage);
  auto secs = [](const timeval& tv) { return tv.tv_sec + tv.tv_usec / 1e6; };
  return secs(usage.ru_utime) + secs(usage.ru_stime);
}

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() {
    close(fds[0]);
    close(fds[1]);
  }
  void Write() { ASSERT_EQ(write(fds[1], "x", 1), 1); }
};

TEST(LinuxLoop, IdlePumpBlocksForItsMaxWaitWithoutBurningCpu) {
  LinuxLoop loop;
  // Pump(0) never blocks.
  auto start = Clock::now();
  loop.Pump(0);
  EXPECT_LT(SecondsSince(start), 0.02);

  start = Clock::now();
  double cpu = CpuSeconds();
  loop.Pump(0.15);
  double waited = SecondsSince(start);
  EXPECT_GE(waited, 0.145);
  EXPECT_LT(waited, 0.5);
  EXPECT_LT(CpuSeconds() - cpu, 0.02);  // asleep in epoll, not spinning

  // Short waits are not cut to zero (which would make callers spin).
  start = Clock::now();
  loop.Pump(0.0005);
  EXPECT_GE(SecondsSince(start), 0.0004);
}

TEST(LinuxLoop, WatchedDescriptorAndPostWakeABlockedPump) {
  LinuxLoop loop;
  Pipe p;
  std::vector<uint32_t> seen;
  loop.Watch(p.fds[0], EPOLLIN, [&](uint32_t events) {
    seen.push_back(events);
    char c;
    ASSERT_EQ(read(p.fds[0], &c, 1), 1);
  });

  auto start = Clock::now();
  std::thread writer([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    p.Write();
  });
  loop.Pump(2.0);
  writer.join();
  EXPECT_LT(SecondsSince(start), 1.0);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_TRUE(seen[0] & EPOLLIN);

  // Posting from another thread wakes the pump too.
  bool posted = false;
  start = Clock::now();
  std::thread poster([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    loop.Post([&] { posted = true; });
  });
  for (int i = 0; i < 5 && !posted; ++i) loop.Pump(2.0);
  poster.join();
  EXPECT_TRUE(posted);
  EXPECT_LT(SecondsSince(start), 1.0);

  // After Unwatch the descriptor no longer reaches the handler.
  loop.Unwatch(p.fds[0]);
  p.Write();
  loop.Pump(0.02);
  EXPECT_EQ(seen.size(), 1u);
}

TEST(LinuxLoop, ModifyWatchChangesTheInterest) {
  LinuxLoop loop;
  Pipe p;
  int writable = 0;
  loop.Watch(p.fds[1], EPOLLOUT, [&](uint32_t) { ++writable; });
  loop.Pump(0);
  EXPECT_EQ(writable, 1);
  loop.Pump(0);
  EXPECT_EQ(writable, 2);  // level-triggered: told again while it holds
  loop.ModifyWatch(p.fds[1], 0);
  loop.Pump(0.02);
  EXPECT_EQ(writable, 2);
  loop.Unwatch(p.fds[1]);
}

TEST(LinuxLoop, HandlersMayUnwatchPeersOfTheSameBatchAndPumpNested) {
  LinuxLoop loop;
  Pipe a, b;
  a.Write();
  b.Write();
  int calls = 0, stale = 0;
  int depth_inside = 0;
  auto make_handler = [&](int fd_self, int fd_other) {
    return [&, fd_self, fd_other](uint32_t) {
      ++calls;
      char c;
      ASSERT_EQ(read(fd_self, &c, 1), 1);
      // The other may already be in this batch: drop it, and watch it anew
      // for what a pipe's read end never reports, so a stale event of the
      // batch would show up in the new handler.
      loop.Unwatch(fd_other);
      loop.Watch(fd_other, EPOLLOUT, [&](uint32_t) { ++stale; });
      depth_inside = loop.PumpDepth();
      loop.Pump(0);  // a nested pass inside the handler
    };
  };
  loop.Watch(a.fds[0], EPOLLIN, make_handler(a.fds[0], b.fds[0]));
  loop.Watch(b.fds[0], EPOLLIN, make_handler(b.fds[0], a.fds[0]));
  loop.Pump(0.1);
  EXPECT_EQ(calls, 1);
  EXPECT_EQ(stale, 0);
  EXPECT_EQ(depth_inside, 1);
  EXPECT_EQ(loop.MaxPumpDepth(), 2);
  EXPECT_EQ(loop.PumpDepth(), 0);

  // A call posted during a pass runs on a later pass, not in the same one.
  int runs = 0;
  loop.Post([&] {
    ++runs;
    loop.Post([&] { ++runs; });
  });
  loop.Pump(0);
  EXPECT_EQ(runs, 1);
  loop.Pump(0);
  EXPECT_EQ(runs, 2);
}

TEST(LinuxLoop, TimersFireOnTimeAndDoNotReenter) {
  LinuxLoop loop;
  auto timer = loop.CreateTimer();
  int ticks = 0, depth = 0, max_depth = 0;
  timer->on_tick = [&] {
    ++ticks;
    max_depth = std::max(max_depth, ++depth);
    if (ticks == 1) {
      // Wait 60 ms inside the tick: further ticks of this timer are held.
      auto until = Clock::now() + std::chrono::milliseconds(60);
      while (Clock::now() < until) loop.Pump(0.01);
    }
    --depth;
  };
  timer->SetInterval(10);
  timer->SetEnabled(true);
  auto start = Clock::now();
  for (int i = 0; i < 100 && ticks < 3; ++i) loop.Pump(0.2);
  EXPECT_EQ(ticks, 3);
  EXPECT_EQ(max_depth, 1);
  EXPECT_GE(SecondsSince(start), 0.07);
  EXPECT_LT(SecondsSince(start), 0.5);

  // A disabled timer drops its tick; a blocked pump is not woken by it.
  timer->SetEnabled(false);
  int before = ticks;
  loop.Pump(0.05);
  EXPECT_EQ(ticks, before);

  // A timer destroyed inside its own tick.
  timer->on_tick = [&] {
    ++ticks;
    timer.reset();
  };
  timer->SetEnabled(true);
  for (int i = 0; i < 20 && timer; ++i) loop.Pump(0.05);
  EXPECT_EQ(timer, nullptr);
  EXPECT_EQ(ticks, before + 1);
}

TEST(LinuxLoop, ClockReadingsAgreeWithLocalTimeAndFreezeRunsNothing) {
  LinuxLoop loop;
  time_t t = time(nullptr);
  tm local{};
  localtime_r(&t, &local);
  double sod = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
  double now = loop.Now();
  float timer = loop.Timer();
  // Same moment, read three ways (a second may tick in between).
  double now_sod = std::round((now - std::floor(now)) * 86400);
  EXPECT_NEAR(std::fmod(now_sod - sod + 86400, 86400), 0, 1.01);
  EXPECT_NEAR(std::fmod(timer - sod + 86400, 86400), 0, 1.01);
  EXPECT_GT(now, 40000);  // after 2009
  // Now() has whole seconds: its time of day is an integer count.
  EXPECT_NEAR((now - std::floor(now)) * 86400, now_sod, 1e-4);

  bool posted = false;
  loop.Post([&] { posted = true; });
  auto start = Clock::now();
  loop.Freeze(0.05);
  EXPECT_GE(SecondsSince(start), 0.049);
  EXPECT_FALSE(posted);
  loop.Pump(0);
  EXPECT_TRUE(posted);
}

}  // namespace
}  // namespace varnek
