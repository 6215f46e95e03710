// The shared base of every subsystem class of Adds: the platform services the
// routines reach the machine through. Subsystem classes derive from it
// virtually, so the joined Adds class holds one copy.
#pragma once

#include "platform/platform.h"

namespace varnek {

class AddsCore {
 public:
  explicit AddsCore(Platform& platform) : platform_(&platform) {}
  virtual ~AddsCore() = default;
  AddsCore(const AddsCore&) = delete;
  AddsCore& operator=(const AddsCore&) = delete;

  Platform& platform() const { return *platform_; }
  HostLoop& loop() const { return *platform_->loop; }

 private:
  Platform* platform_;
};

}  // namespace varnek
