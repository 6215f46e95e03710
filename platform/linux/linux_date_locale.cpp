// Short dates from the C library's locale.
#include "varnek/platform/linux/internal/linux_date_locale.h"

#include <time.h>

#include "varnek/runtime/locale_source.h"

namespace varnek {

Text LinuxDateLocale::ShortDate(int32_t year, int32_t month, int32_t day) {
  struct tm when {};
  when.tm_year = year - 1900;
  when.tm_mon = month - 1;
  when.tm_mday = day;
  when.tm_hour = 12;
  when.tm_isdst = -1;
  timegm(&when);  // fills the weekday and day of the year for formats that show them
  char out[128];
  // The pattern comes from the runtime's locale source, which the Linux
  // platform fills from LC_TIME: the order CDate reads is the order shown.
  size_t n = strftime(out, sizeof out, CurrentLocaleSource().ShortDatePattern().c_str(), &when);
  // The locale's text is in its own encoding; Linux locales are UTF-8.
  return Utf8ToText(std::string_view(out, n));
}

LinuxDateLocale& LinuxDates() {
  static LinuxDateLocale dates;
  return dates;
}

}  // namespace varnek
