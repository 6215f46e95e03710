// Text toolkit of Adds: splitting and replacing strings, the script sequence
// store, the URL and Base64 codecs, control-character aliases, conversions and
// scrambling.
#pragma once

#include "adds/adds_core.h"

namespace varnek {

class TextToolkit : public virtual AddsCore {
 public:
  explicit TextToolkit(Platform& platform) : AddsCore(platform) {}
};

}  // namespace varnek
