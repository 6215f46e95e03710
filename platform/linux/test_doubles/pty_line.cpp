// A pty pair whose master side is a scripted peer on the Linux loop.
#include "varnek/platform/linux/test_doubles/pty_line.h"

#include <errno.h>
#include <fcntl.h>
#include <pty.h>
#include <sys/epoll.h>
#include <termios.h>
#include <unistd.h>

#include "varnek/platform/comm.h"
#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/delayed_calls.h"

namespace varnek {

struct PtyLine::Impl {
  LinuxLoop& loop;
  std::shared_ptr<LinePeer> peer;
  DelayedCalls calls;
  PtyLine* owner;
  int master = -1;
  int keep_slave = -1;  // held open so the master never sees a hang-up between opens
  std::string slave_path;

  Impl(LinuxLoop& l, std::shared_ptr<LinePeer> p, PtyLine* o)
      : loop(l), peer(std::move(p)), calls(l), owner(o) {}

  void Write(const std::string& bytes) {
    if (master < 0) return;
    if (owner->on_traffic) owner->on_traffic(false, bytes);
    size_t done = 0;
    for (int tries = 0; done < bytes.size() && tries < 1000; ++tries) {
      const ssize_t n = linux_io::RetryOnEintr(
          [&] { return ::write(master, bytes.data() + done, bytes.size() - done); });
      if (n > 0) {
        done += static_cast<size_t>(n);
      } else if (n < 0 && errno != EAGAIN) {
        return;
      }
    }
  }

  void OnReadable(uint32_t events) {
    char chunk[4096];
    const ssize_t n = linux_io::RetryOnEintr([&] { return ::read(master, chunk, sizeof chunk); });
    if (n > 0) {
      std::string bytes(chunk, static_cast<size_t>(n));
      if (owner->on_traffic) owner->on_traffic(true, bytes);
      peer->Receive(bytes);
    } else if (n < 0 && errno == EAGAIN) {
      return;
    } else if (events & (EPOLLHUP | EPOLLERR)) {
      loop.Unwatch(master);  // epoll reports a hang-up whatever the interest
    }
  }

  void Close() {
    if (master >= 0) {
      loop.Unwatch(master);
      ::close(master);
      master = -1;
    }
    if (keep_slave >= 0) ::close(keep_slave);
    keep_slave = -1;
    calls.Clear();
    if (peer) peer->emit = nullptr;
  }
};

PtyLine::PtyLine(LinuxLoop& loop, std::shared_ptr<LinePeer> peer)
    : impl_(std::make_unique<Impl>(loop, std::move(peer), this)) {
  int master = -1, slave = -1;
  char name[256] = {};
  if (::openpty(&master, &slave, name, nullptr, nullptr) != 0)
    Fail(kCommErrDevice, "No pty available");
  termios tio{};
  if (tcgetattr(master, &tio) == 0) {
    cfmakeraw(&tio);
    tcsetattr(master, TCSANOW, &tio);
  }
  ::fcntl(master, F_SETFL, ::fcntl(master, F_GETFL) | O_NONBLOCK);
  ::fcntl(master, F_SETFD, FD_CLOEXEC);
  ::fcntl(slave, F_SETFD, FD_CLOEXEC);
  impl_->master = master;
  impl_->keep_slave = slave;
  impl_->slave_path = name;
  Impl* impl = impl_.get();
  impl->peer->emit = [impl](std::string bytes, double delay) {
    impl->calls.After(delay, [impl, bytes = std::move(bytes)] { impl->Write(bytes); });
  };
  loop.Watch(master, EPOLLIN, [impl](uint32_t events) { impl->OnReadable(events); });
}

PtyLine::~PtyLine() { impl_->Close(); }

const std::string& PtyLine::SlavePath() const { return impl_->slave_path; }

void PtyLine::Vanish() { impl_->Close(); }

}  // namespace varnek
