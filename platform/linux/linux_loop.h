// The host loop on Linux: epoll for I/O, timers by computed deadlines, and a
// pump that blocks in epoll_wait until the next event, timer or the waiting
// routine's own deadline, so an idle host burns no CPU.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/platform/host_loop.h"

namespace varnek {

class LinuxLoop : public HostLoop {
 public:
  explicit LinuxLoop(LoopMode mode = LoopMode::kStrands);
  ~LinuxLoop() override;
  LinuxLoop(const LinuxLoop&) = delete;
  LinuxLoop& operator=(const LinuxLoop&) = delete;

  void Pump(double max_wait_seconds) override;
  std::unique_ptr<LoopTimer> CreateTimer() override;
  // Safe from any thread: the call is queued under a lock and an eventfd
  // wakes a blocked pump; fn itself runs on the loop's thread.
  void Post(std::function<void()> fn) override;
  double Now() override;
  float Timer() override;
  void Freeze(double seconds) override;
  int PumpDepth() const override;
  int MaxPumpDepth() const override;
  LoopMode Mode() const override;
  StrandRef NewStrand() override;
  StrandRef CurrentStrand() override;
  void RunOn(const StrandRef& strand, std::function<void()> fn) override;
  int LiveStrands() const override;
  int MaxLiveStrands() const override;

  // I/O readiness for the Linux services (sockets, serial ports). The handler
  // gets the epoll event bits. Watches are level-triggered; a service that
  // must not be told twice changes its interest with ModifyWatch. Watch and
  // ModifyWatch return false, with errno set, when epoll refuses.
  bool Watch(int fd, uint32_t epoll_events, std::function<void(uint32_t)> handler);
  bool ModifyWatch(int fd, uint32_t epoll_events);
  void Unwatch(int fd);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace varnek
