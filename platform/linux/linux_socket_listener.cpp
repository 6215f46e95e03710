// The Linux socket control's listening side (bind, listen, accept and the
// handing over of accepted connections), its helpers and the factory.
#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "platform/linux/linux_socket_impl.h"
#include "runtime/failure.h"

namespace varnek {

Text PrimaryIPv4Address() {
  ifaddrs* list = nullptr;
  Text found = u"127.0.0.1";
  if (getifaddrs(&list) != 0) return found;
  for (ifaddrs* i = list; i; i = i->ifa_next) {
    if (!i->ifa_addr || i->ifa_addr->sa_family != AF_INET) continue;
    if (!(i->ifa_flags & IFF_UP) || (i->ifa_flags & IFF_LOOPBACK)) continue;
    char buf[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &reinterpret_cast<sockaddr_in*>(i->ifa_addr)->sin_addr, buf, sizeof buf);
    found = Utf8ToText(buf);
    break;
  }
  freeifaddrs(list);
  return found;
}

namespace linux_socket {

Text ErrnoText(int err) {
  switch (err) {
    case EADDRINUSE: return u"Address in use";
    case EADDRNOTAVAIL: return u"Address is not available";
    case ECONNREFUSED: return u"Connection refused";
    case ECONNRESET: return u"Connection reset by peer";
    case EPIPE: return u"Connection is closed";
    case ETIMEDOUT: return u"Connection timed out";
    case ENETUNREACH: return u"Network is unreachable";
    case EHOSTUNREACH: return u"Host is unreachable";
    case EACCES: return u"Permission denied";
    default: return Utf8ToText(std::strerror(err));
  }
}

[[noreturn]] void FailWrongState() {
  Fail(kSockErrWrongState, "Wrong protocol or connection state for the requested transaction or request");
}

void CloseFd(int fd) {
  if (fd >= 0) ::close(fd);
}

Text AddressText(const sockaddr_storage& ss, int32_t* port) {
  char buf[INET6_ADDRSTRLEN] = {};
  if (ss.ss_family == AF_INET) {
    auto* a = reinterpret_cast<const sockaddr_in*>(&ss);
    inet_ntop(AF_INET, &a->sin_addr, buf, sizeof buf);
    *port = ntohs(a->sin_port);
  } else if (ss.ss_family == AF_INET6) {
    auto* a = reinterpret_cast<const sockaddr_in6*>(&ss);
    inet_ntop(AF_INET6, &a->sin6_addr, buf, sizeof buf);
    *port = ntohs(a->sin6_port);
    std::string s = buf;
    if (s.rfind("::ffff:", 0) == 0 && s.find('.') != std::string::npos) return Utf8ToText(s.substr(7));
  }
  return Utf8ToText(buf);
}


// --- listener ---------------------------------------------------------------

void LinuxSocket::Bind(const Variant& address, const Variant& port) {
  if (state_ == kSocketClosed) state_ = kSocketCreated;
  if (state_ != kSocketCreated || fd_ >= 0) FailWrongState();
  if (!address.IsMissing()) address_ = address.ToText();
  if (!port.IsMissing()) local_port_ = port.ToLong();
  if (local_port_ < 0 || local_port_ > 65535) {
    error_text_ = u"Address is not valid";
    Fail(kSockErrAddressInvalid, "Address is not valid");
  }
  sockaddr_storage ss{};
  socklen_t len = 0;
  std::string host = TextToBytes(address_);
  if (host.find(':') != std::string::npos) {
    auto* a = reinterpret_cast<sockaddr_in6*>(&ss);
    a->sin6_family = AF_INET6;
    a->sin6_port = htons(static_cast<uint16_t>(local_port_));
    if (inet_pton(AF_INET6, host.c_str(), &a->sin6_addr) != 1) {
      error_text_ = u"Address is not valid";
      Fail(kSockErrAddressInvalid, "Address is not valid");
    }
    len = sizeof(sockaddr_in6);
  } else {
    auto* a = reinterpret_cast<sockaddr_in*>(&ss);
    a->sin_family = AF_INET;
    a->sin_port = htons(static_cast<uint16_t>(local_port_));
    if (host.empty()) {
      a->sin_addr.s_addr = htonl(INADDR_ANY);
    } else if (inet_pton(AF_INET, host.c_str(), &a->sin_addr) != 1) {
      error_text_ = u"Address is not valid";
      Fail(kSockErrAddressInvalid, "Address is not valid");
    }
    len = sizeof(sockaddr_in);
  }
  int fd = ::socket(ss.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error_text_ = ErrnoText(errno);
    Fail(kSockErrSystem, TextToUtf8(error_text_));
  }
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (ss.ss_family == AF_INET6) setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &one, sizeof one);
  if (::bind(fd, reinterpret_cast<sockaddr*>(&ss), len) != 0) {
    int err = errno;
    CloseFd(fd);
    error_text_ = ErrnoText(err);
    if (err == EADDRINUSE) Fail(kSockErrAddressInUse, "Address in use");
    Fail(err == EADDRNOTAVAIL ? kSockErrAddressInvalid : kSockErrSystem, TextToUtf8(error_text_));
  }
  sockaddr_storage bound{};
  socklen_t blen = sizeof bound;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &blen) == 0) AddressText(bound, &local_port_);
  fd_ = fd;
}

void LinuxSocket::Listen() {
  if (state_ != kSocketCreated) FailWrongState();
  if (fd_ < 0) Bind(Variant::Missing(), Variant::Missing());
  if (::listen(fd_, SOMAXCONN) != 0) {
    error_text_ = ErrnoText(errno);
    if (errno == EADDRINUSE) Fail(kSockErrAddressInUse, "Address in use");
    Fail(kSockErrSystem, TextToUtf8(error_text_));
  }
  state_ = kSocketListening;
  UpdateWatch();
}

void LinuxSocket::OnListenerReadable() {
  std::weak_ptr<bool> alive = alive_;
  for (int n = 0; n < kAcceptBatch && state_ == kSocketListening; ++n) {
    int fd = accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) {
        error_text_ = ErrnoText(errno);
        PauseAccepting();
      }
      return;
    }
    auto& offered = factory_.offered();
    offered.insert(fd);
    Fire(on_connection_request, fd);
    // A handle nobody took is closed; the peer sees the connection end.
    if (offered.erase(fd)) CloseFd(fd);
    if (alive.expired()) return;
  }
}

void LinuxSocket::PauseAccepting() {
  accept_paused_ = true;
  UpdateWatch();
  if (!accept_timer_) {
    accept_timer_ = loop_.CreateTimer();
    accept_timer_->SetInterval(kAcceptRetryMs);
    std::weak_ptr<bool> alive = alive_;
    accept_timer_->on_tick = [this, alive] {
      if (alive.expired()) return;
      accept_timer_->SetEnabled(false);
      accept_paused_ = false;
      UpdateWatch();
    };
  }
  accept_timer_->SetEnabled(true);
}

void LinuxSocket::SetAcceptHandle(int32_t handle) {
  auto& offered = factory_.offered();
  if (!offered.count(handle)) Fail(kSockErrInvalidHandle, "Invalid handle");
  if (state_ != kSocketClosed || fd_ >= 0) FailWrongState();
  offered.erase(handle);
  Adopt(handle);
  PostReadyCheck();  // bytes may have come before the handle was taken
}

}  // namespace linux_socket

// --- factory ----------------------------------------------------------------

LinuxSocketFactory::~LinuxSocketFactory() {
  for (int fd : offered_) linux_socket::CloseFd(fd);
}

std::unique_ptr<SocketCtl> LinuxSocketFactory::Create() { return std::make_unique<linux_socket::LinuxSocket>(*this); }
}  // namespace varnek
