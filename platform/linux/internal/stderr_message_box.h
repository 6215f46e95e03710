// The default message box on Linux: one UTF-8 line on standard error.
#pragma once

#include "varnek/platform/message_box.h"

namespace varnek {

class StderrMessageBox : public MessageBox {
 public:
  void Show(const Text& text) override;
};

}  // namespace varnek
