// The Linux socket control's secure channel: where its reads and writes go
// through TLS, the server's certificate, and the client's handshake. The rest
// of the control sees plain bytes and the usual readiness.
#include <sys/socket.h>

#include <cerrno>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/linux_socket_impl.h"
#include "varnek/runtime/failure.h"

namespace varnek {

LinuxSocketFactory::LinuxSocketFactory(LinuxLoop& loop) : loop_(loop) {}

TlsContexts& LinuxSocketFactory::tls() {
  if (!tls_) tls_ = std::make_unique<TlsContexts>();
  return *tls_;
}

namespace linux_socket {

ssize_t LinuxSocket::RecvSome(char* buffer, size_t size) {
  if (tls_) return tls_->Read(buffer, size);
  return linux_io::RetryOnEintr([&] { return ::recv(fd_, buffer, size, 0); });
}

ssize_t LinuxSocket::SendSome(const char* buffer, size_t size) {
  if (tls_) return tls_->Write(buffer, size);
  return linux_io::RetryOnEintr([&] { return ::send(fd_, buffer, size, MSG_NOSIGNAL); });
}

// Loads the certificate once SecureServer and CertificateName are both set,
// so a start with a certificate that cannot serve fails where it is named.
void LinuxSocket::LoadCertificate() {
  const SocketSettings& s = settings();
  if (!s.secure_server || s.certificate.empty()) {
    server_context_.reset();
    server_certificate_.clear();
    return;
  }
  if (server_context_ && server_certificate_ == s.certificate) return;
  try {
    server_context_ = factory_.tls().Server(s.certificate);
    server_certificate_ = s.certificate;
  } catch (const RuntimeError& failure) {
    server_context_.reset();
    error_text_ = Utf8ToText(failure.description());
    throw;
  }
}

// A secure server never takes a connection it cannot encrypt: without a
// certificate the handle is refused and stays offered, so it is closed.
std::unique_ptr<TlsChannel> LinuxSocket::ServerChannelFor(int fd) {
  if (!settings().secure_server) return nullptr;
  if (!server_context_) {
    error_text_ = u"No certificate for the secure channel";
    Fail(kSockErrCertificate, "No certificate for the secure channel");
  }
  return TlsChannel::Accepting(loop_, server_context_.get(), fd);
}

void LinuxSocket::UseChannel(std::unique_ptr<TlsChannel> channel) {
  tls_ = std::move(channel);
  if (!tls_) return;
  std::weak_ptr<bool> alive = alive_;
  tls_->on_buffered = [this, alive] {
    if (!alive.expired() && Connection() && !closing_ && !peer_eof_) OnIo(EPOLLIN);
  };
}

// The TCP connection stands; Connecting lasts through the handshake.
void LinuxSocket::StartClientTls() {
  state_ = kSocketConnecting;
  try {
    UseChannel(TlsChannel::Connecting(loop_, factory_.tls().Client().get(), fd_, dialled_host_));
  } catch (const RuntimeError& failure) {
    ReleaseFd(false);
    state_ = kSocketClosed;
    error_text_ = Utf8ToText(failure.description());
    return;
  }
  ContinueClientTls();
}

void LinuxSocket::ContinueClientTls() {
  const int step = tls_->Handshake();
  if (step < 0) return Broken(errno);
  if (step == 0) return UpdateWatch();
  Adopt(fd_);  // connected: the usual state, with the channel kept
  outgoing_ = true;
  Fire(on_done, kOpConnect);
}

}  // namespace linux_socket
}  // namespace varnek
