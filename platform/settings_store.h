// The per-user settings store: small named texts under group, family and name
// that survive the process.
#pragma once

#include "varnek/runtime/text.h"

namespace varnek {

class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  // The stored text, or default_value when there is none.
  virtual Text Get(TextView group, TextView family, TextView name, TextView default_value) = 0;
  // Stores the text; failures of the medium fail with the classic file errors
  // (7 when the store is too big for memory, which Get fails with too). The
  // store is read, changed and written as one step that no other process
  // writing other names or families can come between.
  virtual void Set(TextView group, TextView family, TextView name, TextView value) = 0;
};

// Group, family and name compare without regard to case in every store, as
// the classic per-user store did; stores match names by this folded form
// (a-z and the Latin-1 small letters made capitals).
inline Text FoldSettingName(TextView name) {
  Text out(name);
  for (char16_t& unit : out) {
    if ((unit >= u'a' && unit <= u'z') || (unit >= 0xE0 && unit <= 0xFE && unit != 0xF7))
      unit -= 32;
  }
  return out;
}

}  // namespace varnek
