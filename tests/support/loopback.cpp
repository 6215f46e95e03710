// Loopback sockets, listener and client for the tests.
#include "tests/support/loopback.h"

#include <netdb.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/un.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <fstream>
#include <memory>
#include <random>

namespace varnek {

int BoundToLoopback(int family, int type, int& port) {
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

int BoundToPath(const std::string& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof a.sun_path) return -1;
  path.copy(a.sun_path, path.size());
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd >= 0 && ::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

bool HasIPv6Loopback() {
  int port = 0;
  const int fd = BoundToLoopback(AF_INET6, SOCK_STREAM, port);
  if (fd >= 0) ::close(fd);
  return fd >= 0;
}

int RandomServerPort() {
  static std::mt19937 random(std::random_device{}());
  return 20000 + static_cast<int>(random() % 12000);
}

LoopbackListener::LoopbackListener(int family, int backlog) {
  fd = BoundToLoopback(family, SOCK_STREAM, port);
  if (fd >= 0) ::listen(fd, backlog);
}

LoopbackListener::~LoopbackListener() {
  if (fd >= 0) ::close(fd);
}

int LoopbackListener::Accept(int flags) const { return ::accept4(fd, nullptr, nullptr, flags); }

bool SendAll(int fd, const std::string& bytes) {
  size_t sent = 0;
  while (fd >= 0 && sent < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return fd >= 0;
}

std::string ReadUntil(int fd, const std::function<bool(const std::string&)>& done, double seconds) {
  std::string got;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  char buf[65536];
  while (!done(got) && std::chrono::steady_clock::now() < end) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) break;
    got.append(buf, static_cast<size_t>(n));
  }
  return got;
}

HostsFile::HostsFile(const std::string& lines)
    : path("/tmp/varnek-hosts-" + std::to_string(getpid())) {
  std::ofstream(path) << lines;
  setenv("CARES_HOSTS", path.c_str(), 1);
}

HostsFile::~HostsFile() {
  unsetenv("CARES_HOSTS");
  unlink(path.c_str());
}

bool LoopbackClient::Connect(int port, const char* address) {
  Close();
  addrinfo hints{}, *ai = nullptr;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV;
  hints.ai_socktype = SOCK_STREAM;
  if (getaddrinfo(address, std::to_string(port).c_str(), &hints, &ai) != 0) return false;
  fd = ::socket(ai->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  connected = fd >= 0 && ::connect(fd, ai->ai_addr, ai->ai_addrlen) == 0;
  freeaddrinfo(ai);
  sockaddr_in6 self{};  // sin_port and sin6_port sit at the same offset
  socklen_t len = sizeof self;
  if (connected && getsockname(fd, reinterpret_cast<sockaddr*>(&self), &len) == 0)
    local_port = ntohs(self.sin6_port);
  return connected;
}

std::string LoopbackClient::ReadSome(int ms) {
  pollfd p{fd, POLLIN, 0};
  if (eof || ::poll(&p, 1, ms) <= 0) return "";
  char buf[65536];
  const ssize_t n = ::recv(fd, buf, sizeof buf, MSG_DONTWAIT);
  eof = eof || n == 0 || (n < 0 && errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR);
  return n > 0 ? std::string(buf, static_cast<size_t>(n)) : "";
}

std::string LoopbackClient::ReadUntil(const std::string& marker, double seconds) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  std::string out;
  while (!eof && (marker.empty() || out.find(marker) == std::string::npos)) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() < 0) break;
    out += ReadSome(static_cast<int>(left.count()) + 1);
    if (std::chrono::steady_clock::now() >= end) break;
  }
  return out;
}

bool LoopbackClient::ClosedNow() {
  for (int k = 0; k < 64 && !eof && !ReadSome(0).empty(); ++k) {
  }
  return eof;
}

void LoopbackClient::ShutdownWrite() { ::shutdown(fd, SHUT_WR); }

void LoopbackClient::Close() {
  if (fd >= 0) ::close(fd);
  fd = -1;
}

std::string RawExchange(int port, const std::string& request, double seconds) {
  LoopbackClient c;
  if (!c.Connect(port) || !c.Send(request)) return "";
  return c.ReadAll(seconds);
}

std::vector<Answer> ExchangeAtOnce(int port, const std::vector<std::string>& requests,
                                   double seconds) {
  const auto start = std::chrono::steady_clock::now();
  const auto elapsed = [&] {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  };
  std::vector<std::unique_ptr<LoopbackClient>> open;  // all connected first, then all requests
  for (size_t k = 0; k < requests.size(); ++k)
    open.push_back(std::make_unique<LoopbackClient>(port));
  for (size_t k = 0; k < requests.size(); ++k) {
    if (!open[k]->Send(requests[k])) open[k].reset();
  }
  std::vector<Answer> answers(requests.size());
  for (bool pending = true; pending && elapsed() < seconds;) {
    pending = false;
    for (size_t k = 0; k < open.size(); ++k) {
      if (!open[k] || answers[k].at >= 0) continue;
      answers[k].text += open[k]->ReadAll(0.005);
      if (open[k]->PeerClosed())
        answers[k].at = elapsed();
      else
        pending = true;
    }
  }
  return answers;
}

}  // namespace varnek
