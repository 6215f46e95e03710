// The Linux host loop: epoll for watched descriptors and the wake-up eventfd,
// timers by deadlines on CLOCK_MONOTONIC, local time from CLOCK_REALTIME.
#include "varnek/platform/linux/linux_loop.h"

#include "varnek/platform/linux/eintr.h"
#include "varnek/platform/strand_scheduler.h"
#include "varnek/platform/timer_table.h"
#include "varnek/runtime/date_math.h"

#include <errno.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <deque>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <unordered_map>
#include <utility>
#include <vector>

namespace varnek {

namespace {

double MonotonicSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<double>(ts.tv_sec) + ts.tv_nsec / 1e9;
}

// The local broken-down time now, and its nanoseconds.
tm LocalNow(long* nanoseconds) {
  timespec ts{};
  clock_gettime(CLOCK_REALTIME, &ts);
  // The time zone conversion is the dear part and every waiting strand reads
  // the clock after each pass: convert once per second.
  thread_local time_t cached_second = -1;
  thread_local tm cached{};
  if (ts.tv_sec != cached_second) {
    localtime_r(&ts.tv_sec, &cached);
    cached_second = ts.tv_sec;
  }
  if (nanoseconds) *nanoseconds = ts.tv_nsec;
  return cached;
}

struct WatchEntry {
  uint32_t generation = 0;
  uint32_t events = 0;  // what epoll holds for it, so an unchanged interest costs no call
  std::shared_ptr<std::function<void(uint32_t)>> handler;
};

// The loop whose Pump this thread is inside, if any: a Post from there is
// seen before that Pump (or the next) blocks, so it needs no wake-up write.
thread_local const void* pumping_loop = nullptr;

}  // namespace

struct LinuxLoop::Impl {
  explicit Impl(LoopMode mode) : strands(mode, MonotonicSeconds) {}
  ~Impl() {
    if (wake_fd >= 0) close(wake_fd);
    if (epoll_fd >= 0) close(epoll_fd);
  }
  int epoll_fd = -1;
  int wake_fd = -1;  // eventfd: Post from any thread wakes a blocked pump
  uint32_t next_generation = 1;
  bool has_pwait2 = true;
  std::unordered_map<int, WatchEntry> watches;
  StrandScheduler strands;
  TimerTable timers{MonotonicSeconds};
  std::mutex posted_mutex;
  std::deque<std::function<void()>> posted;

  bool HasPosted() {
    std::lock_guard<std::mutex> lock(posted_mutex);
    return !posted.empty();
  }

  // Waits in epoll for at most `seconds` (0: just look). EINTR reads as
  // "nothing happened": the caller's pass ends and its loop decides again.
  int Wait(epoll_event* events, int capacity, double seconds) {
    if (has_pwait2) {
      timespec ts{};
      ts.tv_sec = static_cast<time_t>(seconds);
      ts.tv_nsec = static_cast<long>((seconds - static_cast<double>(ts.tv_sec)) * 1e9);
      int n = epoll_pwait2(epoll_fd, events, capacity, &ts, nullptr);
      if (n >= 0 || errno != ENOSYS) return n < 0 ? 0 : n;
      has_pwait2 = false;
    }
    // Whole milliseconds, rounded up so a short wait never becomes a spin.
    int ms = static_cast<int>(std::min(std::ceil(seconds * 1000.0), 2e9));
    int n = epoll_wait(epoll_fd, events, capacity, ms);
    return n < 0 ? 0 : n;
  }

  void DrainWake() {
    uint64_t value = 0;
    linux_io::RetryOnEintr([&] { return read(wake_fd, &value, sizeof value); });
  }

  // I/O events of this batch, skipping descriptors unwatched (or watched anew)
  // by an earlier handler of the same batch.
  bool DispatchIo(const epoll_event* events, int count) {
    bool ran = false;
    for (int i = 0; i < count; ++i) {
      const int fd = static_cast<int>(events[i].data.u64 & 0xFFFFFFFFu);
      const uint32_t generation = static_cast<uint32_t>(events[i].data.u64 >> 32);
      if (fd == wake_fd) {
        DrainWake();
        continue;
      }
      auto it = watches.find(fd);
      if (it == watches.end() || it->second.generation != generation) continue;
      auto handler = it->second.handler;  // survives an Unwatch inside the call
      ran = true;
      // The services' own code runs here; it raises events on strands.
      (*handler)(events[i].events);
    }
    return ran;
  }

  // Each posted call on a strand of its own. If one throws, the calls not
  // yet run go back to the front of the queue for the next pass.
  bool DispatchPosted() {
    std::deque<std::function<void()>> batch;
    {
      std::lock_guard<std::mutex> lock(posted_mutex);
      batch.swap(posted);
    }
    const bool ran = !batch.empty();
    while (!batch.empty()) {
      std::function<void()> fn = std::move(batch.front());
      batch.pop_front();
      try {
        strands.RunOn(nullptr, std::move(fn));
      } catch (...) {
        std::lock_guard<std::mutex> lock(posted_mutex);
        posted.insert(posted.begin(), std::make_move_iterator(batch.begin()),
                      std::make_move_iterator(batch.end()));
        throw;
      }
    }
    return ran;
  }

};

LinuxLoop::LinuxLoop(LoopMode mode) : impl_(std::make_unique<Impl>(mode)) {
  impl_->epoll_fd = epoll_create1(EPOLL_CLOEXEC);
  impl_->wake_fd = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (impl_->epoll_fd < 0 || impl_->wake_fd < 0) {
    throw std::runtime_error("LinuxLoop: epoll or eventfd unavailable");
  }
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.u64 = static_cast<uint32_t>(impl_->wake_fd);
  if (epoll_ctl(impl_->epoll_fd, EPOLL_CTL_ADD, impl_->wake_fd, &ev) != 0) {
    throw std::runtime_error("LinuxLoop: epoll refused the wake-up descriptor");
  }
  impl_->timers.SetLoop(this);
}

LinuxLoop::~LinuxLoop() = default;

void LinuxLoop::Pump(double max_wait_seconds) {
  Impl& s = *impl_;
  StrandScheduler::DepthScope depth(s.strands);
  if (s.strands.OnFiber()) {
    // Inside a handler: only this strand waits; the scheduler pumps.
    s.strands.Wait(max_wait_seconds);
    return;
  }
  const void* outer = pumping_loop;
  pumping_loop = &s;
  struct Restore {
    const void* outer;
    ~Restore() { pumping_loop = outer; }
  } restore{outer};
  s.strands.BeginPass();
  double now = MonotonicSeconds();
  // Block only when nothing is ready: no posted call, no due timer and no
  // strand whose wait is over.
  double wait = 0;
  if (max_wait_seconds > 0 && !s.HasPosted()) {
    const double next = std::min(s.timers.NextDue(), s.strands.NextWake());
    wait = std::clamp(std::min(next - now, max_wait_seconds), 0.0, max_wait_seconds);
  }
  constexpr int kBatch = 64;
  epoll_event events[kBatch];
  int count = s.Wait(events, kBatch, wait);
  if (wait > 0) now = MonotonicSeconds();
  bool ran = s.DispatchIo(events, count);
  ran = s.DispatchPosted() || ran;
  ran = s.timers.TickAll(now) || ran;
  s.strands.EndPass(MonotonicSeconds(), ran);
}

std::unique_ptr<LoopTimer> LinuxLoop::CreateTimer() { return impl_->timers.Create(); }

void LinuxLoop::Post(std::function<void()> fn) {
  {
    std::lock_guard<std::mutex> lock(impl_->posted_mutex);
    impl_->posted.push_back(std::move(fn));
  }
  // Every Pump looks at the queue before it blocks; only a Pump already
  // blocked (on another thread) has to be woken.
  if (pumping_loop == impl_.get()) return;
  uint64_t one = 1;
  linux_io::RetryOnEintr([&] { return write(impl_->wake_fd, &one, sizeof one); });
}

double LinuxLoop::Now() {
  tm local = LocalNow(nullptr);
  const int64_t days =
      SerialFromCivil(local.tm_year + 1900, local.tm_mon + 1, local.tm_mday);
  const int seconds = local.tm_hour * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59);
  return static_cast<double>(days) + seconds / 86400.0;
}

float LinuxLoop::Timer() {
  long ns = 0;
  tm local = LocalNow(&ns);
  const int seconds = local.tm_hour * 3600 + local.tm_min * 60 + std::min(local.tm_sec, 59);
  return static_cast<float>(seconds + ns / 1e9);
}

void LinuxLoop::Freeze(double seconds) {
  if (!(seconds > 0)) return;
  timespec request{};
  request.tv_sec = static_cast<time_t>(seconds);
  request.tv_nsec = static_cast<long>((seconds - static_cast<double>(request.tv_sec)) * 1e9);
  timespec remaining{};
  // EINTR: sleep on for what is left.
  while (clock_nanosleep(CLOCK_MONOTONIC, 0, &request, &remaining) == EINTR) request = remaining;
}

int LinuxLoop::PumpDepth() const { return impl_->strands.Depth(); }
int LinuxLoop::MaxPumpDepth() const { return impl_->strands.MaxDepth(); }
LoopMode LinuxLoop::Mode() const { return impl_->strands.mode(); }
StrandRef LinuxLoop::NewStrand() { return impl_->strands.NewStrand(); }
StrandRef LinuxLoop::CurrentStrand() { return impl_->strands.Current(); }
void LinuxLoop::RunOn(const StrandRef& strand, std::function<void()> fn) {
  impl_->strands.RunOn(strand, std::move(fn));
}
int LinuxLoop::LiveStrands() const { return impl_->strands.Live(); }
int LinuxLoop::MaxLiveStrands() const { return impl_->strands.MaxLive(); }

bool LinuxLoop::Watch(int fd, uint32_t epoll_events, std::function<void(uint32_t)> handler) {
  Unwatch(fd);
  WatchEntry entry;
  entry.generation = impl_->next_generation++;
  entry.events = epoll_events;
  entry.handler = std::make_shared<std::function<void(uint32_t)>>(std::move(handler));
  epoll_event ev{};
  ev.events = epoll_events;
  ev.data.u64 = (static_cast<uint64_t>(entry.generation) << 32) | static_cast<uint32_t>(fd);
  if (epoll_ctl(impl_->epoll_fd, EPOLL_CTL_ADD, fd, &ev) != 0) return false;
  impl_->watches[fd] = std::move(entry);
  return true;
}

bool LinuxLoop::ModifyWatch(int fd, uint32_t epoll_events) {
  auto it = impl_->watches.find(fd);
  if (it == impl_->watches.end()) {
    errno = ENOENT;
    return false;
  }
  if (it->second.events == epoll_events) return true;
  epoll_event ev{};
  ev.events = epoll_events;
  ev.data.u64 = (static_cast<uint64_t>(it->second.generation) << 32) | static_cast<uint32_t>(fd);
  if (epoll_ctl(impl_->epoll_fd, EPOLL_CTL_MOD, fd, &ev) != 0) return false;
  it->second.events = epoll_events;
  return true;
}

void LinuxLoop::Unwatch(int fd) {
  auto it = impl_->watches.find(fd);
  if (it == impl_->watches.end()) return;
  // The descriptor may already be closed; epoll dropped it then by itself.
  epoll_ctl(impl_->epoll_fd, EPOLL_CTL_DEL, fd, nullptr);
  impl_->watches.erase(it);
}

}  // namespace varnek
