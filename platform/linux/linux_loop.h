// The host loop on Linux: the loop core over an epoll set. Varnek's own
// backend blocks in epoll_wait until the next event, timer or the waiting
// routine's own deadline, so an idle host burns no CPU. ExternalLoop and
// GLibLoop are the same loop with the wait left to a host's own loop.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/platform/host_loop.h"
#include "varnek/platform/linux/epoll_set.h"

namespace varnek {

// The Linux clocks and an epoll set; by itself it waits in epoll_wait.
class LinuxBackend : public LoopBackend {
 public:
  double Clock() override;
  LocalReading Local() override;
  bool WaitUntil(double deadline) override;
  void Wake() override { epoll_.Wake(); }
  void Freeze(double seconds) override;
  EpollSet& epoll() { return epoll_; }

 private:
  EpollSet epoll_;
};

class LinuxLoop : public HostLoop {
 public:
  explicit LinuxLoop(LoopMode mode = LoopMode::kStrands);
  ~LinuxLoop() override;

  // I/O readiness for the Linux services (sockets, serial ports). The handler
  // gets the epoll event bits. Watches are level-triggered; a service that
  // must not be told twice changes its interest with ModifyWatch. Watch and
  // ModifyWatch return false, with errno set, when epoll refuses.
  bool Watch(int fd, uint32_t epoll_events, std::function<void(uint32_t)> handler) {
    return epoll_.Watch(fd, epoll_events, std::move(handler));
  }
  bool ModifyWatch(int fd, uint32_t epoll_events) { return epoll_.ModifyWatch(fd, epoll_events); }
  void Unwatch(int fd) { epoll_.Unwatch(fd); }
  // fn runs on a later pass in the loop itself, on no strand, in the order of
  // the posted calls: for a service's step that only raises events (each on
  // its control's strand), so the step costs no fiber of its own.
  void PostStep(std::function<void()> fn) { PostInLoop(0, std::move(fn)); }

 protected:
  LinuxLoop(std::unique_ptr<LinuxBackend> backend, LoopMode mode);
  EpollSet& epoll() { return epoll_; }

 private:
  EpollSet& epoll_;
};

}  // namespace varnek
