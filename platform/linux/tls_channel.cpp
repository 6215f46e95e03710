// The per-connection secure channel over OpenSSL's socket BIO.
#include "varnek/platform/linux/internal/tls_channel_internal.h"

#include <arpa/inet.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509v3.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "varnek/platform/linux/tls_context.h"
#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

// OpenSSL's own socket BIO writes with write(), which raises SIGPIPE when
// the peer has gone and would end the host: this one sends with
// MSG_NOSIGNAL. Its data is the descriptor.
int SocketOf(BIO* bio) { return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(bio))); }

int QuietWrite(BIO* bio, const char* data, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = ::send(SocketOf(bio), data, static_cast<size_t>(size), MSG_NOSIGNAL);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR))
    BIO_set_retry_write(bio);
  return static_cast<int>(n);
}

int QuietRead(BIO* bio, char* data, int size) {
  BIO_clear_retry_flags(bio);
  const ssize_t n = ::recv(SocketOf(bio), data, static_cast<size_t>(size), 0);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) BIO_set_retry_read(bio);
  return static_cast<int>(n);
}

long QuietControl(BIO* /*bio*/, int command, long /*number*/, void* /*pointer*/) {
  return command == BIO_CTRL_FLUSH ? 1 : 0;
}

BIO_METHOD* QuietSocketMethod() {
  static BIO_METHOD* method = [] {
    BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "varnek socket");
    BIO_meth_set_write(m, QuietWrite);
    BIO_meth_set_read(m, QuietRead);
    BIO_meth_set_ctrl(m, QuietControl);
    BIO_meth_set_create(m, [](BIO* bio) {
      BIO_set_init(bio, 1);
      return 1;
    });
    return m;
  }();
  return method;
}

SSL* NewSession(ssl_ctx_st* context, int fd) {
  ERR_clear_error();
  SSL* ssl = context ? SSL_new(context) : nullptr;
  BIO* bio = ssl ? BIO_new(QuietSocketMethod()) : nullptr;
  if (!bio) {
    SSL_free(ssl);
    Fail(kSockErrCertificate, "no secure channel for the connection");
  }
  BIO_set_data(bio, reinterpret_cast<void*>(static_cast<intptr_t>(fd)));
  SSL_set_bio(ssl, bio, bio);  // one BIO both ways: the session frees it once
  return ssl;
}

bool IsNumericAddress(const std::string& host) {
  unsigned char address[16];
  return inet_pton(AF_INET, host.c_str(), address) == 1 ||
         inet_pton(AF_INET6, host.c_str(), address) == 1;
}

// A fatal unexpected_message alert as a bare record, for a peer whose first
// bytes were no TLS at all (a plain HTTP request): OpenSSL answers those with
// silence, and the peer should learn why the connection ends.
void SendUnexpectedMessageAlert(int fd) {
  static const unsigned char kAlert[] = {0x15, 0x03, 0x01, 0x00, 0x02, 0x02, 0x0a};
  (void)::send(fd, kAlert, sizeof kAlert, MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace

std::unique_ptr<TlsChannel> TlsChannel::Accepting(HostLoop& loop, ssl_ctx_st* context, int fd) {
  SSL* ssl = NewSession(context, fd);
  SSL_set_accept_state(ssl);
  return std::unique_ptr<TlsChannel>(new TlsChannel(loop, ssl));
}

std::unique_ptr<TlsChannel> TlsChannel::Connecting(HostLoop& loop, ssl_ctx_st* context, int fd,
                                                   const std::string& host) {
  SSL* ssl = NewSession(context, fd);
  std::unique_ptr<TlsChannel> channel(new TlsChannel(loop, ssl));
  SSL_set_connect_state(ssl);
  SSL_set_hostflags(ssl, X509_CHECK_FLAG_NO_PARTIAL_WILDCARDS);
  const bool named = IsNumericAddress(host)
                         ? X509_VERIFY_PARAM_set1_ip_asc(SSL_get0_param(ssl), host.c_str()) == 1
                         : SSL_set_tlsext_host_name(ssl, host.c_str()) == 1 &&
                               SSL_set1_host(ssl, host.c_str()) == 1;
  if (!named) Fail(kSockErrCertificate, "no secure channel for the host " + host);
  return channel;
}

TlsChannel::~TlsChannel() {
  *alive_ = false;
  SSL_free(ssl_);
}

template <class Call>
ssize_t TlsChannel::Transfer(uint32_t* blocked_on, uint32_t idle, Call call) {
  if (failed_) {
    errno = EPROTO;
    return -1;
  }
  ERR_clear_error();
  size_t moved = 0;
  const int result = call(&moved);
  if (result != 1) return Failed(result, blocked_on);
  *blocked_on = idle;
  return static_cast<ssize_t>(moved);
}

ssize_t TlsChannel::Read(char* buffer, size_t size) {
  const ssize_t got = Transfer(&read_blocked_on_, EPOLLIN, [&](size_t* moved) {
    return SSL_read_ex(ssl_, buffer, size, moved);
  });
  if (got > 0) WakeIfBuffered();
  return got;
}

ssize_t TlsChannel::Write(const char* buffer, size_t size) {
  return Transfer(&write_blocked_on_, EPOLLOUT,
                  [&](size_t* moved) { return SSL_write_ex(ssl_, buffer, size, moved); });
}

int TlsChannel::Handshake() {
  bool done = false;
  const ssize_t step = Transfer(&write_blocked_on_, EPOLLOUT, [&](size_t*) {
    const int result = SSL_do_handshake(ssl_);
    done = result == 1;
    return result;
  });
  if (done) return 1;
  if (step == 0) {  // the peer ended its stream before the handshake did
    errno = ECONNRESET;
    return -1;
  }
  return errno == EAGAIN ? 0 : -1;
}

ssize_t TlsChannel::Failed(int result, uint32_t* blocked_on) {
  const int saved_errno = errno;
  const int error = SSL_get_error(ssl_, result);
  switch (error) {
    case SSL_ERROR_ZERO_RETURN: return 0;
    case SSL_ERROR_WANT_READ:
      *blocked_on = EPOLLIN;
      errno = EAGAIN;
      return -1;
    case SSL_ERROR_WANT_WRITE:
      *blocked_on = EPOLLOUT;
      errno = EAGAIN;
      return -1;
    case SSL_ERROR_SYSCALL:
      ERR_clear_error();
      if (saved_errno == 0) return 0;  // the socket's end of stream
      if (saved_errno != EINTR) failed_ = true;
      errno = saved_errno;
      return -1;
    default: break;
  }
  failed_ = true;
  const unsigned long code = ERR_peek_error();
  const char* reason = code ? ERR_reason_error_string(code) : nullptr;
  std::string text = std::string("TLS: ") + (reason ? reason : "protocol failure");
  const long verified = SSL_get_verify_result(ssl_);
  if (verified != X509_V_OK)
    text += std::string(" (") + X509_verify_cert_error_string(verified) + ")";
  failure_ = Utf8ToText(text);
  ERR_clear_error();
  BIO* wire = SSL_get_wbio(ssl_);
  if (BIO_number_written(wire) == 0) SendUnexpectedMessageAlert(SocketOf(wire));
  errno = EPROTO;
  return -1;
}

size_t TlsChannel::Buffered() const { return failed_ ? 0 : static_cast<size_t>(SSL_pending(ssl_)); }

void TlsChannel::WakeIfBuffered() {
  if (wake_posted_ || !on_buffered || SSL_pending(ssl_) <= 0) return;
  wake_posted_ = true;
  std::weak_ptr<bool> alive = alive_;
  loop_.Post([this, alive] {
    if (alive.expired()) return;
    wake_posted_ = false;
    if (Buffered() == 0 || !on_buffered) return;
    auto wake = on_buffered;  // the handler may end this channel
    wake();
  });
}

void TlsChannel::Shutdown() {
  if (failed_ || !SSL_is_init_finished(ssl_)) return;
  ERR_clear_error();
  SSL_shutdown(ssl_);
  ERR_clear_error();
}

uint32_t TlsChannel::WatchEvents(uint32_t wanted) const {
  uint32_t events = wanted & ~static_cast<uint32_t>(EPOLLIN | EPOLLOUT);
  if (wanted & EPOLLIN) {
    events |= read_blocked_on_;
    // A read that must write first is not helped by the peer's end of stream.
    if (read_blocked_on_ != EPOLLIN) events &= ~static_cast<uint32_t>(EPOLLRDHUP);
  }
  if (wanted & EPOLLOUT) events |= write_blocked_on_;
  return events;
}

uint32_t TlsChannel::ReadyEvents(uint32_t ready) const {
  uint32_t events = ready;
  if (ready & read_blocked_on_) events |= EPOLLIN;
  if (ready & write_blocked_on_) events |= EPOLLOUT;
  return events;
}

}  // namespace varnek
