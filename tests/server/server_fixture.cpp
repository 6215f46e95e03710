// The simulated server fixture and the lingering socket decorator.
#include "tests/server/server_fixture.h"

namespace varnek::testing {

namespace {

class LingeringSocket : public SocketCtl {
 public:
  LingeringSocket(std::unique_ptr<SocketCtl> inner, SimLoop& loop, const double& linger)
      : inner_(std::move(inner)), loop_(loop), linger_(linger) {
    inner_->on_connection_request = [this](int32_t h) {
      if (on_connection_request) on_connection_request(h);
    };
    inner_->on_receive_ready = [this] {
      if (on_receive_ready) on_receive_ready();
    };
    inner_->on_done = [this](int32_t op) {
      if (on_done) on_done(op);
    };
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

}  // namespace

std::unique_ptr<SocketCtl> LingeringNetwork::Create() {
  return std::make_unique<LingeringSocket>(net_.Create(), loop_, linger);
}

ServerFixture::ServerFixture() {
  sim.platform.sockets = &lingering;
  server = std::make_unique<HTTPServer>(sim.platform);
  server->InternalState = [this](Variant& state, Variant& text) {
    EXPECT_EQ(Utf8(state), "");
    reports.push_back(Utf8(text));
  };
}

ServerFixture::~ServerFixture() {
  lingering.linger = 0;
  server.reset();
}

void ServerFixture::Start(int32_t port, int32_t slots) {
  server->ServerPort(port);
  server->MaxConcurrentConnections(slots);
  server->ServerOpen(true);
  ASSERT_TRUE(server->ServerOpen());
  reports.clear();
}

std::shared_ptr<SimPeer> ServerFixture::Request(const std::string& request, double at,
                                                int32_t port) {
  if (at < 0) at = sim.loop.Elapsed();
  auto peer = net.Connect(port, at);
  peer->Write(BytesToText(request), at + 0.1);
  return peer;
}

std::vector<std::string> ServerFixture::ReportsStartingWith(const std::string& prefix) const {
  std::vector<std::string> found;
  for (const auto& r : reports) {
    if (r.rfind(prefix, 0) == 0) found.push_back(r);
  }
  return found;
}

int ServerFixture::IndexOf(const std::string& prefix, int from) const {
  for (int i = from; i < static_cast<int>(reports.size()); ++i) {
    if (reports[i].rfind(prefix, 0) == 0) return i;
  }
  return -1;
}

}  // namespace varnek::testing
