// The Linux socket control: listeners, accepted and outgoing connections on
// non-blocking sockets in the LinuxLoop. EINTR, EAGAIN and partial writes are
// handled here and nowhere else.
#include "platform/linux/linux_socket.h"

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
#include <deque>
#include <string>

#include "runtime/failure.h"

namespace varnek {

namespace {

// Runs an event handler from a copy, so a handler that destroys the control
// (and with it the handler) finishes safely.
template <class Fn, class... Args>
void Fire(const Fn& handler, Args... args) {
  Fn copy = handler;
  if (copy) copy(args...);
}

constexpr double kCloseDrainSeconds = 10.0;
constexpr int kAcceptBatch = 64;
// Out of descriptors, accept fails while the listener stays readable: stop
// watching it for this long instead of spinning.
constexpr int32_t kAcceptRetryMs = 100;

// The readable text of an errno value as ErrorText shows it.
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
  // close() is not retried on EINTR: on Linux the descriptor is gone anyway.
  if (fd >= 0) ::close(fd);
}

// Address text of a socket address; IPv4-mapped IPv6 addresses read as IPv4.
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

}  // namespace

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

class LinuxSocket : public SocketCtl {
 public:
  explicit LinuxSocket(LinuxSocketFactory& factory) : factory_(factory), loop_(factory.loop()) {}
  ~LinuxSocket() override {
    *alive_ = false;
    ReleaseFd(false);
  }

  int32_t State() const override { return state_; }

  void Create(const Variant& address, const Variant& port) override {
    if (state_ != kSocketClosed) FailWrongState();
    if (!address.IsMissing()) address_ = address.ToText();
    if (!port.IsMissing()) local_port_ = port.ToLong();
    error_text_.clear();
    state_ = kSocketCreated;
  }

  void Bind(const Variant& address, const Variant& port) override;
  void Listen() override;
  void Close() override;
  void Send(const Variant& data) override;
  void Receive(int32_t type) override;
  Variant ReceivedData() const override { return received_data_; }
  int32_t ReceiveReadyCount() const override;
  void SetAcceptHandle(int32_t handle) override;
  void Connect(const Variant& address, const Variant& port) override;

  Text LocalAddress() const override { return PrimaryIPv4Address(); }
  int32_t LocalPort() const override { return local_port_; }
  void SetLocalPort(int32_t port) override { local_port_ = port; }
  Text RemoteAddress() const override { return remote_address_; }
  int32_t RemotePort() const override { return remote_port_; }
  bool Listening() const override { return state_ == kSocketListening; }
  Text StateText() const override { return SocketStateText(state_); }
  Text ErrorText() const override { return error_text_; }

  // Stored; buffer sizes and linger reach the descriptor when it exists.
  void SetEventMask(int32_t mask) override { event_mask_ = mask; }
  void SetBlocking(bool blocking) override { blocking_ = blocking; }
  void SetLingerEnabled(bool enabled) override { linger_enabled_ = enabled; ApplyOptions(); }
  void SetLingerMode(int32_t mode) override { linger_mode_ = mode; }
  void SetLingerTime(int32_t seconds) override { linger_time_ = seconds; ApplyOptions(); }
  void SetReceiveBufferSize(int32_t size) override { receive_buffer_ = size; ApplyOptions(); }
  void SetSendBufferSize(int32_t size) override { send_buffer_ = size; ApplyOptions(); }
  void SetSocketMode(int32_t mode) override { socket_mode_ = mode; }
  void SetSecureServer(bool secure) override { secure_server_ = secure; }
  void SetSecureClient(bool secure) override { secure_client_ = secure; }
  void SetCertificateName(TextView name) override { certificate_ = Text(name); }
  void SetReuseAddressEnabled(bool enabled) override { reuse_address_ = enabled; }

 private:
  bool Connection() const { return fd_ >= 0 && (state_ == kSocketConnected || state_ == kSocketClosing); }
  void OnIo(uint32_t events);
  void OnListenerReadable();
  void PauseAccepting();
  void OnConnectDone();
  bool WriteSome();          // false when the connection broke
  int CompletedSends();      // sends whose bytes have all been written
  void PeerClosed();
  void Broken(int err);      // the connection failed: State 1, no Done
  void FinishClose();
  void ReleaseFd(bool graceful);
  void UpdateWatch();
  void ApplyOptions();
  void Adopt(int fd);
  void PostDone(int32_t op);
  void PostReadyCheck();

  LinuxSocketFactory& factory_;
  LinuxLoop& loop_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  int fd_ = -1;
  bool watched_ = false;
  int32_t state_ = kSocketClosed;
  Text address_;
  int32_t local_port_ = 0;
  Text remote_address_;
  int32_t remote_port_ = 0;
  bool armed_ = true;         // on_receive_ready may fire
  bool peer_eof_ = false;     // the peer has shut its side
  bool hung_up_ = false;      // both directions are gone; no longer watched
  bool received_any_ = false;
  bool closing_ = false;      // Close waits for the output queue
  std::string out_;           // bytes not yet written
  uint64_t written_ = 0;      // bytes written since the connection began
  std::deque<uint64_t> send_ends_;  // per Send: the written_ mark that completes it
  std::unique_ptr<LoopTimer> close_timer_;
  std::unique_ptr<LoopTimer> accept_timer_;
  bool accept_paused_ = false;
  Variant received_data_;
  Text error_text_;
  int32_t event_mask_ = 0, linger_mode_ = 0, linger_time_ = 0;
  int32_t receive_buffer_ = 0, send_buffer_ = 0, socket_mode_ = 0;
  bool blocking_ = true, linger_enabled_ = false, secure_server_ = false;
  bool secure_client_ = false, reuse_address_ = false;
  Text certificate_;
};

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

// --- connections ------------------------------------------------------------

void LinuxSocket::SetAcceptHandle(int32_t handle) {
  auto& offered = factory_.offered();
  if (!offered.count(handle)) Fail(kSockErrInvalidHandle, "Invalid handle");
  if (state_ != kSocketClosed || fd_ >= 0) FailWrongState();
  offered.erase(handle);
  Adopt(handle);
  PostReadyCheck();  // bytes may have come before the handle was taken
}

void LinuxSocket::Adopt(int fd) {
  fd_ = fd;
  state_ = kSocketConnected;
  armed_ = true;
  peer_eof_ = hung_up_ = received_any_ = closing_ = false;
  out_.clear();
  send_ends_.clear();
  written_ = 0;
  received_data_ = Variant();
  error_text_.clear();
  sockaddr_storage ss{};
  socklen_t len = sizeof ss;
  remote_address_.clear();
  remote_port_ = 0;
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0) remote_address_ = AddressText(ss, &remote_port_);
  len = sizeof ss;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0) AddressText(ss, &local_port_);
  ApplyOptions();
  UpdateWatch();
}

void LinuxSocket::Connect(const Variant& address, const Variant& port) {
  if (state_ != kSocketClosed && state_ != kSocketCreated) FailWrongState();
  std::string host = TextToBytes(address.ToText());
  std::string service = std::to_string(port.ToLong());
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  int rc = getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
  if (rc != 0 || !found) {
    error_text_ = u"Host not found";
    ReleaseFd(false);
    state_ = kSocketClosed;
    return;
  }
  if (fd_ >= 0 && state_ == kSocketCreated) ReleaseFd(false);  // a bound socket is not reused
  int fd = ::socket(found->ai_family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    freeaddrinfo(found);
    error_text_ = ErrnoText(errno);
    state_ = kSocketClosed;
    return;
  }
  int one = 1;
  if (reuse_address_) setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
  int rcc;
  do {
    rcc = ::connect(fd, found->ai_addr, found->ai_addrlen);
  } while (rcc != 0 && errno == EINTR);
  int err = rcc == 0 ? 0 : errno;
  freeaddrinfo(found);
  if (rcc == 0) {
    Adopt(fd);
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

void LinuxSocket::OnConnectDone() {
  int err = 0;
  socklen_t len = sizeof err;
  if (getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
  if (err != 0) {
    Broken(err);
    return;
  }
  Adopt(fd_);
  Fire(on_done, kOpConnect);
}

int32_t LinuxSocket::ReceiveReadyCount() const {
  if (!Connection()) return 0;
  int count = 0;
  if (ioctl(fd_, FIONREAD, &count) != 0) return 0;
  return count;
}

void LinuxSocket::Receive(int32_t /*type*/) {
  if (!Connection()) FailWrongState();
  std::string bytes;
  char buf[16384];
  for (;;) {
    ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
    if (n > 0) {
      bytes.append(buf, static_cast<size_t>(n));
      continue;
    }
    if (n == 0) {
      peer_eof_ = true;
      break;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      int err = errno;
      received_data_ = Variant(BytesToText(bytes));
      Broken(err);
      return;
    }
    break;
  }
  if (!bytes.empty()) received_any_ = true;
  received_data_ = Variant(BytesToText(bytes));
  armed_ = true;
  if (peer_eof_) PeerClosed();
  if (fd_ >= 0) UpdateWatch();
  PostDone(kOpReceive);
}

void LinuxSocket::Send(const Variant& data) {
  if (!Connection() || closing_) FailWrongState();
  std::string bytes = TextToBytes(data.ToText());
  out_ += bytes;
  send_ends_.push_back(written_ + out_.size());
  if (!WriteSome()) return;  // broken: no Done
  for (int done = CompletedSends(); done > 0; --done) PostDone(kOpSend);
  UpdateWatch();
}

bool LinuxSocket::WriteSome() {
  while (!out_.empty()) {
    ssize_t n = ::send(fd_, out_.data(), out_.size(), MSG_NOSIGNAL);
    if (n > 0) {
      out_.erase(0, static_cast<size_t>(n));
      written_ += static_cast<uint64_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
    Broken(n < 0 ? errno : EPIPE);
    return false;
  }
  return true;
}

int LinuxSocket::CompletedSends() {
  int done = 0;
  while (!send_ends_.empty() && send_ends_.front() <= written_) {
    send_ends_.pop_front();
    ++done;
  }
  return done;
}

// The peer shut its side. See platform/socket.h for the rule.
void LinuxSocket::PeerClosed() {
  peer_eof_ = true;
  if (closing_) return;
  if (!received_any_ && ReceiveReadyCount() == 0 && out_.empty()) {
    ReleaseFd(false);
    state_ = kSocketClosed;
  } else if (state_ == kSocketConnected) {
    state_ = kSocketClosing;
  }
}

void LinuxSocket::Broken(int err) {
  error_text_ = ErrnoText(err);
  ReleaseFd(false);
  state_ = kSocketClosed;
}

void LinuxSocket::Close() {
  if (state_ == kSocketClosed) return;
  if (closing_) return;  // already draining; Done(3) comes when it ends
  if (Connection() && !out_.empty() && !hung_up_) {
    closing_ = true;
    state_ = kSocketClosing;
    UpdateWatch();
    close_timer_ = loop_.CreateTimer();
    close_timer_->SetInterval(static_cast<int32_t>(kCloseDrainSeconds * 1000));
    std::weak_ptr<bool> alive = alive_;
    close_timer_->on_tick = [this, alive] {
      if (!alive.expired() && closing_) FinishClose();
    };
    close_timer_->SetEnabled(true);
    return;
  }
  FinishClose();
}

void LinuxSocket::FinishClose() {
  closing_ = false;
  accept_paused_ = false;
  if (accept_timer_) accept_timer_->SetEnabled(false);
  if (close_timer_) {
    close_timer_->SetEnabled(false);
    // The timer may be ticking right now: release it on a later pass.
    std::shared_ptr<LoopTimer> old(close_timer_.release());
    loop_.Post([old] {});
  }
  ReleaseFd(state_ != kSocketListening);
  state_ = kSocketClosed;
  PostDone(kOpClose);
}

// Gives the descriptor back. A graceful release reads away what is unread and
// shuts the write side first, so the peer gets FIN rather than RST.
void LinuxSocket::ReleaseFd(bool graceful) {
  if (fd_ < 0) return;
  if (watched_) loop_.Unwatch(fd_);
  watched_ = false;
  if (graceful) {
    if (linger_enabled_ && linger_time_ == 0) {
      linger lg{1, 0};
      setsockopt(fd_, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
    } else {
      char buf[4096];
      for (int i = 0; i < 64; ++i) {
        ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
        if (n > 0 || (n < 0 && errno == EINTR)) continue;
        break;
      }
      ::shutdown(fd_, SHUT_WR);
    }
  }
  CloseFd(fd_);
  fd_ = -1;
  out_.clear();
  send_ends_.clear();
}

void LinuxSocket::ApplyOptions() {
  if (fd_ < 0 || state_ == kSocketListening) return;
  if (receive_buffer_ > 0) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive_buffer_, sizeof receive_buffer_);
  if (send_buffer_ > 0) setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &send_buffer_, sizeof send_buffer_);
}

// --- events -----------------------------------------------------------------

// Interest follows the state: the listener wants readers; a connection wants
// input only while armed (and while there is input or an end to notice),
// output while bytes are queued or a connect is in progress.
void LinuxSocket::UpdateWatch() {
  if (fd_ < 0 || hung_up_) return;
  uint32_t events = 0;
  if (state_ == kSocketListening) {
    events = accept_paused_ ? 0u : static_cast<uint32_t>(EPOLLIN);
  } else if (state_ == kSocketConnecting) {
    events = EPOLLOUT;
  } else {
    if (armed_ && !closing_ && (!peer_eof_ || ReceiveReadyCount() > 0)) events |= EPOLLIN;
    if (!peer_eof_) events |= EPOLLRDHUP;
    if (!out_.empty()) events |= EPOLLOUT;
  }
  if (!watched_) {
    std::weak_ptr<bool> alive = alive_;
    loop_.Watch(fd_, events, [this, alive](uint32_t ev) {
      if (!alive.expired()) OnIo(ev);
    });
    watched_ = true;
  } else {
    loop_.ModifyWatch(fd_, events);
  }
}

void LinuxSocket::OnIo(uint32_t events) {
  std::weak_ptr<bool> alive = alive_;
  if (state_ == kSocketListening) {
    OnListenerReadable();
    return;
  }
  if (state_ == kSocketConnecting) {
    OnConnectDone();
    return;
  }
  if (!Connection()) return;
  if (events & EPOLLERR) {
    int err = 0;
    socklen_t len = sizeof err;
    getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len);
    Broken(err ? err : ECONNRESET);
    return;
  }
  // State changes first, events after: a handler may pump and must not find
  // this descriptor still asking for attention.
  int sends_done = 0;
  if (events & EPOLLOUT) {
    if (!WriteSome()) return;
    sends_done = CompletedSends();
  }
  bool fire_ready = false;
  if (events & EPOLLIN) {
    int32_t count = ReceiveReadyCount();
    if (count > 0) {
      received_any_ = true;
      if (armed_) {
        armed_ = false;
        fire_ready = true;
      }
    } else {
      peer_eof_ = true;  // readable with nothing to read: end of stream
    }
  }
  if (events & (EPOLLRDHUP | EPOLLHUP)) peer_eof_ = true;
  if (events & EPOLLHUP) {
    // Both directions are gone and epoll would report it on every pass:
    // stop watching; what is unread stays readable.
    hung_up_ = true;
    loop_.Unwatch(fd_);
    watched_ = false;
    out_.clear();
    send_ends_.clear();
  }
  if (peer_eof_) PeerClosed();
  if (closing_ && out_.empty()) {
    FinishClose();
    return;
  }
  if (fd_ >= 0) UpdateWatch();
  if (fire_ready) Fire(on_receive_ready);
  for (; sends_done > 0 && !alive.expired(); --sends_done) {
    Fire(on_done, kOpSend);
  }
}

void LinuxSocket::PostDone(int32_t op) {
  std::weak_ptr<bool> alive = alive_;
  loop_.Post([this, alive, op] {
    if (!alive.expired()) Fire(on_done, op);
  });
}

// Fires on_receive_ready for bytes that wait while the descriptor is not
// watched for them (taken over with data already there, or hung up).
void LinuxSocket::PostReadyCheck() {
  std::weak_ptr<bool> alive = alive_;
  loop_.Post([this, alive] {
    if (alive.expired() || !armed_ || !Connection() || ReceiveReadyCount() == 0) return;
    if (!hung_up_) return;  // a watched descriptor reports it by itself
    armed_ = false;
    received_any_ = true;
    Fire(on_receive_ready);
  });
}

// --- factory ----------------------------------------------------------------

LinuxSocketFactory::~LinuxSocketFactory() {
  for (int fd : offered_) CloseFd(fd);
}

std::unique_ptr<SocketCtl> LinuxSocketFactory::Create() { return std::make_unique<LinuxSocket>(*this); }

}  // namespace varnek
