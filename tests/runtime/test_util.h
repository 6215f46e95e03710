// Shared helper of the runtime tests: the number of the failure a call raises.
#pragma once

#include "runtime/failure.h"

namespace varnek {

// 0 when the call returns normally.
template <class F>
int FailureOf(F&& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

}  // namespace varnek
