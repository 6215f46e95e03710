// Checked arithmetic on the signed 16-bit and 32-bit working variables of the
// classic runtime: a result out of range fails with 6 (Overflow).
#pragma once

#include <cstdint>

namespace varnek {

int16_t ToInt16(int64_t value);  // fails with 6 outside -32768..32767
int32_t ToInt32(int64_t value);  // fails with 6 outside the 32-bit range
int16_t AddInt16(int16_t a, int16_t b);
int16_t SubInt16(int16_t a, int16_t b);
int16_t MulInt16(int16_t a, int16_t b);
int32_t AddInt32(int32_t a, int32_t b);
int32_t MulInt32(int32_t a, int32_t b);

}  // namespace varnek
