// Operations of the host on one connection (a Proceso): state, send, the
// polled receive of a held-open channel, close and the keep-open flag.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {

// The index check of every Proceso_ operation: lower bound 0, upper bound of
// the slot array. Element 0 passes.
bool InBounds(const Variant& index, int32_t upper, int32_t& out) {
  out = CLng(index);
  return out >= 0 && out <= upper;
}

}  // namespace

int32_t ServerCore::ProcesoStatus_Code(const Variant& Index) {
  int32_t state = 0;
  Resume([&] {
    int32_t i = 0;
    if (InBounds(Index, UpperBound(), i)) state = Sock(i).State();
  });
  return state;
}

Variant ServerCore::ProcesoStatus_String(const Variant& Index) {
  Variant text;
  Resume([&] {
    int32_t i = 0;
    if (InBounds(Index, UpperBound(), i)) text = Sock(i).StateText();
  });
  return text;
}

void ServerCore::Proceso_Send(const Variant& Index, const Variant& value) {
  int32_t i = 0;
  if (!InBounds(Index, UpperBound(), i) || LeftBehind(i)) return;
  Sock(i).Send(value);
  SetStamp(i, NowText());
}

Variant ServerCore::Proceso_Receive(const Variant& Index) {
  int32_t i = 0;
  if (!InBounds(Index, UpperBound(), i)) return Variant();
  if (LeftBehind(i)) return Variant(u"");
  Variant text = ExtraOf(i);
  SetStamp(i, NowText());
  ForgetText(ExtraOf(i));
  return text;
}

void ServerCore::Proceso_Close(const Variant& Index) {
  UnlessGone([&] {
    HandlerScope scope(this);
    int32_t i = 0;
    if (!Resume([&] {
          if (!InBounds(Index, UpperBound(), i)) i = -1;
        }) ||
        i < 0) {
      return;
    }
    if (LeftBehind(i)) return;
    bool open = false;
    Resume([&] { open = Sock(i).State() != kSocketClosed; });
    if (!open) return;
    PauseCloseAndWait(i);
  });
}

bool ServerCore::Proceso_KeepOpen(const Variant& Index) {
  int32_t i = 0;
  if (!InBounds(Index, UpperBound(), i)) return false;
  return KeepOpenOf(i);
}

void ServerCore::Proceso_KeepOpen(const Variant& Index, bool keep) {
  Resume([&] {
    int32_t i = 0;
    if (InBounds(Index, UpperBound(), i) && !LeftBehind(i)) KeepOpenOf(i) = keep;
  });
}

}  // namespace varnek
