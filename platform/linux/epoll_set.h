// The descriptors a Linux loop watches: one epoll instance with an eventfd
// to wake it. Its own descriptor turns readable whenever a watched one is
// ready, so a host's loop (poll, GLib) can watch the whole set as one.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <unordered_map>

namespace varnek {

class EpollSet {
 public:
  EpollSet();  // throws std::runtime_error when epoll or eventfd is refused
  ~EpollSet();
  EpollSet(const EpollSet&) = delete;
  EpollSet& operator=(const EpollSet&) = delete;

  // The epoll descriptor: readable while something watched is ready.
  int Descriptor() const { return epoll_fd_; }

  // The handler gets the epoll event bits. Watches are level-triggered; a
  // service that must not be told twice changes its interest with
  // ModifyWatch. Both return false, with errno set, when epoll refuses.
  bool Watch(int fd, uint32_t epoll_events, std::function<void(uint32_t)> handler);
  bool ModifyWatch(int fd, uint32_t epoll_events);
  void Unwatch(int fd);

  // Waits up to `seconds` (0: just looks) for readiness, then runs the
  // handlers of the ready descriptors. True when a handler ran.
  bool WaitAndDispatch(double seconds);
  // Ends a wait soon; safe from any thread.
  void Wake();

 private:
  int Wait(void* events, int capacity, double seconds);
  struct WatchEntry {
    uint32_t generation = 0;
    uint32_t events = 0;  // what epoll holds for it, so an unchanged interest costs no call
    std::shared_ptr<std::function<void(uint32_t)>> handler;
  };
  int epoll_fd_ = -1;
  int wake_fd_ = -1;
  uint32_t next_generation_ = 1;
  bool has_pwait2_ = true;
  std::unordered_map<int, WatchEntry> watches_;
};

}  // namespace varnek
