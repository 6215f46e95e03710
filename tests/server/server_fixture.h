// A server on the simulated platform and network, with its reports collected,
// plus a socket factory whose closes can be made to linger.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "platform/sim/sim_platform.h"
#include "platform/sim/sim_socket.h"
#include "runtime/text.h"
#include "server/http_server.h"

namespace varnek {

// Reaches the handlers the socket control and the timer normally call.
struct HTTPServerTestAccess {
  static void Done(HTTPServer& s, int16_t slot, int32_t code) { s.SocketX_Done(slot, code); }
  static void Tick(HTTPServer& s) { s.TimerWatchdog_Tick(); }
};

}  // namespace varnek

namespace varnek::testing {

// Wraps the simulated controls; while `linger` is set, a closed control keeps
// reading State 8 (Closing) for that many virtual seconds after Close.
class LingeringNetwork : public SocketFactory {
 public:
  LingeringNetwork(SimNetwork& net, SimLoop& loop) : net_(net), loop_(loop) {}
  std::unique_ptr<SocketCtl> Create() override;
  double linger = 0;

 private:
  SimNetwork& net_;
  SimLoop& loop_;
};

struct ServerFixture : public ::testing::Test {
  ServerFixture();
  ~ServerFixture() override;

  // Starts the server on `port` with `slots` slots and forgets the reports.
  void Start(int32_t port = 8080, int32_t slots = 5);
  // A peer that connects at `at` and writes `request` 0.1 s later.
  std::shared_ptr<SimPeer> Request(const std::string& request, double at = -1, int32_t port = 8080);
  // The reports that begin with `prefix`, in order.
  std::vector<std::string> ReportsStartingWith(const std::string& prefix) const;
  // Index of the first report beginning with `prefix` at or after `from`; -1 if none.
  int IndexOf(const std::string& prefix, int from = 0) const;

  SimPlatform sim;
  SimNetwork net{sim.loop};
  LingeringNetwork lingering{net, sim.loop};
  std::unique_ptr<HTTPServer> server;
  std::vector<std::string> reports;
};

inline std::string Utf8(const Variant& v) { return v.ToUtf8(); }
inline std::string Utf8(const Text& t) { return TextToUtf8(t); }

}  // namespace varnek::testing
