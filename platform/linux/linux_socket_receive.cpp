// The Linux socket control's incoming side: bytes move from the kernel into
// the control's own buffer as they arrive (so the count the app watches keeps
// growing, whatever the kernel's queue holds), Receive hands the buffer over,
// and the peer's end of sending is told apart from the end of the connection.
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

#include "varnek/platform/linux/internal/linux_socket_impl.h"

namespace varnek::linux_socket {

namespace {

constexpr size_t kMaxWaiting = static_cast<size_t>(kMaxWaitingBytes);

}  // namespace

// Reads what the kernel holds into in_: at most `budget` bytes, and never
// more than one byte past kMaxWaitingBytes, which fails the connection.
// Reading the end of the stream sets peer_eof_. A short read means the queue
// is empty, so the read that would only say "nothing more" is skipped unless
// `to_the_end` (the peer has stopped: its end of stream is read now). False
// when the connection failed (State 1, ErrorText set, in_ dropped).
bool LinuxSocket::ReadIncoming(size_t budget, bool to_the_end) {
  // One scratch area for every control: not on a strand's small stack, and
  // not a fresh 64 KiB of in_ to zero (and fault in) for each short read.
  static thread_local char scratch[65536];
  size_t taken = 0;
  while (taken < budget && !peer_eof_) {
    const size_t room = kMaxWaiting + 1 - in_.size();
    const size_t want = std::min({budget - taken, room, sizeof scratch});
    const ssize_t n = RecvSome(scratch, want);
    if (n > 0) {
      in_.append(scratch, static_cast<size_t>(n));
      taken += static_cast<size_t>(n);
      received_any_ = true;
      if (in_.size() > kMaxWaiting) {
        if (!outgoing_) {
          Broken(EMSGSIZE);  // the close with unread bytes resets: the peer learns at once
          return false;
        }
        // A client keeps what fits, reads no more and resets at its close.
        in_.resize(kMaxWaiting);
        error_text_ = ErrnoText(EMSGSIZE);
        truncated_ = peer_eof_ = true;
        break;
      }
      if (static_cast<size_t>(n) < want && !to_the_end) break;
      continue;
    }
    if (n == 0) {
      peer_eof_ = true;
      break;
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) break;
    Broken(errno);
    return false;
  }
  return true;
}

int32_t LinuxSocket::ReceiveReadyCount() const {
  if (!Connection()) return 0;
  return static_cast<int32_t>(in_.size());
}

void LinuxSocket::Receive(int32_t /*type*/) {
  if (!Connection()) FailWrongState();
  // What the kernel holds now joins the buffer, and no more, and never past
  // the maximum: a peer that keeps sending cannot hold the host inside this
  // call. With nothing there, one read tells whether the peer has stopped.
  int kernel = 0;
  if (ioctl(fd_, FIONREAD, &kernel) != 0) kernel = 0;
  if (tls_) kernel += static_cast<int>(tls_->Buffered());
  const size_t budget =
      std::min(static_cast<size_t>(std::max(kernel, 1)), kMaxWaiting - in_.size());
  if (budget > 0 && !ReadIncoming(budget)) {
    received_data_ = Variant(Text());
    return;  // failed: State 1, no Done
  }
  received_data_ = Variant(BytesToText(in_));
  std::string().swap(in_);  // a large request leaves no large buffer behind
  armed_ = true;
  if (peer_eof_) PeerClosed();
  if (fd_ >= 0) UpdateWatch();
  PostDone(kOpReceive);
}

// The peer has stopped sending. See platform/socket.h for the rule: a silent
// peer is simply gone; an outgoing connection reads Closing; so does an
// accepted one that has answered, once all that came has been received; one
// still to answer stays connected for the answer.
void LinuxSocket::PeerClosed() {
  peer_eof_ = true;
  if (closing_ || state_ != kSocketConnected) return;
  if (!received_any_ && in_.empty() && out_.empty()) {
    ReleaseFd(false);
    state_ = kSocketClosed;
  } else if (outgoing_ || (written_ > 0 && in_.empty() && out_.empty())) {
    state_ = kSocketClosing;
  }
}

// Both directions are gone without an error: nothing can be sent any more.
// What waits can still be received (Closing) until the app closes; with
// nothing waiting the connection is simply over.
void LinuxSocket::HungUp() {
  hung_up_ = true;
  if (watched_) loop_.Unwatch(fd_);
  watched_ = false;
  std::string().swap(out_);
  send_ends_.clear();
  if (closing_) return;
  if (in_.empty()) {
    ReleaseFd(false);
    state_ = kSocketClosed;
  } else {
    state_ = kSocketClosing;
  }
}

}  // namespace varnek::linux_socket
