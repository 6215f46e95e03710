// The desktop clipboard, for pictures.
//
// Rules every implementation keeps:
// - Clear empties the clipboard; SetImage replaces what it holds.
// - Format 2 is a bitmap; the image comes as PNG bytes.
// - A clipboard that cannot be reached raises RuntimeError 521.
#pragma once

#include <cstdint>
#include <string>

namespace varnek {

inline constexpr int32_t kClipboardBitmap = 2;

class Clipboard {
 public:
  virtual ~Clipboard() = default;
  virtual void Clear() = 0;
  virtual void SetImage(int32_t format, const std::string& png) = 0;
};

}  // namespace varnek
