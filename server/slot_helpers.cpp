// Small helpers the server's handlers share: reports, slot lookup by number,
// the per-slot arrays, and the waits that pump the host loop.
#include "varnek/adds/adds.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

Adds& ServerCore::adds() {
  if (!adds_) adds_ = std::make_unique<Adds>(*platform_);
  return *adds_;
}

void ServerCore::Report(const Text& text) {
  if (!InternalState) return;
  Variant state = u"";
  Variant state_string = text;
  const auto alive = alive_;
  InternalState(state, state_string);
  Outlived(alive);
}

int32_t ServerCore::UpperBound() const {
  int32_t upper = static_cast<int32_t>(slots_.size()) - 1;
  while (upper > 0 && !slots_[upper]) --upper;
  return upper < 0 ? 0 : upper;
}

ServerCore::Slot& ServerCore::SlotAt(int32_t index) {
  // A slot number that names no loaded element fails as a control array does.
  if (index < 0 || index >= static_cast<int32_t>(slots_.size()) || !slots_[index]) {
    Fail(kErrSubscript);
  }
  return *slots_[index];
}

SocketCtl& ServerCore::Sock(int32_t index) const {
  if (index < 0 || index >= static_cast<int32_t>(slots_.size()) || !slots_[index]) {
    Fail(kErrSubscript);
  }
  return *slots_[index]->socket;
}

// One pass over the pool with nothing but the state read per slot: the accept
// handler runs it for every connection, and a pool may hold 10,000 slots.
// Nothing in it can fail or pump, so it gives what a scan of Sock(i).State()
// from slot 1 up would.
int32_t ServerCore::LowestFreeSlot() const {
  const int32_t upper = UpperBound();
  for (int32_t i = 1; i <= upper; ++i) {
    const Slot* slot = slots_[i].get();
    if (slot && slot->socket->State() == kSocketClosed) return i;
  }
  return 0;
}

Variant& ServerCore::TextOf(int32_t index) {
  if (index < 0 || index >= static_cast<int32_t>(proceso_texto_.size())) Fail(kErrSubscript);
  return proceso_texto_[index];
}

Variant& ServerCore::ExtraOf(int32_t index) {
  if (index < 0 || index >= static_cast<int32_t>(proceso_extra_.size())) Fail(kErrSubscript);
  return proceso_extra_[index];
}

std::vector<bool>::reference ServerCore::KeepOpenOf(int32_t index) {
  if (index < 0 || index >= static_cast<int32_t>(proceso_keep_open_.size())) {
    Fail(kErrSubscript);
  }
  return proceso_keep_open_[index];
}

void ServerCore::ForgetText(Variant& text) {
  text = Variant();  // another kind of value: the text's buffer is freed
  text = u"";
}

void ServerCore::ForgetRequestRecords() {
  Adds& a = adds();
  a.Script_SecuenciaProcesa(Variant(Text()), Variant(u"\r\n"));
}

void ServerCore::Pause(double seconds) {
  const auto alive = alive_;
  Variant interval = seconds;
  adds().DateTime_PausaTimer(interval);
  Outlived(alive);
}

void ServerCore::DoEvents() {
  const auto alive = alive_;
  loop().DoEvents();
  Outlived(alive);
}

// Waits up to 10 seconds (whole-second clock) for the socket to read closed,
// pumping. `listener` selects SocketXListen; otherwise slot `index`, looked up
// afresh after every pump since a nested Stop may remove it.
void ServerCore::WaitClosed(SocketCtl* listener, int32_t index) {
  HostLoop& host = loop();
  const auto alive = alive_;
  const double deadline = DateAdd(u"s", 10, host.Now());
  // Blocks until an event or the deadline, so a wait burns no processor.
  host.PumpUntil(
      [&] {
        if (!*alive || !(host.Now() < deadline)) return true;
        const SocketCtl& socket = listener ? *listener : Sock(index);
        return socket.State() == kSocketClosed;
      },
      [&] { return (deadline - host.Now()) * 86400.0; });
  Outlived(alive);
}

void ServerCore::PauseCloseAndWait(int32_t index, bool resume) {
  const auto step = [resume](auto&& statement) {
    if (resume) {
      Resume(statement);
    } else {
      statement();
    }
  };
  uint64_t connection = 0;
  step([&] { connection = SlotAt(index).connection; });
  step([&] { Pause(1); });
  bool same = true;
  step([&] { same = SlotAt(index).connection == connection; });
  if (!same) return;
  step([&] { Sock(index).Close(); });
  step([&] { WaitClosed(nullptr, index); });
}

double ServerCore::StampOrNow(int32_t index) {
  double when = 0;
  const Text& stamp = SlotAt(index).motor_stamp;
  if (!ParseDateText(stamp, when)) when = loop().Now();
  return when;
}

Text ServerCore::NowText() { return DateToHostText(loop().Now()); }

}  // namespace varnek
