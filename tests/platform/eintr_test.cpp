// RetryOnEintr: repeats only what a signal interrupted, and not for ever.
#include <gtest/gtest.h>

#include <cerrno>
#include <vector>

#include "varnek/platform/linux/internal/eintr.h"

namespace varnek {
namespace {

using linux_io::kMaxEintrRetries;
using linux_io::RetryOnEintr;

TEST(RetryOnEintr, RepeatsInterruptedCallsOnlyAndWithinItsBound) {
  // Each call fails with the next errno of the script (-1) until the script
  // runs out, then returns `then`; errno_before is what errno held at the start.
  struct Row {
    const char* what;
    std::vector<int> script;
    int then, errno_before, result, errno_after, calls;
  };
  const Row rows[] = {
      {"interrupted twice, then through", {EINTR, EINTR}, 42, 0, 42, EINTR, 3},
      {"another failure is given back at once", {EACCES, EINTR}, 42, 0, -1, EACCES, 1},
      {"0 with a stale EINTR is a success", {}, 0, EINTR, 0, EINTR, 1},
      {"interrupted for ever: gives up after the bound",
       std::vector<int>(kMaxEintrRetries + 5, EINTR), 42, 0, -1, EINTR, kMaxEintrRetries + 1}};
  for (const Row& r : rows) {
    SCOPED_TRACE(r.what);
    int calls = 0;
    errno = r.errno_before;
    long result = RetryOnEintr([&]() -> long {
      if (static_cast<size_t>(calls) < r.script.size()) {
        errno = r.script[static_cast<size_t>(calls++)];
        return -1;
      }
      return ++calls, r.then;
    });
    EXPECT_EQ(result, r.result);
    EXPECT_EQ(errno, r.errno_after);
    EXPECT_EQ(calls, r.calls);
  }
}

}  // namespace
}  // namespace varnek
