// SIGINT and SIGTERM as events of the host loop: the signals are blocked and
// read from a signalfd that the loop watches, so the handler runs inside a
// pump, as a Cancel button's handler would, and may set
// SERIAL_CancelOperation for the wait under way to see at its next test.
//
//   SignalCancel stop(loop, [&](int) { adds.SetSERIAL_CancelOperation(true); });
//   ...
//   if (stop.signal()) return 128 + stop.signal();
#pragma once

#include <signal.h>

#include <functional>

namespace varnek {

class LinuxLoop;

class SignalCancel {
 public:
  // Blocks SIGINT and SIGTERM for this thread until destroyed; each one that
  // arrives calls on_signal with its number inside a pump of `loop`.
  SignalCancel(LinuxLoop& loop, std::function<void(int signo)> on_signal);
  ~SignalCancel();
  SignalCancel(const SignalCancel&) = delete;
  SignalCancel& operator=(const SignalCancel&) = delete;

  // The first signal that arrived, 0 for none.
  int signal() const { return first_; }

 private:
  void Read();
  LinuxLoop& loop_;
  std::function<void(int)> on_signal_;
  sigset_t previous_{};
  int fd_ = -1;
  int first_ = 0;
};

}  // namespace varnek
