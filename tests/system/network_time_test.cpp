// Network time: the logic's arithmetic and names on virtual time, and the
// Linux SNTP client against a responder on 127.0.0.1 in the same loop.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <optional>

#include "adds/adds.h"
#include "platform/linux/linux_loop.h"
#include "platform/linux/linux_network_clock.h"
#include "platform/sim/sim_platform.h"
#include "runtime/dates.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TimeOfDayInfo Tod(int year, int month, int day, int hours, int mins, int secs, int zone) {
  TimeOfDayInfo t;
  t.year = year, t.month = month, t.day = day, t.hours = hours, t.mins = mins, t.secs = secs;
  t.timezone = zone;
  return t;
}

TEST(NetworkTime, ServerClockBecomesLocalTimeWithTheZoneCarried) {
  SimPlatform sim;
  Adds adds(sim.platform);
  sim.network_clock.servers[u"WEST"] = Tod(2026, 3, 1, 0, 30, 5, 60);     // UTC-1
  sim.network_clock.servers[u"EAST"] = Tod(2026, 12, 31, 23, 30, 0, -120);  // UTC+2
  sim.network_clock.servers[u"HUGE"] = Tod(40000, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(DateToHostText(adds.NET_GetRemoteDateTime(u"WEST").serial), u"2026-02-28 23:30:05");
  EXPECT_EQ(DateToHostText(adds.NET_GetRemoteDateTime(u"\\\\EAST").serial), u"2027-01-01 01:30:00");
  // Both spellings reach the clock as the same text; a blank name asks this machine.
  adds.NET_GetRemoteDateTime(u"\\\\WEST");
  adds.NET_GetRemoteDateTime(u"   ");
  ASSERT_EQ(sim.network_clock.asked.size(), 4u);
  EXPECT_EQ(sim.network_clock.asked[0], u"\\\\WEST");
  EXPECT_EQ(sim.network_clock.asked[2], u"\\\\WEST");
  EXPECT_EQ(sim.network_clock.asked[3], u"");
  // The local clock: the loop's date, here read as UTC with no zone.
  EXPECT_EQ(adds.NET_GetRemoteDateTime(Variant()).serial, sim.loop.Now());
  // A field past 16 bits fails.
  EXPECT_EQ(FailureOf([&] { adds.NET_GetRemoteDateTime(u"HUGE"); }), kErrOverflow);
}

TEST(NetworkTime, AnUnreachableServerGivesTheZeroDateAfterPumping) {
  SimPlatform sim;
  Adds adds(sim.platform);
  bool other_event_ran = false;
  sim.loop.After(1.0, [&] { other_event_ran = true; });
  double start = sim.loop.Elapsed();
  EXPECT_EQ(adds.NET_GetRemoteDateTime(u"NOWHERE").serial, 0.0);
  EXPECT_NEAR(sim.loop.Elapsed() - start, sim.network_clock.time_limit, 0.01);
  EXPECT_TRUE(other_event_ran);  // the wait served the loop
}

TEST(NetworkTime, HeaderTextAndTheUnfinishedMessage) {
  SimPlatform sim;
  Adds adds(sim.platform);
  EXPECT_EQ(DateToHostText(adds.NET_TIMEFormatDateTime(u"Sun, 03 Sep 2000 20:16:08 GMT").serial),
            u"2000-09-03 20:16:08");
  EXPECT_EQ(DateToHostText(adds.NET_TIMEFormatDateTime(u"Mon,  4 Sep 2000  9:05:00 GMT").serial),
            u"2000-09-04 09:05:00");
  // Too short, or a part that is no date: the current date and time.
  for (const char16_t* text : {u"", u"Sun", u"Sun, 03 Sep 2000", u"Sun, 03 Xyz 2000 20:16:08 GMT",
                               u"Sun, 03 Sep 2000 99:16:08 GMT"}) {
    EXPECT_EQ(adds.NET_TIMEFormatDateTime(text).serial, sim.loop.Now()) << TextToUtf8(text);
  }
  EXPECT_EQ(adds.NET_TIME(u"ignored").serial, 0.0);
  ASSERT_EQ(sim.messages.shown.size(), 1u);
  EXPECT_EQ(sim.messages.shown[0], u"Falta completar este c\u00f3digo");
}

// ---- The Linux client on loopback ------------------------------------------

constexpr uint64_t kNtpEpochOffset = 2208988800ull;
constexpr int64_t kServerUnix = 1779013230;  // 2026-05-17 10:20:30 UTC

// A UDP responder on 127.0.0.1, served by the same loop. `answers` says how
// to reply: with a wrong echo first (ignored by the client), or not at all.
struct Responder {
  enum Mode { kAnswer, kWrongEchoFirst, kSilent };
  Responder(LinuxLoop& loop, Mode mode) : loop_(loop), mode_(mode) {
    fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
    port = ntohs(a.sin_port);
    loop_.Watch(fd, EPOLLIN, [this](uint32_t) { Serve(); });
  }
  ~Responder() {
    loop_.Unwatch(fd);
    ::close(fd);
  }
  void Serve() {
    unsigned char in[64], out[48] = {};
    sockaddr_in peer{};
    socklen_t len = sizeof peer;
    ssize_t n = ::recvfrom(fd, in, sizeof in, 0, reinterpret_cast<sockaddr*>(&peer), &len);
    if (n < 48 || mode_ == kSilent) return;
    ++requests;
    out[0] = 0x24;  // version 4, server
    out[1] = 2;     // stratum
    uint64_t stamp = (static_cast<uint64_t>(kServerUnix) + kNtpEpochOffset) << 32 | 0x40000000u;
    for (int i = 0; i < 8; ++i) {
      out[24 + i] = in[40 + i];  // echo the client's transmit time
      out[32 + i] = out[40 + i] = static_cast<unsigned char>(stamp >> (56 - 8 * i));
    }
    if (mode_ == kWrongEchoFirst) {
      out[31] ^= 1;
      ::sendto(fd, out, sizeof out, 0, reinterpret_cast<sockaddr*>(&peer), len);
      out[31] ^= 1;
    }
    ::sendto(fd, out, sizeof out, 0, reinterpret_cast<sockaddr*>(&peer), len);
  }
  LinuxLoop& loop_;
  Mode mode_;
  int fd = -1;
  uint16_t port = 0;
  int requests = 0;
};

// Queries and pumps until the answer, at most 10 s.
std::optional<TimeOfDayInfo> Ask(LinuxLoop& loop, LinuxNetworkClock& clock, const Text& server,
                                 bool* answered_inside = nullptr) {
  std::optional<TimeOfDayInfo> answer;
  bool answered = false;
  clock.Query(server, [&](std::optional<TimeOfDayInfo> t) {
    answer = t;
    answered = true;
  });
  if (answered_inside) *answered_inside = answered;
  auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!answered && std::chrono::steady_clock::now() < end) loop.Pump(0.1);
  EXPECT_TRUE(answered);
  return answer;
}

TEST(LinuxNetworkClock, AsksAnSntpResponderOnLoopback) {
  LinuxLoop loop;
  Responder responder(loop, Responder::kWrongEchoFirst);
  LinuxNetworkClock clock(loop, responder.port, 5.0);
  bool inside = true;
  std::optional<TimeOfDayInfo> t = Ask(loop, clock, u"\\\\127.0.0.1", &inside);
  EXPECT_FALSE(inside);  // never answered from within Query
  ASSERT_TRUE(t.has_value());
  EXPECT_EQ(responder.requests, 1);
  EXPECT_EQ(t->year, 2026);
  EXPECT_EQ(t->month, 5);
  EXPECT_EQ(t->day, 17);
  EXPECT_EQ(t->hours, 10);
  EXPECT_EQ(t->mins, 20);
  EXPECT_EQ(t->secs, 30);
  EXPECT_EQ(t->weekday, 0);  // a Sunday
  EXPECT_EQ(t->elapsedt, kServerUnix);
  time_t at = kServerUnix;
  tm local{};
  localtime_r(&at, &local);
  EXPECT_EQ(t->timezone, -local.tm_gmtoff / 60);

  // Through Adds: the same moment as local time.
  SimPlatform sim;
  Platform platform = sim.platform;
  platform.loop = &loop;
  platform.network_clock = &clock;
  Adds adds(platform);
  double expected = DateFromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                  local.tm_hour, local.tm_min, local.tm_sec);
  EXPECT_EQ(DateToHostText(adds.NET_GetRemoteDateTime(u"127.0.0.1").serial), DateToHostText(expected));
}

TEST(LinuxNetworkClock, RefusedAndSilentServersAnswerNothing) {
  LinuxLoop loop;
  uint16_t closed_port = 0;
  {
    Responder gone(loop, Responder::kSilent);
    closed_port = gone.port;
  }
  LinuxNetworkClock clock(loop, closed_port, 5.0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Ask(loop, clock, u"127.0.0.1").has_value());  // port unreachable
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));

  Responder silent(loop, Responder::kSilent);
  clock.set_port(silent.port);
  clock.set_time_limit(0.3);
  start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Ask(loop, clock, u"127.0.0.1").has_value());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));

  // The local clock answers at once with the current time.
  std::optional<TimeOfDayInfo> here = Ask(loop, clock, u"");
  ASSERT_TRUE(here.has_value());
  EXPECT_NEAR(here->elapsedt, static_cast<double>(::time(nullptr)), 2.0);
}

}  // namespace
}  // namespace varnek
