// An SNTP responder on 127.0.0.1 served by a LinuxLoop, for tests of the
// network clock: it answers every request with kSntpServerUnix (and a
// quarter second), first with a wrong echo when asked to, or not at all.
#pragma once

#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>

#include "tests/support/loopback.h"
#include "varnek/platform/linux/linux_loop.h"

namespace varnek {

constexpr int64_t kSntpServerUnix = 1779013230;  // 2026-05-17 10:20:30 UTC, a Sunday

class SntpResponder {
 public:
  enum Mode { kAnswer, kWrongEchoFirst, kSilent };
  SntpResponder(LinuxLoop& loop, Mode mode) : loop_(loop), mode_(mode) {
    int bound = 0;
    fd_ = BoundToLoopback(AF_INET, SOCK_DGRAM | SOCK_NONBLOCK, bound);
    port = static_cast<uint16_t>(bound);
    loop_.Watch(fd_, EPOLLIN, [this](uint32_t) { Serve(); });
  }
  ~SntpResponder() {
    loop_.Unwatch(fd_);
    ::close(fd_);
  }
  SntpResponder(const SntpResponder&) = delete;
  SntpResponder& operator=(const SntpResponder&) = delete;

  uint16_t port = 0;
  int requests = 0;

 private:
  void Serve() {
    unsigned char in[64], out[48] = {};
    sockaddr_in peer{};
    socklen_t len = sizeof peer;
    ssize_t n = ::recvfrom(fd_, in, sizeof in, 0, reinterpret_cast<sockaddr*>(&peer), &len);
    if (n < 48) return;
    ++requests;
    if (mode_ == kSilent) return;
    out[0] = 0x24;  // version 4, server
    out[1] = 2;     // stratum
    uint64_t stamp = (static_cast<uint64_t>(kSntpServerUnix) + 2208988800ull) << 32 | 0x40000000u;
    for (int i = 0; i < 8; ++i) {
      out[24 + i] = in[40 + i];  // the client's transmit time, echoed
      out[32 + i] = out[40 + i] = static_cast<unsigned char>(stamp >> (56 - 8 * i));
    }
    if (mode_ == kWrongEchoFirst) {
      out[31] ^= 1;
      ::sendto(fd_, out, sizeof out, 0, reinterpret_cast<sockaddr*>(&peer), len);
      out[31] ^= 1;
    }
    ::sendto(fd_, out, sizeof out, 0, reinterpret_cast<sockaddr*>(&peer), len);
  }

  LinuxLoop& loop_;
  Mode mode_;
  int fd_ = -1;
};

}  // namespace varnek
