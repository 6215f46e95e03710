// Writes each message as one line on standard error.
#include "varnek/platform/linux/internal/stderr_message_box.h"

#include <cstdio>
#include <string>

namespace varnek {

void StderrMessageBox::Show(const Text& text) {
  std::string line = TextToUtf8(text) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
  std::fflush(stderr);
}

}  // namespace varnek
