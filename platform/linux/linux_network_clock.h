// Network time on Linux: one SNTP request (UDP, port 123 unless told
// otherwise) per query, answered from the host loop; the local clock for an
// empty server name.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/network_clock.h"

namespace varnek {

class LinuxNetworkClock : public NetworkClock {
 public:
  // port: the servers' UDP port (tests use a responder on a free one);
  // time_limit_seconds: how long a silent server is waited for.
  explicit LinuxNetworkClock(LinuxLoop& loop, uint16_t port = 123, double time_limit_seconds = 3.0);
  ~LinuxNetworkClock() override;
  LinuxNetworkClock(const LinuxNetworkClock&) = delete;
  LinuxNetworkClock& operator=(const LinuxNetworkClock&) = delete;

  // Resolves the name with getaddrinfo (a numeric address never waits; a
  // name may wait for the resolver), sends one client request and watches
  // the socket and a timerfd. An answer is taken only from the server asked,
  // in server mode, with a non-zero stratum and our transmit time echoed.
  // The result is the server's clock corrected by half the round trip, with
  // this machine's zone at that moment.
  void Query(const Text& server, Answer done) override;

  void set_port(uint16_t port) { port_ = port; }
  void set_time_limit(double seconds) { time_limit_ = seconds; }

 private:
  struct Pending;
  void Finish(int id, std::optional<TimeOfDayInfo> result);
  void OnReadable(int id);

  LinuxLoop& loop_;
  uint16_t port_;
  double time_limit_;
  int next_id_ = 1;
  std::map<int, std::unique_ptr<Pending>> pending_;
};

}  // namespace varnek
