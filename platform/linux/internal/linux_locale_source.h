// The runtime's locale facts read from the C library: LC_NUMERIC's marks and
// LC_TIME's short-date pattern, as the process's current locale has them.
#pragma once

#include "varnek/runtime/locale_source.h"

namespace varnek {

class LinuxLocaleSource : public LocaleSource {
 public:
  // localeconv()'s decimal_point and thousands_sep; "" when it gives none.
  std::string DecimalPoint() override;
  std::string ThousandsSeparator() override;
  // nl_langinfo(D_FMT); "%m/%d/%y" when it gives none.
  std::string ShortDatePattern() override;
};

// The process-wide instance, installed into the runtime by LinuxPlatform() so
// the runtime follows setlocale.
LinuxLocaleSource& LinuxLocale();

}  // namespace varnek
