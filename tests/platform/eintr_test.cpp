// RetryOnEintr: repeats only what a signal interrupted, and not for ever.
#include <gtest/gtest.h>

#include <cerrno>

#include "varnek/platform/linux/eintr.h"

namespace varnek {
namespace {

using linux_io::kMaxEintrRetries;
using linux_io::RetryOnEintr;

TEST(RetryOnEintr, RepeatsInterruptedCallsOnlyAndWithinItsBound) {
  {  // interrupted twice, then through: the third result, three calls
    int calls = 0;
    long result = RetryOnEintr([&]() -> long {
      if (++calls < 3) {
        errno = EINTR;
        return -1;
      }
      return 42;
    });
    EXPECT_EQ(result, 42);
    EXPECT_EQ(calls, 3);
  }
  {  // another failure is given back at once, errno as the call left it
    int calls = 0;
    int result = RetryOnEintr([&] {
      ++calls;
      errno = EACCES;
      return -1;
    });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EACCES);
    EXPECT_EQ(calls, 1);
  }
  {  // a result of 0 with a stale EINTR in errno is a success
    int calls = 0;
    errno = EINTR;
    EXPECT_EQ(RetryOnEintr([&] { return ++calls, 0; }), 0);
    EXPECT_EQ(calls, 1);
  }
  {  // interrupted for ever: it gives up with EINTR after the bound
    int calls = 0;
    int result = RetryOnEintr([&] {
      ++calls;
      errno = EINTR;
      return -1;
    });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(calls, kMaxEintrRetries + 1);
  }
}

}  // namespace
}  // namespace varnek
