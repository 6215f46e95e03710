// The same server behaviour on every backend that runs without a display:
// simulated time, Varnek's own epoll loop, a host's poll loop (ExternalLoop)
// and a host's GLib context, each in both loop modes. Real backends serve
// loopback clients on a thread while the test's "host" drives its loop.
#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <functional>
#include <future>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/loopback.h"
#include "tests/support/pump.h"
#include "tests/support/type_names.h"
#include "varnek/platform/linux/external_loop.h"
#include "varnek/platform/linux/glib/glib_loop.h"
#include "varnek/platform/platform.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/sim_socket.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/http_server.h"

namespace varnek {
namespace {

// What a test sees of one request (Answer): the answer, and when it was
// complete, in seconds since the exchange began (virtual on the simulated
// backend).

// A host callback `at` seconds into the exchange, run by the host's loop.
struct HostCall {
  double at = 0;
  std::function<void()> fn;
};

class SimHost {
 public:
  static constexpr const char* kName = "Simulated";
  explicit SimHost(LoopMode mode) : sim_(SimPlatform::kDefaultStart, {}, {}, mode) {}
  Platform& platform() { return sim_.platform; }
  HostLoop& loop() { return sim_.loop; }
  std::vector<Answer> Exchange(const std::vector<std::string>& requests, HostCall call = {}) {
    const double start = sim_.loop.Elapsed();
    std::vector<std::shared_ptr<SimPeer>> peers;
    for (const auto& r : requests) {
      peers.push_back(sim_.net.Connect(8080, start));
      peers.back()->Write(BytesToText(r), start + 0.1);
    }
    std::vector<Answer> answers(requests.size());
    if (call.fn) sim_.loop.After(call.at, call.fn);
    while (sim_.loop.Elapsed() - start < 30) {
      sim_.loop.Pump(0.05);
      for (size_t k = 0; k < peers.size(); ++k) {
        if (answers[k].at < 0 && (peers[k]->ClosedByServer() || peers[k]->Refused())) {
          answers[k] = {TextToBytes(peers[k]->Received()), sim_.loop.Elapsed() - start};
        }
      }
      if (std::all_of(answers.begin(), answers.end(), [](const Answer& a) { return a.at >= 0; }))
        break;
    }
    return answers;
  }

 private:
  SimPlatform sim_;
};

// The real backends share the clients; each drives its loop its own way.
template <class Loop>
class RealHost {
 public:
  explicit RealHost(std::unique_ptr<Loop> loop)
      : loop_(std::move(loop)), platform_(LinuxPlatformOn(*loop_)) {}
  virtual ~RealHost() = default;
  Platform& platform() { return platform_; }
  HostLoop& loop() { return *loop_; }
  // One turn of the host's loop, blocking at most about 20 ms.
  virtual void Step() = 0;
  // Arranges the host's call; by default the host makes it between turns.
  virtual void Schedule(HostCall call) { call_ = std::move(call); }

  std::vector<Answer> Exchange(const std::vector<std::string>& requests, HostCall call = {}) {
    const auto start = SteadyClock::now();
    auto clients =
        std::async(std::launch::async, [&] { return ExchangeAtOnce(port, requests, 30); });
    if (call.fn) Schedule(std::move(call));
    while (clients.wait_for(std::chrono::seconds(0)) != std::future_status::ready) {
      Step();
      if (call_.fn && SecondsSince(start) >= call_.at) std::exchange(call_.fn, nullptr)();
    }
    return clients.get();
  }
  int port = 0;

 protected:
  HostCall call_;
  std::unique_ptr<Loop> loop_;
  Platform& platform_;
};

class OwnLoopHost : public RealHost<LinuxLoop> {
 public:
  static constexpr const char* kName = "Epoll";
  explicit OwnLoopHost(LoopMode mode) : RealHost(std::make_unique<LinuxLoop>(mode)) {}
  void Step() override { loop_->Pump(0.02); }
};

class PollHost : public RealHost<ExternalLoop> {
 public:
  static constexpr const char* kName = "External";
  explicit PollHost(LoopMode mode) : RealHost(std::make_unique<ExternalLoop>(mode)) {}
  void Step() override {
    pollfd fd{loop_->Descriptor(), POLLIN, 0};
    const int varnek = loop_->TimeoutMilliseconds();
    poll(&fd, 1, varnek < 0 ? 20 : std::min(varnek, 20));
    loop_->RunReady();
  }
};

class GLibHost : public RealHost<GLibLoop> {
 public:
  static constexpr const char* kName = "GLib";
  explicit GLibHost(LoopMode mode) : GLibHost(g_main_context_new(), mode) {}
  GLibHost(GMainContext* context, LoopMode mode)
      : RealHost(std::make_unique<GLibLoop>(context, mode)), context_(context) {
    // The host's own timer: no iteration blocks longer than its period.
    tick_ = g_timeout_source_new(20);
    g_source_set_callback(
        tick_, [](gpointer) -> gboolean { return G_SOURCE_CONTINUE; }, nullptr, nullptr);
    g_source_attach(tick_, context_);
  }
  ~GLibHost() override {
    g_source_destroy(tick_);
    g_source_unref(tick_);
    loop_.reset();
    g_main_context_unref(context_);
  }
  void Step() override { g_main_context_iteration(context_, TRUE); }
  // A callback of GLib's own, dispatched by the host's context.
  void Schedule(HostCall call) override {
    GSource* once = g_timeout_source_new(static_cast<guint>(call.at * 1000));
    g_source_set_callback(
        once,
        [](gpointer data) -> gboolean {
          (*static_cast<std::function<void()>*>(data))();
          return G_SOURCE_REMOVE;
        },
        new std::function<void()>(std::move(call.fn)),
        [](gpointer data) { delete static_cast<std::function<void()>*>(data); });
    g_source_attach(once, context_);
    g_source_unref(once);
  }

 private:
  GMainContext* context_ = nullptr;
  GSource* tick_ = nullptr;
};

template <class Host>
class ServerOnBackend : public ::testing::Test {
 protected:
  // Each test runs in both loop modes; `body` gets a started server.
  void ForBothModes(
      const std::function<void(Host&, std::unique_ptr<HTTPServer>&, LoopMode)>& body) {
    for (LoopMode mode : {LoopMode::kStrands, LoopMode::kOneStack}) {
      SCOPED_TRACE(mode == LoopMode::kStrands ? "strands" : "one stack");
      auto host = std::make_unique<Host>(mode);
      auto server = std::make_unique<HTTPServer>(host->platform());
      server->MaxConcurrentConnections(40);
      StartServer(*host, *server);
      body(*host, server, mode);
    }
  }
  static void StartServer(SimHost&, HTTPServer& server) {
    server.ServerPort(8080);
    server.ServerOpen(true);
    ASSERT_TRUE(server.ServerOpen());
  }
  template <class Real>
  static void StartServer(Real& host, HTTPServer& server) {
    for (int attempt = 0; attempt < 20 && !server.ServerOpen(); ++attempt) {
      host.port = RandomServerPort();
      server.ServerPort(host.port);
      server.ServerOpen(true);
    }
    ASSERT_TRUE(server.ServerOpen());
  }
};

// A page for "/" and one that pauses 2 s first (the pause pumps: a wait).
void AnswerPages(std::unique_ptr<HTTPServer>& owner) {
  HTTPServer* server = owner.get();
  server->GETReceived = [server, &owner](Variant& url, Variant&, Variant&, Variant& response,
                                         Variant&, Collection&, Collection&) {
    if (url.ToText() == u"/slow/") {
      // A host call in the pause may destroy the server, this closure with it.
      const std::unique_ptr<HTTPServer>* held = &owner;
      server->loop().PauseTimer(2);
      if (!*held) return;
    }
    const Text body = u"page " + url.ToText();
    response = CStr(server->http_Header(e200_OK, eTextHTML, Len(body))) + body;
  };
}

using Hosts = ::testing::Types<SimHost, OwnLoopHost, PollHost, GLibHost>;
TYPED_TEST_SUITE(ServerOnBackend, Hosts, TypeNames);

TYPED_TEST(ServerOnBackend, SimultaneousGetsAreAllAnsweredEachOnItsStrandOrNested) {
  this->ForBothModes([](TypeParam& host, std::unique_ptr<HTTPServer>& server, LoopMode mode) {
    AnswerPages(server);
    // One stack serves them one after another, 1.5 s each: fewer there.
    const size_t clients = mode == LoopMode::kStrands ? 20 : 3;
    const auto answers = host.Exchange(std::vector<std::string>(clients, "GET / HTTP/1.0\r\n\r\n"));
    for (const Answer& a : answers) {
      EXPECT_EQ(a.text.rfind("HTTP/1.0 200", 0), 0u) << a.text;
      EXPECT_NE(a.text.find("page /"), std::string::npos);
    }
    // Waits of different connections ran side by side, or nested on one stack.
    if (mode == LoopMode::kStrands) {
      EXPECT_GT(host.loop().MaxLiveStrands(), 1);
    } else {
      EXPECT_GT(host.loop().MaxPumpDepth(), 1);
    }
  });
}

TYPED_TEST(ServerOnBackend, AWaitingHandlerHoldsOnlyItsOwnConnection) {
  this->ForBothModes([](TypeParam& host, std::unique_ptr<HTTPServer>& server, LoopMode mode) {
    AnswerPages(server);
    const auto answers =
        host.Exchange({"GET /slow HTTP/1.0\r\n\r\n", "GET /fast HTTP/1.0\r\n\r\n"});
    ASSERT_EQ(answers.size(), 2u);
    EXPECT_NE(answers[0].text.find("page /slow/"), std::string::npos);
    EXPECT_NE(answers[1].text.find("page /fast/"), std::string::npos);
    // With strands the fast page is done while the slow one still pauses.
    if (mode == LoopMode::kStrands) {
      EXPECT_LT(answers[1].at, answers[0].at);
    }
  });
}

TYPED_TEST(ServerOnBackend, DestroyingTheServerInAHostCallbackWhileAHandlerWaitsIsSafe) {
  // On one stack the callback may run nested in the handler's own wait.
  this->ForBothModes([](TypeParam& host, std::unique_ptr<HTTPServer>& server, LoopMode) {
    AnswerPages(server);
    // The host's own callback ends the server 1 s into the slow page's pause.
    const auto answers =
        host.Exchange({"GET /slow HTTP/1.0\r\n\r\n"}, HostCall{1.0, [&] { server.reset(); }});
    ASSERT_EQ(answers.size(), 1u);
    EXPECT_FALSE(server);
    EXPECT_GE(answers[0].at, 0);  // the connection ended, within the limit
  });
}

}  // namespace
}  // namespace varnek
