// The per-user settings store: small named texts under group, family and name
// that survive the process.
#pragma once

#include "runtime/text.h"

namespace varnek {

class SettingsStore {
 public:
  virtual ~SettingsStore() = default;
  // The stored text, or default_value when there is none.
  virtual Text Get(TextView group, TextView family, TextView name, TextView default_value) = 0;
  // Stores the text; failures of the medium fail with the classic file errors.
  virtual void Set(TextView group, TextView family, TextView name, TextView value) = 0;
};

}  // namespace varnek
