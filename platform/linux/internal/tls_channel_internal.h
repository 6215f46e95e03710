// One connection's secure channel, internal to the Linux socket control: an
// OpenSSL session over a non-blocking socket, read and written like the
// socket itself. The control keeps its own buffers, events and states, and
// only moves its bytes through this.
//
// Read and Write behave as recv and send: a count of plain bytes, 0 for the
// end of the peer's stream (Read), or -1 with errno: EAGAIN while the engine
// waits for the socket, EPROTO when TLS failed (FailureText says why), another
// value when the socket did. The engine may need the other direction to move
// on (a handshake step, a write before the peer's hello has come), so the
// epoll interest and readiness pass through WatchEvents and ReadyEvents.
//
//   auto tls = TlsChannel::Accepting(loop, contexts.Server(u"VRNEK"), fd);
//   ssize_t n = tls->Read(buf, sizeof buf);  // the handshake runs inside
#pragma once

#include <sys/epoll.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "varnek/platform/host_loop.h"
#include "varnek/runtime/text.h"

struct ssl_st;
struct ssl_ctx_st;

namespace varnek {

class TlsChannel {
 public:
  // The server's side of an accepted connection; the handshake runs inside
  // the first reads and writes.
  static std::unique_ptr<TlsChannel> Accepting(HostLoop& loop, ssl_ctx_st* context, int fd);
  // The client's side of a connection to `host` (a name or a numeric
  // address): the name goes out for the server to choose its certificate,
  // and the certificate must be valid for it. Run Handshake until it ends.
  static std::unique_ptr<TlsChannel> Connecting(HostLoop& loop, ssl_ctx_st* context, int fd,
                                                const std::string& host);
  ~TlsChannel();
  TlsChannel(const TlsChannel&) = delete;
  TlsChannel& operator=(const TlsChannel&) = delete;

  ssize_t Read(char* buffer, size_t size);
  ssize_t Write(const char* buffer, size_t size);
  // One step of the client's handshake: 1 done, 0 waiting for the socket,
  // -1 failed (errno as for Read).
  int Handshake();
  // Plain bytes the engine holds that the kernel will not signal again.
  size_t Buffered() const;
  // Tells the peer the channel closes (close_notify), without waiting.
  void Shutdown();
  Text FailureText() const { return failure_; }

  // The epoll interest for what the socket wants (EPOLLIN to read, EPOLLOUT
  // to write or to complete a handshake step), and the readiness the kernel
  // gave turned into what the socket may now do.
  uint32_t WatchEvents(uint32_t wanted) const;
  uint32_t ReadyEvents(uint32_t ready) const;

  // Raised from the loop when bytes stay Buffered after a read, since no
  // readiness of the socket will tell of them.
  std::function<void()> on_buffered;

 private:
  TlsChannel(HostLoop& loop, ssl_st* ssl) : loop_(loop), ssl_(ssl) {}
  // One engine call (`call(&bytes_moved)` gives OpenSSL's 1 or failure),
  // its result as recv's; `blocked_on` becomes `idle` again on success.
  template <class Call>
  ssize_t Transfer(uint32_t* blocked_on, uint32_t idle, Call call);
  // Maps a failed call's result; sets the direction the engine waits for.
  ssize_t Failed(int result, uint32_t* blocked_on);
  void WakeIfBuffered();

  HostLoop& loop_;
  ssl_st* ssl_;
  uint32_t read_blocked_on_ = EPOLLIN;    // EPOLLIN, or EPOLLOUT while a read must write first
  uint32_t write_blocked_on_ = EPOLLOUT;  // EPOLLOUT, or EPOLLIN while a write must read first
  bool failed_ = false;
  bool wake_posted_ = false;
  Text failure_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace varnek
