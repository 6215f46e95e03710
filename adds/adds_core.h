// The shared base of every subsystem class of Adds: the platform services the
// routines reach the machine through. Subsystem classes derive from it
// virtually, so the joined Adds class holds one copy.
//
// A virtual base is built by the most-derived class, so the platform is not
// passed down the constructor chain: every class default-constructs its
// bases and the constructor that takes the platform attaches it in its body.
// A host class derived from Adds names only Adds:
//
//   struct MyAdds : varnek::Adds {
//     explicit MyAdds(varnek::Platform& p) : Adds(p) {}
//   };
#pragma once

#include "varnek/platform/platform.h"

namespace varnek {

class AddsCore {
 public:
  virtual ~AddsCore() = default;
  AddsCore(const AddsCore&) = delete;
  AddsCore& operator=(const AddsCore&) = delete;

  Platform& platform() const { return *platform_; }
  HostLoop& loop() const { return *platform_->loop; }

 protected:
  AddsCore() = default;
  // Called by the constructor that was given the platform.
  void Attach(Platform& platform) { platform_ = &platform; }

 private:
  Platform* platform_ = nullptr;
};

}  // namespace varnek
