// The Linux locale source reads the C library's current locale, and the
// runtime follows setlocale once the Linux platform has installed it.
#include <gtest/gtest.h>

#include <clocale>

#include "varnek/platform/linux/internal/linux_date_locale.h"
#include "varnek/platform/linux/internal/linux_locale_source.h"
#include "varnek/platform/platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"

namespace varnek {
namespace {

// Switches the process locale for one test and restores "C"; a locale not
// installed skips the test.
struct LocaleScope {
  explicit LocaleScope(const char* name) : ok(std::setlocale(LC_ALL, name) != nullptr) {}
  ~LocaleScope() { std::setlocale(LC_ALL, "C"); }
  bool ok;
};

TEST(LinuxLocaleSource, ReadsTheCurrentLocaleAndTheRuntimeFollowsSetlocale) {
  LinuxPlatform();
  LinuxLocaleSource& source = LinuxLocale();
  EXPECT_EQ(&CurrentLocaleSource(), &source);
  EXPECT_EQ(source.DecimalPoint(), ".");  // "C"
  EXPECT_EQ(source.ThousandsSeparator(), "");
  EXPECT_EQ(source.ShortDatePattern(), "%m/%d/%y");
  EXPECT_EQ(CStr(Variant(1.5)), u"1.5");
  LocaleScope scope("de_DE.UTF-8");
  if (!scope.ok) GTEST_SKIP() << "de_DE.UTF-8 not installed";
  EXPECT_EQ(source.DecimalPoint(), ",");
  EXPECT_EQ(source.ThousandsSeparator(), ".");
  EXPECT_EQ(source.ShortDatePattern(), "%d.%m.%Y");
  EXPECT_EQ(CStr(Variant(1.5)), u"1,5");
  EXPECT_EQ(CDate(Variant(u"07.03.2004")).serial, DateSerial(2004, 3, 7));
  // the order shown is the order read
  EXPECT_EQ(LinuxDates().ShortDate(2004, 3, 7), u"07.03.2004");
}

}  // namespace
}  // namespace varnek
