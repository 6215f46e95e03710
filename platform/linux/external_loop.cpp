// The external-loop backend's timeout, in the form poll and libuv take.
#include "varnek/platform/linux/external_loop.h"

#include <algorithm>
#include <cmath>

namespace varnek {

int ExternalLoop::TimeoutMilliseconds() {
  const double seconds = SecondsToNextDue();
  if (!std::isfinite(seconds)) return -1;
  return static_cast<int>(std::min(std::ceil(seconds * 1000.0), 2e9));
}

}  // namespace varnek
