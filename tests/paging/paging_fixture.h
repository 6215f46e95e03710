// Shared setup of the paging tests: a simulated platform on virtual time, a
// simulated comm factory whose port 1 leads to a scripted peer, and Adds.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "varnek/adds/adds.h"
#include "varnek/platform/sim/line_peers.h"
#include "varnek/platform/sim/sim_comm.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "tests/runtime/test_util.h"

namespace varnek {

struct PagingTest : ::testing::Test {
  SimPlatform sim;
  SimCommFactory& comms = sim.comms;
  Adds adds{sim.platform};
  std::unique_ptr<CommCtl> comm = comms.Create();
  std::string sent, heard;  // all bytes each way on the line

  explicit PagingTest(double start = SimPlatform::kDefaultStart) : sim(start) {
    comms.on_traffic = [this](bool to_peer, const std::string& bytes) {
      (to_peer ? sent : heard) += bytes;
    };
  }

  template <class Peer>
  std::shared_ptr<Peer> Attach(std::shared_ptr<Peer> peer, int32_t port = 1) {
    comms.Attach(port, peer);
    return peer;
  }
  // Opens port 1 at 1200,N,8,1 without dialling.
  void Open() { ASSERT_TRUE(adds.SERIAL_Connect(*comm, 1, 1200, 8, true, 1, u"", u"", 45)); }
  double Elapsed() const { return sim.loop.Elapsed(); }
  // The virtual seconds `step` takes.
  template <class Step>
  double Timed(Step step) {
    const double start = Elapsed();
    step();
    return Elapsed() - start;
  }
};

}  // namespace varnek
