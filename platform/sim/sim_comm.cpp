// The simulated comm control: a receive buffer filled by the peer's answers
// and a transmit queue drained at the line's speed.
#include "varnek/platform/sim/sim_comm.h"

#include <algorithm>
#include <cmath>

#include "varnek/platform/sim/delayed_calls.h"
#include "varnek/runtime/convert.h"

namespace varnek {

namespace {

class SimComm : public CommCtl {
 public:
  SimComm(SimCommFactory& factory, bool xm) : factory_(factory), xm_(xm), calls_(factory.loop()) {}
  ~SimComm() override { Close(); }

  Text TypeName() const override { return xm_ ? kXMCommTypeName : u"CommCtl"; }
  bool PortOpen() const override { return open_; }
  void SetPortOpen(bool open) override { open ? Open() : Close(); }
  void SetCommPort(double port) override {
    if (open_) Fail(kCommErrPortOpen);
    port_ = CLng(Variant(port));
  }
  void SetSettings(TextView settings) override { line_ = ParseCommSettings(settings); }
  void SetDTREnable(bool enable) override { dtr_ = enable; }
  void SetHandshaking(const Variant& mode) override {
    const int32_t value = mode.IsEmpty() ? 0 : CLng(mode);
    if (value < 0 || value > 3) Fail(kCommErrInvalidValue);
  }
  void SetInBufferSize(int32_t size) override {
    if (size < 1) Fail(kCommErrInvalidValue);
  }
  void SetOutBufferSize(int32_t size) override {
    if (size < 1) Fail(kCommErrInvalidValue);
  }
  int32_t InBufferCount() const override {
    RequireOpen();
    return static_cast<int32_t>(in_.size());
  }
  int32_t OutBufferCount() const override {
    RequireOpen();
    return static_cast<int32_t>(out_queued_);
  }
  Text Input() override {
    if (xm_) Missing();
    return Read();
  }
  Text InputData() override {
    if (!xm_) Missing();
    return Read();
  }
  void SetOutput(TextView text) override {
    RequireOpen();
    std::string bytes = TextToBytes(text);
    if (bytes.empty() || !Alive()) return;  // a dead line swallows what is written to it
    // The bytes leave one after another: the chunk reaches the peer when its
    // last character has gone out at the line's speed.
    const double seconds = static_cast<double>(bytes.size()) * 10.0 / line_.baud;
    line_free_at_ = std::max(line_free_at_, Clock()) + seconds;
    out_queued_ += bytes.size();
    const uint64_t generation = generation_;
    calls_.After(line_free_at_ - Clock(), [this, generation, bytes = std::move(bytes)] {
      out_queued_ -= std::min(out_queued_, bytes.size());
      if (generation != generation_ || !Alive()) return;
      if (factory_.on_traffic) factory_.on_traffic(true, bytes);
      peer_->Receive(bytes);
    });
  }

 private:
  void RequireOpen() const {
    if (!open_) Fail(kCommErrNotOpen);
  }
  // The line is alive while its peer is still attached to the port.
  bool Alive() const { return peer_ && factory_.PeerOf(port_) == peer_; }
  // Seconds on a clock that does not wrap at midnight: the calendar's whole
  // seconds and the fraction of the seconds-since-midnight timer.
  double Clock() {
    const double timer = factory_.loop().Timer();
    return std::floor(factory_.loop().Now() * 86400.0 + 0.5) + (timer - std::floor(timer));
  }

  Text Read() {
    RequireOpen();
    Text out = BytesToText(in_);
    in_.clear();
    return out;
  }

  void Open() {
    if (open_) return;
    peer_ = factory_.PeerOf(port_);
    if (!peer_) Fail(kCommErrBadPort);
    if (!factory_.Claim(port_)) {
      peer_.reset();
      Fail(kCommErrPortOpen);
    }
    open_ = true;
    ++generation_;
    const uint64_t generation = generation_;
    peer_->emit = [this, generation](std::string bytes, double delay) {
      calls_.After(delay, [this, generation, bytes = std::move(bytes)] {
        if (generation != generation_ || !Alive()) return;
        if (factory_.on_traffic) factory_.on_traffic(false, bytes);
        if (in_.size() + bytes.size() <= kInQueueLimit) in_ += bytes;
      });
    };
  }

  void Close() {
    if (!open_) return;
    open_ = false;
    factory_.Release(port_);
    ++generation_;
    calls_.Clear();
    in_.clear();
    out_queued_ = 0;
    if (peer_) {
      peer_->emit = nullptr;
      peer_->Hangup();
    }
    peer_.reset();
  }

  static constexpr size_t kInQueueLimit = 1 << 20;  // the kernel's queue is bounded too
  SimCommFactory& factory_;
  bool xm_;
  DelayedCalls calls_;
  bool open_ = false;
  bool dtr_ = false;
  int32_t port_ = 1;
  CommSettings line_;
  std::shared_ptr<LinePeer> peer_;
  std::string in_;
  size_t out_queued_ = 0;
  double line_free_at_ = 0;
  uint64_t generation_ = 0;
};

}  // namespace

std::unique_ptr<CommCtl> SimCommFactory::Create(bool xm) {
  return std::make_unique<SimComm>(*this, xm);
}

}  // namespace varnek
