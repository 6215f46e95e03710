// Calls run a given number of seconds later on any host loop, through its
// timers: virtual seconds on the simulated loop, real ones on the Linux loop.
// Dropping the object drops the calls that have not run.
#pragma once

#include <functional>
#include <list>
#include <memory>

#include "varnek/platform/host_loop.h"

namespace varnek {

class DelayedCalls {
 public:
  explicit DelayedCalls(HostLoop& loop) : loop_(loop) {}

  // Runs fn once, `seconds` from now (at least one millisecond); calls due at
  // the same moment run in the order they were asked for.
  void After(double seconds, std::function<void()> fn) {
    if (running_ == 0) spent_.clear();  // never drop a timer inside its own tick
    auto timer = loop_.CreateTimer();
    LoopTimer* raw = timer.get();
    auto it = live_.insert(live_.end(), std::move(timer));
    raw->on_tick = [this, it, fn = std::move(fn)]() mutable {
      (*it)->SetEnabled(false);
      auto call = std::move(fn);
      spent_.push_back(std::move(*it));
      live_.erase(it);
      ++running_;
      call();
      --running_;
    };
    const double ms = seconds * 1000.0;
    raw->SetInterval(ms < 1 ? 1 : static_cast<int32_t>(ms > 2e9 ? 2e9 : ms));
    raw->SetEnabled(true);
  }

  // Drops every call not yet run.
  void Clear() { live_.clear(); }

 private:
  HostLoop& loop_;
  std::list<std::unique_ptr<LoopTimer>> live_;
  std::list<std::unique_ptr<LoopTimer>> spent_;
  int running_ = 0;
};

}  // namespace varnek
