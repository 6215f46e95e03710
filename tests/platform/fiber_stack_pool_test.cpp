// The fiber stack pool gives memory back: after a burst of stacks only a few
// spares keep their top pages resident, more keep a mapping and no page, the
// rest are unmapped; warm spares are handed out first.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "varnek/platform/internal/fiber.h"

namespace varnek {
namespace {

using Pool = FiberStackPool;

std::size_t Page() { return static_cast<std::size_t>(sysconf(_SC_PAGESIZE)); }

// Resident pages of a stack; -1 when it is no longer mapped.
long Resident(const Pool::Stack& stack) {
  std::vector<unsigned char> flags(stack.size / Page());
  if (mincore(stack.bottom, stack.size, flags.data()) != 0) return errno == ENOMEM ? -1 : -2;
  long n = 0;
  for (unsigned char f : flags) n += f & 1;
  return n;
}

TEST(FiberStackPool, SparesKeepFewPagesAndWarmOnesAreReusedFirst) {
  Pool pool;
  const std::size_t count = Pool::kWarmSpares + Pool::kColdSpares + 3;
  std::vector<Pool::Stack> stacks;
  for (std::size_t i = 0; i < count; ++i) {
    stacks.push_back(pool.Acquire());
    // A handler that went deep: the lowest page, one in the middle, the top.
    Pool::Stack& s = stacks.back();
    for (std::size_t at : {std::size_t{0}, s.size / 2, s.size - 1}) s.bottom[at] = 1;
    ASSERT_EQ(Resident(s), 3) << i;
  }
  for (const Pool::Stack& s : stacks) pool.Release(s);

  const long warm_pages = static_cast<long>(Pool::kWarmBytes / Page());
  for (std::size_t i = 0; i < count; ++i) {
    const long expected = i < Pool::kWarmSpares                       ? 1
                          : i < Pool::kWarmSpares + Pool::kColdSpares ? 0
                                                                      : -1;
    const long resident = Resident(stacks[i]);
    if (expected == 1) {
      EXPECT_GE(resident, 1) << i;  // the top page stays
      EXPECT_LE(resident, warm_pages) << i;
      EXPECT_EQ(stacks[i].bottom[0], 0) << i;  // deeper pages went back
    } else {
      EXPECT_EQ(resident, expected) << i;
    }
  }

  // Warm spares first (the last released of them on top), then cold ones.
  std::vector<Pool::Stack> again;
  for (std::size_t k = 0; k < Pool::kWarmSpares; ++k) {
    again.push_back(pool.Acquire());
    EXPECT_EQ(again.back().bottom, stacks[Pool::kWarmSpares - 1 - k].bottom) << k;
  }
  const Pool::Stack cold = again.emplace_back(pool.Acquire());
  EXPECT_EQ(cold.bottom, stacks[Pool::kWarmSpares + Pool::kColdSpares - 1].bottom);
  EXPECT_EQ(Resident(cold), 0);
  cold.bottom[cold.size - 1] = 7;  // a reused stack is writable
  EXPECT_EQ(cold.bottom[cold.size - 1], 7);
  for (const Pool::Stack& s : again) pool.Release(s);
}

}  // namespace
}  // namespace varnek
