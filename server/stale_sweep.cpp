// The accept handler's sweep of stale slots, and the stamps it reads.
//
// A slot is stale when it is not free and its stamp lies 6 or more minute
// boundaries back. The server keeps a bound at or before the stamp of every
// slot that is not free: a slot leaves the free state only through an accept,
// which stamps it, and every stamp is written through SetStamp. While the
// bound itself is not stale no slot can be, and the walk is skipped; after a
// walk the bound is taken afresh from the slots that are not free.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {

bool IsStale(double stamp, double now) { return DateDiff(u"n", stamp, now) > 5; }

// True when `when` lies before `bound` (or there is none yet).
bool Earlier(double when, const std::optional<double>& bound) {
  return !bound || DateDiff(u"s", when, *bound) > 0;
}

}  // namespace

void ServerCore::SetStamp(int32_t index, const Text& stamp) {
  SlotAt(index).motor_stamp = stamp;
  double when = 0;
  if (ParseDateText(stamp, when) && Earlier(when, oldest_busy_stamp_)) oldest_busy_stamp_ = when;
}

// Closes, slot by slot, those silent for 6 or more minute boundaries, each
// after its report and the 1 s pause. Resume mode; pumps only when a slot is
// stale.
void ServerCore::SweepStaleSlots() {
  if (!oldest_busy_stamp_ || !IsStale(*oldest_busy_stamp_, loop().Now())) return;
  for (int32_t i = 1; i <= UpperBound(); ++i) {
    bool stale = false;
    // The state first: a closed slot (most of a large pool) needs no date
    // arithmetic. A failure of either part leaves the slot alone.
    Resume(
        [&] { stale = Sock(i).State() != kSocketClosed && IsStale(StampOrNow(i), loop().Now()); });
    if (!stale) continue;
    Resume([&] { Report(u"Server - Forzando cerrado del motor " + CStr(Variant::Long(i))); });
    PauseCloseAndWait(i);
  }
  // A stamp that does not read as a date counts as now: never stale.
  oldest_busy_stamp_.reset();
  for (int32_t i = 1; i <= UpperBound(); ++i) {
    Resume([&] {
      double when = 0;
      if (Sock(i).State() != kSocketClosed && ParseDateText(SlotAt(i).motor_stamp, when) &&
          Earlier(when, oldest_busy_stamp_)) {
        oldest_busy_stamp_ = when;
      }
    });
  }
}

}  // namespace varnek
