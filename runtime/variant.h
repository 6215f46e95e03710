// Variant: the one dynamically typed value of the public interface and of Adds.
//
// Subtypes follow the classic runtime: Empty, Null, Integer (16-bit), Long
// (32-bit), Single, Double, Currency (int64 scaled by 10,000), Date (days since
// 1899-12-30 as a double), String (16-bit units), Object, Boolean (True is -1),
// Byte and Array, plus Missing: an optional argument that was not passed.
// Conversions (CStr, CLng, ...) live in runtime/convert.h and are the only
// place that decides how one subtype reads as another.
//
//   Variant v = 42;            // Integer: an int that fits 16 bits
//   Variant w = 70000;         // Long
//   Variant s = u"abc";        // String
//   Variant n = Variant::Null();
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <variant>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

// VarType codes of the classic runtime; Missing is ours (it reads as Error 448
// in the classic runtime, which nothing here needs).
enum class VarType : int {
  Empty = 0,
  Null = 1,
  Integer = 2,
  Long = 3,
  Single = 4,
  Double = 5,
  Currency = 6,
  Date = 7,
  String = 8,
  Object = 9,
  Boolean = 11,
  Byte = 17,
  Array = 8192,
  Missing = 10,
};

// Currency: a fixed-point number with four decimals, stored scaled by 10,000.
struct Currency {
  int64_t scaled = 0;
  friend bool operator==(Currency, Currency) = default;
};

// Date: days since 1899-12-30 00:00; the fraction is the time of day.
struct Date {
  double serial = 0;
  friend bool operator==(Date, Date) = default;
};

// Base of every object a Variant can hold (Collection, host objects, ...).
class Object {
 public:
  virtual ~Object() = default;
  virtual const char* TypeName() const { return "Object"; }
};

class Variant;

// An array of Variants with a lower bound per dimension. Items are stored in
// row-major order. Variants share an array by reference (copying a Variant
// does not copy the array); use Clone() for a separate copy.
struct VariantArray {
  std::vector<int32_t> lower;  // lower bound of each dimension
  std::vector<int32_t> upper;  // upper bound of each dimension
  std::vector<Variant> items;

  static std::shared_ptr<VariantArray> OneDim(int32_t lower_bound, int32_t upper_bound);
  int Dimensions() const { return static_cast<int>(lower.size()); }
  // Element access by subscripts; fails with 9 when out of range.
  Variant& At(std::initializer_list<int32_t> subscripts);
  const Variant& At(std::initializer_list<int32_t> subscripts) const;
  // ReDim Preserve of the last dimension.
  void ResizeLast(int32_t new_upper);
  std::shared_ptr<VariantArray> Clone() const;
};

class Variant {
 public:
  Variant() = default;  // Empty
  static Variant Null();
  static Variant Missing();

  // An int that fits 16 bits is an Integer, otherwise a Long, as literals are.
  Variant(int value);
  // Other integer types (long, size_t, int64_t, ...) follow the same rule, and
  // a value past 32 bits becomes a Double. Character types are not numbers.
  template <class I,
            std::enable_if_t<std::is_integral_v<I> && !std::is_same_v<I, int> &&
                                 !std::is_same_v<I, bool> && !std::is_same_v<I, char> &&
                                 !std::is_same_v<I, char8_t> && !std::is_same_v<I, char16_t> &&
                                 !std::is_same_v<I, char32_t> && !std::is_same_v<I, wchar_t>,
                             int> = 0>
  Variant(I value) : Variant(FromWide(static_cast<long double>(value))) {}
  static Variant Integer(int16_t value);
  static Variant Long(int32_t value);
  Variant(float value);
  Variant(double value);
  Variant(Currency value);
  Variant(Date value);
  Variant(bool value);
  static Variant Byte(uint8_t value);
  Variant(Text value);
  Variant(TextView value);
  Variant(const char16_t* value);
  Variant(const char* utf8);  // host convenience: UTF-8 text
  Variant(std::shared_ptr<Object> object);
  Variant(std::shared_ptr<VariantArray> array);

  VarType Type() const;
  bool IsEmpty() const { return Type() == VarType::Empty; }
  bool IsNull() const { return Type() == VarType::Null; }
  bool IsMissing() const { return Type() == VarType::Missing; }
  bool IsString() const { return Type() == VarType::String; }
  bool IsObject() const { return Type() == VarType::Object; }
  bool IsArray() const { return Type() == VarType::Array; }
  // Integer, Long, Single, Double, Currency, Date, Boolean or Byte.
  bool IsNumberType() const;

  // Raw access to the held value; fails with 13 on another subtype. Use the
  // conversions in runtime/convert.h to read a value as another subtype.
  int16_t RawInteger() const;
  int32_t RawLong() const;
  float RawSingle() const;
  double RawDouble() const;
  Currency RawCurrency() const;
  Date RawDate() const;
  bool RawBoolean() const;
  uint8_t RawByte() const;
  const Text& RawString() const;
  const std::shared_ptr<Object>& RawObject() const;
  const std::shared_ptr<VariantArray>& RawArray() const;

  // The held object as T; fails with 424 when no object is held and 13 when it
  // is another kind of object.
  template <class T>
  std::shared_ptr<T> ObjectAs() const {
    auto typed = std::dynamic_pointer_cast<T>(RawObjectForCast());
    if (!typed) FailWrongObject();
    return typed;
  }

  // Conversions, the same as the free functions of runtime/convert.h.
  Text ToText() const;        // CStr
  int16_t ToInteger() const;  // CInt
  int32_t ToLong() const;     // CLng
  double ToDouble() const;    // CDbl
  bool ToBool() const;        // CBool
  std::string ToUtf8() const;

 private:
  struct NullTag {
    friend bool operator==(NullTag, NullTag) = default;
  };
  struct MissingTag {
    friend bool operator==(MissingTag, MissingTag) = default;
  };
  struct IntegerBox {
    int16_t v;
  };
  struct ByteBox {
    uint8_t v;
  };
  using Storage = std::variant<std::monostate, NullTag, MissingTag, IntegerBox, int32_t, float,
                               double, Currency, Date, bool, ByteBox, Text, std::shared_ptr<Object>,
                               std::shared_ptr<VariantArray>>;
  static Variant FromWide(long double value);
  std::shared_ptr<Object> RawObjectForCast() const;
  [[noreturn]] void FailWrongObject() const;
  Storage value_;
};

}  // namespace varnek
