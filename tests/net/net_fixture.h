// Shared pieces of the network tests: an Adds on the simulated platform with
// a scripted network, and byte/text helpers.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/commands.h"
#include "varnek/adds/adds.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/sim_socket.h"

namespace varnek {

inline std::string Bytes(const Text& t) { return TextToBytes(t); }
inline Text Units(const std::string& s) { return BytesToText(s); }

// Adds on virtual time; gateways are scripted with net.Serve and keep their
// peers in `peers`.
struct SimNetFixture : public ::testing::Test {
  SimPlatform sim;
  SimNetwork& net = sim.net;
  Adds adds{sim.platform};
  std::unique_ptr<SocketCtl> sock = net.Create();
  std::vector<std::shared_ptr<SimPeer>> peers;
  // What the latest peer received.
  std::string Request() { return peers.empty() ? "" : Bytes(peers.back()->Received()); }
};

}  // namespace varnek
