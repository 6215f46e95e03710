// Variable store, sorting and pauses of Adds: named values in the per-user
// settings store, Collection_Sort and Collection_FindIdxKey, and the waits that
// pump the host's event loop.
#pragma once

#include "adds/adds_core.h"

namespace varnek {

class VariableStore : public virtual AddsCore {
 public:
  explicit VariableStore(Platform& platform) : AddsCore(platform) {}
};

}  // namespace varnek
