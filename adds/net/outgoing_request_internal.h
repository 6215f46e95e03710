// The steps of a request the library sends on the host's socket control, as
// the gateway post and the GET take them: the control's settings, dropping
// what an earlier use left open, waiting for a state within a limit, and
// draining what arrived. Each routine keeps its own target parsing, request
// text and end test, and closes with Network::CloseAndWait.
#pragma once

#include <cstdint>
#include <functional>

#include "varnek/platform/host_loop.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/variant.h"

namespace varnek {

// The event mask of an outgoing request: all six of the control's events.
inline constexpr int32_t kEveryControlEvent = 63;

class OutgoingRequest {
 public:
  OutgoingRequest(HostLoop& host, SocketCtl& socket) : host_(host), socket_(socket) {}

  // Every event reported, a close that lingers up to 2 s, non-blocking, the
  // local address reusable.
  void ApplySettings();
  // Closes the control if an earlier use left it open, pumping once after
  // the close (and before it too with `pump_first`). Does nothing on a
  // closed control.
  void DropOpen(bool pump_first);
  // Pumps until the control reads `state` or the whole-second clock passes
  // `seconds` from now; true when it reads `state` then.
  bool ReachState(int32_t state, int64_t seconds);
  // While data waits: runs `between` (a pump or a pause), then appends what
  // is waiting to `into`. The Variant form stores each part as it comes, so
  // what arrived before a failure stays in it.
  void Drain(Text& into, const std::function<void()>& between);
  void Drain(Variant& into, const std::function<void()>& between);
  // Appends what is waiting, if anything, to `into`; an Empty `into` stays
  // Empty when nothing waits.
  void TakeWaiting(Variant& into);

 private:
  HostLoop& host_;
  SocketCtl& socket_;
};

}  // namespace varnek
