// Shared pieces of the network tests: an Adds on the simulated platform with
// a scripted network, byte/text helpers and a folder of the test's own.
#pragma once

#include <stdlib.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/sim_socket.h"

namespace varnek {

inline std::string Bytes(const Text& t) { return TextToBytes(t); }
inline Text Units(const std::string& s) { return BytesToText(s); }

// A folder of the test's own under /tmp, removed with all it holds.
struct TempFolder {
  explicit TempFolder(const std::string& stem) {
    std::string pattern = "/tmp/varnek-" + stem + "-XXXXXX";
    if (mkdtemp(pattern.data())) path = pattern;
  }
  ~TempFolder() {
    std::error_code ignored;
    if (!path.empty()) std::filesystem::remove_all(path, ignored);
  }
  TempFolder(const TempFolder&) = delete;
  TempFolder& operator=(const TempFolder&) = delete;
  std::string path;
};

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
