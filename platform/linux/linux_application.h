// The running program as the host application: its file name, its folder and
// its arguments, read from /proc/self.
#pragma once

#include "platform/application.h"

namespace varnek {

class LinuxApplication : public Application {
 public:
  // The executable's file name (of /proc/self/exe, else of argv[0]).
  Text Title() override;
  // The executable's folder without a trailing "/"; "/" itself for the root.
  Text Path() override;
  // The arguments after the program name joined by single blanks, as read
  // from /proc/self/cmdline; "" when there are none.
  Text CommandLine() override;
};

}  // namespace varnek
