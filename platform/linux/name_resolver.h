// Host name resolution that never blocks the host loop: c-ares queries whose
// descriptors the LinuxLoop watches and whose retries a loop timer drives.
// Results always arrive from the loop, never inside Resolve.
//
//   NameResolver resolver(loop);
//   resolver.Resolve("gateway.example", 80, [](int err, std::vector<ResolvedAddress> found) {
//     if (err == 0) Connect(found[0]);
//   });
//   loop.Pump(1);   // the answer (or the failure) comes in some pump
#pragma once

#include <sys/socket.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "varnek/platform/linux/linux_loop.h"

namespace varnek {

struct ResolverConfig {
  // Servers as "address:port,address:port"; empty: those of /etc/resolv.conf.
  std::string servers;
  // Where to look, in order: "f" the hosts file, "b" DNS; empty: "fb". The
  // hosts file is /etc/hosts unless the environment's CARES_HOSTS names one.
  std::string lookups;
  int timeout_ms = 0;  // first try's time limit; 0: 2000
  int tries = 0;       // tries per server; 0: 2
};

struct ResolvedAddress {
  sockaddr_storage address{};
  socklen_t length = 0;
};

class NameResolver {
 public:
  // err is 0 on success; otherwise a c-ares status and `found` is empty.
  // IPv4 addresses come first.
  using Done = std::function<void(int err, std::vector<ResolvedAddress> found)>;

  explicit NameResolver(LinuxLoop& loop, ResolverConfig config = {});
  ~NameResolver();
  NameResolver(const NameResolver&) = delete;
  NameResolver& operator=(const NameResolver&) = delete;

  // Starts resolving `host` (a name or a numeric address) with `port` put in
  // every address. `done` runs later from the loop, once. Returns a ticket
  // for Cancel.
  uint64_t Resolve(const std::string& host, int port, Done done);
  // Drops the callback of a query that has not reported yet.
  void Cancel(uint64_t ticket);
  // Queries still waiting for an answer.
  size_t Pending() const;

 private:
  struct Impl;
  std::shared_ptr<Impl> impl_;
};

}  // namespace varnek
