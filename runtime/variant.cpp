// Variant storage, subtype queries, raw access and Variant arrays.
#include "varnek/runtime/variant.h"

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek {

Variant Variant::Null() {
  Variant v;
  v.value_ = NullTag{};
  return v;
}

Variant Variant::Missing() {
  Variant v;
  v.value_ = MissingTag{};
  return v;
}

Variant::Variant(int value) {
  if (value >= INT16_MIN && value <= INT16_MAX) {
    value_ = IntegerBox{static_cast<int16_t>(value)};
  } else {
    value_ = static_cast<int32_t>(value);
  }
}

Variant Variant::FromWide(long double value) {
  if (value >= INT32_MIN && value <= INT32_MAX) return Variant(static_cast<int>(value));
  return Variant(static_cast<double>(value));
}

Variant Variant::Integer(int16_t value) {
  Variant v;
  v.value_ = IntegerBox{value};
  return v;
}

Variant Variant::Long(int32_t value) {
  Variant v;
  v.value_ = value;
  return v;
}

Variant::Variant(float value) : value_(value) {}
Variant::Variant(double value) : value_(value) {}
Variant::Variant(Currency value) : value_(value) {}
Variant::Variant(Date value) : value_(value) {}
Variant::Variant(bool value) : value_(value) {}

Variant Variant::Byte(uint8_t value) {
  Variant v;
  v.value_ = ByteBox{value};
  return v;
}

Variant::Variant(Text value) : value_(std::move(value)) {}
Variant::Variant(TextView value) : value_(Text(value)) {}
Variant::Variant(const char16_t* value) : value_(Text(value ? value : u"")) {}
Variant::Variant(const char* utf8) : value_(Utf8ToText(utf8 ? utf8 : "")) {}
Variant::Variant(std::shared_ptr<Object> object) : value_(std::move(object)) {}
Variant::Variant(std::shared_ptr<VariantArray> array) : value_(std::move(array)) {}

VarType Variant::Type() const {
  switch (value_.index()) {
    case 0: return VarType::Empty;
    case 1: return VarType::Null;
    case 2: return VarType::Missing;
    case 3: return VarType::Integer;
    case 4: return VarType::Long;
    case 5: return VarType::Single;
    case 6: return VarType::Double;
    case 7: return VarType::Currency;
    case 8: return VarType::Date;
    case 9: return VarType::Boolean;
    case 10: return VarType::Byte;
    case 11: return VarType::String;
    case 12: return VarType::Object;
    default: return VarType::Array;
  }
}

bool Variant::IsNumberType() const {
  switch (Type()) {
    case VarType::Integer:
    case VarType::Long:
    case VarType::Single:
    case VarType::Double:
    case VarType::Currency:
    case VarType::Date:
    case VarType::Boolean:
    case VarType::Byte: return true;
    default: return false;
  }
}

namespace {
template <class T, class S>
const T& RawGet(const S& storage) {
  const T* p = std::get_if<T>(&storage);
  if (!p) Fail(kErrTypeMismatch);
  return *p;
}
}  // namespace

int16_t Variant::RawInteger() const { return RawGet<IntegerBox>(value_).v; }
int32_t Variant::RawLong() const { return RawGet<int32_t>(value_); }
float Variant::RawSingle() const { return RawGet<float>(value_); }
double Variant::RawDouble() const { return RawGet<double>(value_); }
Currency Variant::RawCurrency() const { return RawGet<Currency>(value_); }
Date Variant::RawDate() const { return RawGet<Date>(value_); }
bool Variant::RawBoolean() const { return RawGet<bool>(value_); }
uint8_t Variant::RawByte() const { return RawGet<ByteBox>(value_).v; }
const Text& Variant::RawString() const { return RawGet<Text>(value_); }
const std::shared_ptr<Object>& Variant::RawObject() const {
  return RawGet<std::shared_ptr<Object>>(value_);
}
const std::shared_ptr<VariantArray>& Variant::RawArray() const {
  return RawGet<std::shared_ptr<VariantArray>>(value_);
}

std::shared_ptr<Object> Variant::RawObjectForCast() const {
  const auto* p = std::get_if<std::shared_ptr<Object>>(&value_);
  if (!p || !*p) Fail(kErrObjectRequired);
  return *p;
}

void Variant::FailWrongObject() const { Fail(kErrTypeMismatch); }

Text Variant::ToText() const { return CStr(*this); }
int16_t Variant::ToInteger() const { return CInt(*this); }
int32_t Variant::ToLong() const { return CLng(*this); }
double Variant::ToDouble() const { return CDbl(*this); }
bool Variant::ToBool() const { return CBool(*this); }
std::string Variant::ToUtf8() const { return TextToUtf8(CStr(*this)); }

// ---- arrays ----

std::shared_ptr<VariantArray> VariantArray::OneDim(int32_t lower_bound, int32_t upper_bound) {
  auto a = std::make_shared<VariantArray>();
  a->lower = {lower_bound};
  a->upper = {upper_bound};
  int64_t count = int64_t{upper_bound} - lower_bound + 1;
  a->items.resize(count > 0 ? static_cast<size_t>(count) : 0);
  return a;
}

namespace {
size_t Offset(const VariantArray& a, std::initializer_list<int32_t> subscripts) {
  if (subscripts.size() != a.lower.size()) Fail(kErrSubscript);
  size_t offset = 0;
  size_t d = 0;
  for (int32_t s : subscripts) {
    if (s < a.lower[d] || s > a.upper[d]) Fail(kErrSubscript);
    size_t extent = static_cast<size_t>(int64_t{a.upper[d]} - a.lower[d] + 1);
    offset = offset * extent + static_cast<size_t>(int64_t{s} - a.lower[d]);
    ++d;
  }
  if (offset >= a.items.size()) Fail(kErrSubscript);
  return offset;
}
}  // namespace

Variant& VariantArray::At(std::initializer_list<int32_t> subscripts) {
  return items[Offset(*this, subscripts)];
}

const Variant& VariantArray::At(std::initializer_list<int32_t> subscripts) const {
  return items[Offset(*this, subscripts)];
}

// Row-major storage: growing the last dimension inserts room at the end of
// every row, so items keep their subscripts.
void VariantArray::ResizeLast(int32_t new_upper) {
  if (lower.empty()) Fail(kErrSubscript);
  size_t dims = lower.size();
  int64_t old_extent = int64_t{upper[dims - 1]} - lower[dims - 1] + 1;
  int64_t new_extent = int64_t{new_upper} - lower[dims - 1] + 1;
  if (new_extent < 0) Fail(kErrSubscript);
  if (old_extent < 0) old_extent = 0;
  size_t rows = 1;
  for (size_t d = 0; d + 1 < dims; ++d) {
    int64_t e = int64_t{upper[d]} - lower[d] + 1;
    rows *= static_cast<size_t>(e > 0 ? e : 0);
  }
  std::vector<Variant> next(rows * static_cast<size_t>(new_extent));
  size_t keep = static_cast<size_t>(std::min(old_extent, new_extent));
  for (size_t r = 0; r < rows; ++r) {
    for (size_t c = 0; c < keep; ++c) {
      next[r * new_extent + c] = std::move(items[r * old_extent + c]);
    }
  }
  items = std::move(next);
  upper[dims - 1] = new_upper;
}

std::shared_ptr<VariantArray> VariantArray::Clone() const {
  return std::make_shared<VariantArray>(*this);
}

}  // namespace varnek
