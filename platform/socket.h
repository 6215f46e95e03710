// The socket control: an asynchronous TCP socket driven from the host loop,
// with the members the server and the outgoing clients use. Operations never
// block; their completion is reported by on_done with the operation's code.
//
// Rules every implementation keeps (Linux and simulated alike):
// - Events run from the host loop (inside some Pump), never from inside the
//   operation that caused them: on_done is posted, so a handler that calls
//   Receive or Close is not re-entered by that call.
// - on_receive_ready fires once when bytes arrive and not again until the app
//   calls Receive; bytes still waiting then, or arriving later, raise it anew.
// - Receive fills ReceivedData at once (callers may read it right after the
//   call) and reports on_done(kOpReceive) on a later pass.
// - Close on a socket that is not closed reports on_done(kOpClose); Close on a
//   closed socket does nothing.
// - A Done still on its way for one accepted connection is dropped once the
//   control has taken another (SetAcceptHandle): the events of a connection
//   never reach the handlers of the next one on the same control.
// - The control reads what arrives into its own buffer at once, so
//   ReceiveReadyCount grows for as long as the peer sends, up to
//   kMaxWaitingBytes. One byte more and an accepted connection fails (below)
//   with ErrorText "Message too long": a request is at most that large. An
//   outgoing connection keeps the first kMaxWaitingBytes instead and reads
//   kSocketClosing with that ErrorText: what was kept waits to be received,
//   the rest is dropped, and its Close resets the connection.
// - When the peer stops sending (its FIN: a close, or a half-close with
//   shutdown(SHUT_WR) as `nc -N` does): a connection that never carried a
//   byte from the peer and has nothing in flight goes straight to
//   kSocketClosed. An accepted connection that has already sent something
//   (a channel held open after its answer) reads kSocketClosing once what
//   the peer sent before its FIN has all been received: that State is how
//   the app sees that the peer has gone. The server's Proceso_Receive then
//   gives what came before the FIN, and "" after it. Otherwise (a peer that
//   half-closes after its request and waits for the answer) an accepted
//   connection stays kSocketConnected: what waits can still be received, and
//   the answer still goes out, until the app closes it or the connection can
//   no longer carry data (a send meets the peer's reset: a failure, below).
//   An outgoing connection (Connect) becomes kSocketClosing at once: its
//   server has answered and gone, and a client reads the end of the answer
//   by that State. No event reports a peer's close.
// - Close with output still queued reads kSocketClosing while the peer keeps
//   taking the output, however long that lasts. A peer that takes nothing
//   for a while (10 s on Linux) has the rest dropped and the connection
//   reset, so it sees an error: an answer is never cut short by a normal
//   close.
// - A failure of the connection (reset, refused) makes State kSocketClosed
//   with ErrorText set and no Done.
// - Create, Bind and Listen complete at once and report no Done; a failing
//   operation raises RuntimeError with a SocketError number.
//
//   auto s = platform.sockets->Create();
//   s->on_connection_request = [&](int32_t handle) { slot->SetAcceptHandle(handle); };
//   s->Create(Variant::Missing(), 8080); s->Bind(Variant::Missing(), 8080); s->Listen();
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/runtime/variant.h"

namespace varnek {

// State values of the control.
enum SocketState : int32_t {
  kSocketClosed = 1,  // closed and free
  kSocketCreated = 3,
  kSocketConnected = 4,
  kSocketListening = 5,
  kSocketConnecting = 6,  // outgoing connection in progress
  kSocketClosing = 8,     // an outgoing connection's server has closed, or Close waits for output
};

// The most a connection holds for the app between two Receives: 16 MiB. The
// byte past it fails the connection (State 1, ErrorText "Message too long").
constexpr int32_t kMaxWaitingBytes = 16 * 1024 * 1024;

// Readable form of a State value, as StateText gives it.
inline const char16_t* SocketStateText(int32_t state) {
  switch (state) {
    case kSocketClosed: return u"Closed";
    case kSocketCreated: return u"Created";
    case kSocketConnected: return u"Connected";
    case kSocketListening: return u"Listening";
    case kSocketConnecting: return u"Connecting";
    case kSocketClosing: return u"Closing";
    default: return u"Unknown";
  }
}

// Failure numbers the socket operations raise (RuntimeError), with the
// descriptions in ErrorText.
enum SocketError : int {
  kSockErrWrongState = 40006,     // operation not allowed in the current State
  kSockErrInvalidHandle = 40020,  // SetAcceptHandle with a handle nobody offered
  kSockErrAddressInUse = 10048,   // Bind or Listen on a port that is taken
  kSockErrAddressInvalid = 10049,
  kSockErrConnectionRefused = 10061,
  kSockErrHostNotFound = 11001,
  kSockErrSystem = 10000,       // another system failure; ErrorText tells which
  kSockErrCertificate = 40030,  // the secure channel has no usable certificate; ErrorText tells why
};

// Operation codes reported by on_done.
enum SocketOp : int32_t {
  kOpCreate = 1,
  kOpBind = 2,
  kOpClose = 3,
  kOpConnect = 4,
  kOpListen = 5,
  kOpReceive = 6,
  kOpReceiveFrom = 7,
  kOpSend = 8,
  kOpSendTo = 9,
};

// The type code Receive takes for a text.
constexpr int32_t kReceiveText = 8;

class SocketCtl {
 public:
  virtual ~SocketCtl() = default;

  virtual int32_t State() const = 0;
  // Address and port are optional: pass Variant::Missing() for none.
  virtual void Create(const Variant& address, const Variant& port) = 0;
  virtual void Bind(const Variant& address, const Variant& port) = 0;
  virtual void Listen() = 0;
  // State becomes 1, possibly later (after pending output went out).
  virtual void Close() = 0;
  // Queues the text (one unit a byte); on_done(kOpSend) when it has gone out.
  virtual void Send(const Variant& data) = 0;
  // Fetches what waits; on_done(kOpReceive) when ReceivedData is ready.
  virtual void Receive(int32_t type) = 0;
  virtual Variant ReceivedData() const = 0;
  // How many bytes wait to be received; grows as more arrives.
  virtual int32_t ReceiveReadyCount() const = 0;
  // Takes over the connection a ConnectionRequest offered; then connected.
  virtual void SetAcceptHandle(int32_t handle) = 0;
  // On the listener: the peer address of a connection it offers and nobody
  // has taken yet, as RemoteAddress would read once taken; "" for a handle
  // it does not offer.
  virtual Text OfferedAddress(int32_t /*handle*/) const { return {}; }
  // Outgoing connection; on_done(kOpConnect) when connected. A missing
  // address takes the target set below (RemoteName when RemoteNameAddrXlate
  // is true, else RemoteAddress), a missing port RemotePort. A name is
  // resolved without blocking: State reads Connecting meanwhile, and a name
  // that does not resolve ends as a failure (State 1, ErrorText "Host not
  // found", no Done). A port outside 1..65535 or an empty host fails at once
  // with kSockErrAddressInvalid.
  virtual void Connect(const Variant& address, const Variant& port) = 0;

  virtual Text LocalAddress() const = 0;
  virtual int32_t LocalPort() const = 0;
  virtual void SetLocalPort(int32_t port) = 0;
  virtual Text RemoteAddress() const = 0;
  virtual int32_t RemotePort() const = 0;
  virtual bool Listening() const = 0;
  virtual Text StateText() const = 0;
  virtual Text ErrorText() const = 0;

  // The outgoing target that Connect with missing arguments uses. Writing
  // RemoteAddress or RemotePort sets the value the getters read until a
  // connection replaces it with the peer's. LocalAddress written is a bind
  // address for outgoing connections ("" or "0.0.0.0": any); the getter
  // gives the connection's own address once connected. The defaults keep
  // nothing, for controls that never connect out.
  virtual void SetRemoteName(TextView /*name*/) {}
  virtual Text RemoteName() const { return {}; }
  virtual void SetRemoteNameAddrXlate(bool /*resolve*/) {}
  virtual bool RemoteNameAddrXlate() const { return false; }
  virtual void SetRemoteAddress(TextView /*address*/) {}
  virtual void SetRemotePort(int32_t /*port*/) {}
  virtual void SetLocalAddress(TextView /*address*/) {}

  // Receive for a text, and the text it got: what was waiting, "" for none.
  Text ReceiveText() {
    Receive(kReceiveText);
    return ReceivedData().ToText();
  }

  // Settings that the logic writes; the control stores them and applies what
  // has a meaning on this platform.
  virtual void SetEventMask(int32_t mask) = 0;
  virtual void SetBlocking(bool blocking) = 0;
  virtual void SetLingerEnabled(bool enabled) = 0;
  virtual void SetLingerMode(int32_t mode) = 0;
  virtual void SetLingerTime(int32_t seconds) = 0;
  virtual void SetReceiveBufferSize(int32_t size) = 0;
  virtual void SetSendBufferSize(int32_t size) = 0;
  virtual void SetSocketMode(int32_t mode) = 0;
  virtual void SetSecureServer(bool secure) = 0;
  virtual void SetSecureClient(bool secure) = 0;
  virtual void SetCertificateName(TextView name) = 0;
  virtual void SetReuseAddressEnabled(bool enabled) = 0;

  // Events, delivered from the host loop.
  std::function<void(int32_t handle)> on_connection_request;  // listener only
  std::function<void()> on_receive_ready;  // once per arrival until Receive is called
  std::function<void(int32_t op)> on_done;
};

class SocketFactory {
 public:
  virtual ~SocketFactory() = default;
  virtual std::unique_ptr<SocketCtl> Create() = 0;
};

}  // namespace varnek
