// The host application as the logic sees it: its title, its folder and its
// command line.
#pragma once

#include "varnek/runtime/text.h"

namespace varnek {

class Application {
 public:
  virtual ~Application() = default;
  // The application's title; on Linux the program's file name.
  virtual Text Title() = 0;
  // The application's folder, without a trailing "/": where its log, INI and
  // history files go. On Linux that is the executable's folder when the
  // process may write there; otherwise (a program installed under /usr/bin)
  // the per-application data folder $XDG_DATA_HOME/<title> (by default
  // ~/.local/share/<title>), made on first use.
  virtual Text Path() = 0;
  // The arguments after the program name in one text, as the classic
  // platform gives them: quoted where the classic rules need it to read
  // them back (platform/classic_command_line.h).
  virtual Text CommandLine() = 0;
};

}  // namespace varnek
