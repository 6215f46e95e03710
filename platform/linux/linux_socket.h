// The socket control on Linux: non-blocking BSD sockets watched by the
// LinuxLoop's epoll, following the rules written in platform/socket.h.
//
//   LinuxLoop loop;
//   LinuxSocketFactory sockets(loop);
//   auto listener = sockets.Create();
//   listener->on_connection_request = [&](int32_t h) { slot->SetAcceptHandle(h); };
//   listener->Create(Variant::Missing(), 8080);
//   listener->Bind(Variant::Missing(), 8080);
//   listener->Listen();
//
// Platform choices, in brief:
// - A listener with no address (or "") is dual-stack: one IPv6 socket on "::"
//   with IPV6_V6ONLY off, taking IPv4 and IPv6 peers on the same port. On a
//   machine without IPv6 it listens on 0.0.0.0 instead. "0.0.0.0" or another
//   IPv4 text listens on IPv4 only; an IPv6 text ("::", "::1") makes an
//   IPv6-only listener. Listeners always set SO_REUSEADDR, so a restart finds
//   its port; a port another listener holds fails as in use (10048).
// - RemoteAddress of an IPv4 peer reads as dotted IPv4 ("127.0.0.1") even
//   when it came in on the dual-stack socket. LocalAddress is the machine's
//   primary IPv4 address whatever the listener's family.
// - The ConnectionRequest handle is the accepted descriptor. A handle that no
//   control took with SetAcceptHandle by the time the handler returns is
//   closed, so the peer sees its connection end at once.
// - Every arrival is read into the control's buffer at once (at most 256 KiB
//   per readiness event, so one fast peer does not hold the loop), which
//   keeps the level-triggered watch from waking pumps again for the same
//   bytes. on_receive_ready is re-armed by Receive only.
// - The peer's FIN (close or half-close) ends the watch for input; an
//   accepted connection stays Connected, and learns that the peer is gone
//   for good from the reset its next send meets (EPOLLERR).
// - on_done is posted when the operation itself completes it (Receive, Close,
//   an immediate Send or Connect); I/O readiness reports it straight from the
//   loop's dispatch. Either way it never runs inside the operation's call.
// - Close drains what is unread (so the kernel ends with FIN, not RST), then
//   shuts the write side and closes. With output still queued the control is
//   Closing while the peer keeps reading; once it has taken nothing for 10
//   seconds (CloseStallSeconds) the rest is dropped and the connection reset,
//   so the peer sees an error rather than a short answer that looks whole.
// - A nonzero linger time is not applied: close() would then block the host
//   thread. The kernel sends the rest in the background instead. LingerEnabled
//   with LingerTime 0 gives the abortive close (RST).
// - SecureServer with a CertificateName makes the control's accepted
//   connections TLS (platform/linux/internal/tls_channel_internal.h): the certificate is
//   loaded when both are set (a failure raises kSockErrCertificate there),
//   the handshake runs inside the connection's reads and writes, and every
//   count, State and Done is of the plain bytes, as on a plain connection. A
//   TLS failure ends the connection like a reset (State 1, ErrorText "TLS:
//   ...", no Done). SecureClient makes Connect TLS: Connecting lasts until
//   the server's certificate has been verified for the host dialled.
//   Listeners are always plain; the contexts are the factory's (tls()).
// - Connect takes numeric IPv4 and IPv6 addresses as they are and resolves
//   names through the factory's NameResolver (c-ares on the loop), so no
//   lookup blocks the host thread; the first IPv4 answer is tried, else the
//   first IPv6 one. LocalPort is not applied to outgoing connections; a
//   LocalAddress other than "" and "0.0.0.0" is bound before connecting.
#pragma once

#include <memory>
#include <cstdint>
#include <unordered_map>

#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/name_resolver.h"
#include "varnek/platform/socket.h"

namespace varnek {

class TlsContexts;  // platform/linux/tls_context.h

class LinuxSocketFactory : public SocketFactory {
 public:
  explicit LinuxSocketFactory(LinuxLoop& loop);
  ~LinuxSocketFactory() override;
  std::unique_ptr<SocketCtl> Create() override;

  LinuxLoop& loop() { return loop_; }
  // Descriptors accepted and offered in a ConnectionRequest, not yet taken,
  // each with the number of its offer: a descriptor taken, closed and
  // accepted again is another offer, which the first one's end leaves alone.
  std::unordered_map<int, uint64_t>& offered() { return offered_; }
  uint64_t NextOffer() { return ++offers_; }
  // The resolver of outgoing connections, made at first use with the
  // configuration last set (the system's by default).
  NameResolver& resolver();
  void SetResolverConfig(ResolverConfig config);
  // The TLS configurations of every control made here: certificates by
  // name, the trust store of outgoing connections.
  TlsContexts& tls();
  // How long a Close with output queued waits for a peer that reads nothing
  // before it drops the rest with a reset (10 s).
  double CloseStallSeconds() const { return close_stall_seconds_; }
  void SetCloseStallSeconds(double seconds) { close_stall_seconds_ = seconds; }

 private:
  LinuxLoop& loop_;
  std::unordered_map<int, uint64_t> offered_;
  uint64_t offers_ = 0;
  ResolverConfig resolver_config_;
  std::shared_ptr<NameResolver> resolver_;
  std::unique_ptr<TlsContexts> tls_;
  double close_stall_seconds_ = 10.0;
};

// The machine's primary IPv4 address: that of the first interface that is up
// and not loopback, or "127.0.0.1" when there is none.
Text PrimaryIPv4Address();

}  // namespace varnek
