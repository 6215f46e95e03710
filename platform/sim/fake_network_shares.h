// Network resources for tests: a browse tree held in memory, recorded drive
// mappings and set answers for universal names and local shares.
#pragma once

#include <map>
#include <utility>
#include <vector>

#include "varnek/platform/network_shares.h"

namespace varnek {

class FakeNetworkShares : public NetworkShares {
 public:
  // The children of each node, by the start text that opens it: "" for the
  // top, otherwise the remote name (or provider) cut at its first NUL.
  std::map<Text, std::vector<NetResource>> tree;
  std::vector<Text> opened;                         // each OpenEnum's start text, "<top>" for none
  std::vector<std::pair<Text, Text>> connected;     // (remote, local)
  std::vector<std::pair<Text, int32_t>> cancelled;  // (local, force)
  int32_t connect_status = 0;
  int32_t universal_status = kNotConnected;
  Text universal_name;
  std::vector<ShareInfo> local_shares;
  Text machine_name = u"SIMHOST";

  std::unique_ptr<ResourceEnumeration> OpenEnum(const NetResource* start) override {
    Text key;
    if (start) {
      key = start->remote_name.empty() ? start->provider : start->remote_name;
      key = key.substr(0, key.find(u'\0'));
    }
    opened.push_back(start ? key : Text(u"<top>"));
    auto it = tree.find(key);
    if (it == tree.end()) return nullptr;
    return std::make_unique<List>(it->second);
  }
  int32_t AddConnection(const Text& remote, const Text&, const Text& local) override {
    connected.emplace_back(remote, local);
    return connect_status;
  }
  int32_t CancelConnection(const Text& local, int32_t force) override {
    cancelled.emplace_back(local, force);
    return connect_status;
  }
  int32_t GetUniversalName(const Text&, Text& universal) override {
    universal = universal_name;
    return universal_status;
  }
  std::vector<ShareInfo> LocalShares() override { return local_shares; }
  Text MachineName() override { return machine_name; }

 private:
  class List : public ResourceEnumeration {
   public:
    explicit List(std::vector<NetResource> items) : items_(std::move(items)) {}
    int32_t Next(NetResource& entry) override {
      if (next_ >= items_.size()) return kNoMoreItems;
      entry = items_[next_++];
      return 0;
    }

   private:
    std::vector<NetResource> items_;
    size_t next_ = 0;
  };
};

}  // namespace varnek
