// The simulated socket control, its scripted peers and the network between
// them, all on the SimLoop's virtual clock.
#include "varnek/platform/sim/sim_socket.h"

#include <algorithm>

#include "varnek/platform/socket_settings.h"
#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

[[noreturn]] void FailWrongState() {
  Fail(kSockErrWrongState,
       "Wrong protocol or connection state for the requested transaction or request");
}

}  // namespace

// One control. Its connection, when it has one, is the peer it points at and
// that points back (peer->control_ == this).
class SimSocket : public SocketWithSettings {
 public:
  explicit SimSocket(SimNetwork& net) : net_(net) {}
  ~SimSocket() override {
    Unregister();
    if (peer_) {
      peer_->ControlClosed();
      Detach();
    }
    *alive_ = false;
  }

  void Create(const Variant& /*address*/, const Variant& port) override {
    if (state_ != kSocketClosed) FailWrongState();
    if (!port.IsMissing()) local_port_ = port.ToLong();
    state_ = kSocketCreated;
  }

  void Bind(const Variant& /*address*/, const Variant& port) override {
    if (state_ == kSocketClosed) state_ = kSocketCreated;
    if (state_ != kSocketCreated || registered_) FailWrongState();
    if (!port.IsMissing()) local_port_ = port.ToLong();
    if (local_port_ < 0 || local_port_ > 65535) {
      error_text_ = u"Address is not valid";
      Fail(kSockErrAddressInvalid, "Address is not valid");
    }
    if (local_port_ == 0) {
      int32_t p = 49152;
      while (net_.listeners_.count(p)) ++p;
      local_port_ = p;
    }
    if (net_.listeners_.count(local_port_)) {
      error_text_ = u"Address in use";
      Fail(kSockErrAddressInUse, "Address in use");
    }
    net_.listeners_[local_port_] = this;
    registered_ = true;
  }

  void Listen() override {
    if (state_ != kSocketCreated) FailWrongState();
    if (!registered_) Bind(Variant::Missing(), Variant::Missing());
    state_ = kSocketListening;
  }

  void Close() override {
    if (state_ == kSocketClosed) return;
    Unregister();
    if (peer_) {
      // Output still on its way goes out first; its Done is not reported.
      if (!peer_->closed_by_peer_) {
        for (const Text& out : pending_) peer_->DeliverFromControl(out);
      }
      peer_->ControlClosed();
      Detach();
    }
    state_ = kSocketClosed;
    PostDone(kOpClose);
  }

  void Send(const Variant& data) override {
    if (state_ != kSocketConnected && state_ != kSocketClosing) FailWrongState();
    Text text = data.ToText();
    std::shared_ptr<SimPeer> peer = peer_;
    pending_.push_back(text);
    std::weak_ptr<bool> alive = alive_;
    net_.At(net_.loop().Elapsed() + net_.send_delay_, [this, alive, peer] {
      if (alive.expired() || peer_ != peer || pending_.empty()) return;
      Text out = std::move(pending_.front());
      pending_.erase(pending_.begin());
      if (peer->closed_by_peer_) {
        Broken();  // writing to a peer that has gone
        return;
      }
      peer->DeliverFromControl(out);
      sent_any_ = true;
      Fire(on_done, kOpSend);
    });
  }

  void Receive(int32_t /*type*/) override {
    if (state_ != kSocketConnected && state_ != kSocketClosing) FailWrongState();
    Text data;
    if (peer_) data.swap(peer_->to_control_);
    received_data_ = Variant(std::move(data));
    armed_ = true;
    if (peer_ && peer_->StoppedSending()) PeerClosed();
    PostDone(kOpReceive);
  }

  Variant ReceivedData() const override { return received_data_; }

  int32_t ReceiveReadyCount() const override {
    return peer_ ? static_cast<int32_t>(peer_->to_control_.size()) : 0;
  }

  void SetAcceptHandle(int32_t handle) override {
    auto it = net_.offered_.find(handle);
    if (it == net_.offered_.end()) Fail(kSockErrInvalidHandle, "Invalid handle");
    if (state_ != kSocketClosed) FailWrongState();
    std::shared_ptr<SimPeer> peer = it->second;
    net_.offered_.erase(it);
    ++accepts_;
    strand_ = net_.loop().CurrentStrand();  // the connection's handler goes on here
    Attach(peer);
    if (peer->StoppedSending()) PeerClosed();
    if (!peer->to_control_.empty()) PostReadyCheck();
  }

  Text OfferedAddress(int32_t handle) const override {
    return net_.offered_.count(handle) ? Text(u"127.0.0.1") : Text();
  }

  void Connect(const Variant& address, const Variant& port) override {
    if (state_ != kSocketClosed && state_ != kSocketCreated) FailWrongState();
    Text host;
    if (!address.IsMissing())
      host = address.ToText();
    else
      host = settings().remote_name_xlate ? settings().remote_name : remote_address_;
    int32_t remote = port.IsMissing() ? remote_port_ : port.ToLong();
    if (host.empty() || remote < 1 || remote > 65535) {
      error_text_ = u"Address is not valid";
      Fail(kSockErrAddressInvalid, "Address is not valid");
    }
    state_ = kSocketConnecting;
    remote_port_ = remote;
    const uint64_t attempt = ++connect_attempt_;
    std::weak_ptr<bool> alive = alive_;
    net_.At(net_.loop().Elapsed() + net_.connect_delay_, [this, alive, remote, host, attempt] {
      if (alive.expired() || state_ != kSocketConnecting || attempt != connect_attempt_) return;
      if (net_.unresolvable_.count(host)) {
        error_text_ = u"Host not found";
        state_ = kSocketClosed;
        return;
      }
      auto server = net_.servers_.find(remote);
      if (server == net_.servers_.end()) {
        error_text_ = u"Connection refused";
        state_ = kSocketClosed;
        return;
      }
      std::shared_ptr<SimPeer> peer(new SimPeer(net_, 0));
      Attach(peer);
      outgoing_ = true;
      remote_port_ = remote;
      auto on_accept = server->second;
      Fire(on_done, kOpConnect);
      if (on_accept) on_accept(peer);
    });
  }

  Text LocalAddress() const override { return net_.local_address_; }
  Text RemoteAddress() const override { return peer_ ? Text(u"127.0.0.1") : remote_address_; }

  // Settings are kept by the base only: nothing here depends on them.

  // Raises an event on this control's strand.
  template <class Fn, class... Args>
  void Fire(const Fn& handler, Args... args) {
    FireOn(net_.loop(), strand_, handler, args...);
  }

  // Bytes from the peer are waiting: tell the app once until it Receives.
  // Past the most a connection holds, the connection fails instead.
  void PeerData() {
    if (!peer_ || peer_->to_control_.empty()) return;
    if (state_ != kSocketConnected && state_ != kSocketClosing) return;
    if (peer_->to_control_.size() > static_cast<size_t>(kMaxWaitingBytes)) {
      error_text_ = u"Message too long";
      if (!outgoing_) {
        peer_->ControlClosed();
        Detach();
        state_ = kSocketClosed;
        return;
      }
      // A client keeps what fits and takes no more: the rest is dropped.
      peer_->to_control_.resize(static_cast<size_t>(kMaxWaitingBytes));
      peer_->closed_by_control_ = true;
      state_ = kSocketClosing;
    }
    received_any_ = true;
    if (!armed_) return;
    armed_ = false;
    Fire(on_receive_ready);
  }

  // The connection fails: State 1, no Done.
  void Broken() {
    error_text_ = u"Connection reset by peer";
    Detach();
    state_ = kSocketClosed;
  }

  // The peer has stopped sending. A connection that never carried a byte and
  // has nothing in flight is simply over (State 1); an outgoing one reads
  // Closing (its server has answered), and so does an accepted one that has
  // answered, once all that came has been received; one still to answer
  // stays Connected, so that what waits can be read and the answer goes out.
  void PeerClosed() {
    if (!peer_ || state_ != kSocketConnected) return;
    const bool all_in = peer_->to_control_.empty() && pending_.empty();
    if (!received_any_ && all_in) {
      Detach();
      state_ = kSocketClosed;
    } else if (outgoing_ || (sent_any_ && all_in)) {
      state_ = kSocketClosing;
    }
  }

 private:
  void Attach(const std::shared_ptr<SimPeer>& peer) {
    peer_ = peer;
    peer->control_ = this;
    peer->accepted_ = true;
    state_ = kSocketConnected;
    armed_ = true;
    outgoing_ = false;
    received_any_ = !peer->to_control_.empty();
    sent_any_ = false;
    remote_port_ = 50000 + (peer->handle_ % 10000);
    received_data_ = Variant();
  }

  void Detach() {
    if (peer_ && peer_->control_ == this) peer_->control_ = nullptr;
    peer_.reset();
    pending_.clear();
  }

  void Unregister() {
    if (!registered_) return;
    auto it = net_.listeners_.find(local_port_);
    if (it != net_.listeners_.end() && it->second == this) net_.listeners_.erase(it);
    registered_ = false;
  }

  void PostDone(int32_t op) {
    std::weak_ptr<bool> alive = alive_;
    net_.loop().Post([this, alive, op, taken = accepts_] {
      if (!alive.expired() && taken == accepts_) Fire(on_done, op);
    });
  }

  void PostReadyCheck() {
    std::weak_ptr<bool> alive = alive_;
    net_.loop().Post([this, alive] {
      if (!alive.expired()) PeerData();
    });
  }

  SimNetwork& net_;
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  StrandRef strand_;
  uint64_t connect_attempt_ = 0;
  uint64_t accepts_ = 0;  // connections taken: a Done of an older one is dropped
  bool registered_ = false;
  std::shared_ptr<SimPeer> peer_;
  std::vector<Text> pending_;  // sends on their way, oldest first
  bool armed_ = true;
  bool received_any_ = false;
  bool sent_any_ = false;  // a Send of this connection reached the peer
  bool outgoing_ = false;
  Variant received_data_;
};

// --- SimPeer ----------------------------------------------------------------

void SimPeer::Write(TextView data, double at) {
  std::shared_ptr<SimPeer> self = shared_from_this();
  net_.At(at, [self, text = Text(data)] {
    if (self->StoppedSending() || self->closed_by_control_ || self->refused_) return;
    self->to_control_ += text;
    if (self->control_) self->control_->PeerData();
  });
}

void SimPeer::Close(double at) {
  std::shared_ptr<SimPeer> self = shared_from_this();
  net_.At(at, [self] {
    if (self->closed_by_peer_) return;
    self->closed_by_peer_ = true;
    if (self->closed_at_ < 0) self->closed_at_ = self->net_.loop().Elapsed();
    if (self->control_) self->control_->PeerClosed();
  });
}

void SimPeer::ShutdownWrite(double at) {
  std::shared_ptr<SimPeer> self = shared_from_this();
  net_.At(at, [self] {
    if (self->StoppedSending()) return;
    self->write_shut_ = true;
    if (self->control_) self->control_->PeerClosed();
  });
}

void SimPeer::Reset(double at) {
  std::shared_ptr<SimPeer> self = shared_from_this();
  net_.At(at, [self] {
    if (self->closed_by_peer_) return;
    self->closed_by_peer_ = true;
    if (self->closed_at_ < 0) self->closed_at_ = self->net_.loop().Elapsed();
    if (self->control_) self->control_->Broken();
  });
}

void SimPeer::DeliverFromControl(const Text& data) {
  if (data.empty()) return;
  if (first_byte_at_ < 0) first_byte_at_ = net_.loop().Elapsed();
  received_ += data;
  if (on_data) on_data(*this);
}

void SimPeer::ControlClosed() {
  closed_by_control_ = true;
  if (closed_at_ < 0) closed_at_ = net_.loop().Elapsed();
  to_control_.clear();
}

// --- SimNetwork -------------------------------------------------------------

SimNetwork::SimNetwork(SimLoop& loop) : loop_(loop) {}

SimNetwork::~SimNetwork() { *alive_ = false; }

std::unique_ptr<SocketCtl> SimNetwork::Create() { return std::make_unique<SimSocket>(*this); }

void SimNetwork::At(double at, std::function<void()> fn) {
  std::weak_ptr<bool> alive = alive_;
  double delay = std::max(0.0, at - loop_.Elapsed());
  loop_.AfterInLoop(delay, [alive, fn = std::move(fn)] {
    if (!alive.expired()) fn();
  });
}

std::shared_ptr<SimPeer> SimNetwork::Connect(int32_t port, double at) {
  std::shared_ptr<SimPeer> peer(new SimPeer(*this, next_handle_++));
  At(at, [this, peer, port] { OfferConnection(peer, port); });
  return peer;
}

void SimNetwork::OfferConnection(const std::shared_ptr<SimPeer>& peer, int32_t port) {
  auto it = listeners_.find(port);
  if (it == listeners_.end() || it->second->State() != kSocketListening) {
    peer->refused_ = true;
    return;
  }
  SimSocket* listener = it->second;
  int32_t handle = peer->handle_;
  offered_[handle] = peer;
  // Each connection starts on a strand of its own. A handle nobody took by
  // the end of the handler (waits included) is dropped.
  std::weak_ptr<bool> alive = alive_;
  loop_.RunOn(nullptr, [this, alive, peer, handle, handler = listener->on_connection_request] {
    if (handler) handler(handle);
    if (alive.expired()) return;
    auto left = offered_.find(handle);
    if (left != offered_.end()) {
      offered_.erase(left);
      peer->refused_ = true;
    }
  });
}

void SimNetwork::Serve(int32_t port, std::function<void(std::shared_ptr<SimPeer>)> on_accept) {
  servers_[port] = std::move(on_accept);
}

void SimNetwork::StopServing(int32_t port) { servers_.erase(port); }

}  // namespace varnek
