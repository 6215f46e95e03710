// Helpers for end-to-end tests on 127.0.0.1: a raw TCP client with time
// limits, running a shell command (curl, python3 -c) with a time limit, and
// pumping a host loop on the test's thread while a client runs on another.
//
//   LinuxLoop& loop = ...;                      // the server lives on it
//   auto reply = RunClientWhilePumping(loop, [&] {
//     return RawExchange(port, "GET / HTTP/1.0\r\n\r\n", 5.0);
//   });
//   EXPECT_NE(reply.find("200 OK"), std::string::npos);
//
// Every helper is bounded in time: no call waits longer than its limit.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <future>
#include <string>
#include <thread>

#include "platform/host_loop.h"

namespace varnek::integration {

using Clock = std::chrono::steady_clock;

inline double SecondsLeft(Clock::time_point deadline) {
  return std::chrono::duration<double>(deadline - Clock::now()).count();
}

inline Clock::time_point DeadlineIn(double seconds) {
  return Clock::now() + std::chrono::microseconds(static_cast<int64_t>(seconds * 1e6));
}

// A port on 127.0.0.1 that was free a moment ago.
inline int FreePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof a;
  int port = 0;
  if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0 &&
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
    port = ntohs(a.sin_port);
  }
  ::close(fd);
  return port;
}

// A TCP client on loopback with a time limit on every call. Safe to use from
// a thread of its own.
class RawClient {
 public:
  RawClient() = default;
  ~RawClient() { Close(); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  // Connects to address:port (IPv4 or IPv6 text) within `seconds`.
  bool Connect(int port, double seconds = 5.0, const char* address = "127.0.0.1") {
    Close();
    bool v6 = std::strchr(address, ':') != nullptr;
    fd_ = ::socket(v6 ? AF_INET6 : AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd_ < 0) return false;
    sockaddr_storage ss{};
    socklen_t len;
    if (v6) {
      auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
      a->sin6_family = AF_INET6;
      a->sin6_port = htons(static_cast<uint16_t>(port));
      if (inet_pton(AF_INET6, address, &a->sin6_addr) != 1) return false;
      len = sizeof *a;
    } else {
      auto* a = reinterpret_cast<sockaddr_in*>(&ss);
      a->sin_family = AF_INET;
      a->sin_port = htons(static_cast<uint16_t>(port));
      if (inet_pton(AF_INET, address, &a->sin_addr) != 1) return false;
      len = sizeof *a;
    }
    if (::connect(fd_, reinterpret_cast<sockaddr*>(&ss), len) == 0) return true;
    if (errno != EINPROGRESS) return false;
    if (!WaitFor(POLLOUT, DeadlineIn(seconds))) return false;
    int err = 0;
    socklen_t elen = sizeof err;
    getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &elen);
    return err == 0;
  }

  // Writes all bytes within `seconds`; false on failure or time-out.
  bool Send(const std::string& bytes, double seconds = 5.0) {
    auto deadline = DeadlineIn(seconds);
    size_t done = 0;
    while (done < bytes.size()) {
      ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (n > 0) {
        done += static_cast<size_t>(n);
      } else if (n < 0 && errno == EINTR) {
        continue;
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        if (!WaitFor(POLLOUT, deadline)) return false;
      } else {
        return false;
      }
    }
    return true;
  }

  // Reads until the server closes or `seconds` pass; PeerClosed() tells which.
  std::string ReadAll(double seconds = 5.0) { return ReadUntil("", seconds); }

  // Reads until `marker` has come (when not empty), the server closes, or
  // `seconds` pass.
  std::string ReadUntil(const std::string& marker, double seconds = 5.0) {
    auto deadline = DeadlineIn(seconds);
    std::string out;
    char buf[65536];
    while (!closed_) {
      if (!marker.empty() && out.find(marker) != std::string::npos) break;
      ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
      if (n > 0) {
        out.append(buf, static_cast<size_t>(n));
      } else if (n == 0) {
        closed_ = true;
      } else if (errno == EINTR) {
        continue;
      } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
        if (!WaitFor(POLLIN, deadline)) break;
      } else {
        closed_ = true;  // reset counts as closed
      }
    }
    return out;
  }

  // Ends the sending side only; the server sees end of stream.
  void ShutdownWrite() { ::shutdown(fd_, SHUT_WR); }
  void Close() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    closed_ = false;
  }
  bool PeerClosed() const { return closed_; }
  int fd() const { return fd_; }

 private:
  bool WaitFor(short events, Clock::time_point deadline) {
    for (;;) {
      double left = SecondsLeft(deadline);
      if (left <= 0) return false;
      pollfd p{fd_, events, 0};
      int rc = ::poll(&p, 1, static_cast<int>(left * 1000) + 1);
      if (rc > 0) return true;
      if (rc == 0) return false;
      if (errno != EINTR) return false;
    }
  }

  int fd_ = -1;
  bool closed_ = false;
};

// Connects, sends the request and reads until the server closes or the limit.
// Returns what came back ("" when the connection failed).
inline std::string RawExchange(int port, const std::string& request, double seconds = 5.0) {
  RawClient c;
  if (!c.Connect(port, seconds)) return "";
  if (!c.Send(request, seconds)) return "";
  return c.ReadAll(seconds);
}

struct CommandResult {
  int exit_code = -1;     // the exit status, or -1 when killed or not run
  bool timed_out = false;
  std::string output;     // stdout and stderr together
};

// Runs `command` with /bin/sh -c, capturing its output, for at most `seconds`;
// a command still running then is killed (its own process group only).
inline CommandResult RunCommand(const std::string& command, double seconds = 10.0) {
  CommandResult result;
  int pipefd[2];
  if (::pipe2(pipefd, O_CLOEXEC) != 0) return result;
  pid_t pid = ::fork();
  if (pid < 0) {
    ::close(pipefd[0]);
    ::close(pipefd[1]);
    return result;
  }
  if (pid == 0) {
    ::setpgid(0, 0);
    ::dup2(pipefd[1], 1);
    ::dup2(pipefd[1], 2);
    ::execl("/bin/sh", "sh", "-c", command.c_str(), static_cast<char*>(nullptr));
    ::_exit(127);
  }
  ::setpgid(pid, pid);
  ::close(pipefd[1]);
  auto deadline = DeadlineIn(seconds);
  char buf[4096];
  for (;;) {
    double left = SecondsLeft(deadline);
    if (left <= 0) {
      result.timed_out = true;
      ::kill(-pid, SIGKILL);
      break;
    }
    pollfd p{pipefd[0], POLLIN, 0};
    int rc = ::poll(&p, 1, static_cast<int>(left * 1000) + 1);
    if (rc < 0 && errno == EINTR) continue;
    if (rc <= 0) continue;
    ssize_t n = ::read(pipefd[0], buf, sizeof buf);
    if (n > 0) {
      result.output.append(buf, static_cast<size_t>(n));
    } else if (n == 0 || errno != EINTR) {
      break;
    }
  }
  ::close(pipefd[0]);
  int status = 0;
  // The output pipe has closed; the child ends promptly (or was killed).
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!result.timed_out && WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
  return result;
}

// Runs `client` on a thread of its own while this thread pumps `loop` (the
// server side stays on the test's thread), until the client returns or
// `max_seconds` pass. The client must bound its own waits: the thread is
// joined before this returns. Returns the client's result.
template <class Fn>
auto RunClientWhilePumping(HostLoop& loop, Fn client, double max_seconds = 20.0) {
  auto future = std::async(std::launch::async, std::move(client));
  auto deadline = DeadlineIn(max_seconds);
  while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready &&
         SecondsLeft(deadline) > 0) {
    loop.Pump(0.02);
  }
  return future.get();
}

// Pumps `loop` until pred() holds or `max_seconds` pass; returns pred().
template <class Pred>
bool PumpUntil(HostLoop& loop, Pred pred, double max_seconds = 5.0) {
  auto deadline = DeadlineIn(max_seconds);
  while (!pred()) {
    if (SecondsLeft(deadline) <= 0) return false;
    loop.Pump(0.02);
  }
  return true;
}

}  // namespace varnek::integration
