// How the machine writes a short date, for the routines that must learn the
// order of day, month and year.
#pragma once

#include <cstdint>

#include "varnek/runtime/text.h"

namespace varnek {

class DateLocale {
 public:
  virtual ~DateLocale() = default;
  // The date in the system's short-date form (on Linux the C library's LC_TIME
  // "%x", which is "08/25/58" for 1958-08-25 in the "C" locale).
  virtual Text ShortDate(int32_t year, int32_t month, int32_t day) = 0;
};

}  // namespace varnek
