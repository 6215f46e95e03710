// The comm control on a tty: termios for the line, non-blocking reads and
// writes, and a watch on the host loop that wakes a pump when text arrives.
#include "varnek/platform/linux/linux_comm.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/internal/uucp_lock.h"
#include "varnek/platform/settings_store.h"
#include "varnek/runtime/convert.h"

namespace varnek {

namespace {

speed_t SpeedFor(int32_t baud) {
  struct Entry {
    int32_t baud;
    speed_t speed;
  };
  static const Entry kSpeeds[] = {
      {50, B50},       {75, B75},         {110, B110},       {134, B134},       {150, B150},
      {200, B200},     {300, B300},       {600, B600},       {1200, B1200},     {1800, B1800},
      {2400, B2400},   {4800, B4800},     {9600, B9600},     {19200, B19200},   {38400, B38400},
      {57600, B57600}, {115200, B115200}, {230400, B230400}, {460800, B460800}, {921600, B921600}};
  speed_t best = B9600;
  for (const Entry& e : kSpeeds) {
    if (e.baud <= baud) best = e.speed;  // the fastest standard speed not above the asked one
  }
  return best;
}

}  // namespace

std::string CommDevicePath(int32_t port, SettingsStore* settings) {
  const std::string key = "VARNEK_COMM" + std::to_string(port);
  if (const char* env = std::getenv(key.c_str()); env && *env) return env;
  if (settings) {
    Text name = u"Port" + Utf8ToText(std::to_string(port));
    Text stored = settings->Get(u"VarnekGlobal", u"Comm", name, u"");
    if (!stored.empty()) return TextToUtf8(stored);
  }
  return "/dev/ttyS" + std::to_string(port - 1);
}

struct LinuxComm::Impl {
  LinuxLoop& loop;
  SettingsStore* settings;
  bool xm;
  std::string device_override;
  int32_t port = 1;
  CommSettings line;
  bool dtr = false;
  int32_t handshake = 0;
  int fd = -1;
  bool gone = false;      // the device went away: reads "" until closed
  bool armed = false;     // the read watch is on
  std::string pending;    // written by Output, not yet taken by the kernel
  std::string in;         // received, not yet taken by Input
  std::string open_path;  // the device, while open
  std::string lock_path;  // its lock file, "" when none was taken
  static constexpr size_t kInLimit = 1 << 20;

  Impl(LinuxLoop& l, SettingsStore* s, bool x) : loop(l), settings(s), xm(x) {}

  void RequireOpen() const {
    if (fd < 0) Fail(kCommErrNotOpen);
  }

  // A hang-up is reported by epoll whatever the interest, so the watch goes.
  void LineGone() {
    gone = true;
    pending.clear();
    if (fd >= 0) loop.Unwatch(fd);
    armed = false;
  }

  // Arrival is taken into the control's buffer at once, inside the pump that
  // the kernel woke: so a count of 0 and an empty Input always agree, and a
  // routine that counts, reads and pumps never reads text it did not count.
  void OnEvents(uint32_t events) {
    if (events & EPOLLOUT) Flush();
    if (events & (EPOLLIN | EPOLLHUP | EPOLLERR)) Pull();
    if (events & (EPOLLHUP | EPOLLERR)) LineGone();
  }

  // Moves what the kernel's queue holds (TIOCINQ) into the buffer. A full
  // buffer stops the read watch until Input takes the text.
  void Pull() {
    if (fd < 0 || gone) return;
    for (int round = 0; round < 64; ++round) {
      int queued = 0;
      if (::ioctl(fd, TIOCINQ, &queued) != 0 || queued <= 0) queued = 4096;  // a read tells
      if (in.size() >= kInLimit) break;
      char chunk[4096];
      const size_t want =
          std::min<size_t>({sizeof chunk, static_cast<size_t>(queued), kInLimit - in.size()});
      const ssize_t n = linux_io::RetryOnEintr([&] { return ::read(fd, chunk, want); });
      if (n > 0) {
        in.append(chunk, static_cast<size_t>(n));
        continue;
      }
      // With VMIN and VTIME 0 an empty queue reads as 0 bytes, not as an end.
      if (n == 0 || errno == EAGAIN || errno == EWOULDBLOCK) break;
      return LineGone();  // EIO, ENODEV: the device or the far end is gone
    }
    const bool want_read = in.size() < kInLimit;
    if (want_read != armed) {
      armed = want_read;
      loop.ModifyWatch(
          fd, (armed ? uint32_t{EPOLLIN} : 0u) | (pending.empty() ? 0u : uint32_t{EPOLLOUT}));
    }
  }

  void Flush() {
    while (!pending.empty()) {
      const ssize_t n =
          linux_io::RetryOnEintr([&] { return ::write(fd, pending.data(), pending.size()); });
      if (n > 0) {
        pending.erase(0, static_cast<size_t>(n));
      } else if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) {
        break;
      } else {
        return LineGone();
      }
    }
    if (!gone)
      loop.ModifyWatch(
          fd, (armed ? uint32_t{EPOLLIN} : 0u) | (pending.empty() ? 0u : uint32_t{EPOLLOUT}));
  }

  // A pty, and USB adapters or virtual ports that ignore character size or
  // parity, answer EINVAL although they took the rest: what counts is what
  // the device reads back, and only a speed or a raw mode that did not take
  // is a failure.
  void Apply() {
    if (fd < 0) return;
    termios tio{};
    if (tcgetattr(fd, &tio) != 0) Fail(kCommErrDevice, "Line settings unreadable: " + open_path);
    cfmakeraw(&tio);
    const speed_t speed = SpeedFor(line.baud);
    cfsetispeed(&tio, speed);
    cfsetospeed(&tio, speed);
    tio.c_cflag |= CREAD | CLOCAL;
    tio.c_cflag &= ~(CSIZE | PARENB | PARODD | CSTOPB | CRTSCTS);
#ifdef CMSPAR
    tio.c_cflag &= ~CMSPAR;
#endif
    static const tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
    tio.c_cflag |= kSizes[line.data_bits - 5];
    if (line.parity != u'N') tio.c_cflag |= PARENB;
    if (line.parity == u'O' || line.parity == u'M') tio.c_cflag |= PARODD;
#ifdef CMSPAR
    if (line.parity == u'M' || line.parity == u'S') tio.c_cflag |= CMSPAR;
#endif
    if (line.stop_bits > 1) tio.c_cflag |= CSTOPB;
    if (handshake == 2 || handshake == 3) tio.c_cflag |= CRTSCTS;
    tio.c_iflag &= ~(IXON | IXOFF | IXANY);
    if (handshake == 1 || handshake == 3) tio.c_iflag |= IXON | IXOFF;
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 0;
    if (tcsetattr(fd, TCSANOW, &tio) != 0 && errno != EINVAL) {
      Fail(kCommErrDevice, "Line settings refused: " + open_path);
    }
    termios got{};
    if (tcgetattr(fd, &got) != 0 || cfgetospeed(&got) != speed || !IsRaw(got)) {
      Fail(kCommErrDevice, "The device did not take speed " + std::to_string(line.baud) +
                               " in raw mode: " + open_path);
    }
  }

  static bool IsRaw(const termios& t) {
    return (t.c_lflag & (ICANON | ECHO | ISIG | IEXTEN)) == 0 && (t.c_oflag & OPOST) == 0 &&
           (t.c_iflag & (ICRNL | INLCR | IGNCR | ISTRIP)) == 0 && t.c_cc[VMIN] == 0 &&
           t.c_cc[VTIME] == 0;
  }

  void ApplyDtr() {
    if (fd < 0) return;
    int bits = TIOCM_DTR;
    ::ioctl(fd, dtr ? TIOCMBIS : TIOCMBIC, &bits);  // a pty has no DTR: ignored
  }

  // Opens the device after taking its lock file, so that two programs
  // never dial on one line (root included); the kernel's exclusive flag
  // then keeps out those that know no lock files. Each failure names its
  // cause.
  void Open() {
    if (fd >= 0) return;
    if (device_override.empty() && port < 1)
      Fail(kCommErrBadPort, "Invalid port number: " + std::to_string(port));
    const std::string path =
        device_override.empty() ? CommDevicePath(port, settings) : device_override;
    struct stat st {};
    if (::stat(path.c_str(), &st) != 0) OpenFailed(path, errno);
    if (S_ISDIR(st.st_mode)) Fail(kCommErrBadPort, "A directory, not a serial device: " + path);
    lock_path = TakeUucpLock(path);
    int opened = linux_io::RetryOnEintr(
        [&] { return ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC); });
    termios probe{};
    const int open_errno = errno;
    if (opened >= 0 && tcgetattr(opened, &probe) != 0) {
      ::close(opened);
      ReleaseLock();
      Fail(kCommErrBadPort, "Not a serial device: " + path);
    }
    if (opened < 0) {
      ReleaseLock();
      OpenFailed(path, open_errno);
    }
    fd = opened;
    open_path = path;
    gone = false;
    ::ioctl(fd, TIOCEXCL);  // one session a line: a second open fails (EBUSY) until this one closes
    try {
      Apply();
    } catch (const RuntimeError&) {
      ::ioctl(fd, TIOCNXCL);
      ::close(fd);
      fd = -1;
      ReleaseLock();
      throw;
    }
    ApplyDtr();
    loop.Watch(fd, EPOLLIN, [this](uint32_t events) { OnEvents(events); });
    armed = true;
  }

  [[noreturn]] static void OpenFailed(const std::string& path, int error) {
    switch (error) {
      case ENOENT:
      case ENODEV:
      case ENXIO: Fail(kCommErrBadPort, "No such device: " + path);
      case EACCES:
      case EPERM: Fail(kCommErrBadPort, "Permission denied: " + path);
      case EBUSY:
        Fail(kCommErrPortOpen, "Port already open: " + path + " is held by another program");
      default: Fail(kCommErrBadPort, "Cannot open " + path + ": " + std::strerror(error));
    }
  }

  void ReleaseLock() {
    ReleaseUucpLock(lock_path);
    lock_path.clear();
  }

  Text Read();

  void Close() {
    if (fd < 0) return;
    loop.Unwatch(fd);
    ::ioctl(fd, TIOCNXCL);  // the flag outlives this descriptor while others hold the tty
    if (dtr) {
      int bits = TIOCM_DTR;
      ::ioctl(fd, TIOCMBIC, &bits);  // dropping DTR hangs a modem up
    }
    ::close(fd);
    fd = -1;
    pending.clear();
    in.clear();
    gone = false;
    armed = false;
    ReleaseLock();
  }
};

LinuxComm::LinuxComm(LinuxLoop& loop, SettingsStore* settings, bool xm)
    : impl_(std::make_unique<Impl>(loop, settings, xm)) {}

LinuxComm::~LinuxComm() { impl_->Close(); }

void LinuxComm::SetDevicePath(std::string path) { impl_->device_override = std::move(path); }

Text LinuxComm::TypeName() const { return impl_->xm ? kXMCommTypeName : u"CommCtl"; }

bool LinuxComm::PortOpen() const { return impl_->fd >= 0; }

bool LinuxComm::LineLost() const { return impl_->fd >= 0 && impl_->gone; }

void LinuxComm::SetPortOpen(bool open) {
  if (open) {
    impl_->Open();
  } else {
    impl_->Close();
  }
}

void LinuxComm::SetCommPort(double port) {
  if (impl_->fd >= 0) Fail(kCommErrPortOpen);
  impl_->port = CLng(Variant(port));
}

void LinuxComm::SetSettings(TextView settings) {
  impl_->line = ParseCommSettings(settings);
  impl_->Apply();
}

void LinuxComm::SetDTREnable(bool enable) {
  impl_->dtr = enable;
  impl_->ApplyDtr();
}

void LinuxComm::SetHandshaking(const Variant& mode) {
  const int32_t value = mode.IsEmpty() ? 0 : CLng(mode);
  if (value < 0 || value > 3) Fail(kCommErrInvalidValue);
  impl_->handshake = value;
  impl_->Apply();
}

void LinuxComm::SetInBufferSize(int32_t size) {
  if (size < 1) Fail(kCommErrInvalidValue);
}

void LinuxComm::SetOutBufferSize(int32_t size) {
  if (size < 1) Fail(kCommErrInvalidValue);
}

int32_t LinuxComm::InBufferCount() const {
  impl_->RequireOpen();
  impl_->Pull();
  return static_cast<int32_t>(impl_->in.size());
}

int32_t LinuxComm::OutBufferCount() const {
  impl_->RequireOpen();
  if (impl_->gone) return 0;
  int queued = 0;
  if (::ioctl(impl_->fd, TIOCOUTQ, &queued) != 0) queued = 0;
  return queued + static_cast<int32_t>(impl_->pending.size());
}

Text LinuxComm::Input() {
  if (impl_->xm) Missing();
  return impl_->Read();
}

Text LinuxComm::InputData() {
  if (!impl_->xm) Missing();
  return impl_->Read();
}

Text LinuxComm::Impl::Read() {
  RequireOpen();
  Text out = BytesToText(in);
  in.clear();
  if (!armed && !gone) Pull();  // the watch was stopped by a full buffer
  return out;
}

void LinuxComm::SetOutput(TextView text) {
  impl_->RequireOpen();
  if (impl_->gone) return;  // a dead line swallows what is written to it
  impl_->pending += TextToBytes(text);
  impl_->Flush();
}

std::unique_ptr<CommCtl> LinuxCommFactory::Create(bool xm) {
  return std::make_unique<LinuxComm>(loop_, settings_, xm);
}

}  // namespace varnek
