// Variable store, sorting and pauses of Adds: named values in the per-user
// settings store, Collection_Sort and Collection_FindIdxKey, and the waits that
// pump the host's event loop.
//
//   Variant family;                                   // empty: the app's title
//   adds.Var_VariableSet(u"NumMsg", 17, family);      // family is now "MyApp"
//   adds.Var_VariableSet(u"Rate", 2.5, u"Paging");    // a given family
//   adds.Var_VariableGet(u"NumMsg");                  // "17"
//   adds.DateTime_PausaTimer(0.5);                    // pumps for half a second
#pragma once

#include <cstdint>

#include "varnek/adds/adds_core.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class VariableStore : public virtual AddsCore {
 public:
  explicit VariableStore(Platform& platform) { Attach(platform); }

  // The settings group used when none is given.
  static constexpr const char16_t* kDefaultGroup = u"VarnekGlobal";

  // Stores NewContent's text under group / family / name in the per-user
  // settings store. A GlobalFamily that is missing or of length 0 becomes the
  // application's title, a GroupFamily likewise "VarnekGlobal". Every
  // argument is read through its text form (numbers as CStr writes them).
  // Always True. Open: a Null name, family, group or content fails with 94, a
  // failure of the store reaches the caller. Does not pump.
  //
  // Three forms: values (texts, numbers, temporaries; the defaults are used
  // and nothing is written back), and the family alone or the family and the
  // group as Variant variables, which receive the defaults they stood for.
  bool Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                       const Variant& GlobalFamily = Variant::Missing(),
                       const Variant& GroupFamily = Variant::Missing());
  bool Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                       Variant& GlobalFamily);
  bool Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                       Variant& GlobalFamily, Variant& GroupFamily);

  // The stored text as a String Variant, "" when the name was never set. The
  // address is settled as in Var_VariableSet, in the same three forms, and
  // defaults are written back the same way. Open. Does not pump.
  Variant Var_VariableGet(const Variant& NameVariable,
                          const Variant& GlobalFamily = Variant::Missing(),
                          const Variant& GroupFamily = Variant::Missing());
  Variant Var_VariableGet(const Variant& NameVariable, Variant& GlobalFamily);
  Variant Var_VariableGet(const Variant& NameVariable, Variant& GlobalFamily, Variant& GroupFamily);

  // Shell sort in place, ascending, through the list's own Remove and Add.
  // nSort 0 compares as Variants (numbers by value, texts by code unit), 1 as
  // binary texts, 2 as texts without case; any other value changes nothing.
  // The gap is Count / 2 rounded to even, halved the same way. Every item
  // moved is added again without its key, so keys are lost. Not stable. Open:
  // comparison failures reach the caller. Does not pump.
  void Collection_Sort(Collection& Col, int32_t nSort = 0);

  // The first position (Long) whose item, upper-cased, equals KeyToFind
  // upper-cased, or with Aproximated True matches KeyToFind & "*" by Like
  // (so "*", "?", "#" and "[...]" in the key act as wildcards); -1 (Integer)
  // when none does. Open: an item or key without a text form fails (Null 94),
  // an unclosed "[" fails with 93. Does not pump.
  Variant Collection_FindIdxKey(const Collection& Col, const Variant& KeyToFind,
                                bool Aproximated = false);

  // Waits until the calendar clock (whole seconds) reaches now + lAmtOfDelay
  // seconds, pumping the host loop all the while; indifferent to midnight;
  // 0 or negative returns at once without pumping. Returns Empty. Open.
  // Pumps: any handler may run inside.
  Variant DateTime_Pausa(int32_t lAmtOfDelay);

  // Waits Secs_interval seconds on the seconds-since-midnight clock, pumping.
  // When the end falls past midnight, the host is first held frozen, without
  // a pump, until the clock wraps (the Linux loop sleeps there, which is
  // observably the same), then pumps until the end in the new day. A handler
  // that returns past midnight while end was late in the day makes the wait
  // last until that time comes again; kept as it is. 0 returns without a
  // pump. Returns Empty. Open: a Null interval fails with 94. Pumps.
  Variant DateTime_PausaTimer(const Variant& Secs_interval);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  VariableStore() = default;

 private:
  // Settles the address: fills a missing or empty family and group.
  void SettleAddress(Variant& GlobalFamily, Variant& GroupFamily);
};

}  // namespace varnek
