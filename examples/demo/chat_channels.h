// The demo host's raw chat channels: a slot held open after a GET of /chat,
// polled every 100 ms; each text comes back as "echo: " and the text, "bye"
// ends the channel. A channel belongs to the connection that opened it, not
// to its slot number: once the server has given the slot to another
// connection, the poller leaves that slot alone; once its peer has closed
// (the slot reads Closing), the poller drops the channel and closes the slot.
#pragma once

#include <cstdint>
#include <map>
#include <memory>

#include "varnek/platform/host_loop.h"
#include "varnek/runtime/text.h"
#include "varnek/server/http_server.h"

namespace varnek::demo {

class ChatChannels {
 public:
  explicit ChatChannels(HTTPServer& server);

  // Inside the GET of /chat on `slot`: holds the slot open as a channel of
  // the connection it has now. Returns the answer's text.
  Text Open(int16_t slot);
  // Every InternalState text of the server goes through here: its report of
  // a slot given to a new connection ("Server - Asignando el motor " and the
  // slot) is how a channel knows that its connection is no longer there.
  void NoteReport(const Text& text);
  // Channels still polled.
  size_t Count() const { return channels_.size(); }

 private:
  // One pass over the channels; runs on the timer while any is open.
  void Poll();

  HTTPServer& server_;
  std::unique_ptr<LoopTimer> timer_;
  std::map<int16_t, uint64_t> assigned_;  // per slot: connections the server gave it
  struct Channel {
    uint64_t connection = 0;  // its slot's count of connections when it opened
    int passes_since_peer_closed = 0;
  };
  std::map<int16_t, Channel> channels_;  // open channels by slot
};

}  // namespace varnek::demo
