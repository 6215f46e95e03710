// The embedding examples as users run them: the poll-loop host (raw
// clients) and the GTK host (curl, under Xvfb) serve 100 simultaneous GETs
// while their own timers keep ticking, which each tells on stderr at its end.
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <regex>

#include "tests/integration/e2e_support.h"

namespace varnek::e2e {
namespace {

constexpr int kClients = 100;

// "N ticks of P ms, longest gap G ms, S requests served", as the hosts end.
struct TimerSummary {
  long ticks = -1, period = -1, gap = -1, served = -1;
};
TimerSummary Summary(const std::string& log) {
  std::smatch m;
  TimerSummary s;
  if (std::regex_search(
          log, m,
          std::regex(R"((\d+) ticks of (\d+) ms, longest gap (\d+) ms, (\d+) requests served)"))) {
    s = {std::stol(m[1]), std::stol(m[2]), std::stol(m[3]), std::stol(m[4])};
  }
  return s;
}

// The loaded test machine may hold a tick back; a loop blocked by the
// requests would hold it for seconds.
constexpr long kGapMarginMs = 600;

class EmbeddingHosts : public ::testing::Test {
 protected:
  void TearDown() override { unlink(log.c_str()); }
  // Serves 100 simultaneous GETs on `host`, stops it and checks its summary.
  void ServeAndCheck(DemoProcess& host, const std::string& expected_page) {
    const auto answers = SimultaneousGets(host.port(), kClients);
    for (const auto& a : answers) {
      EXPECT_EQ(a.rfind("HTTP/1.0 200", 0), 0u) << a;
      EXPECT_NE(a.find(expected_page), std::string::npos) << a;
    }
    StopAndCheck(host, kClients);
  }
  // Stops `host`; it served `served` pages while its timer kept its period.
  void StopAndCheck(DemoProcess& host, long served) {
    EXPECT_EQ(host.Stop(), 0);
    const TimerSummary s = Summary(ReadFile(log));
    EXPECT_EQ(s.served, served) << ReadFile(log);
    EXPECT_GT(s.ticks, 5);
    EXPECT_LT(s.gap, s.period + kGapMarginMs) << ReadFile(log);
  }
  std::string log = "/tmp/varnek-host-log-" + std::to_string(getpid());
};

TEST_F(EmbeddingHosts, PollHostServesWhileItsTimerKeepsItsPeriod) {
  DemoProcess host(VARNEK_POLL_HOST_PATH);
  ASSERT_TRUE(host.Start({"--tick-ms", "50"}, log));
  ServeAndCheck(host, "from a poll loop");
}

// An X server of its own for the GTK host, on the first display number
// from a per-process start whose socket appears within 10 s.
class Xvfb {
 public:
  Xvfb() {
    if (access("/usr/bin/Xvfb", X_OK) != 0) return;
    for (int n = 50 + getpid() % 200, tries = 0; tries < 5 && display_.empty(); ++n, ++tries) {
      const std::string display = ":" + std::to_string(n);
      if (access(("/tmp/.X11-unix/X" + std::to_string(n)).c_str(), F_OK) == 0) continue;  // taken
      if ((pid_ = fork()) == 0) {
        if (freopen("/dev/null", "w", stderr)) {
          execl("/usr/bin/Xvfb", "Xvfb", display.c_str(), "-screen", "0", "800x600x24", "-nolisten",
                "tcp", static_cast<char*>(nullptr));
        }
        _exit(127);
      }
      const auto start = SteadyClock::now();
      while (SecondsSince(start) < 10 && waitpid(pid_, nullptr, WNOHANG) == 0) {
        if (access(("/tmp/.X11-unix/X" + std::to_string(n)).c_str(), F_OK) == 0) {
          display_ = display;
          break;
        }
        usleep(20000);
      }
      if (display_.empty()) Stop();
    }
  }
  ~Xvfb() { Stop(); }
  const std::string& display() const { return display_; }

 private:
  void Stop() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
  }
  pid_t pid_ = -1;
  std::string display_;
};

TEST_F(EmbeddingHosts, GtkHostUnderXvfbServesCurlWhileItsTimerTicks) {
  Xvfb x;
  if (x.display().empty()) GTEST_SKIP() << "no Xvfb on this machine (Debian: apt-get install xvfb)";
  setenv("DISPLAY", x.display().c_str(), 1);
  setenv("NO_AT_BRIDGE", "1", 1);  // no accessibility bus to wait for
  const std::string shot = "/tmp/varnek-gtk-host-" + std::to_string(getpid()) + ".png";
  DemoProcess host(VARNEK_GTK_HOST_PATH);
  ASSERT_TRUE(host.Start({"--screenshot", shot}, log)) << x.display() << ": " << ReadFile(log);
  // curl, 100 transfers at once.
  std::string urls;
  for (int k = 0; k < kClients; ++k) urls += " -o /dev/null " + host.Base() + "/";
  const std::string codes =
      RunCommand("curl -s -Z --parallel-immediate --parallel-max 100 -w '%{http_code}\\n'" + urls +
                     " 2>/dev/null",
                 60);
  EXPECT_EQ(std::count(codes.begin(), codes.end(), '\n'), kClients) << codes;
  EXPECT_EQ(codes.find_first_not_of("200\n"), std::string::npos) << codes;
  // And the page itself.
  ExpectContains(RunCommand("curl -s " + host.Base() + "/"), {"from a GTK window"});
  StopAndCheck(host, kClients + 1);
  const std::string png = ReadFile(shot);
  EXPECT_EQ(png.substr(0, 8), "\x89PNG\r\n\x1a\n");
  unlink(shot.c_str());
  unsetenv("DISPLAY");
}

}  // namespace
}  // namespace varnek::e2e
