// Helper programs on Linux: posix_spawnp and waitpid.
#pragma once

#include "varnek/platform/command_runner.h"

namespace varnek {

class LinuxCommandRunner : public CommandRunner {
 public:
  // The child's standard output and error go to /dev/null.
  int Run(const std::vector<std::string>& argv) override;
};

}  // namespace varnek
