// SNTP client on the host loop: a connected non-blocking UDP socket and a
// timerfd for the time limit, both watched by the loop.
#include "varnek/platform/linux/linux_network_clock.h"

#include "varnek/platform/linux/eintr.h"

#include <netdb.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#include <cmath>
#include <cstring>
#include <string>

namespace varnek {

namespace {

constexpr uint64_t kUnixToNtp = 2208988800ull;  // seconds from 1900 to 1970
constexpr size_t kPacketSize = 48;

// Now as NTP fixed point: seconds since 1900 in the high half.
uint64_t NtpNow() {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  uint64_t frac = (static_cast<uint64_t>(ts.tv_nsec) << 32) / 1000000000ull;
  return ((static_cast<uint64_t>(ts.tv_sec) + kUnixToNtp) << 32) | frac;
}

double NtpToUnixSeconds(uint64_t ntp) {
  return static_cast<double>(ntp >> 32) - static_cast<double>(kUnixToNtp) +
         static_cast<double>(ntp & 0xffffffffu) / 4294967296.0;
}

uint64_t ReadStamp(const unsigned char* p) {
  uint64_t v = 0;
  for (int i = 0; i < 8; ++i) v = (v << 8) | p[i];
  return v;
}

void WriteStamp(unsigned char* p, uint64_t v) {
  for (int i = 7; i >= 0; --i) {
    p[i] = static_cast<unsigned char>(v & 0xff);
    v >>= 8;
  }
}

int32_t MinutesWestAt(time_t seconds) {
  tm local{};
  localtime_r(&seconds, &local);
  return static_cast<int32_t>(-local.tm_gmtoff / 60);
}

TimeOfDayInfo InfoFromUnixSeconds(double unix_seconds) {
  double whole = std::floor(unix_seconds);
  auto ms = static_cast<int32_t>((unix_seconds - whole) * 1000.0);
  if (ms > 999) ms = 999;
  auto seconds = static_cast<int64_t>(whole);
  return TimeOfDayFromUnix(seconds, ms, MinutesWestAt(static_cast<time_t>(seconds)));
}

// A connected UDP socket to host:port, or -1.
int ConnectUdp(const std::string& host, uint16_t port) {
  addrinfo hints{}, *found = nullptr;
  hints.ai_socktype = SOCK_DGRAM;
  hints.ai_flags = AI_NUMERICSERV;
  if (getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &found) != 0) return -1;
  int fd = -1;
  for (addrinfo* ai = found; ai && fd < 0; ai = ai->ai_next) {
    fd = ::socket(ai->ai_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd >= 0 && ::connect(fd, ai->ai_addr, ai->ai_addrlen) != 0) {
      ::close(fd);
      fd = -1;
    }
  }
  freeaddrinfo(found);
  return fd;
}

}  // namespace

struct LinuxNetworkClock::Pending {
  int sock = -1;
  int timer = -1;
  uint64_t sent = 0;
  Answer done;
};

LinuxNetworkClock::LinuxNetworkClock(LinuxLoop& loop, uint16_t port, double time_limit_seconds)
    : loop_(loop), port_(port), time_limit_(time_limit_seconds) {}

LinuxNetworkClock::~LinuxNetworkClock() {
  for (auto& [id, p] : pending_) {
    loop_.Unwatch(p->sock);
    loop_.Unwatch(p->timer);
    ::close(p->sock);
    ::close(p->timer);
  }
}

void LinuxNetworkClock::Query(const Text& server, Answer done) {
  Text bare = BareServerName(server);
  if (bare.empty()) {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    TimeOfDayInfo info = TimeOfDayFromUnix(ts.tv_sec, static_cast<int32_t>(ts.tv_nsec / 1000000),
                                           MinutesWestAt(ts.tv_sec));
    loop_.Post([done = std::move(done), info] { done(info); });
    return;
  }
  int sock = ConnectUdp(TextToUtf8(bare), port_);
  int timer = sock < 0 ? -1 : timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  unsigned char packet[kPacketSize] = {};
  packet[0] = 0x23;  // no leap warning, version 4, client
  uint64_t sent = NtpNow();
  WriteStamp(packet + 40, sent);
  itimerspec limit{};
  double whole = std::floor(time_limit_);
  limit.it_value.tv_sec = static_cast<time_t>(whole);
  limit.it_value.tv_nsec = static_cast<long>((time_limit_ - whole) * 1e9);
  if (limit.it_value.tv_sec == 0 && limit.it_value.tv_nsec == 0) limit.it_value.tv_nsec = 1;
  if (sock < 0 || timer < 0 || ::send(sock, packet, sizeof packet, MSG_NOSIGNAL) < 0 ||
      timerfd_settime(timer, 0, &limit, nullptr) != 0) {
    if (sock >= 0) ::close(sock);
    if (timer >= 0) ::close(timer);
    loop_.Post([done = std::move(done)] { done(std::nullopt); });
    return;
  }
  int id = next_id_++;
  auto p = std::make_unique<Pending>();
  p->sock = sock;
  p->timer = timer;
  p->sent = sent;
  p->done = std::move(done);
  pending_[id] = std::move(p);
  loop_.Watch(sock, EPOLLIN, [this, id](uint32_t) { OnReadable(id); });
  loop_.Watch(timer, EPOLLIN, [this, id](uint32_t) { Finish(id, std::nullopt); });
}

void LinuxNetworkClock::OnReadable(int id) {
  auto it = pending_.find(id);
  if (it == pending_.end()) return;
  Pending& p = *it->second;
  unsigned char packet[512];
  for (int reads = 0; reads < 16; ++reads) {
    const ssize_t n =
        linux_io::RetryOnEintr([&] { return ::recv(p.sock, packet, sizeof packet, MSG_DONTWAIT); });
    if (n < 0) {
      if (errno == EAGAIN || errno == EWOULDBLOCK) return;
      Finish(id, std::nullopt);  // refused or unreachable
      return;
    }
    uint64_t received = NtpNow();
    int mode = packet[0] & 7;
    int stratum = packet[1];
    if (static_cast<size_t>(n) < kPacketSize || mode != 4 || stratum == 0 || stratum > 15 ||
        ReadStamp(packet + 24) != p.sent || ReadStamp(packet + 40) == 0) {
      continue;  // not an answer to this request: keep waiting
    }
    double t1 = NtpToUnixSeconds(p.sent), t4 = NtpToUnixSeconds(received);
    double t2 = NtpToUnixSeconds(ReadStamp(packet + 32));
    double t3 = NtpToUnixSeconds(ReadStamp(packet + 40));
    double offset = ((t2 - t1) + (t3 - t4)) / 2.0;
    Finish(id, InfoFromUnixSeconds(t4 + offset));
    return;
  }
}

void LinuxNetworkClock::Finish(int id, std::optional<TimeOfDayInfo> result) {
  auto it = pending_.find(id);
  if (it == pending_.end()) return;
  std::unique_ptr<Pending> p = std::move(it->second);
  pending_.erase(it);
  loop_.Unwatch(p->sock);
  loop_.Unwatch(p->timer);
  ::close(p->sock);
  ::close(p->timer);
  Answer done = std::move(p->done);
  done(result);
}

}  // namespace varnek
