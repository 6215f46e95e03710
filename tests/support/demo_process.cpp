// Starting, watching and stopping the demo host child.
#include "tests/support/demo_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>

#include "tests/support/loopback.h"

namespace varnek {

bool DemoProcess::Start(std::vector<std::string> extra, const std::string& log_path) {
  for (int attempt = 0; attempt < 10; ++attempt) {
    std::string port = std::to_string(port_ = RandomServerPort());
    std::vector<char*> args{const_cast<char*>("varnek-demo"), const_cast<char*>("--port"),
                            port.data()};
    for (auto& e : extra) args.push_back(e.data());
    args.push_back(nullptr);
    int out[2];
    if (pipe2(out, O_CLOEXEC) != 0) return false;
    if ((pid_ = fork()) == 0) {
      if (file_limit_ && setrlimit(RLIMIT_NOFILE, &*file_limit_) != 0) _exit(126);
      if (dup2(out[1], STDOUT_FILENO) >= 0 && freopen(log_path.c_str(), "w", stderr)) {
        execv(program_.c_str(), args.data());
      }
      _exit(127);
    }
    ::close(out[1]);
    stdout_fd_ = out[0];
    if (pid_ > 0 && SaidItServes(std::chrono::seconds(30))) return true;
    Stop();
  }
  return false;
}

int DemoProcess::Stop() {
  int status = -1;
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
    for (int k = 0; k < 750 && waitpid(pid_, &status, WNOHANG) == 0; ++k) usleep(20000);
    if (kill(pid_, 0) == 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
  }
  if (stdout_fd_ >= 0) ::close(stdout_fd_);
  stdout_fd_ = -1;
  const bool had_child = pid_ > 0;
  pid_ = -1;
  return had_child && status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Reads the child's standard output until its "serving on" line, its end
// (the child gave up: port taken) or the limit. The pipe stays open: the
// lines after it are few and fit in its buffer.
bool DemoProcess::SaidItServes(std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::string said;
  const auto whole_line = [&] {
    const size_t at = said.find("serving on");
    return at != std::string::npos && said.find('\n', at) != std::string::npos;
  };
  while (!whole_line()) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) return false;
    pollfd p{stdout_fd_, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left.count())) <= 0) continue;
    char buf[512];
    const ssize_t n = ::read(stdout_fd_, buf, sizeof buf);
    if (n <= 0) return false;
    said.append(buf, static_cast<size_t>(n));
  }
  return true;
}

}  // namespace varnek
