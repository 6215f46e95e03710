// The Linux socket control's connections: accepted and outgoing, receive,
// send, close and the readiness events. EAGAIN and partial writes are handled
// here; an interrupted read or write is simply tried again in the same loop.
#include <arpa/inet.h>
#include <fcntl.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "varnek/platform/linux/internal/eintr.h"
#include "varnek/platform/linux/internal/linux_socket_impl.h"
#include "varnek/runtime/failure.h"

namespace varnek::linux_socket {

// --- connections ------------------------------------------------------------

void LinuxSocket::Adopt(int fd) {
  fd_ = fd;
  state_ = kSocketConnected;
  armed_ = true;
  peer_eof_ = hung_up_ = received_any_ = closing_ = outgoing_ = truncated_ = false;
  in_.clear();
  out_.clear();
  send_ends_.clear();
  written_ = 0;
  received_data_ = Variant();
  error_text_.clear();
  sockaddr_storage ss{};
  socklen_t len = sizeof ss;
  remote_address_.clear();
  remote_port_ = 0;
  // Copied into the texts' own buffers (made with the control), so a burst
  // of connections leaves no new long-lived blocks high in the heap.
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0)
    KeepIn(remote_address_, AddressText(ss, &remote_port_));
  len = sizeof ss;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&ss), &len) == 0)
    KeepIn(local_address_, AddressText(ss, &local_port_));
  ApplyOptions();
  UpdateWatch();
}

void LinuxSocket::OnConnectDone() {
  int err = 0;
  socklen_t len = sizeof err;
  if (getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &len) != 0) err = errno;
  if (err != 0) {
    Broken(err);
    return;
  }
  if (settings().secure_client) return StartClientTls();
  Adopt(fd_);
  outgoing_ = true;
  Fire(on_done, kOpConnect);
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
    const ssize_t n = SendSome(out_.data(), out_.size());
    if (n > 0) {
      out_.erase(0, static_cast<size_t>(n));
      written_ += static_cast<uint64_t>(n);
      continue;
    }
    if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return true;
    Broken(n < 0 ? errno : EPIPE);
    return false;
  }
  // All written: a large answer leaves no large buffer behind.
  if (out_.capacity() > kKeptBufferBytes) std::string().swap(out_);
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

void LinuxSocket::Broken(int err) {
  error_text_ = err == EPROTO && tls_ ? tls_->FailureText() : ErrnoText(err);
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
    close_timer_->SetInterval(static_cast<int32_t>(factory_.CloseStallSeconds() * 1000));
    drain_mark_ = written_;
    std::weak_ptr<bool> alive = alive_;
    close_timer_->on_tick = [this, alive] {
      if (!alive.expired() && closing_) OnDrainTick();
    };
    close_timer_->SetEnabled(true);
    return;
  }
  FinishClose();
}

// The close timer's look: a peer that took something since the last look
// keeps its drain; one that took nothing loses the rest, with a reset.
void LinuxSocket::OnDrainTick() {
  if (written_ != drain_mark_) {
    drain_mark_ = written_;
    return;
  }
  FinishClose(true);
}

void LinuxSocket::FinishClose(bool reset) {
  closing_ = false;
  accept_paused_ = false;
  if (accept_timer_) accept_timer_->SetEnabled(false);
  if (close_timer_) {
    close_timer_->SetEnabled(false);
    // The timer may be ticking right now: release it on a later pass.
    std::shared_ptr<LoopTimer> old(close_timer_.release());
    loop_.Post([old] {});
  }
  ReleaseFd(state_ != kSocketListening, reset || truncated_);
  received_data_ = Variant();  // the app has closed: nothing reads it any more
  state_ = kSocketClosed;
  PostDone(kOpClose);
}

// Gives the descriptor back. A graceful release reads away what is unread and
// shuts the write side first, so the peer gets FIN rather than RST.
void LinuxSocket::ReleaseFd(bool graceful, bool reset) {
  if (fd_ < 0) return;
  if (watched_) loop_.Unwatch(fd_);
  watched_ = false;
  if (tls_) {
    if (graceful && !reset) tls_->Shutdown();
    tls_.reset();
  }
  if (graceful || reset) {
    if (reset || (settings().linger_enabled && settings().linger_time == 0)) {
      linger lg{1, 0};
      setsockopt(fd_, SOL_SOCKET, SO_LINGER, &lg, sizeof lg);
    } else {
      char buf[4096];
      for (int i = 0; i < 64; ++i) {
        if (linux_io::RetryOnEintr([&] { return ::recv(fd_, buf, sizeof buf, 0); }) <= 0) break;
      }
      ::shutdown(fd_, SHUT_WR);
    }
  }
  CloseFd(fd_);
  fd_ = -1;
  std::string().swap(in_);
  std::string().swap(out_);
  send_ends_.clear();
}

void LinuxSocket::ApplyOptions() {
  if (fd_ < 0 || state_ == kSocketListening) return;
  const int32_t receive = settings().receive_buffer, send = settings().send_buffer;
  if (receive > 0) setsockopt(fd_, SOL_SOCKET, SO_RCVBUF, &receive, sizeof receive);
  if (send > 0) setsockopt(fd_, SOL_SOCKET, SO_SNDBUF, &send, sizeof send);
}

// --- events -----------------------------------------------------------------

// Interest follows the state: the listener wants readers; a connection wants
// input until the peer's end of stream (every arrival is read into in_ at
// once, so the level-triggered watch never spins), output while bytes are
// queued or a connect is in progress.
void LinuxSocket::UpdateWatch() {
  if (fd_ < 0 || hung_up_) return;
  uint32_t events = 0;
  if (state_ == kSocketListening) {
    events = accept_paused_ ? 0u : static_cast<uint32_t>(EPOLLIN);
  } else if (state_ == kSocketConnecting) {
    events = EPOLLOUT;
  } else {
    if (!closing_ && !peer_eof_) events |= EPOLLIN | EPOLLRDHUP;
    if (!out_.empty()) events |= EPOLLOUT;
  }
  if (tls_) events = tls_->WatchEvents(events);
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
    tls_ ? ContinueClientTls() : OnConnectDone();
    return;
  }
  if (!Connection()) return;
  if (tls_) events = tls_->ReadyEvents(events);
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
  if (events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP)) {
    // A hang-up is reported on every pass until unwatched: take all there is.
    const size_t budget =
        events & EPOLLHUP ? static_cast<size_t>(kMaxWaitingBytes) + 1 : kReadBudget;
    const size_t before = in_.size();
    // failed: State 1, no event
    if (!ReadIncoming(budget, (events & (EPOLLRDHUP | EPOLLHUP)) != 0)) return;
    if (in_.size() > before && armed_) {
      armed_ = false;
      fire_ready = true;
    }
  }
  if (peer_eof_) PeerClosed();
  if (events & EPOLLHUP) HungUp();
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

// The Done of an operation comes on a later pass, raised from the loop on
// the control's strand.
void LinuxSocket::PostDone(int32_t op) {
  std::weak_ptr<bool> alive = alive_;
  loop_.PostStep([this, alive, op, taken = accepts_] {
    if (!alive.expired() && taken == accepts_) Fire(on_done, op);
  });
}

}  // namespace varnek::linux_socket
