// Web services on Linux: downloads through libcurl's multi interface driven
// from the LinuxLoop (its sockets watched by epoll, its time limits on a loop
// timer), and URLs handed to xdg-open.
//
// Choices: http, https, ftp, ftps and file URLs; redirects are followed (at
// most 10); an HTTP answer of 400 and above fails; a transfer that moves
// less than one byte a second for 60 s, or a connection not made in 30 s,
// fails. The body goes to a file without a name (nothing is left when the
// process is killed), and only a complete body replaces the target, through
// the one safe replace of the saves (linux_io::ReplaceFileFrom): mode, owner
// and symbolic links kept, in place when the folder may not be written. The show value has no
// counterpart in xdg-open and is not applied.
#pragma once

#include <string>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/web_services.h"

namespace varnek {

class LinuxWebServices : public WebServices {
 public:
  // opener: the program OpenUrl runs with the URL as its one argument.
  explicit LinuxWebServices(LinuxLoop& loop, std::string opener = "xdg-open")
      : loop_(loop), opener_(std::move(opener)) {}
  int DownloadToFile(TextView url, TextView file) override;
  int OpenUrl(TextView url, int32_t show) override;

 private:
  LinuxLoop& loop_;
  std::string opener_;
};

}  // namespace varnek
