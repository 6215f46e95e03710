// What the text toolkit's fuzz targets share: a toolkit on a simulated
// platform, fresh for each input, and the input's bytes as units.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"

namespace varnek {

struct ToolkitInput {
  ToolkitInput(const uint8_t* data, size_t size)
      : kit(Sim().platform), text(BytesToText(std::string_view(reinterpret_cast<const char*>(data), size))) {}
  static SimPlatform& Sim() {
    static SimPlatform sim;
    return sim;
  }
  TextToolkit kit;
  Text text;  // one unit per byte
};

}  // namespace varnek
