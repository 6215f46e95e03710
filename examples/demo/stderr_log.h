// The demo's log on stderr: one line per report, stamped with local time to
// the millisecond. Lines of a burst go out in one write, at most 0.1 s after
// the first of them, so a request's dozen reports cost one system call. A
// process killed outright loses at most those 0.1 s of lines. A line keeps
// at most 4 KiB of its report, and says how many bytes it cut.
#pragma once

#include <memory>
#include <string>

#include "varnek/platform/host_loop.h"

namespace varnek::demo {

class StderrLog {
 public:
  // Until Attach, every line is written at once.
  void Attach(HostLoop& loop);
  void Line(const std::string& text);
  // Writes what is held; call before the process ends.
  void Flush();

 private:
  std::unique_ptr<LoopTimer> timer_;
  std::string pending_;
};

// "2026-11-22 05:10:00.123" in local time.
std::string Timestamp();

}  // namespace varnek::demo
