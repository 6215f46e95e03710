// Running a helper program (mount.cifs, umount) and waiting for its end.
//
//   int status = runner.Run({"umount", "/mnt/varnek/Z"});   // 0: done
#pragma once

#include <string>
#include <vector>

namespace varnek {

class CommandRunner {
 public:
  virtual ~CommandRunner() = default;
  // Runs argv[0] (looked up on PATH) with the arguments, without a shell,
  // and waits for it. The exit status, or -1 when it could not start or was
  // killed by a signal.
  virtual int Run(const std::vector<std::string>& argv) = 0;
};

// Records every command and answers with a set status; nothing runs.
class RecordingRunner : public CommandRunner {
 public:
  int Run(const std::vector<std::string>& argv) override {
    commands.push_back(argv);
    return status;
  }
  std::vector<std::vector<std::string>> commands;
  int status = 0;
};

}  // namespace varnek
