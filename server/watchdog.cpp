// The watchdog tick: every 10 s, report the listener's health and close the
// slots silent for longer than WatchdogTimeout. Resume mode; pumps.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

// A held-open slot is closed like any other; only Proceso_Send and
// Proceso_Receive refresh the stamp. A timeout of 0 or below on a running
// server closes every open slot (a stamp of this very second too, if below).
void ServerCore::TimerWatchdog_Tick() {
  HandlerScope scope(this);
  Resume([&] {
    const Text on = listener_->Listening() ? u"ON" : u"OFF";
    Report(u"Watchdog - Servidor " + on + u" State:" + listener_->StateText() + u" Error:" +
           listener_->ErrorText());
  });
  for (int32_t i = 1; i <= UpperBound(); ++i) {
    bool expired = false;
    // The state first: a closed slot (most of a large pool) needs no date
    // arithmetic. Both parts fail alike, on a slot that is not loaded.
    Resume([&] {
      expired = Sock(i).State() != kSocketClosed &&
                DateDiff(u"s", StampOrNow(i), loop().Now()) > CInt(watchdog_timeout_);
    });
    if (!expired) continue;
    Resume([&] { Report(u"Watchdog - Forzando cerrado de motor " + CStr(Variant::Long(i))); });
    PauseCloseAndWait(i);
  }
}

}  // namespace varnek
