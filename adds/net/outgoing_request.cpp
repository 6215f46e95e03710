// The shared steps of the library's outgoing requests (gateway post, GET).
#include "varnek/adds/net/outgoing_request_internal.h"

#include "varnek/adds/net/internal/net_waits.h"
#include "varnek/runtime/convert.h"

namespace varnek {

void OutgoingRequest::ApplySettings() {
  socket_.SetEventMask(kEveryControlEvent);
  socket_.SetLingerEnabled(true);
  socket_.SetLingerMode(1);
  socket_.SetLingerTime(2);
  socket_.SetBlocking(false);
  socket_.SetReuseAddressEnabled(true);
}

void OutgoingRequest::DropOpen(bool pump_first) {
  if (socket_.State() == kSocketClosed) return;
  if (pump_first) host_.DoEvents();
  socket_.Close();
  host_.DoEvents();
}

bool OutgoingRequest::ReachState(int32_t state, int64_t seconds) {
  net_waits::PumpWhileBefore(host_, net_waits::NowSeconds(host_) + seconds,
                             [&] { return socket_.State() != state; });
  return socket_.State() == state;
}

void OutgoingRequest::Drain(Text& into, const std::function<void()>& between) {
  while (socket_.ReceiveReadyCount() > 0) {
    between();
    into += socket_.ReceiveText();
  }
}

void OutgoingRequest::Drain(Variant& into, const std::function<void()>& between) {
  while (socket_.ReceiveReadyCount() > 0) {
    between();
    into = Variant(CStr(into) + socket_.ReceiveText());
  }
}

void OutgoingRequest::TakeWaiting(Variant& into) {
  if (socket_.ReceiveReadyCount() > 0) into = Variant(CStr(into) + socket_.ReceiveText());
}

}  // namespace varnek
