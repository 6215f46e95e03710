// The process's numeric locale, read through the C library.
#include <clocale>

#include "platform/locale.h"

namespace varnek {

Text LocaleDecimalSeparator() {
  const std::lconv* conv = std::localeconv();
  Text mark = conv != nullptr && conv->decimal_point != nullptr ? Utf8ToText(conv->decimal_point)
                                                                : Text();
  if (mark.empty()) return u".";
  return mark.substr(0, 1);
}

}  // namespace varnek
