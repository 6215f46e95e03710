// The host application as the logic sees it: its title, its folder and its
// command line.
#pragma once

#include "runtime/text.h"

namespace varnek {

class Application {
 public:
  virtual ~Application() = default;
  // The application's title; on Linux the program's file name.
  virtual Text Title() = 0;
  // The folder of the executable, without a trailing "/".
  virtual Text Path() = 0;
  // The arguments after the program name, joined by single blanks, as the
  // classic Command$ gives them.
  virtual Text CommandLine() = 0;
};

}  // namespace varnek
