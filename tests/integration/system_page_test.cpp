// The demo host's "/system" page met by curl: readings, the self-refresh, the
// process's arguments and the clock of an SNTP responder on 127.0.0.1, of
// the local machine, and of a server that does not answer.
#include <time.h>

#include <atomic>
#include <ctime>
#include <thread>

#include "tests/integration/e2e_support.h"
#include "tests/support/sntp_responder.h"

namespace varnek::e2e {
namespace {

// The loopback SNTP responder, its loop pumped on a thread for at most 60 s.
class ThreadedSntp {
 public:
  explicit ThreadedSntp(SntpResponder::Mode mode = SntpResponder::kAnswer)
      : responder_(loop_, mode) {}
  ~ThreadedSntp() {
    stop_ = true;
    pumper_.join();
  }
  std::string port() const { return std::to_string(responder_.port); }

 private:
  LinuxLoop loop_;
  SntpResponder responder_;
  std::atomic<bool> stop_{false};
  std::thread pumper_{[this] {
    for (int turns = 0; turns < 600 && !stop_; ++turns) loop_.Pump(0.1);
  }};
};

// A moment as the page writes it, in local time.
std::string LocalText(time_t at, const char* format) {
  tm local{};
  localtime_r(&at, &local);
  char text[32];
  std::strftime(text, sizeof text, format, &local);
  return text;
}

using SystemPage = DemoHostTest;

TEST_F(SystemPage, ShowsReadingsArgumentsAndTheServersClock) {
  ThreadedSntp sntp;
  ASSERT_TRUE(demo.Start({"--time-server", "127.0.0.1", "--time-port", sntp.port()}));
  const std::string port = std::to_string(demo.port());
  ExpectContains(
      Curl("", "/system", 10),
      {"<meta http-equiv=\"refresh\" content=\"10\">", "Battery level (%)", "Power source</td><td>",
       "CPU use (%)</td><td>", "Total physical (Win_Memoria, KB)</td><td>",
       "Clock of 127.0.0.1</td><td>" + LocalText(kSntpServerUnix, "%Y-%m-%d %H:%M:%S") + "</td>",
       "Command line (position 0)</td><td>--port " + port +
           " --time-server 127.0.0.1 --time-port " + sntp.port() + "</td>",
       "Argument 1 (cut by &quot;--&quot;)</td><td></td>",
       "Argument 2 (cut by &quot;--&quot;)</td><td>-port " + port + "</td>",
       "Argument 3 (cut by &quot;--&quot;)</td><td>-time-server 127.0.0.1</td>"});
  ExpectContains(Curl("", "/", 10), {"/system"});
}

TEST_F(SystemPage, LocalClockByDefaultAndNoAnswerFromASilentServer) {
  ASSERT_TRUE(demo.Start());
  ExpectContains(Curl("", "/system", 10),
                 {"Local clock</td><td>" + LocalText(::time(nullptr), "%Y-%m-%d")});
  demo.Stop();
  ThreadedSntp silent(SntpResponder::kSilent);
  ASSERT_TRUE(demo.Start({"--time-server", "127.0.0.1", "--time-port", silent.port()}));
  ExpectContains(Curl("", "/system", 10),
                 {"Clock of 127.0.0.1</td><td>no answer (1899-12-30 00:00:00)</td>"});
}

}  // namespace
}  // namespace varnek::e2e
