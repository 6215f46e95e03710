// Readings that follow the C library locale: decimal mark, thousands
// separator and short-date order. Skipped where the locale is not installed.
#include <gtest/gtest.h>

#include <clocale>

#include "runtime/convert.h"
#include "runtime/dates.h"

namespace varnek {
namespace {

// Switches the process locale for one test and restores "C" after it.
class LocaleScope {
 public:
  explicit LocaleScope(const char* name) : ok_(std::setlocale(LC_ALL, name) != nullptr) {}
  ~LocaleScope() { std::setlocale(LC_ALL, "C"); }
  bool ok() const { return ok_; }

 private:
  bool ok_;
};

TEST(Locale, GermanMarksAndDayMonthOrder) {
  LocaleScope scope("de_DE.UTF-8");
  if (!scope.ok()) GTEST_SKIP() << "de_DE.UTF-8 not installed";
  EXPECT_EQ(CStr(Variant(1.5)), u"1,5");
  EXPECT_EQ(CStr(Variant(Currency{15000})), u"1,5");
  EXPECT_EQ(CDbl(Variant(u"1,5")), 1.5);
  EXPECT_EQ(CCur(Variant(u"1,23456")).scaled, 12346);
  EXPECT_EQ(CDbl(Variant(u"1.5")), 15);  // "." is the thousands separator here
  EXPECT_EQ(CDbl(Variant(u"1.234,5")), 1234.5);
  EXPECT_EQ(Str(Variant(1.5)), u" 1.5");  // Str and Val ignore the locale
  EXPECT_EQ(Val(u"1,5"), 1);
  EXPECT_EQ(Val(u"1.5"), 1.5);
  EXPECT_EQ(Format(Variant(1234.5), u"#,##0.00"), u"1.234,50");
  EXPECT_EQ(CDate(Variant(u"07.03.2004")).serial, DateSerial(2004, 3, 7));
  EXPECT_EQ(CDate(Variant(u"07/03/2004")).serial, DateSerial(2004, 3, 7));
  EXPECT_EQ(CDate(Variant(u"1970-1-13")).serial, 25581);  // year first in any locale
  EXPECT_EQ(CDate(Variant(u"12/13/2004")).serial, DateSerial(2004, 12, 13));  // swapped
  EXPECT_EQ(CStr(Variant(Date{38053.5})), u"2004-03-07 12:00:00");  // host form everywhere
}

TEST(Locale, CLocaleDefaults) {
  LocaleScope scope("C");
  EXPECT_EQ(CStr(Variant(1.5)), u"1.5");
  EXPECT_FALSE(IsNumeric(Variant(u"1,5")));  // no thousands separator in "C"
  EXPECT_EQ(CDate(Variant(u"07/03/2004")).serial, DateSerial(2004, 7, 3));
}

}  // namespace
}  // namespace varnek
