// Variant comparison, StrComp and the & operator.
#include "varnek/runtime/compare.h"

#include <algorithm>

#include "varnek/runtime/casemap.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/number_text.h"

namespace varnek {
namespace {

template <class T>
int Cmp(T a, T b) {
  return a < b ? -1 : (a > b ? 1 : 0);
}

// Numeric value of a number subtype or Empty, as a double.
double NumberOf(const Variant& v) {
  double value = 0;
  if (!NumberSubtypeValue(v, value)) Fail(kErrTypeMismatch);
  return value;
}

int CompareNumbers(const Variant& a, const Variant& b) {
  VarType ta = a.Type(), tb = b.Type();
  if (ta == VarType::Currency && tb == VarType::Currency) {
    return Cmp(a.RawCurrency().scaled, b.RawCurrency().scaled);
  }
  // A Single against a Double compares at single precision.
  if ((ta == VarType::Single && tb == VarType::Double) ||
      (ta == VarType::Double && tb == VarType::Single)) {
    return Cmp(static_cast<float>(NumberOf(a)), static_cast<float>(NumberOf(b)));
  }
  return Cmp(NumberOf(a), NumberOf(b));
}

}  // namespace

int StrComp(TextView a, TextView b, CompareMode mode) {
  if (mode != CompareMode::Binary && mode != CompareMode::TextCompare) Fail(kErrInvalidCall);
  if (mode == CompareMode::Binary) {
    int c = a.compare(b);
    return c < 0 ? -1 : (c > 0 ? 1 : 0);
  }
  // Text: letters first by base letter, case ignored; accents decide only
  // when the base letters of both texts agree throughout.
  size_t n = std::min(a.size(), b.size());
  for (size_t i = 0; i < n; ++i) {
    uint32_t pa = TextWeight(a[i]).primary, pb = TextWeight(b[i]).primary;
    if (pa != pb) return pa < pb ? -1 : 1;
  }
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  for (size_t i = 0; i < n; ++i) {
    uint32_t sa = TextWeight(a[i]).secondary, sb = TextWeight(b[i]).secondary;
    if (sa != sb) return sa < sb ? -1 : 1;
  }
  return 0;
}

std::optional<int> CompareVariants(const Variant& a, const Variant& b, CompareMode mode) {
  if (a.IsNull() || b.IsNull()) return std::nullopt;
  if (a.IsMissing() || b.IsMissing()) Fail(kErrArgumentNotOptional);
  bool sa = a.IsString(), sb = b.IsString();
  bool ea = a.IsEmpty(), eb = b.IsEmpty();
  if (sa && sb) return StrComp(a.RawString(), b.RawString(), mode);
  if (sa && eb) return StrComp(a.RawString(), u"", mode);
  if (ea && sb) return StrComp(u"", b.RawString(), mode);
  bool na = a.IsNumberType() || ea, nb = b.IsNumberType() || eb;
  if (na && nb) return CompareNumbers(a, b);
  // A number sorts below any text.
  if (na && sb) return -1;
  if (sa && nb) return 1;
  Fail(kErrTypeMismatch);
}

bool VariantLess(const Variant& a, const Variant& b, CompareMode mode) {
  auto c = CompareVariants(a, b, mode);
  return c && *c < 0;
}

bool VariantEqual(const Variant& a, const Variant& b, CompareMode mode) {
  auto c = CompareVariants(a, b, mode);
  return c && *c == 0;
}

Variant Concat(const Variant& a, const Variant& b) {
  if (a.IsNull() && b.IsNull()) return Variant::Null();
  Text left = (a.IsNull() || a.IsEmpty()) ? Text() : CStr(a);
  Text right = (b.IsNull() || b.IsEmpty()) ? Text() : CStr(b);
  return Variant(left + right);
}

}  // namespace varnek
