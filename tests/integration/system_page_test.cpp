// The demo host's "/system" page met by curl: readings, the self-refresh, the
// process's arguments and the clock of an SNTP responder on 127.0.0.1, of
// the local machine, and of a server that does not answer.
#include <gtest/gtest.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
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

namespace {

constexpr int64_t kServerUnix = 1779013230;  // 2026-05-17 10:20:30 UTC

// A UDP socket on 127.0.0.1 and a free port; closed by the owner.
int BindLoopbackUdp(uint16_t& port) {
  int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a);
  socklen_t len = sizeof a;
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  port = ntohs(a.sin_port);
  return fd;
}

// Answers SNTP requests with kServerUnix from a thread, for at most 60 s.
class SntpResponder {
 public:
  SntpResponder() : fd_(BindLoopbackUdp(port)), thread_([this] { Serve(); }) {}
  ~SntpResponder() {
    stop_ = true;
    thread_.join();
    ::close(fd_);
  }
  uint16_t port = 0;

 private:
  void Serve() {
    for (int turns = 0; turns < 600 && !stop_; ++turns) {
      pollfd p{fd_, POLLIN, 0};
      if (::poll(&p, 1, 100) <= 0) continue;
      unsigned char in[64], out[48] = {};
      sockaddr_in peer{};
      socklen_t len = sizeof peer;
      if (::recvfrom(fd_, in, sizeof in, 0, reinterpret_cast<sockaddr*>(&peer), &len) < 48) continue;
      out[0] = 0x24;
      out[1] = 1;
      uint64_t stamp = (static_cast<uint64_t>(kServerUnix) + 2208988800ull) << 32 | 0x40000000u;
      for (int i = 0; i < 8; ++i) {
        out[24 + i] = in[40 + i];
        out[32 + i] = out[40 + i] = static_cast<unsigned char>(stamp >> (56 - 8 * i));
      }
      ::sendto(fd_, out, sizeof out, 0, reinterpret_cast<sockaddr*>(&peer), len);
    }
  }
  int fd_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
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
      uint16_t candidate = static_cast<uint16_t>(20000 + (getpid() * 7919 + attempt * 104729) % 12000);
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

bool Has(const std::string& page, const std::string& part) { return page.find(part) != std::string::npos; }

TEST(SystemPage, ShowsReadingsArgumentsAndTheServersClock) {
  SntpResponder sntp;
  Demo demo({"--time-server", "127.0.0.1", "--time-port", std::to_string(sntp.port)});
  std::string page = demo.Get("/system");
  ASSERT_FALSE(page.empty());
  time_t at = kServerUnix;
  tm local{};
  localtime_r(&at, &local);
  char expected[32];
  std::strftime(expected, sizeof expected, "%Y-%m-%d %H:%M:%S", &local);
  for (const std::string& part :
       {std::string("<meta http-equiv=\"refresh\" content=\"10\">"), std::string("Battery level (%)"),
        std::string("Power source</td><td>"), std::string("CPU use (%)</td><td>"),
        std::string("Total physical (Win_Memoria, KB)</td><td>"),
        "Clock of 127.0.0.1</td><td>" + std::string(expected) + "</td>",
        "Command line (position 0)</td><td>--port " + demo.port + " --time-server 127.0.0.1 --time-port " +
            std::to_string(sntp.port) + "</td>",
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
  uint16_t silent_port = 0;
  int silent = BindLoopbackUdp(silent_port);  // bound, never answers
  Demo demo({"--time-server", "127.0.0.1", "--time-port", std::to_string(silent_port)});
  std::string page = demo.Get("/system");
  EXPECT_TRUE(Has(page, "Clock of 127.0.0.1</td><td>no answer (1899-12-30 00:00:00)</td>")) << page;
  ::close(silent);
}

}  // namespace
