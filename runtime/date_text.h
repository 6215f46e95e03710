// Text forms of dates: what CStr gives for a Date and the reader behind CDate
// and IsDate (declared in runtime/dates.h as ParseDateText).
#pragma once

#include "varnek/runtime/text.h"

namespace varnek {

// Our locale-independent short form: "yyyy-mm-dd hh:nn:ss"; only
// "yyyy-mm-dd" when the time is midnight, only "hh:nn:ss" when the day part
// is 0 (1899-12-30).
Text DateToText(double date);

// The order of day, month and year in the locale's short-date pattern (the
// installed LocaleSource's): "C" gives month/day/year.
enum class DateOrder { MDY, DMY, YMD };
DateOrder LocaleDateOrder();
// The separator of that format ('/', '-' or '.'); '/' in "C".
char16_t LocaleDateSeparator();

}  // namespace varnek
