// Raw addresses of objects and strings, and strings read back from an address.
// On a 64-bit process an address does not fit the classic 32-bit Long, so
// addresses travel as int64_t. Nothing here keeps what it points at alive.
#include <cstring>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek {

int64_t TextToolkit::Var_ObjectToPointer(const Variant& Object) {
  return reinterpret_cast<int64_t>(Object.RawObject().get());  // 13 when no object
}

int64_t TextToolkit::Var_StringToPointer(const Variant& sString) {
  if (sString.IsString()) return reinterpret_cast<int64_t>(sString.RawString().data());
  // The classic call converts into a temporary: its address is stale on return,
  // and kept so on purpose.
  Text temporary = CStr(sString);
  const void* stale = temporary.data();
  return static_cast<int64_t>(reinterpret_cast<uintptr_t>(stale));
}

int32_t TextToolkit::Var_PointerToLong(int64_t Address) {
  int32_t value;
  std::memcpy(&value, reinterpret_cast<const void*>(Address), sizeof value);
  return value;
}

Text TextToolkit::Var_PointerToStringA(int64_t lpStringA) {
  if (lpStringA == 0) return Text();
  const char* bytes = reinterpret_cast<const char*>(lpStringA);
  size_t length = std::strlen(bytes);
  if (length == 0) return Text();
  return BytesToText(std::string_view(bytes, length));
}

Text TextToolkit::Var_PointerToStringW(int64_t lpStringW) {
  if (lpStringW == 0) return Text();
  const char16_t* units = reinterpret_cast<const char16_t*>(lpStringW);
  size_t length = 0;
  while (units[length] != 0) ++length;
  return Text(units, length);
}

}  // namespace varnek
