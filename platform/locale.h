// Readings of the process's locale that the logic needs.
#pragma once

#include "runtime/text.h"

namespace varnek {

// The decimal mark of the process's numeric locale (LC_NUMERIC), one unit;
// "." when the locale gives none.
Text LocaleDecimalSeparator();

}  // namespace varnek
