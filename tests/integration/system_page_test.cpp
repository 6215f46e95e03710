// The demo host's "/system" page met by curl: readings, the self-refresh, the
// process's arguments and the clock of an SNTP responder on 127.0.0.1, of
// the local machine, and of a server that does not answer.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <ctime>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/sntp_responder.h"

namespace {

// The loopback SNTP responder, its loop pumped on a thread for at most 60 s.
class ThreadedSntp {
 public:
  explicit ThreadedSntp(varnek::SntpResponder::Mode mode = varnek::SntpResponder::kAnswer)
      : responder_(loop_, mode) {}
  ~ThreadedSntp() {
    stop_ = true;
    pumper_.join();
  }
  uint16_t port() const { return responder_.port; }

 private:
  varnek::LinuxLoop loop_;
  varnek::SntpResponder responder_;
  std::atomic<bool> stop_{false};
  std::thread pumper_{[this] {
    for (int turns = 0; turns < 600 && !stop_; ++turns) loop_.Pump(0.1);
  }};
};

std::string Shell(const std::string& command) {
  std::string output;
  FILE* pipe = ::popen(("timeout -k 2 15 " + command).c_str(), "r");
  char buf[4096];
  for (size_t n; pipe && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
  if (pipe) ::pclose(pipe);
  return output;
}

// The demo host on a free port, stopped with SIGTERM at the end.
class Demo {
 public:
  explicit Demo(std::vector<std::string> extra) {
    // The server's port is a 16-bit Integer: pick a free one below 32768.
    uint16_t probe_port = 0;
    for (int attempt = 0; attempt < 50 && probe_port == 0; ++attempt) {
      uint16_t candidate =
          static_cast<uint16_t>(20000 + (getpid() * 7919 + attempt * 104729) % 12000);
      int probe = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_port = htons(candidate);
      if (::bind(probe, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) probe_port = candidate;
      ::close(probe);
    }
    port = std::to_string(probe_port);
    args = {"varnek-demo", "--port", port};
    args.insert(args.end(), extra.begin(), extra.end());
    std::vector<char*> argv;
    for (auto& s : args) argv.push_back(s.data());
    argv.push_back(nullptr);
    if ((pid_ = fork()) == 0) {
      if (freopen("/dev/null", "w", stdout) && freopen("/dev/null", "w", stderr)) {
        execv(VARNEK_DEMO_PATH, argv.data());
      }
      _exit(127);
    }
  }
  ~Demo() {
    kill(pid_, SIGTERM);
    int status = 0;
    for (int k = 0; k < 500 && waitpid(pid_, &status, WNOHANG) == 0; ++k) usleep(20000);
    if (waitpid(pid_, &status, WNOHANG) == 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status, 0);
    }
  }
  // The page, tried for up to 5 s while the host starts.
  std::string Get(const std::string& path) {
    for (int k = 0; k < 50; ++k) {
      std::string page = Shell("curl -s -m 10 http://127.0.0.1:" + port + path);
      if (!page.empty()) return page;
      usleep(100000);
    }
    return {};
  }
  std::string port;
  std::vector<std::string> args;

 private:
  pid_t pid_ = -1;
};

bool Has(const std::string& page, const std::string& part) {
  return page.find(part) != std::string::npos;
}

TEST(SystemPage, ShowsReadingsArgumentsAndTheServersClock) {
  ThreadedSntp sntp;
  Demo demo({"--time-server", "127.0.0.1", "--time-port", std::to_string(sntp.port())});
  std::string page = demo.Get("/system");
  ASSERT_FALSE(page.empty());
  time_t at = varnek::kSntpServerUnix;
  tm local{};
  localtime_r(&at, &local);
  char expected[32];
  std::strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &local);
  for (const std::string& part :
       {std::string("<meta http-equiv=\"refresh\" content=\"10\">"),
        std::string("Battery level (%)"), std::string("Power source</td><td>"),
        std::string("CPU use (%)</td><td>"),
        std::string("Total physical (Win_Memoria, KB)</td><td>"),
        "Clock of 127.0.0.1</td><td>" + std::string(expected) + "</td>",
        "Command line (position 0)</td><td>--port " + demo.port +
            " --time-server 127.0.0.1 --time-port " + std::to_string(sntp.port()) + "</td>",
        std::string("Argument 1 (cut by &quot;--&quot;)</td><td></td>"),
        "Argument 2 (cut by &quot;--&quot;)</td><td>-port " + demo.port + "</td>",
        std::string("Argument 3 (cut by &quot;--&quot;)</td><td>-time-server 127.0.0.1</td>")}) {
    EXPECT_TRUE(Has(page, part)) << part << "\n" << page;
  }
  EXPECT_TRUE(Has(Shell("curl -s -m 10 http://127.0.0.1:" + demo.port + "/"), "/system"));
}

TEST(SystemPage, LocalClockByDefaultAndNoAnswerFromASilentServer) {
  {
    Demo demo({});
    std::string page = demo.Get("/system");
    char today[16];
    time_t now = ::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    std::strftime(today, sizeof today, "%Y-%m-%d", &local);
    EXPECT_TRUE(Has(page, std::string("Local clock</td><td>") + today)) << page;
  }
  ThreadedSntp silent(varnek::SntpResponder::kSilent);
  Demo demo({"--time-server", "127.0.0.1", "--time-port", std::to_string(silent.port())});
  std::string page = demo.Get("/system");
  EXPECT_TRUE(Has(page, "Clock of 127.0.0.1</td><td>no answer (1899-12-30 00:00:00)</td>")) << page;
}

}  // namespace
