// The short-date form of the C library's LC_TIME locale.
#pragma once

#include "varnek/platform/date_locale.h"

namespace varnek {

class LinuxDateLocale : public DateLocale {
 public:
  // strftime with the runtime locale source's short-date pattern (on the Linux
  // platform nl_langinfo(D_FMT) of the current LC_TIME locale).
  Text ShortDate(int32_t year, int32_t month, int32_t day) override;
};

// The process-wide instance.
LinuxDateLocale& LinuxDates();

}  // namespace varnek
