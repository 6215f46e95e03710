// The running program as the host application: its file name, its folder and
// its arguments, read from /proc/self.
#pragma once

#include <string>

#include "varnek/platform/application.h"

namespace varnek {

class LinuxApplication : public Application {
 public:
  // executable: the program's path; "" reads /proc/self/exe (tests give one).
  explicit LinuxApplication(std::string executable = {});
  // The executable's file name (of /proc/self/exe, else of argv[0]).
  Text Title() override;
  // The executable's folder without a trailing "/" ("/" itself for the root)
  // when the process may write into it; otherwise $XDG_DATA_HOME/<Title()>
  // (else ~/.local/share/<Title()>), made with mode 0700 when missing.
  Text Path() override;
  // The executable's folder, writable or not.
  Text ProgramFolder();
  // The arguments after the program name joined by single blanks, as read
  // from /proc/self/cmdline; "" when there are none.
  Text CommandLine() override;

 private:
  std::string executable_;
};

}  // namespace varnek
