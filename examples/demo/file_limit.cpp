// Raising the demo host's open-file limit.
#include "examples/demo/file_limit.h"

#include <sys/resource.h>

#include <cerrno>
#include <cstring>

namespace varnek::demo {

std::string RaiseOpenFileLimit(int slots) {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) {
    return std::string("cannot read the open-file limit: ") + std::strerror(errno);
  }
  if (limit.rlim_cur != limit.rlim_max) {
    limit.rlim_cur = limit.rlim_max;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) {
      return std::string("cannot raise the open-file limit: ") + std::strerror(errno);
    }
  }
  const rlim_t wanted = 2 * static_cast<rlim_t>(slots);
  if (limit.rlim_max != RLIM_INFINITY && limit.rlim_max < wanted) {
    return "the open-file limit is " + std::to_string(limit.rlim_max) +
           " (hard limit), less than twice --slots (" + std::to_string(wanted) +
           "): connections beyond it wait in the kernel until descriptors are free";
  }
  return "";
}

}  // namespace varnek::demo
