// The running program as the host application: its file name, its folder and
// its arguments, read from /proc/self.
#pragma once

#include <string>

#include "varnek/platform/application.h"

namespace varnek {

class LinuxApplication : public Application {
 public:
  // executable: the program's path; "" reads /proc/self/exe. cmdline: the
  // file of NUL-ended arguments. Tests give their own.
  explicit LinuxApplication(std::string executable = {},
                            std::string cmdline = "/proc/self/cmdline");
  // The executable's file name (of /proc/self/exe, else of argv[0]).
  Text Title() override;
  // The executable's folder without a trailing "/" ("/" itself for the root)
  // when the process may write into it; otherwise $XDG_DATA_HOME/<Title()>
  // (else ~/.local/share/<Title()>), made with mode 0700 when missing.
  Text Path() override;
  // The executable's folder, writable or not.
  Text ProgramFolder();
  // The arguments after the program name, as read from /proc/self/cmdline,
  // joined with the classic quoting (JoinClassicCommandLine): `prog "a b" ""`
  // gives "a b" "" with its quotes. "" when there are none.
  Text CommandLine() override;

 private:
  std::string executable_;
  std::string cmdline_;
};

}  // namespace varnek
