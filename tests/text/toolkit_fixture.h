// A text toolkit on the simulated platform, shared by the text tests.
#pragma once

#include <gtest/gtest.h>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "tests/runtime/test_util.h"

namespace varnek {

class ToolkitTest : public ::testing::Test {
 protected:
  SimPlatform sim;
  TextToolkit kit{sim.platform};
};

}  // namespace varnek
