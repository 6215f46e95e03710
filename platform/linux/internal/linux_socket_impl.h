// Internals of the Linux socket control shared by its two source files: the
// control class itself and small helpers. Not for use outside them.
#pragma once

#include <sys/socket.h>

#include <deque>
#include <memory>
#include <string>

#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/internal/tls_channel_internal.h"
#include "varnek/platform/linux/tls_context.h"
#include "varnek/platform/socket_settings.h"

namespace varnek::linux_socket {

constexpr int kAcceptBatch = 64;
// Bytes one readiness event moves from the kernel into the control's buffer:
// a fast peer gets its share, and the loop still serves everybody else.
constexpr size_t kReadBudget = 256 * 1024;
// A write buffer larger than this is given back once it has all gone out.
constexpr size_t kKeptBufferBytes = 64 * 1024;
// Out of descriptors, accept fails while the listener stays readable: stop
// watching it for this long instead of spinning.
constexpr int32_t kAcceptRetryMs = 100;

// Room the address texts of a control get when it is made: a dotted IPv4
// address fits, so taking a connection allocates nothing for them.
constexpr size_t kAddressUnits = 15;
// Copies `text` into `into`'s own buffer (an assignment of a temporary would
// swap in the temporary's buffer instead).
inline void KeepIn(Text& into, const Text& text) { into.assign(text.data(), text.size()); }

// The readable text of an errno value as ErrorText shows it.
Text ErrnoText(int err);
[[noreturn]] void FailWrongState();
// close() is not retried on EINTR: on Linux the descriptor is gone anyway.
void CloseFd(int fd);
// Address text of a socket address (IPv4-mapped IPv6 reads as IPv4); sets *port.
Text AddressText(const sockaddr_storage& ss, int32_t* port);

class LinuxSocket : public SocketWithSettings {
 public:
  explicit LinuxSocket(LinuxSocketFactory& factory) : factory_(factory), loop_(factory.loop()) {
    remote_address_.reserve(kAddressUnits);
    local_address_.reserve(kAddressUnits);
  }
  ~LinuxSocket() override {
    *alive_ = false;
    ReleaseFd(false);
  }

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
  Text OfferedAddress(int32_t handle) const override;
  void Connect(const Variant& address, const Variant& port) override;

  Text LocalAddress() const override {
    return Connection() && !local_address_.empty() ? local_address_ : PrimaryIPv4Address();
  }

  // Settings are kept by the base; buffer sizes and linger reach the
  // descriptor when it exists; a secure server loads its certificate.
  void SettingsChanged() override {
    ApplyOptions();
    LoadCertificate();
  }

 private:
  bool Connection() const {
    return fd_ >= 0 && (state_ == kSocketConnected || state_ == kSocketClosing);
  }
  void OnIo(uint32_t events);
  void OnListenerReadable();
  void OfferAccepted(int fd);
  void PauseAccepting();
  void OnConnectDone();
  void ConnectTo(const sockaddr_storage& address, socklen_t length);
  void ResolveFailed();
  bool WriteSome();      // false when the connection broke
  int CompletedSends();  // sends whose bytes have all been written
  bool ReadIncoming(size_t budget, bool to_the_end = true);  // false when the connection failed
  void PeerClosed();
  void HungUp();
  void Broken(int err);  // the connection failed: State 1, no Done
  void FinishClose(bool reset = false);
  void OnDrainTick();
  // graceful: FIN after reading away what is unread; reset: RST at once.
  void ReleaseFd(bool graceful, bool reset = false);
  void UpdateWatch();
  void ApplyOptions();
  void Adopt(int fd);
  void PostDone(int32_t op);
  // The secure channel (linux_socket_tls.cpp): recv and send through it when
  // there is one; the server's channel of an accepted descriptor (null when
  // not secure); the client's handshake while Connecting.
  ssize_t RecvSome(char* buffer, size_t size);
  ssize_t SendSome(const char* buffer, size_t size);
  void LoadCertificate();
  std::unique_ptr<TlsChannel> ServerChannelFor(int fd);
  void UseChannel(std::unique_ptr<TlsChannel> channel);
  void StartClientTls();
  void ContinueClientTls();
  // Raises an event on this control's strand.
  template <class Fn, class... Args>
  void Fire(const Fn& handler, Args... args) {
    FireOn(loop_, strand_, handler, args...);
  }

  LinuxSocketFactory& factory_;
  LinuxLoop& loop_;
  StrandRef strand_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  int fd_ = -1;
  bool watched_ = false;
  Text address_;
  bool armed_ = true;      // on_receive_ready may fire
  bool peer_eof_ = false;  // the peer has shut its side (its FIN was read)
  bool hung_up_ = false;   // both directions are gone; no longer watched
  bool received_any_ = false;
  bool outgoing_ = false;           // made by Connect rather than taken from a listener
  bool truncated_ = false;          // an outgoing answer passed the maximum: the rest is dropped
  std::string in_;                  // bytes read from the kernel, not yet Received
  bool closing_ = false;            // Close waits for the output queue
  std::string out_;                 // bytes not yet written
  uint64_t written_ = 0;            // bytes written since the connection began
  std::deque<uint64_t> send_ends_;  // per Send: the written_ mark that completes it
  std::unique_ptr<LoopTimer> close_timer_;
  uint64_t drain_mark_ = 0;  // written_ at the last look of the close timer
  std::unique_ptr<LoopTimer> accept_timer_;
  bool accept_paused_ = false;
  Variant received_data_;
  Text local_address_;               // of the connection, from getsockname
  uint64_t connect_attempt_ = 0;     // tells a name lookup's answer from an older one's
  std::unique_ptr<TlsChannel> tls_;  // the connection's secure channel, if any
  TlsContext server_context_;        // of CertificateName, while SecureServer
  Text server_certificate_;          // the name server_context_ was loaded for
  std::string dialled_host_;         // what Connect was given, for the certificate check
  uint64_t accepts_ = 0;             // connections taken: a Done of an older one is dropped
};

}  // namespace varnek::linux_socket
