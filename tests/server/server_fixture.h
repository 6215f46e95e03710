// A server on the simulated platform and network with its reports collected.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/sim_socket.h"
#include "varnek/runtime/text.h"
#include "varnek/server/http_server.h"

namespace varnek::testing {

using Strings = std::vector<std::string>;
inline const std::string kGet = "GET / HTTP/1.0\r\n\r\n";
inline std::string Utf8(const Variant& v) { return v.ToUtf8(); }
inline std::string Utf8(const Text& t) { return TextToUtf8(t); }

// A simulated control that reads State 8 (Closing) for `linger` virtual seconds after Close.
class LingeringSocket : public SocketCtl {
 public:
  LingeringSocket(std::unique_ptr<SocketCtl> inner, SimLoop& loop, const double& linger)
      : inner_(std::move(inner)), loop_(loop), linger_(linger) {
    inner_->on_connection_request = [this](int32_t h) { Tell(on_connection_request, h); };
    inner_->on_receive_ready = [this] { Tell(on_receive_ready); };
    inner_->on_done = [this](int32_t op) { Tell(on_done, op); };
  }
  template <class Handler, class... Args>
  static void Tell(const Handler& handler, Args... args) {
    if (handler) handler(args...);
  }

  int32_t State() const override {
    const int32_t state = inner_->State();
    if (state == kSocketClosed && loop_.Elapsed() < closed_until_) return kSocketClosing;
    return state;
  }
  void Close() override {
    if (inner_->State() != kSocketClosed && linger_ > 0) {
      closed_until_ = loop_.Elapsed() + linger_;
      loop_.After(linger_, [] {});  // an event at the moment the close completes
    }
    inner_->Close();
  }
  void Create(const Variant& a, const Variant& p) override { inner_->Create(a, p); }
  void Bind(const Variant& a, const Variant& p) override { inner_->Bind(a, p); }
  void Listen() override { inner_->Listen(); }
  void Send(const Variant& d) override { inner_->Send(d); }
  void Receive(int32_t t) override { inner_->Receive(t); }
  Variant ReceivedData() const override { return inner_->ReceivedData(); }
  int32_t ReceiveReadyCount() const override { return inner_->ReceiveReadyCount(); }
  void SetAcceptHandle(int32_t h) override { inner_->SetAcceptHandle(h); }
  Text OfferedAddress(int32_t h) const override { return inner_->OfferedAddress(h); }
  void Connect(const Variant& a, const Variant& p) override { inner_->Connect(a, p); }
  Text LocalAddress() const override { return inner_->LocalAddress(); }
  int32_t LocalPort() const override { return inner_->LocalPort(); }
  void SetLocalPort(int32_t p) override { inner_->SetLocalPort(p); }
  Text RemoteAddress() const override { return inner_->RemoteAddress(); }
  int32_t RemotePort() const override { return inner_->RemotePort(); }
  bool Listening() const override { return inner_->Listening(); }
  Text StateText() const override { return SocketStateText(State()); }
  Text ErrorText() const override { return inner_->ErrorText(); }
  void SetEventMask(int32_t v) override { inner_->SetEventMask(v); }
  void SetBlocking(bool v) override { inner_->SetBlocking(v); }
  void SetLingerEnabled(bool v) override { inner_->SetLingerEnabled(v); }
  void SetLingerMode(int32_t v) override { inner_->SetLingerMode(v); }
  void SetLingerTime(int32_t v) override { inner_->SetLingerTime(v); }
  void SetReceiveBufferSize(int32_t v) override { inner_->SetReceiveBufferSize(v); }
  void SetSendBufferSize(int32_t v) override { inner_->SetSendBufferSize(v); }
  void SetSocketMode(int32_t v) override { inner_->SetSocketMode(v); }
  void SetSecureServer(bool v) override { inner_->SetSecureServer(v); }
  void SetSecureClient(bool v) override { inner_->SetSecureClient(v); }
  void SetCertificateName(TextView v) override { inner_->SetCertificateName(v); }
  void SetReuseAddressEnabled(bool v) override { inner_->SetReuseAddressEnabled(v); }

 private:
  std::unique_ptr<SocketCtl> inner_;
  SimLoop& loop_;
  const double& linger_;
  double closed_until_ = -1;
};

// Also the server's socket factory: its controls linger for `linger` seconds.
// Every test runs with strands and with one stack: a single connection must
// give the same reports at the same virtual times either way.
struct ServerFixture : public ::testing::TestWithParam<LoopMode>, public SocketFactory {
  ServerFixture() : sim(SimPlatform::kDefaultStart, {}, {}, GetParam()) {
    sim.platform.sockets = *this;
    server = std::make_unique<HTTPServer>(sim.platform);
    server->InternalState = [this](Variant& state, Variant& text) {
      EXPECT_EQ(Utf8(state), "");
      reports.push_back(Utf8(text));
    };
  }
  ~ServerFixture() override {
    linger = 0;
    server.reset();
  }
  std::unique_ptr<SocketCtl> Create() override {
    auto socket = std::make_unique<LingeringSocket>(net.Create(), sim.loop, linger);
    made.push_back(socket.get());
    return socket;
  }

  // Starts the server on `port` with `slots` slots and forgets the reports.
  void Start(int32_t port = 8080, int32_t slots = 5) {
    server->ServerPort(port);
    server->MaxConcurrentConnections(slots);
    server->ServerOpen(true);
    ASSERT_TRUE(server->ServerOpen());
    reports.clear();
  }
  // A peer that connects at `at` (default: now) and writes `request` 0.1 s later.
  std::shared_ptr<SimPeer> Request(const std::string& request, double at = -1) {
    if (at < 0) at = sim.loop.Elapsed();
    auto peer = net.Connect(8080, at);
    peer->Write(BytesToText(request), at + 0.1);
    return peer;
  }
  size_t CountOf(const std::string& prefix) const {
    size_t n = 0;
    for (const auto& r : reports) n += r.rfind(prefix, 0) == 0;
    return n;
  }
  // GETReceived answers `answer` (+ the slot number when `slot`), holding it open when `hold`.
  void AnswerGet(const Text& answer, bool hold = false, bool slot = false) {
    server->GETReceived = [=, this](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                                    Collection&, Collection&) {
      if (hold) server->Proceso_KeepOpen(idx, true);
      response = slot ? answer + idx.ToText() : answer;
    };
  }

  SimPlatform sim;
  SimNetwork net{sim.loop};
  double linger = 0;
  std::unique_ptr<HTTPServer> server;
  Strings reports;
  // Every control the server made, in order (listener, slot 0, slot 1, ...);
  // valid while the server holds it.
  std::vector<SocketCtl*> made;
};

inline std::string ModeName(const ::testing::TestParamInfo<LoopMode>& info) {
  return info.param == LoopMode::kStrands ? "Strands" : "OneStack";
}

}  // namespace varnek::testing

// Runs a suite of ServerFixture tests in both loop modes.
#define VARNEK_BOTH_LOOP_MODES(Suite)                                                 \
  INSTANTIATE_TEST_SUITE_P(                                                           \
      Modes, Suite,                                                                   \
      ::testing::Values(::varnek::LoopMode::kStrands, ::varnek::LoopMode::kOneStack), \
      ::varnek::testing::ModeName)
