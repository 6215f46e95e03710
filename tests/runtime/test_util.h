// Shared helpers of the tests: failures expected of calls, the texts of a
// collection.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <initializer_list>
#include <source_location>
#include <vector>

#include "varnek/runtime/collection.h"
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

// Each call must raise the failure number beside it; a report names the caller's line and the
// call's place.
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

// The items of a collection as texts, in order.
inline std::vector<Text> ItemTexts(const Collection& c) {
  std::vector<Text> out;
  for (int32_t i = 1; i <= c.Count(); ++i) out.push_back(c.Item(i).ToText());
  return out;
}

}  // namespace varnek
