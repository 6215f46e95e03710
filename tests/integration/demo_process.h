// The demo host varnek-demo as a child process of a test, on a free port
// below 32768, stopped with SIGTERM. VARNEK_DEMO_PATH comes from CMake.
#pragma once

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <random>
#include <string>
#include <vector>

#include "tests/integration/integration_support.h"

namespace varnek::integration {

// The demo host as a child process, stopped with SIGTERM at the end.
class DemoProcess {
 public:
  ~DemoProcess() { Stop(); }

  // Starts on a port below 32768 with `extra` flags and waits until it
  // accepts connections. Its stderr goes to `log_path` when given.
  bool Start(std::vector<std::string> extra = {}, const std::string& log_path = "") {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 10; ++attempt) {
      port_ = 20000 + static_cast<int>(random() % 12000);
      pid_ = fork();
      if (pid_ == 0) {
        const std::string port = std::to_string(port_);
        if (!freopen("/dev/null", "w", stdout)) _exit(126);
        if (!freopen(log_path.empty() ? "/dev/null" : log_path.c_str(), "w", stderr)) _exit(126);
        std::vector<char*> args{const_cast<char*>("varnek-demo"), const_cast<char*>("--port"),
                                const_cast<char*>(port.c_str())};
        for (auto& e : extra) args.push_back(e.data());
        args.push_back(nullptr);
        execv(VARNEK_DEMO_PATH, args.data());
        _exit(127);
      }
      if (pid_ < 0) return false;
      const auto deadline = DeadlineIn(3.0);
      while (SecondsLeft(deadline) > 0) {
        RawClient probe;
        if (probe.Connect(port_, 0.2)) return true;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) break;  // port taken: it gave up
        usleep(50000);
      }
      Stop();
    }
    return false;
  }

  // SIGTERM, then waits (bounded) for the exit; returns the exit status or -1.
  int Stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    const auto deadline = DeadlineIn(15.0);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (SecondsLeft(deadline) <= 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return -1;
      }
      usleep(20000);
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

  int port() const { return port_; }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace varnek::integration
