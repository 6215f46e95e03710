// The one source of the locale facts the runtime reads: the decimal mark and
// thousands separator of numbers, and the short-date pattern behind the date
// order of CDate. The runtime never asks the C library itself: the platform
// installs a source that does (the Linux platform reads LC_NUMERIC and
// LC_TIME), and tests may install fixed ones.
#pragma once

#include <string>

namespace varnek {

class LocaleSource {
 public:
  virtual ~LocaleSource() = default;
  // The decimal mark and the thousands separator as the locale writes them,
  // in UTF-8; either may be empty.
  virtual std::string DecimalPoint() = 0;
  virtual std::string ThousandsSeparator() = 0;
  // The short-date pattern in strftime's form ("%m/%d/%y" in the "C" locale).
  virtual std::string ShortDatePattern() = 0;
};

// The facts of the "C" locale: ".", no thousands separator, "%m/%d/%y". In
// use until a platform installs its own source.
class ClassicLocaleSource : public LocaleSource {
 public:
  std::string DecimalPoint() override { return "."; }
  std::string ThousandsSeparator() override { return ""; }
  std::string ShortDatePattern() override { return "%m/%d/%y"; }
};

// The source in use. Never fails.
LocaleSource& CurrentLocaleSource();

// Makes `source` the one in use (nullptr: back to the classic one) and returns
// the one before, so that a test can put it back. The source must outlive its
// use; the runtime does not own it.
LocaleSource* InstallLocaleSource(LocaleSource* source);

}  // namespace varnek
