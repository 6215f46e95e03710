// The network clock, simulated and over SNTP on loopback: one contract run on
// both (answers come later, once; both server spellings; silence gives
// nothing; the local clock), then what only the Linux client has.
#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <memory>
#include <optional>
#include <vector>

#include "tests/support/pump.h"
#include "tests/support/sntp_responder.h"
#include "varnek/platform/linux/linux_network_clock.h"
#include "varnek/platform/sim/sim_network_clock.h"

namespace varnek {
namespace {

// A clock with one server that answers ("127.0.0.1"), one that stays silent
// ("127.0.0.2" on Linux: the responder's port there has no listener, so the
// host itself refuses; on the simulation, a name it does not know).
struct LinuxRig {
  LinuxLoop loop;
  SntpResponder responder{loop, SntpResponder::kAnswer};
  LinuxNetworkClock clock{loop, responder.port, 2.0};
  Text good = u"127.0.0.1", silent = u"127.0.0.2";
  double local_now() { return static_cast<double>(::time(nullptr)); }
};
struct SimRig {
  SimRig() { clock.servers[u"timehost"] = TimeOfDayFromUnix(kSntpServerUnix, 250, 0); }
  SimLoop loop{46023.5};  // 2026-01-01 12:00:00
  SimNetworkClock clock{loop};
  Text good = u"timehost", silent = u"nobody";
  double local_now() { return 1767268800.0 + loop.Elapsed(); }
};

// Queries, checks the answer does not come from inside Query, pumps until it
// comes (at most 200 passes of up to 50 ms) and checks no second one follows.
template <class Loop, class Clock>
std::optional<TimeOfDayInfo> Ask(Loop& loop, Clock& clock, const Text& server) {
  std::optional<TimeOfDayInfo> answer;
  int answers = 0;
  clock.Query(server, [&](std::optional<TimeOfDayInfo> t) {
    answer = t;
    ++answers;
  });
  EXPECT_EQ(answers, 0) << "answered from inside Query";
  PumpUntil(loop, [&] { return answers > 0; });
  Settle(loop);
  EXPECT_EQ(answers, 1);
  return answer;
}

template <class Rig>
struct NetworkClockContract : ::testing::Test {
  std::optional<TimeOfDayInfo> Ask(const Text& server) {
    return varnek::Ask(rig.loop, rig.clock, server);
  }
  Rig rig;
};

using Rigs = ::testing::Types<LinuxRig, SimRig>;
TYPED_TEST_SUITE(NetworkClockContract, Rigs);

TYPED_TEST(NetworkClockContract, ServersLocalClockAndSilence) {
  for (const Text& name : {this->rig.good, u"\\\\" + this->rig.good}) {
    std::optional<TimeOfDayInfo> t = this->Ask(name);
    ASSERT_TRUE(t.has_value());
    EXPECT_EQ(t->elapsedt, kSntpServerUnix);
    EXPECT_EQ(std::vector<int>({t->year, t->month, t->day, t->hours, t->mins, t->secs, t->weekday}),
              std::vector<int>({2026, 5, 17, 10, 20, 30, 0}));
    EXPECT_NEAR(t->msecs, 250, 5);
  }
  EXPECT_FALSE(this->Ask(this->rig.silent).has_value());
  std::optional<TimeOfDayInfo> here = this->Ask(u"");
  ASSERT_TRUE(here.has_value());
  EXPECT_NEAR(here->elapsedt, this->rig.local_now(), 2.0);
}

// ---- Linux only -------------------------------------------------------------

TEST(LinuxNetworkClock, IgnoresStrayAnswersAndKeepsTheLocalZone) {
  LinuxLoop loop;
  SntpResponder responder(loop, SntpResponder::kWrongEchoFirst);
  LinuxNetworkClock clock(loop, responder.port, 5.0);
  std::optional<TimeOfDayInfo> t = Ask(loop, clock, u"127.0.0.1");
  ASSERT_TRUE(t.has_value());
  EXPECT_EQ(responder.requests, 1);
  EXPECT_EQ(t->secs, 30);
  time_t at = kSntpServerUnix;
  tm local{};
  localtime_r(&at, &local);
  EXPECT_EQ(t->timezone, -local.tm_gmtoff / 60);
}

TEST(LinuxNetworkClock, RefusedIsQuickAndSilenceLastsTheTimeLimit) {
  LinuxLoop loop;
  uint16_t closed_port = 0;
  {
    SntpResponder gone(loop, SntpResponder::kSilent);
    closed_port = gone.port;
  }
  LinuxNetworkClock clock(loop, closed_port, 5.0);
  auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Ask(loop, clock, u"127.0.0.1").has_value());  // port unreachable
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));

  SntpResponder silent(loop, SntpResponder::kSilent);
  clock.set_port(silent.port);
  clock.set_time_limit(0.3);
  start = std::chrono::steady_clock::now();
  EXPECT_FALSE(Ask(loop, clock, u"127.0.0.1").has_value());
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(250));
  EXPECT_EQ(silent.requests, 1);

  // A clock destroyed with a query under way releases it without answering.
  bool answered = false;
  auto doomed = std::make_unique<LinuxNetworkClock>(loop, silent.port, 5.0);
  doomed->Query(u"127.0.0.1", [&](std::optional<TimeOfDayInfo>) { answered = true; });
  doomed.reset();
  Settle(loop);
  EXPECT_FALSE(answered);
}

TEST(LinuxNetworkClock, NamesResolveOnTheLoopAndASilentLookupEndsAtTheTimeLimit) {
  LinuxLoop loop;
  SntpResponder responder(loop, SntpResponder::kAnswer);
  SntpResponder dns(loop, SntpResponder::kSilent);  // a name server that never answers
  HostsFile hosts("127.0.0.1 timehost.test\n");
  const std::string server = "127.0.0.1:" + std::to_string(dns.port);
  // a name of the hosts file the resolver was given, unknown to the system
  LinuxNetworkClock by_file(loop, responder.port, 5.0, {server, "fb", 300, 1});
  std::optional<TimeOfDayInfo> t = Ask(loop, by_file, u"\\\\timehost.test");
  ASSERT_TRUE(t.has_value());
  EXPECT_EQ(t->elapsedt, kSntpServerUnix);
  // a lookup that hangs keeps the loop running and ends with the time limit
  LinuxNetworkClock by_dns(loop, responder.port, 0.4, {server, "b", 5000, 1});
  bool answered = false, other_ran = false;
  auto start = std::chrono::steady_clock::now();
  by_dns.Query(u"nowhere.test", [&](std::optional<TimeOfDayInfo> r) { answered = !r.has_value(); });
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  loop.Post([&] { other_ran = true; });
  PumpUntil(loop, [&] { return answered; });
  EXPECT_TRUE(other_ran);
  EXPECT_TRUE(answered);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(350));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(4));
  EXPECT_EQ(responder.requests, 1);
}

}  // namespace
}  // namespace varnek
