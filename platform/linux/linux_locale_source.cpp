// The C library's locale, the one place the library reads it.
#include "varnek/platform/linux/internal/linux_locale_source.h"

#include <langinfo.h>

#include <clocale>

namespace varnek {

std::string LinuxLocaleSource::DecimalPoint() {
  const std::lconv* conv = std::localeconv();
  return conv != nullptr && conv->decimal_point != nullptr ? conv->decimal_point : "";
}

std::string LinuxLocaleSource::ThousandsSeparator() {
  const std::lconv* conv = std::localeconv();
  return conv != nullptr && conv->thousands_sep != nullptr ? conv->thousands_sep : "";
}

std::string LinuxLocaleSource::ShortDatePattern() {
  const char* pattern = nl_langinfo(D_FMT);
  return pattern != nullptr && *pattern != '\0' ? pattern : "%m/%d/%y";
}

LinuxLocaleSource& LinuxLocale() {
  static LinuxLocaleSource locale;
  return locale;
}

}  // namespace varnek
