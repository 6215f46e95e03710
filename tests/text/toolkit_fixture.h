// A text toolkit on the simulated platform, shared by the text tests.
#pragma once

#include <gtest/gtest.h>

#include "adds/text/text_toolkit.h"
#include "platform/sim/sim_platform.h"
#include "runtime/convert.h"
#include "runtime/failure.h"

namespace varnek {

class ToolkitTest : public ::testing::Test {
 protected:
  SimPlatform sim;
  TextToolkit kit{sim.platform};
};

// The failure number a statement raises, or 0 when it raises none.
template <class Statement>
int FailureOf(Statement&& statement) {
  try {
    statement();
  } catch (const RuntimeError& error) {
    return error.number();
  }
  return 0;
}

}  // namespace varnek
