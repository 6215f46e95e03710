// The three connection handlers: accepting into the lowest free slot (after a
// sweep of stale slots), deciding when a request text is complete, and acting
// on finished socket operations. All run in resume mode and pump.
#include <optional>

#include "varnek/adds/adds.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {

const char16_t* OperationName(int32_t code) {
  switch (code) {
    case kOpCreate: return u"Create";
    case kOpBind: return u"Bind";
    case kOpClose: return u"Close";
    case kOpConnect: return u"Connect";
    case kOpListen: return u"Listen";
    case kOpReceive: return u"Receive";
    case kOpReceiveFrom: return u"ReceiveFrom";
    case kOpSend: return u"Send";
    case kOpSendTo: return u"SendTo";
    default: return u"";
  }
}

Text Number(int32_t value) { return CStr(Variant::Long(value)); }

}  // namespace

// A peer asks to connect. Sweeps slots silent for 6 or more minute boundaries,
// then gives the connection to the lowest free slot; with none free the handle
// is left untaken and nothing is reported or sent.
void ServerCore::SocketXListen_Accept(int32_t handle) {
  HandlerScope scope(this);
  Resume([&] { Report([&] { return u"Server - Solicitud Handle " + Number(handle); }); });

  SweepStaleSlots();
  DoEvents();

  const int32_t chosen = LowestFreeSlot();
  if (chosen == 0 || AddressHasItsShare(handle)) return;
  const int32_t i = chosen;
  std::optional<ServingScope> serving;

  Resume([&] { ForgetText(TextOf(i)); });
  Resume([&] { ForgetText(ExtraOf(i)); });
  Resume([&] { KeepOpenOf(i) = false; });
  Resume([&] { Sock(i).SetAcceptHandle(handle); });
  Resume([&] { SlotAt(i).connection = ++connections_taken_; });
  serving.emplace(this, i);
  Resume([&] { SetStamp(i, NowText()); });
  Resume([&] { Report([&] { return u"Server - Asignando el motor " + Number(i); }); });
  DoEvents();

  bool welcome = false;
  // Only Empty and "" mean "no welcome"; a Null takes the welcome's path and
  // its Send fails, which still leaves the slot held open.
  Resume([&] { welcome = !welcome_.IsEmpty() && (welcome_.IsNull() || CStr(welcome_) != u""); });
  if (!welcome) return;
  Resume([&] { Report([&] { return u"Server - Enviando bienvenida al motor " + Number(i); }); });
  Resume([&] { KeepOpenOf(i) = true; });
  Resume([&] { Pause(1); });
  Resume([&] {
    if (!LeftBehind(i)) Sock(i).Send(welcome_);
  });
}

// With MaxConnectionsPerAddress set: true when the offered connection's peer
// already holds that many slots (connected or closing).
bool ServerCore::AddressHasItsShare(int32_t handle) {
  if (max_per_address_ <= 0) return false;
  bool full = false;
  Resume([&] {
    const Text address = listener_->OfferedAddress(handle);
    int32_t held = 0;
    for (int32_t k = 1; k <= UpperBound(); ++k) {
      if (Sock(k).State() != kSocketClosed && Sock(k).RemoteAddress() == address) ++held;
    }
    full = held >= max_per_address_;
  });
  return full;
}

// Data waits on slot `index`. The request counts as complete once the waiting
// byte count has not grown for half a second, or 60 s after the first event.
void ServerCore::SocketX_ReceiveReady(int16_t index) {
  HandlerScope scope(this);
  ServingScope serving(this, index);
  DoEvents();
  double start = 0;
  Resume([&] { start = loop().Now(); });
  int32_t last = 0;
  for (;;) {
    bool leave = true;
    Resume([&] {
      const int32_t count = Sock(index).ReceiveReadyCount();
      const int64_t seconds = DateDiff(u"s", start, loop().Now());
      leave = !(count > last) || seconds > 60;
    });
    if (leave) break;
    Resume([&] { last = Sock(index).ReceiveReadyCount(); });
    Resume([&] { Pause(0.5); });
  }
  Resume([&] {
    if (!LeftBehind(index)) Sock(index).Receive(kReceiveText);
  });
}

// After an answer went out (or the slot lost its peer): forget the text and
// close unless the socket is already closed; nothing once the slot carries
// another connection. Pumps up to 11 s.
void ServerCore::CloseAfterAnswer(int16_t index) {
  if (LeftBehind(index)) return;
  Resume([&] { ForgetText(TextOf(index)); });
  bool open = false;
  Resume([&] { open = Sock(index).State() != kSocketClosed; });
  if (!open) return;
  PauseCloseAndWait(index);
}

// An asynchronous operation finished on slot `index`. The report comes last,
// so reports of operations that finish inside this handler's pauses precede it.
void ServerCore::SocketX_Done(int16_t index, int32_t code) {
  HandlerScope scope(this);
  ServingScope serving(this, index);
  const char16_t* const name = OperationName(code);
  switch (code) {
    case kOpClose: {
      bool open = false;
      Resume([&] { open = Sock(index).State() != kSocketClosed; });
      if (open) {
        Resume([&] { Pause(1); });
        if (LeftBehind(index)) break;
        Resume([&] { Sock(index).Close(); });
        DoEvents();
      }
      if (LeftBehind(index)) break;
      Resume([&] { SlotAt(index).motor_stamp.clear(); });
      Resume([&] { ForgetText(TextOf(index)); });
      break;
    }
    case kOpReceive: {
      DoEvents();
      if (LeftBehind(index)) break;
      bool busy = false;
      Resume([&] { busy = CStr(TextOf(index)) != u""; });
      if (busy) {
        // A request is in work on this slot: the data is kept for Proceso_Receive.
        Resume([&] { ExtraOf(index) = CStr(ExtraOf(index)) + CStr(Sock(index).ReceivedData()); });
        break;
      }
      Variant text;
      Resume([&] {
        text = Sock(index).ReceivedData();  // already a text from the socket: no second copy
        if (!text.IsString()) text = CStr(text);
      });
      Resume([&] { TextOf(index) = text; });
      // The slot number goes by reference: a host that names another slot in
      // its event moves the rest of this handler (keep-open test, close,
      // report) to that slot as well.
      Resume([&] { Procesar_Recibido(index, text); });
      Resume([&] { ForgetRequestRecords(); });
      bool keep = false;
      Resume([&] { keep = KeepOpenOf(index); });
      if (!keep) CloseAfterAnswer(index);
      break;
    }
    case kOpSend: {
      bool keep = false;
      Resume([&] { keep = KeepOpenOf(index); });
      if (!keep) CloseAfterAnswer(index);
      break;
    }
    default: break;
  }
  Resume([&] {
    Report([&] {
      return u"Evento (" + Number(index) + u")- Done:" + name + u" Now:" + Sock(index).StateText();
    });
  });
  DoEvents();
}

}  // namespace varnek
