// The epoll set of the Linux loop backends, with its wake-up eventfd.
#include "varnek/platform/linux/epoll_set.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>
#include <utility>

#include "varnek/platform/linux/internal/eintr.h"

namespace varnek {

EpollSet::EpollSet() {
  epoll_fd_ = epoll_create1(EPOLL_CLOEXEC);
  wake_fd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = static_cast<uint32_t>(wake_fd_);
  if (epoll_fd_ < 0 || wake_fd_ < 0 || epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, wake_fd_, &ev) != 0) {
    if (wake_fd_ >= 0) close(wake_fd_);
    if (epoll_fd_ >= 0) close(epoll_fd_);
    throw std::runtime_error("LinuxLoop: epoll or eventfd unavailable");
  }
}

EpollSet::~EpollSet() {
  close(wake_fd_);
  close(epoll_fd_);
}

bool EpollSet::Watch(int fd, uint32_t epoll_events, std::function<void(uint32_t)> handler) {
  Unwatch(fd);
  WatchEntry entry;
  entry.generation = next_generation_++;
  entry.events = epoll_events;
  entry.handler = std::make_shared<std::function<void(uint32_t)>>(std::move(handler));
  epoll_event ev{};
  ev.events = epoll_events;
  ev.data.u64 = (static_cast<uint64_t>(entry.generation) << 32) | static_cast<uint32_t>(fd);
  if (epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev) != 0) return false;
  watches_[fd] = std::move(entry);
  return true;
}

bool EpollSet::ModifyWatch(int fd, uint32_t epoll_events) {
  auto it = watches_.find(fd);
  if (it == watches_.end()) {
    errno = ENOENT;
    return false;
  }
  if (it->second.events == epoll_events) return true;
  epoll_event ev{};
  ev.events = epoll_events;
  ev.data.u64 = (static_cast<uint64_t>(it->second.generation) << 32) | static_cast<uint32_t>(fd);
  if (epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, fd, &ev) != 0) return false;
  it->second.events = epoll_events;
  return true;
}

void EpollSet::Unwatch(int fd) {
  auto it = watches_.find(fd);
  if (it == watches_.end()) return;
  // The descriptor may already be closed; epoll dropped it then by itself.
  epoll_ctl(epoll_fd_, EPOLL_CTL_DEL, fd, nullptr);
  watches_.erase(it);
}

void EpollSet::Wake() {
  uint64_t one = 1;
  linux_io::RetryOnEintr([&] { return write(wake_fd_, &one, sizeof one); });
}

// Waits in epoll for at most `seconds` (0: just look). EINTR reads as
// "nothing happened": the caller's pass ends and its loop decides again.
int EpollSet::Wait(void* buffer, int capacity, double seconds) {
  auto* events = static_cast<epoll_event*>(buffer);
  if (has_pwait2_) {
    timespec ts{};
    ts.tv_sec = static_cast<time_t>(seconds);
    ts.tv_nsec = static_cast<long>((seconds - static_cast<double>(ts.tv_sec)) * 1e9);
    int n = epoll_pwait2(epoll_fd_, events, capacity, &ts, nullptr);
    if (n >= 0 || errno != ENOSYS) return n < 0 ? 0 : n;
    has_pwait2_ = false;
  }
  // Whole milliseconds, rounded up so a short wait never becomes a spin.
  int ms = static_cast<int>(std::min(std::ceil(seconds * 1000.0), 2e9));
  int n = epoll_wait(epoll_fd_, events, capacity, ms);
  return n < 0 ? 0 : n;
}

bool EpollSet::WaitAndDispatch(double seconds) {
  constexpr int kBatch = 64;
  epoll_event events[kBatch];
  const int count = Wait(events, kBatch, std::max(seconds, 0.0));
  bool ran = false;
  // Skips descriptors unwatched (or watched anew) by an earlier handler of
  // the same batch.
  for (int i = 0; i < count; ++i) {
    const int fd = static_cast<int>(events[i].data.u64 & 0xFFFFFFFFu);
    const uint32_t generation = static_cast<uint32_t>(events[i].data.u64 >> 32);
    if (fd == wake_fd_) {
      uint64_t value = 0;
      linux_io::RetryOnEintr([&] { return read(wake_fd_, &value, sizeof value); });
      continue;
    }
    auto it = watches_.find(fd);
    if (it == watches_.end() || it->second.generation != generation) continue;
    auto handler = it->second.handler;  // survives an Unwatch inside the call
    ran = true;
    // The services' own code runs here; it raises events on strands.
    (*handler)(events[i].events);
  }
  return ran;
}

}  // namespace varnek
