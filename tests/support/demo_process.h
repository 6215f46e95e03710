// The demo host as a child process (VARNEK_DEMO_PATH), or another host
// program, for the tests that talk to it from outside. It counts as started
// once it has said on its standard output that it serves: a bare connect
// could reach another listener on the same port, or the probe itself by a
// self-connect, and pass a host that never bound. Every wait is bounded.
#pragma once

#include <sys/resource.h>
#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <vector>

namespace varnek {

// The demo host of the build, as the test target names it.
#ifdef VARNEK_DEMO_PATH
#define VARNEK_DEMO_PROGRAM VARNEK_DEMO_PATH
#else
#define VARNEK_DEMO_PROGRAM ""
#endif

class DemoProcess {
 public:
  // program: a host that takes --port N and says "serving on" when it does.
  explicit DemoProcess(std::string program = VARNEK_DEMO_PROGRAM) : program_(std::move(program)) {}
  ~DemoProcess() { Stop(); }
  DemoProcess(const DemoProcess&) = delete;
  DemoProcess& operator=(const DemoProcess&) = delete;

  // Starts on a random port below 32768 (never an ephemeral one); a child
  // that cannot serve there is retried elsewhere. Standard error goes to
  // `log_path`.
  bool Start(std::vector<std::string> extra = {}, const std::string& log_path = "/dev/null");
  // SIGTERM, then at most 15 s for the exit; the exit status, or -1.
  int Stop();

  int port() const { return port_; }
  pid_t pid() const { return pid_; }
  // http://127.0.0.1:PORT, the start of the host's URLs.
  std::string Base() const { return "http://127.0.0.1:" + std::to_string(port_); }
  // The open-file limit the next Start gives the child (soft, hard).
  void SetFileLimit(rlim_t soft, rlim_t hard) { file_limit_ = rlimit{soft, hard}; }

 private:
  bool SaidItServes(std::chrono::seconds limit);

  std::string program_;
  pid_t pid_ = -1;
  int port_ = 0;
  int stdout_fd_ = -1;
  std::optional<rlimit> file_limit_;
};

}  // namespace varnek
