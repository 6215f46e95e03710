// SIGINT and SIGTERM read from a signalfd on the host loop.
#include "examples/page/signal_cancel.h"

#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/linux_loop.h"

namespace varnek {

SignalCancel::SignalCancel(LinuxLoop& loop, std::function<void(int)> on_signal)
    : loop_(loop), on_signal_(std::move(on_signal)) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &set, &previous_);
  fd_ = ::signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  if (fd_ >= 0) loop_.Watch(fd_, EPOLLIN, [this](uint32_t) { Read(); });
}

SignalCancel::~SignalCancel() {
  if (fd_ >= 0) {
    Read();  // one that came too late for a pump is still read, not delivered
    loop_.Unwatch(fd_);
    ::close(fd_);
  }
  pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

void SignalCancel::Read() {
  signalfd_siginfo info{};
  while (linux_io::RetryOnEintr([&] { return ::read(fd_, &info, sizeof info); }) ==
         static_cast<ssize_t>(sizeof info)) {
    const int signo = static_cast<int>(info.ssi_signo);
    if (first_ == 0) first_ = signo;
    if (on_signal_) on_signal_(signo);
  }
}

}  // namespace varnek
