// Helpers shared by the socket tests: bounded pumping, loopback listeners and
// a blocking client, a probe for IPv6 loopback and a hosts file of their own.
#pragma once

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <string>

#include "varnek/platform/host_loop.h"

namespace varnek {

// Pumps until pred holds, at most `passes` pumps of up to 50 ms.
template <class P>
bool PumpUntil(HostLoop& loop, P pred, int passes = 200) {
  for (int i = 0; i < passes && !pred(); ++i) loop.Pump(0.05);
  return pred();
}
inline void Settle(HostLoop& loop) {
  for (int i = 0; i < 5; ++i) loop.Pump(0.01);
}

// A socket of `type` bound to the loopback address of `family` on a port the
// kernel picks, stored in `port`; -1 when that family has no loopback here.
inline int BoundToLoopback(int family, int type, int& port) {
  sockaddr_in6 a{};  // sin_port and sin6_port sit at the same offset
  socklen_t len = sizeof a;
  if (family == AF_INET6) {
    a.sin6_family = AF_INET6;
    a.sin6_addr = in6addr_loopback;
  } else {
    auto* a4 = reinterpret_cast<sockaddr_in*>(&a);
    a4->sin_family = AF_INET;
    a4->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    len = sizeof *a4;
  }
  const int fd = ::socket(family, type | SOCK_CLOEXEC, 0);
  if (fd < 0 || ::bind(fd, reinterpret_cast<sockaddr*>(&a), len) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
    if (fd >= 0) ::close(fd);
    return -1;
  }
  port = ntohs(a.sin6_port);
  return fd;
}

// Whether ::1 can be bound here at all.
inline bool HasIPv6Loopback() {
  int port = 0;
  const int fd = BoundToLoopback(AF_INET6, SOCK_STREAM, port);
  if (fd >= 0) ::close(fd);
  return fd >= 0;
}

// A hosts file of the test's own that the Linux resolver reads while this lives.
struct HostsFile {
  explicit HostsFile(const std::string& lines) {
    std::ofstream(path) << lines;
    setenv("CARES_HOSTS", path.c_str(), 1);
  }
  ~HostsFile() {
    unsetenv("CARES_HOSTS");
    unlink(path.c_str());
  }
  HostsFile(const HostsFile&) = delete;
  HostsFile& operator=(const HostsFile&) = delete;
  std::string path = "/tmp/varnek-hosts-" + std::to_string(getpid());
};

// A blocking client socket on the test's thread; local_port is its own port,
// as the server should see it.
struct Client {
  explicit Client(int port, const char* address = "127.0.0.1") {
    addrinfo hints{}, *ai = nullptr;
    hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
    hints.ai_socktype = SOCK_STREAM;
    if (getaddrinfo(address, std::to_string(port).c_str(), &hints, &ai) != 0) return;
    fd = ::socket(ai->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
    connected = fd >= 0 && ::connect(fd, ai->ai_addr, ai->ai_addrlen) == 0;
    freeaddrinfo(ai);
    sockaddr_in6 self{};  // sin_port and sin6_port sit at the same offset
    socklen_t len = sizeof self;
    if (connected && getsockname(fd, reinterpret_cast<sockaddr*>(&self), &len) == 0) local_port = ntohs(self.sin6_port);
  }
  ~Client() {
    if (fd >= 0) ::close(fd);
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  void Write(const std::string& s) {
    ASSERT_EQ(::send(fd, s.data(), s.size(), MSG_NOSIGNAL), static_cast<ssize_t>(s.size()));
  }
  // What is readable after waiting up to ms for the first byte; eof once the server closed.
  std::string ReadSome(int ms = 0) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, ms) <= 0) return "";
    char buf[65536];
    const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
    eof = eof || n == 0 || (n < 0 && errno == ECONNRESET);
    return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
  }
  int fd = -1;
  bool connected = false, eof = false;
  int local_port = 0;
};

}  // namespace varnek
