// The Linux host loop on real time: waking by I/O, Post and timers, bounded
// idle waits, re-entrancy, and the clock. Every wait here is at most ~200 ms.
#include "varnek/platform/linux/linux_loop.h"

#include <gtest/gtest.h>
#include <sys/epoll.h>
#include <sys/resource.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <cmath>
#include <thread>
#include <vector>

#include "tests/support/pump.h"

namespace varnek {
namespace {

using Clock = std::chrono::steady_clock;

// Real seconds that fn takes.
template <class F>
double Timed(F&& fn) {
  auto start = Clock::now();
  fn();
  return std::chrono::duration<double>(Clock::now() - start).count();
}

double CpuSeconds() {
  rusage u{};
  getrusage(RUSAGE_THREAD, &u);
  return static_cast<double>(u.ru_utime.tv_sec + u.ru_stime.tv_sec) +
         static_cast<double>(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

struct Pipe {
  int fds[2] = {-1, -1};
  Pipe() { EXPECT_EQ(pipe(fds), 0); }
  ~Pipe() { close(fds[0]), close(fds[1]); }
  void Write() { ASSERT_EQ(write(fds[1], "x", 1), 1); }
};

TEST(LinuxLoop, IdlePumpBlocksForItsMaxWaitWithoutBurningCpu) {
  LinuxLoop loop;
  EXPECT_LT(Timed([&] { loop.Pump(0); }), 0.5);  // margins hold on busy sanitizer runs
  double cpu = CpuSeconds();
  double waited = Timed([&] { loop.Pump(0.15); });
  EXPECT_GE(waited, 0.145);
  EXPECT_LT(waited, 2.0);
  EXPECT_LT(CpuSeconds() - cpu, 0.05);  // asleep in epoll, not spinning (that would be 0.15)
  // Short waits are not cut to zero (which would make callers spin).
  EXPECT_GE(Timed([&] { loop.Pump(0.0005); }), 0.0004);
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
  std::thread writer(
      [&] { std::this_thread::sleep_for(std::chrono::milliseconds(30)), p.Write(); });
  EXPECT_LT(Timed([&] { loop.Pump(2.0); }), 1.0);
  writer.join();
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_TRUE(seen[0] & EPOLLIN);

  bool posted = false;  // a Post from another thread
  std::thread poster([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    loop.Post([&] { posted = true; });
  });
  EXPECT_LT(Timed([&] {
              for (int i = 0; i < 5 && !posted; ++i) loop.Pump(2.0);
            }),
            1.0);
  poster.join();
  EXPECT_TRUE(posted);

  loop.ModifyWatch(p.fds[0], 0);  // no interest: not told, though readable
  p.Write();
  loop.Pump(0.02);
  EXPECT_EQ(seen.size(), 1u);
  loop.ModifyWatch(p.fds[0], EPOLLIN);
  loop.Pump(0.02);
  EXPECT_EQ(seen.size(), 2u);
  loop.Unwatch(p.fds[0]);
  p.Write();
  loop.Pump(0.02);
  EXPECT_EQ(seen.size(), 2u);
}

TEST(LinuxLoop, HandlersMayUnwatchPeersOfTheSameBatchAndPumpNested) {
  LinuxLoop loop;
  Pipe a, b;
  a.Write();
  b.Write();
  int calls = 0, stale = 0, depth_inside = 0;
  auto make_handler = [&](int fd_self, int fd_other) {
    return [&, fd_self, fd_other](uint32_t) {
      ++calls;
      char c;
      ASSERT_EQ(read(fd_self, &c, 1), 1);
      // The other may be in this batch: watch it anew for what a read end never
      // reports, so a stale event of the batch would reach the new handler.
      loop.Unwatch(fd_other);
      loop.Watch(fd_other, EPOLLOUT, [&](uint32_t) { ++stale; });
      depth_inside = loop.PumpDepth();
      loop.Pump(0);
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

  int runs = 0;  // a call posted during a pass runs on a later pass
  loop.Post([&] { ++runs, loop.Post([&] { ++runs; }); });
  loop.Pump(0);
  EXPECT_EQ(runs, 1);
  loop.Pump(0);
  EXPECT_EQ(runs, 2);
}

// A Post from the pumping thread writes no wake-up: each Pump must look at
// the queue before it blocks, whoever posted (an I/O handler, a posted call,
// a timer, a strand after its own wait).
TEST(LinuxLoop, CallsPostedWithinAPassNeverWaitOutALongPump) {
  LinuxLoop loop;
  Pipe p;
  int runs = 0;
  const auto count = [&] { ++runs; };
  loop.Watch(p.fds[0], EPOLLIN, [&](uint32_t) {
    char c;
    ASSERT_EQ(read(p.fds[0], &c, 1), 1);
    loop.Post(count);
  });
  p.Write();
  loop.Post([&] { loop.Post(count); });
  auto timer = loop.CreateTimer();
  timer->on_tick = [&] {
    timer->SetEnabled(false);
    loop.Post(count);
  };
  timer->SetInterval(20);
  timer->SetEnabled(true);
  loop.RunOn(loop.NewStrand(), [&] {
    loop.Pump(0.03);  // this strand waits; the scheduler pumps
    loop.Post(count);
  });
  EXPECT_LT(Timed([&] {
              for (int i = 0; i < 20 && runs < 4; ++i) loop.Pump(5.0);
            }),
            2.0);
  EXPECT_EQ(runs, 4);
}

TEST(LinuxLoop, ClockReadingsAgreeWithLocalTimeAndFreezeRunsNothing) {
  LinuxLoop loop;
  time_t t = time(nullptr);
  tm local{};
  localtime_r(&t, &local);
  double sod = local.tm_hour * 3600 + local.tm_min * 60 + local.tm_sec;
  double now = loop.Now();
  float timer = loop.Timer();
  double now_sod = std::round((now - std::floor(now)) * 86400);
  EXPECT_NEAR((now - std::floor(now)) * 86400, now_sod, 1e-4);    // whole seconds
  EXPECT_NEAR(std::fmod(now_sod - sod + 86400, 86400), 0, 1.01);  // a second may tick
  EXPECT_NEAR(std::fmod(timer - sod + 86400, 86400), 0, 1.01);
  EXPECT_GT(now, 40000);  // after 2009

  bool posted = false;
  loop.Post([&] { posted = true; });
  EXPECT_GE(Timed([&] { loop.Freeze(0.05); }), 0.049);
  EXPECT_FALSE(posted);
  loop.Pump(0);
  EXPECT_TRUE(posted);
}

}  // namespace
}  // namespace varnek
