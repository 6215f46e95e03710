// Names typed-test instances after their parameter's own `kName`.
#pragma once

#include <string>

namespace varnek {

struct TypeNames {
  template <class T>
  static std::string GetName(int) {
    return T::kName;
  }
};

}  // namespace varnek
