// SNTP client on the host loop: the name resolved by c-ares on the loop, a
// connected non-blocking UDP socket and a timerfd for the time limit, all
// watched by the loop.
#include "varnek/platform/linux/linux_network_clock.h"

#include "varnek/platform/linux/internal/eintr.h"

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

// A non-blocking UDP socket connected to the first address that takes it,
// or -1.
int ConnectUdp(const std::vector<ResolvedAddress>& found) {
  for (const ResolvedAddress& a : found) {
    int fd = ::socket(a.address.ss_family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) continue;
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&a.address), a.length) == 0) return fd;
    ::close(fd);
  }
  return -1;
}

}  // namespace

struct LinuxNetworkClock::Pending {
  int sock = -1;
  int timer = -1;
  uint64_t resolving = 0;  // the resolver's ticket until the name is known
  uint64_t sent = 0;
  Answer done;
};

LinuxNetworkClock::LinuxNetworkClock(LinuxLoop& loop, uint16_t port, double time_limit_seconds,
                                     ResolverConfig resolver_config)
    : loop_(loop),
      port_(port),
      time_limit_(time_limit_seconds),
      resolver_(loop, std::move(resolver_config)) {}

LinuxNetworkClock::~LinuxNetworkClock() {
  for (auto& [id, p] : pending_) Release(*p);
}

void LinuxNetworkClock::Release(Pending& p) {
  if (p.resolving) resolver_.Cancel(p.resolving);
  for (int fd : {p.sock, p.timer}) {
    if (fd < 0) continue;
    loop_.Unwatch(fd);
    ::close(fd);
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
  // The time limit runs from here, through the lookup and the answer.
  int timer = timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC);
  itimerspec limit{};
  double whole = std::floor(time_limit_);
  limit.it_value.tv_sec = static_cast<time_t>(whole);
  limit.it_value.tv_nsec = static_cast<long>((time_limit_ - whole) * 1e9);
  if (limit.it_value.tv_sec == 0 && limit.it_value.tv_nsec == 0) limit.it_value.tv_nsec = 1;
  if (timer < 0 || timerfd_settime(timer, 0, &limit, nullptr) != 0) {
    if (timer >= 0) ::close(timer);
    loop_.Post([done = std::move(done)] { done(std::nullopt); });
    return;
  }
  int id = next_id_++;
  auto p = std::make_unique<Pending>();
  p->timer = timer;
  p->done = std::move(done);
  Pending& pending = *p;
  pending_[id] = std::move(p);
  loop_.Watch(timer, EPOLLIN, [this, id](uint32_t) { Finish(id, std::nullopt); });
  // Resolve never answers from inside itself, so the ticket is stored first.
  pending.resolving = resolver_.Resolve(TextToUtf8(bare), port_,
                                        [this, id](int err, std::vector<ResolvedAddress> found) {
                                          auto it = pending_.find(id);
                                          if (it == pending_.end()) return;
                                          it->second->resolving = 0;
                                          if (err != 0) {
                                            Finish(id, std::nullopt);
                                            return;
                                          }
                                          Send(id, found);
                                        });
}

void LinuxNetworkClock::Send(int id, const std::vector<ResolvedAddress>& found) {
  Pending& p = *pending_.at(id);
  p.sock = ConnectUdp(found);
  unsigned char packet[kPacketSize] = {};
  packet[0] = 0x23;  // no leap warning, version 4, client
  p.sent = NtpNow();
  WriteStamp(packet + 40, p.sent);
  if (p.sock < 0 || ::send(p.sock, packet, sizeof packet, MSG_NOSIGNAL) < 0) {
    Finish(id, std::nullopt);
    return;
  }
  loop_.Watch(p.sock, EPOLLIN, [this, id](uint32_t) { OnReadable(id); });
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
  Release(*p);
  Answer done = std::move(p->done);
  done(result);
}

}  // namespace varnek
