// The Linux clipboard for pictures. With an X display ($DISPLAY set) and xclip
// on the PATH the image goes to the CLIPBOARD selection as image/png; without
// them it goes to a file: $VARNEK_CLIPBOARD_FILE, else
// $XDG_CACHE_HOME/varnek/clipboard.png (~/.cache/varnek/clipboard.png).
#pragma once

#include <string>

#include "varnek/platform/clipboard.h"

namespace varnek {

class LinuxClipboard : public Clipboard {
 public:
  // file: where the image goes without a display; empty takes the default.
  explicit LinuxClipboard(std::string file = {});

  // Removes the file, or empties the selection. Raises 521 when it cannot.
  void Clear() override;
  // Replaces the file atomically, or hands the PNG to xclip. Raises 521.
  void SetImage(int32_t format, const std::string& png) override;

  // The file used when there is no display.
  const std::string& File() const { return file_; }

 private:
  std::string file_;
};

}  // namespace varnek
