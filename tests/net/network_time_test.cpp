// Network time: the logic's arithmetic and names on virtual time, and the
// Linux SNTP client against a responder on 127.0.0.1 in the same loop.
#include <gtest/gtest.h>
#include <time.h>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_network_clock.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/dates.h"
#include "tests/support/sntp_responder.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TimeOfDayInfo Tod(int year, int month, int day, int hours, int mins, int secs, int zone) {
  TimeOfDayInfo t;
  t.year = year, t.month = month, t.day = day, t.hours = hours, t.mins = mins, t.secs = secs;
  t.timezone = zone;
  return t;
}

struct NetworkTime : ::testing::Test {
  SimPlatform sim;
  Adds adds{sim.platform};
};

TEST_F(NetworkTime, ServerClockBecomesLocalTimeWithTheZoneCarried) {
  sim.network_clock.servers[u"WEST"] = Tod(2026, 3, 1, 0, 30, 5, 60);       // UTC-1
  sim.network_clock.servers[u"EAST"] = Tod(2026, 12, 31, 23, 30, 0, -120);  // UTC+2
  sim.network_clock.servers[u"HUGE"] = Tod(40000, 1, 1, 0, 0, 0, 0);
  EXPECT_EQ(DateToHostText(adds.NET_GetRemoteDateTime(u"WEST").serial), u"2026-02-28 23:30:05");
  EXPECT_EQ(DateToHostText(adds.NET_GetRemoteDateTime(u"\\\\EAST").serial), u"2027-01-01 01:30:00");
  // Both spellings reach the clock as the same text; a blank name asks this machine.
  adds.NET_GetRemoteDateTime(u"\\\\WEST");
  adds.NET_GetRemoteDateTime(u"   ");
  EXPECT_EQ(sim.network_clock.asked,
            (std::vector<Text>{u"\\\\WEST", u"\\\\EAST", u"\\\\WEST", u""}));
  // The local clock: the loop's date, here read as UTC with no zone.
  EXPECT_EQ(adds.NET_GetRemoteDateTime(Variant()).serial, sim.loop.Now());
  // A field past 16 bits fails.
  EXPECT_EQ(FailureOf([&] { adds.NET_GetRemoteDateTime(u"HUGE"); }), kErrOverflow);
}

TEST_F(NetworkTime, AnUnreachableServerGivesTheZeroDateAfterPumping) {
  bool other_event_ran = false;
  sim.loop.After(1.0, [&] { other_event_ran = true; });
  double start = sim.loop.Elapsed();
  EXPECT_EQ(adds.NET_GetRemoteDateTime(u"NOWHERE").serial, 0.0);
  EXPECT_NEAR(sim.loop.Elapsed() - start, sim.network_clock.time_limit, 0.01);
  EXPECT_TRUE(other_event_ran);  // the wait served the loop
}

TEST_F(NetworkTime, HeaderTextAndTheUnfinishedMessage) {
  for (auto [header, local] : {std::pair{u"Sun, 03 Sep 2000 20:16:08 GMT", u"2000-09-03 20:16:08"},
                               {u"Mon,  4 Sep 2000  9:05:00 GMT", u"2000-09-04 09:05:00"}})
    EXPECT_EQ(DateToHostText(adds.NET_TIMEFormatDateTime(header).serial), local);
  // Too short, or a part that is no date: the current date and time.
  for (const char16_t* text : {u"", u"Sun", u"Sun, 03 Sep 2000", u"Sun, 03 Xyz 2000 20:16:08 GMT",
                               u"Sun, 03 Sep 2000 99:16:08 GMT"}) {
    EXPECT_EQ(adds.NET_TIMEFormatDateTime(text).serial, sim.loop.Now()) << TextToUtf8(text);
  }
  EXPECT_EQ(adds.NET_TIME(u"ignored").serial, 0.0);
  ASSERT_EQ(sim.messages.shown.size(), 1u);
  EXPECT_EQ(sim.messages.shown[0], u"Falta completar este c\u00f3digo");
}

// ---- Through the Linux client on loopback ---------------------------------

TEST_F(NetworkTime, AnSntpServersClockAsLocalTime) {
  LinuxLoop loop;
  SntpResponder responder(loop, SntpResponder::kAnswer);
  LinuxNetworkClock clock(loop, responder.port, 5.0);
  Platform platform = sim.platform;
  platform.loop = loop;
  platform.network_clock = clock;
  Adds linux_adds(platform);
  time_t at = kSntpServerUnix;
  tm local{};
  localtime_r(&at, &local);
  double expected = DateFromParts(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday,
                                  local.tm_hour, local.tm_min, local.tm_sec);
  EXPECT_EQ(DateToHostText(linux_adds.NET_GetRemoteDateTime(u"127.0.0.1").serial),
            DateToHostText(expected));
  EXPECT_EQ(responder.requests, 1);
}

}  // namespace
}  // namespace varnek
