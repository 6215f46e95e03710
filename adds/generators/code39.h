// Code 39 bars as boxes, apart from any surface. A pattern is read left to
// right: "1" a narrow bar, "2" a wide bar, a blank one more gap unit; every
// bar brings its own narrow gap ahead of it. The table keeps its own quirk:
// the letter A holds the start/stop pattern and "*" holds nothing.
//
//   Code39Pattern(1) == u"1 1221";  Code39Pattern(u'A') == u"1 1221"
//   Code39Boxes(u"\x01", 0, 2) -> white 0-2, white 2-4, black 4-6, ...
#pragma once

#include <cstdint>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek::generators {

inline constexpr int32_t kWhite = 0xFFFFFF;
inline constexpr int32_t kBlack = 0;

// The pattern of a character code 0..255; "" for codes without one and for
// every code above 90.
TextView Code39Pattern(int32_t code);

struct BarBox {
  double x1, x2;
  int32_t colour;
};

// The boxes of `sequence` (start and stop included by the caller) from x on,
// each unit bar_width wide; x ends where the last box ends. A unit's code is
// its cp1252 byte. Never fails.
std::vector<BarBox> Code39Boxes(TextView sequence, double& x, double bar_width);

}  // namespace varnek::generators
