// A failing statement under Resume or Guarded leaves its target as it was,
// for small value types too: inlined, GCC 12's dead-store pass dropped the
// earlier store as if the call always wrote, so the statement runs out of line.
#include <gtest/gtest.h>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

template <class T>
__attribute__((noinline)) T FailingRead(int code) {
  if (code > 0) Fail(code);
  return T{};
}

// Routines in the shape the library uses: a default, one guarded statement,
// the value returned.
__attribute__((noinline)) Currency CurrencyOrDefault(int code) {
  Currency money;
  money.scaled = 70000;
  Resume([&] { money = FailingRead<Currency>(code); });
  return money;
}

__attribute__((noinline)) Date DateOrDefault(int code) {
  Date when;
  when.serial = 45000.5;
  Guarded([&] { when = FailingRead<Date>(code); });
  return when;
}

__attribute__((noinline)) Currency ConvertedOrZero(const Variant& v) {
  Currency value;
  Resume([&] { value = CCur(v); });
  return value;
}

TEST(FailureModes, AFailedAssignmentKeepsTheEarlierValue) {
  EXPECT_EQ(CurrencyOrDefault(13).scaled, 70000);
  EXPECT_EQ(CurrencyOrDefault(0).scaled, 0);
  EXPECT_EQ(DateOrDefault(6).serial, 45000.5);
  EXPECT_EQ(DateOrDefault(0).serial, 0.0);
  EXPECT_EQ(ConvertedOrZero(Variant(u"not a number")).scaled, 0);
  EXPECT_EQ(ConvertedOrZero(Variant(u"1.5")).scaled, 15000);
}

}  // namespace
}  // namespace varnek
