// The variable store on the settings store, the Shell sort and search of a
// Collection, and the two pumping pauses.
#include "varnek/adds/store/variable_store.h"

#include <algorithm>
#include <cmath>

#include "varnek/runtime/compare.h"
#include "varnek/runtime/like.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

bool MissingOrEmpty(const Variant& v) {
  // Len(Null) is Null, which no test passes: a Null stays and fails later.
  return v.IsMissing() || (!v.IsNull() && v.ToText().empty());
}

// Count / 2 and the later halvings: to the nearest integer, ties to even.
int32_t HalfRoundedToEven(int32_t n) {
  int32_t half = n / 2;
  if (n % 2 != 0 && half % 2 != 0) ++half;  // x.5 goes to the even neighbour
  return half;
}

// "item sorts before other" by the sort mode.
bool SortsBefore(const Variant& item, const Variant& other, int32_t mode) {
  switch (mode) {
    case 0: return VariantLess(item, other);
    case 1:
    case 2:
      // StrComp of a Null is Null, which is not -1.
      if (item.IsNull() || other.IsNull()) return false;
      return StrComp(item.ToText(), other.ToText(),
                     mode == 1 ? CompareMode::Binary : CompareMode::TextCompare) == -1;
    default: return false;
  }
}

// Puts value at `position` of the list, or at the end when that is past it.
void AddAt(Collection& col, const Variant& value, int32_t position) {
  if (position > col.Count()) {
    col.Add(value);
  } else {
    col.Add(value, Variant::Missing(), Variant::Long(position));
  }
}

}  // namespace

void VariableStore::SettleAddress(Variant& GlobalFamily, Variant& GroupFamily) {
  if (MissingOrEmpty(GlobalFamily)) GlobalFamily = Variant(platform().app->Title());
  if (MissingOrEmpty(GroupFamily)) GroupFamily = Variant(kDefaultGroup);
}

bool VariableStore::Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                                    Variant& GlobalFamily, Variant& GroupFamily) {
  SettleAddress(GlobalFamily, GroupFamily);
  platform().settings->Set(GroupFamily.ToText(), GlobalFamily.ToText(), NameVariable.ToText(),
                           NewContent.ToText());
  return true;
}

bool VariableStore::Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                                    const Variant& GlobalFamily, const Variant& GroupFamily) {
  Variant family = GlobalFamily, group = GroupFamily;
  return Var_VariableSet(NameVariable, NewContent, family, group);
}
bool VariableStore::Var_VariableSet(const Variant& NameVariable, const Variant& NewContent,
                                    Variant& GlobalFamily) {
  Variant group = Variant::Missing();
  return Var_VariableSet(NameVariable, NewContent, GlobalFamily, group);
}

Variant VariableStore::Var_VariableGet(const Variant& NameVariable, Variant& GlobalFamily,
                                       Variant& GroupFamily) {
  SettleAddress(GlobalFamily, GroupFamily);
  return Variant(platform().settings->Get(GroupFamily.ToText(), GlobalFamily.ToText(),
                                          NameVariable.ToText(), u""));
}

Variant VariableStore::Var_VariableGet(const Variant& NameVariable, const Variant& GlobalFamily,
                                       const Variant& GroupFamily) {
  Variant family = GlobalFamily, group = GroupFamily;
  return Var_VariableGet(NameVariable, family, group);
}
Variant VariableStore::Var_VariableGet(const Variant& NameVariable, Variant& GlobalFamily) {
  Variant group = Variant::Missing();
  return Var_VariableGet(NameVariable, GlobalFamily, group);
}

void VariableStore::Collection_Sort(Collection& Col, int32_t nSort) {
  const int32_t count = Col.Count();
  for (int32_t gap = HalfRoundedToEven(count); gap >= 1; gap = HalfRoundedToEven(gap)) {
    for (int32_t i = gap; i <= count - 1; ++i) {
      const Variant item = Col.Item(i + 1);
      int32_t j = i;
      bool before = SortsBefore(item, Col.Item(j - gap + 1), nSort);
      while (j >= gap && before) {
        // Shift the larger item up one gap: the list has no assignment.
        const Variant moved = Col.Item(j - gap + 1);
        Col.Remove(Variant::Long(j + 1));
        AddAt(Col, moved, j + 1);
        j -= gap;
        if (j >= gap) before = SortsBefore(item, Col.Item(j - gap + 1), nSort);
      }
      Col.Remove(Variant::Long(j + 1));
      AddAt(Col, item, j + 1);
    }
  }
}

Variant VariableStore::Collection_FindIdxKey(const Collection& Col, const Variant& KeyToFind,
                                             bool Aproximated) {
  for (int32_t i = 1; i <= Col.Count(); ++i) {
    const Text item = UCase(Col.Item(i).ToText());
    const Text key = UCase(KeyToFind.ToText());
    const bool match = Aproximated ? Like(item, key + u"*") : item == key;
    if (match) return Variant::Long(i);
  }
  return Variant(-1);
}

Variant VariableStore::DateTime_Pausa(int32_t lAmtOfDelay) {
  HostLoop& host = loop();
  host.PumpUntilSecond(host.NowSeconds() + lAmtOfDelay);
  return Variant();
}

Variant VariableStore::DateTime_PausaTimer(const Variant& Secs_interval) {
  loop().PauseTimer(Secs_interval.ToDouble());
  return Variant();
}

}  // namespace varnek
