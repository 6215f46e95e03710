// Range-checked 16- and 32-bit arithmetic: overflow fails with 6.
#include "varnek/runtime/int16.h"

#include "varnek/runtime/failure.h"

namespace varnek {

int16_t ToInt16(int64_t value) {
  if (value < INT16_MIN || value > INT16_MAX) Fail(kErrOverflow);
  return static_cast<int16_t>(value);
}

int32_t ToInt32(int64_t value) {
  if (value < INT32_MIN || value > INT32_MAX) Fail(kErrOverflow);
  return static_cast<int32_t>(value);
}

int16_t AddInt16(int16_t a, int16_t b) { return ToInt16(int64_t{a} + b); }
int16_t SubInt16(int16_t a, int16_t b) { return ToInt16(int64_t{a} - b); }
int16_t MulInt16(int16_t a, int16_t b) { return ToInt16(int64_t{a} * b); }
int32_t AddInt32(int32_t a, int32_t b) { return ToInt32(int64_t{a} + b); }
int32_t MulInt32(int32_t a, int32_t b) { return ToInt32(int64_t{a} * b); }

}  // namespace varnek
