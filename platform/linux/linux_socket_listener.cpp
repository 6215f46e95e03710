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

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/linux_socket_impl.h"
#include "varnek/runtime/failure.h"

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
    case EMSGSIZE: return u"Message too long";
    default: return Utf8ToText(std::strerror(err));
  }
}

[[noreturn]] void FailWrongState() {
  Fail(kSockErrWrongState,
       "Wrong protocol or connection state for the requested transaction or request");
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
    *port = ntohs(a->sin6_port);
    // An IPv4 peer of a dual-stack listener: its last four bytes, dotted.
    if (IN6_IS_ADDR_V4MAPPED(&a->sin6_addr)) {
      inet_ntop(AF_INET, &a->sin6_addr.s6_addr[12], buf, sizeof buf);
    } else {
      inet_ntop(AF_INET6, &a->sin6_addr, buf, sizeof buf);
    }
  }
  return Utf8ToText(buf);
}

// --- listener ---------------------------------------------------------------

namespace {

// A socket address to listen on, and whether its IPv6 socket also takes
// IPv4 peers (they then arrive as IPv4-mapped addresses).
struct ListenAddress {
  sockaddr_storage ss{};
  socklen_t len = 0;
  bool dual_stack = false;
};

// "0.0.0.0".
ListenAddress AnyIPv4(int32_t port) {
  ListenAddress a;
  auto* in = reinterpret_cast<sockaddr_in*>(&a.ss);
  in->sin_family = AF_INET;
  in->sin_port = htons(static_cast<uint16_t>(port));
  in->sin_addr.s_addr = htonl(INADDR_ANY);
  a.len = sizeof(sockaddr_in);
  return a;
}

// "::"; dual-stack or IPv6-only.
ListenAddress AnyIPv6(int32_t port, bool dual_stack) {
  ListenAddress a;
  auto* in6 = reinterpret_cast<sockaddr_in6*>(&a.ss);
  in6->sin6_family = AF_INET6;
  in6->sin6_port = htons(static_cast<uint16_t>(port));
  in6->sin6_addr = in6addr_any;
  a.len = sizeof(sockaddr_in6);
  a.dual_stack = dual_stack;
  return a;
}

// A numeric address text: one with a colon is IPv6, anything else IPv4.
// False when the text is neither.
bool ParseListenAddress(const std::string& host, int32_t port, ListenAddress* a) {
  if (host.find(':') != std::string::npos) {
    *a = AnyIPv6(port, false);
    return inet_pton(AF_INET6, host.c_str(), &reinterpret_cast<sockaddr_in6*>(&a->ss)->sin6_addr) ==
           1;
  }
  *a = AnyIPv4(port);
  return inet_pton(AF_INET, host.c_str(), &reinterpret_cast<sockaddr_in*>(&a->ss)->sin_addr) == 1;
}

// A non-blocking socket bound to the address with SO_REUSEADDR, or -1 with
// *err set. An IPv6 socket is IPv6-only unless the address is dual-stack.
int OpenBound(const ListenAddress& a, int* err) {
  int fd = ::socket(a.ss.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *err = errno;
    return -1;
  }
  int one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  if (a.ss.ss_family == AF_INET6) {
    int v6only = a.dual_stack ? 0 : 1;
    if (setsockopt(fd, IPPROTO_IPV6, IPV6_V6ONLY, &v6only, sizeof v6only) != 0) {
      *err = errno;
      CloseFd(fd);
      return -1;
    }
  }
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&a.ss), a.len) != 0) {
    *err = errno;
    CloseFd(fd);
    return -1;
  }
  return fd;
}

// Every address of both families on one socket; on a machine without IPv6
// (no AF_INET6 sockets, or "::" cannot be bound) every IPv4 address.
int OpenBoundAnywhere(int32_t port, int* err) {
  int fd = OpenBound(AnyIPv6(port, true), err);
  if (fd < 0 && (*err == EAFNOSUPPORT || *err == EADDRNOTAVAIL)) fd = OpenBound(AnyIPv4(port), err);
  return fd;
}

}  // namespace

void LinuxSocket::Bind(const Variant& address, const Variant& port) {
  if (state_ == kSocketClosed) state_ = kSocketCreated;
  if (state_ != kSocketCreated || fd_ >= 0) FailWrongState();
  if (!address.IsMissing()) address_ = address.ToText();
  if (!port.IsMissing()) local_port_ = port.ToLong();
  ListenAddress named;
  std::string host = TextToBytes(address_);
  if (local_port_ < 0 || local_port_ > 65535 ||
      (!host.empty() && !ParseListenAddress(host, local_port_, &named))) {
    error_text_ = u"Address is not valid";
    Fail(kSockErrAddressInvalid, "Address is not valid");
  }
  int err = 0;
  int fd = host.empty() ? OpenBoundAnywhere(local_port_, &err) : OpenBound(named, &err);
  if (fd < 0) {
    error_text_ = ErrnoText(err);
    if (err == EADDRINUSE) Fail(kSockErrAddressInUse, "Address in use");
    Fail(err == EADDRNOTAVAIL ? kSockErrAddressInvalid : kSockErrSystem, TextToUtf8(error_text_));
  }
  sockaddr_storage bound{};
  socklen_t blen = sizeof bound;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &blen) == 0)
    AddressText(bound, &local_port_);
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
    const int fd = linux_io::RetryOnEintr(
        [&] { return accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC); });
    if (fd < 0) {
      if (errno == ECONNABORTED) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) {
        error_text_ = ErrnoText(errno);
        PauseAccepting();
      }
      return;
    }
    OfferAccepted(fd);
    if (alive.expired()) return;
  }
}

// One accepted connection, offered in ConnectionRequest on a strand of its
// own: the whole life of the offer is that strand's run, waits included, so
// the handle nobody took by the end of the handler is closed and the peer sees
// its connection end. Nothing here nests: each pending connection gets its
// own call from the accept loop above.
void LinuxSocket::OfferAccepted(int fd) {
  auto& offered = factory_.offered();  // the factory outlives its controls
  const uint64_t offer = factory_.NextOffer();
  offered[fd] = offer;
  loop_.RunOn(nullptr, [&offered, fd, offer, handler = on_connection_request] {
    if (handler) handler(fd);
    // Taken, the descriptor may have been closed and accepted again while
    // the handler waited: that is another offer, not ours to close.
    const auto left = offered.find(fd);
    if (left == offered.end() || left->second != offer) return;
    offered.erase(left);
    CloseFd(fd);
  });
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

Text LinuxSocket::OfferedAddress(int32_t handle) const {
  if (!factory_.offered().count(handle)) return {};
  sockaddr_storage ss{};
  socklen_t len = sizeof ss;
  if (getpeername(handle, reinterpret_cast<sockaddr*>(&ss), &len) != 0) return {};
  int32_t port = 0;
  return AddressText(ss, &port);
}

void LinuxSocket::SetAcceptHandle(int32_t handle) {
  auto& offered = factory_.offered();
  if (!offered.count(handle)) Fail(kSockErrInvalidHandle, "Invalid handle");
  if (state_ != kSocketClosed || fd_ >= 0) FailWrongState();
  std::unique_ptr<TlsChannel> channel = ServerChannelFor(handle);
  offered.erase(handle);
  ++accepts_;
  strand_ = loop_.CurrentStrand();  // the connection's handler goes on here
  Adopt(handle);                    // bytes that came before are readable: the watch reports them
  UseChannel(std::move(channel));
}

}  // namespace linux_socket

// --- factory ----------------------------------------------------------------

LinuxSocketFactory::~LinuxSocketFactory() {
  for (const auto& [fd, offer] : offered_) linux_socket::CloseFd(fd);
}

std::unique_ptr<SocketCtl> LinuxSocketFactory::Create() {
  return std::make_unique<linux_socket::LinuxSocket>(*this);
}
}  // namespace varnek
