// The comm control on any host loop, with scripted peers on its ports
// (platform/sim/line_peers.h): bytes take their time on the line at the
// set speed (10 bits a character), answers come after the peer's delay.
// Virtual time on the simulated loop, real time on the Linux loop.
//
//   SimCommFactory comms(sim.loop);
//   comms.Attach(1, std::make_shared<HayesModem>(std::make_shared<TapTerminal>()));
//   sim.platform.comms = comms;
#pragma once

#include <functional>
#include <map>
#include <set>
#include <memory>
#include <string>

#include "varnek/platform/comm.h"
#include "varnek/platform/host_loop.h"
#include "varnek/platform/sim/line_peers.h"

namespace varnek {

class SimCommFactory : public CommFactory {
 public:
  explicit SimCommFactory(HostLoop& loop) : loop_(loop) {}
  // Port `port` leads to `peer`; a port with no peer does not exist.
  void Attach(int32_t port, std::shared_ptr<LinePeer> peer) { peers_[port] = std::move(peer); }
  // Pulls the plug: the line of that port goes dead for whoever has it open.
  void Detach(int32_t port) { peers_.erase(port); }
  std::unique_ptr<CommCtl> Create(bool xm = false) override;

  // Every chunk on any line: to_peer true for what the system wrote.
  std::function<void(bool to_peer, const std::string& bytes)> on_traffic;

  std::shared_ptr<LinePeer> PeerOf(int32_t port) const {
    auto it = peers_.find(port);
    return it == peers_.end() ? nullptr : it->second;
  }
  HostLoop& loop() { return loop_; }
  // One control a port at a time: false when the port is taken already.
  bool Claim(int32_t port) { return busy_.insert(port).second; }
  void Release(int32_t port) { busy_.erase(port); }

 private:
  HostLoop& loop_;
  std::map<int32_t, std::shared_ptr<LinePeer>> peers_;
  std::set<int32_t> busy_;
};

}  // namespace varnek
