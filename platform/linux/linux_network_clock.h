// Network time on Linux: one SNTP request (UDP, port 123 unless told
// otherwise) per query, answered from the host loop; the local clock for an
// empty server name.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/name_resolver.h"
#include "varnek/platform/network_clock.h"

namespace varnek {

class LinuxNetworkClock : public NetworkClock {
 public:
  // port: the servers' UDP port (tests use a responder on a free one);
  // time_limit_seconds: how long the lookup and a silent server are waited
  // for together; resolver_config: where names are looked up.
  explicit LinuxNetworkClock(LinuxLoop& loop, uint16_t port = 123, double time_limit_seconds = 3.0,
                             ResolverConfig resolver_config = {});
  ~LinuxNetworkClock() override;
  LinuxNetworkClock(const LinuxNetworkClock&) = delete;
  LinuxNetworkClock& operator=(const LinuxNetworkClock&) = delete;

  // Resolves the name with the loop's NameResolver (c-ares: the thread never
  // waits for a lookup), sends one client request to the first address that
  // connects and watches the socket and a timerfd. An answer is taken only from the server asked,
  // in server mode, with a non-zero stratum and our transmit time echoed.
  // The result is the server's clock corrected by half the round trip, with
  // this machine's zone at that moment.
  void Query(const Text& server, Answer done) override;

  void set_port(uint16_t port) { port_ = port; }
  void set_time_limit(double seconds) { time_limit_ = seconds; }

 private:
  struct Pending;
  void Send(int id, const std::vector<ResolvedAddress>& found);
  void Finish(int id, std::optional<TimeOfDayInfo> result);
  // Cancels the lookup and closes the descriptors of a query.
  void Release(Pending& p);
  void OnReadable(int id);

  LinuxLoop& loop_;
  uint16_t port_;
  double time_limit_;
  NameResolver resolver_;
  int next_id_ = 1;
  std::map<int, std::unique_ptr<Pending>> pending_;
};

}  // namespace varnek
