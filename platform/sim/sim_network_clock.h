// Network time on the virtual clock: servers answer from a table after a
// virtual delay; unknown ones stay silent until the time limit and answer
// nullopt. The local clock is the loop's date read as UTC with the set zone.
#pragma once

#include <cmath>
#include <map>
#include <vector>

#include "varnek/platform/network_clock.h"
#include "varnek/platform/sim/sim_loop.h"
#include "varnek/runtime/date_math.h"

namespace varnek {

class SimNetworkClock : public NetworkClock {
 public:
  explicit SimNetworkClock(SimLoop& loop) : loop_(loop) {}

  void Query(const Text& server, Answer done) override {
    asked.push_back(server);
    Text bare = BareServerName(server);
    if (bare.empty()) {
      double linear = LinearFromDate(loop_.ExactNow());
      auto seconds = static_cast<int64_t>(std::floor((linear - 25569.0) * 86400.0 + 0.5));
      TimeOfDayInfo info = TimeOfDayFromUnix(seconds, 0, local_minutes_west);
      loop_.After(0, [done = std::move(done), info] { done(info); });
      return;
    }
    auto it = servers.find(bare);
    if (it == servers.end()) {
      loop_.After(time_limit, [done = std::move(done)] { done(std::nullopt); });
    } else {
      loop_.After(delay, [done = std::move(done), info = it->second] { done(info); });
    }
  }

  std::map<Text, TimeOfDayInfo> servers;  // by bare name
  std::vector<Text> asked;                // every server text as the logic passed it
  int32_t local_minutes_west = 0;
  double delay = 0.05;
  double time_limit = 3.0;

 private:
  SimLoop& loop_;
};

}  // namespace varnek
