// Messages the logic shows to the person at the host, where the classic
// code opened a message box. Showing never blocks and never fails.
//
//   platform.messages->Show(u"Falta completar este código");
#pragma once

#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

class MessageBox {
 public:
  virtual ~MessageBox() = default;
  virtual void Show(const Text& text) = 0;
};

// Keeps every message, for tests and for hosts that show them later.
class RecordedMessages : public MessageBox {
 public:
  void Show(const Text& text) override { shown.push_back(text); }
  std::vector<Text> shown;
};

}  // namespace varnek
