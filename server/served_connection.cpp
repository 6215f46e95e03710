// Which connection a running handler serves, so that a handler which waited
// while its client left acts on nothing once the slot carries a new client.
// A handler is told by its strand (one key for the whole stack in one-stack
// mode) and by its pump depth: whatever runs nested in its waits (a host
// timer, another connection's events) is not the handler itself.
#include "varnek/platform/host_loop.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

const void* ServerCore::StrandKey(StrandRef& holder) {
  if (loop().Mode() == LoopMode::kOneStack) return nullptr;
  holder = loop().CurrentStrand();
  return holder.get();
}

ServerCore::ServingScope::ServingScope(ServerCore* server, int32_t slot)
    : server_(server), alive_(server->alive_), key_(server->StrandKey(strand_)) {
  uint64_t connection = 0;
  if (slot >= 0 && slot < static_cast<int32_t>(server->slots_.size()) && server->slots_[slot]) {
    connection = server->slots_[slot]->connection;
  }
  server->serving_[key_].push_back({slot, connection, server->loop().PumpDepth()});
}

ServerCore::ServingScope::~ServingScope() {
  if (!*alive_) return;
  auto it = server_->serving_.find(key_);
  if (it == server_->serving_.end()) return;
  it->second.pop_back();
  if (it->second.empty()) server_->serving_.erase(it);
}

bool ServerCore::LeftBehind(int32_t index) {
  if (serving_.empty()) return false;
  StrandRef holder;
  auto it = serving_.find(StrandKey(holder));
  if (it == serving_.end()) return false;
  const ServedConnection& mine = it->second.back();
  if (mine.slot != index || mine.depth != loop().PumpDepth()) return false;
  if (index < 0 || index >= static_cast<int32_t>(slots_.size()) || !slots_[index]) return false;
  return slots_[index]->connection != mine.connection;
}

}  // namespace varnek
