// Shared helpers of the runtime and text tests.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <source_location>

#include "varnek/runtime/failure.h"

namespace varnek {

// The number of the failure a call raises; 0 when it returns normally.
template <class F>
int FailureOf(F&& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

// Each call must raise the failure number beside it; a report names the caller's line and the call's place.
struct FailingCall {
  int number;
  std::function<void()> call;
};
inline void ExpectFailures(std::initializer_list<FailingCall> calls,
                           std::source_location where = std::source_location::current()) {
  ::testing::ScopedTrace trace(where.file_name(), static_cast<int>(where.line()), "ExpectFailures");
  int place = 0;
  for (const FailingCall& c : calls) EXPECT_EQ(FailureOf(c.call), c.number) << "call " << place++;
}

}  // namespace varnek
