// A clipboard for tests: it keeps what was stored and counts the clears.
#pragma once

#include <string>

#include "varnek/platform/clipboard.h"

namespace varnek {

class RecordingClipboard : public Clipboard {
 public:
  void Clear() override {
    ++clears;
    image.clear();
    format = 0;
  }
  void SetImage(int32_t image_format, const std::string& png) override {
    format = image_format;
    image = png;
  }

  int clears = 0;
  int32_t format = 0;
  std::string image;
};

}  // namespace varnek
