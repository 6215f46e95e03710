// The Linux socket control's outgoing side: Connect to a numeric address at
// once, or to a name once the factory's resolver has answered from the loop.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/linux_socket_impl.h"
#include "varnek/runtime/failure.h"

namespace varnek {

NameResolver& LinuxSocketFactory::resolver() {
  if (!resolver_) resolver_ = std::make_shared<NameResolver>(loop_, resolver_config_);
  return *resolver_;
}

void LinuxSocketFactory::SetResolverConfig(ResolverConfig config) {
  resolver_config_ = std::move(config);
  resolver_.reset();  // queries out on the old one are dropped
}

namespace linux_socket {

namespace {

// A numeric IPv4 or IPv6 text as a socket address with the port; false for a name.
bool NumericAddress(const std::string& host, int port, sockaddr_storage& ss, socklen_t& len) {
  ss = {};
  auto* a4 = reinterpret_cast<sockaddr_in*>(&ss);
  if (inet_pton(AF_INET, host.c_str(), &a4->sin_addr) == 1) {
    a4->sin_family = AF_INET;
    a4->sin_port = htons(static_cast<uint16_t>(port));
    len = sizeof(sockaddr_in);
    return true;
  }
  auto* a6 = reinterpret_cast<sockaddr_in6*>(&ss);
  if (inet_pton(AF_INET6, host.c_str(), &a6->sin6_addr) == 1) {
    a6->sin6_family = AF_INET6;
    a6->sin6_port = htons(static_cast<uint16_t>(port));
    len = sizeof(sockaddr_in6);
    return true;
  }
  return false;
}

[[noreturn]] void FailAddress() { Fail(kSockErrAddressInvalid, "Address is not valid"); }

}  // namespace

void LinuxSocket::Connect(const Variant& address, const Variant& port) {
  if (state_ != kSocketClosed && state_ != kSocketCreated) FailWrongState();
  Text host_text;
  if (!address.IsMissing())
    host_text = address.ToText();
  else
    host_text = settings().remote_name_xlate ? settings().remote_name : remote_address_;
  const int32_t target_port = port.IsMissing() ? remote_port_ : port.ToLong();
  const std::string host = TextToBytes(host_text);
  if (host.empty() || target_port < 1 || target_port > 65535) {
    error_text_ = u"Address is not valid";
    FailAddress();
  }
  if (fd_ >= 0 && state_ == kSocketCreated) ReleaseFd(false);  // a bound socket is not reused
  error_text_.clear();
  remote_port_ = target_port;
  dialled_host_ = host;
  const uint64_t attempt = ++connect_attempt_;
  sockaddr_storage ss{};
  socklen_t len = 0;
  if (NumericAddress(host, target_port, ss, len)) {
    remote_address_ = host_text;
    ConnectTo(ss, len);
    return;
  }
  // A name: Connecting until the resolver answers from the loop.
  state_ = kSocketConnecting;
  remote_address_.clear();
  std::weak_ptr<bool> alive = alive_;
  factory_.resolver().Resolve(
      host, target_port, [this, alive, attempt](int err, std::vector<ResolvedAddress> found) {
        if (alive.expired()) return;
        // Close or another Connect came first: this answer is no longer wanted.
        if (attempt != connect_attempt_ || state_ != kSocketConnecting || fd_ >= 0) return;
        if (err != 0 || found.empty()) return ResolveFailed();
        int32_t ignored = 0;
        remote_address_ = AddressText(found.front().address, &ignored);
        ConnectTo(found.front().address, found.front().length);
      });
}

void LinuxSocket::ResolveFailed() {
  error_text_ = u"Host not found";
  state_ = kSocketClosed;
}

void LinuxSocket::ConnectTo(const sockaddr_storage& address, socklen_t length) {
  int fd = ::socket(address.ss_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    error_text_ = ErrnoText(errno);
    state_ = kSocketClosed;
    return;
  }
  int one = 1;
  if (settings().reuse_address) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  const std::string local = TextToBytes(settings().local_address);
  sockaddr_storage bind_to{};
  socklen_t bind_len = 0;
  if (!local.empty() && local != "0.0.0.0" && NumericAddress(local, 0, bind_to, bind_len) &&
      bind_to.ss_family == address.ss_family &&
      ::bind(fd, reinterpret_cast<const sockaddr*>(&bind_to), bind_len) != 0) {
    error_text_ = ErrnoText(errno);
    CloseFd(fd);
    state_ = kSocketClosed;
    return;
  }
  const int rc = linux_io::RetryOnEintr(
      [&] { return ::connect(fd, reinterpret_cast<const sockaddr*>(&address), length); });
  const int err = rc == 0 ? 0 : errno;
  if (rc == 0 && settings().secure_client) {
    fd_ = fd;
    StartClientTls();
  } else if (rc == 0) {
    Adopt(fd);
    outgoing_ = true;
    PostDone(kOpConnect);
  } else if (err == EINPROGRESS) {
    fd_ = fd;
    state_ = kSocketConnecting;
    ApplyOptions();
    UpdateWatch();
  } else {
    CloseFd(fd);
    error_text_ = ErrnoText(err);
    state_ = kSocketClosed;
  }
}

}  // namespace linux_socket
}  // namespace varnek
