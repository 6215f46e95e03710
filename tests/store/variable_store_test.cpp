// The variable store, Collection_Sort and Collection_FindIdxKey, and the two
// pauses on the simulated loop's virtual clock.
#include "varnek/adds/store/variable_store.h"

#include <numeric>
#include <random>

#include "tests/store/store_fixture.h"
#include "varnek/runtime/compare.h"

namespace varnek {
namespace {

double At(double seconds_of_day) { return 46023.0 + seconds_of_day / 86400.0; }  // on 2026-01-01

CollectionPtr List(std::initializer_list<Variant> items) {
  auto c = Collection::New();
  for (const Variant& v : items) c->Add(v);
  return c;
}

struct VariableStoreTest : ::testing::Test {
  explicit VariableStoreTest(double start = SimPlatform::kDefaultStart)
      : sim(start), store(sim.platform) {}
  SimPlatform sim;
  VariableStore store;
};
struct PauseAtNoon : VariableStoreTest {
  PauseAtNoon() : VariableStoreTest(At(43200.3)) {}  // 12:00:00.3
};
struct PauseBeforeMidnight : VariableStoreTest {
  PauseBeforeMidnight() : VariableStoreTest(At(86399)) {}  // 23:59:59
};

TEST_F(VariableStoreTest, SettlesTheAddressAndStoresTexts) {
  Variant got = store.Var_VariableGet(u"Nothing");  // never set: "", a String
  EXPECT_TRUE(got.IsString() && got.ToText().empty());
  // empty family and group become the title and "VarnekGlobal", written back
  Variant family = u"", group = u"";
  EXPECT_TRUE(store.Var_VariableSet(u"NumMsg", 17, family, group));
  EXPECT_EQ(family.ToText() + u"|" + group.ToText(), u"VarnekTest|VarnekGlobal");
  EXPECT_EQ(sim.settings.Get(u"VarnekGlobal", u"VarnekTest", u"NumMsg", u"?"), u"17");
  Variant only_family;  // Empty counts as length 0
  EXPECT_EQ(store.Var_VariableGet(u"NumMsg", only_family).ToText(), u"17");
  EXPECT_EQ(only_family.ToText(), u"VarnekTest");
  store.Var_VariableSet(u"Rate", 2.5, u"Paging", u"Other");  // given ones used as they are
  EXPECT_EQ(sim.settings.Get(u"Other", u"Paging", u"Rate", u"?"), u"2.5");
  EXPECT_EQ(store.Var_VariableGet(u"Rate", u"Paging").ToText(), u"");  // the default group
  EXPECT_EQ(store.Var_VariableGet(u"Rate", u"Paging", u"Other").ToText(), u"2.5");
  const Variant given_family;  // a value, not a variable: the default is used, nothing written back
  store.Var_VariableSet(u"Level", 3, given_family);
  EXPECT_TRUE(given_family.IsEmpty());
  EXPECT_EQ(sim.settings.Get(u"VarnekGlobal", u"VarnekTest", u"Level", u"?"), u"3");
  EXPECT_RUNTIME_ERROR(store.Var_VariableSet(u"X", Variant::Null()), kErrInvalidUseOfNull);
}

TEST_F(VariableStoreTest, SortFollowsTheModeAndDropsKeys) {
  auto sorted = [&](std::initializer_list<Variant> items, int mode) {
    auto c = List(items);
    store.Collection_Sort(*c, mode);
    return ItemTexts(*c);
  };
  using V = std::vector<Text>;
  EXPECT_EQ(sorted({u"b", u"B", u"a"}, 0), (V{u"B", u"a", u"b"}));  // capitals before small
  EXPECT_EQ(sorted({u"b", u"B", u"a"}, 2)[0], u"a");                // without case
  // the gap sequence 5 -> 2 -> 1 (ties to even) decides where equal items land
  EXPECT_EQ(sorted({u"a", u"b", u"a", u"B", u"a"}, 2), (V{u"a", u"a", u"a", u"b", u"B"}));
  EXPECT_EQ(sorted({u"c", u"b", u"a", u"C", u"B", u"A", u"c"}, 2),
            (V{u"a", u"A", u"B", u"b", u"c", u"C", u"c"}));
  // numbers: by value in mode 0, as texts in mode 1, before texts; other modes leave it
  EXPECT_EQ(sorted({10, u"x", 9, 2.5, -1}, 0), (V{u"-1", u"2.5", u"9", u"10", u"x"}));
  EXPECT_EQ(sorted({10, 9, 100}, 1), (V{u"10", u"100", u"9"}));
  EXPECT_EQ(sorted({u"z", u"a"}, 7), (V{u"z", u"a"}));

  // keys are lost from the second position on; one item has gap 0 and keeps its key
  for (auto items : {std::vector<const char16_t*>{u"a", u"c", u"b"}, {u"only"}}) {
    auto c = Collection::New();
    for (const char16_t* s : items) c->Add(s, Text(u"k") + s);
    store.Collection_Sort(*c);
    EXPECT_EQ(c->KeyAt(1), Text(u"k") + ItemTexts(*c)[0]);
    for (int32_t i = 2; i <= c->Count(); ++i) EXPECT_FALSE(c->KeyAt(i).has_value()) << i;
  }
}

// The sort's own steps on a plain list of indices into `values`, as the
// reference the Collection must match. A key survives only where no remove
// and add touched its item (-1 marks a place that lost it).
void ReferenceSort(std::vector<int>& list, const std::vector<Variant>& values, int mode) {
  auto before = [&](int a, int b) {
    const Variant &x = values[static_cast<size_t>(a)], &y = values[static_cast<size_t>(b)];
    if (mode == 0) return VariantLess(x, y);
    if ((mode != 1 && mode != 2) || x.IsNull() || y.IsNull()) return false;
    return StrComp(x.ToText(), y.ToText(),
                   mode == 1 ? CompareMode::Binary : CompareMode::TextCompare) == -1;
  };
  auto put = [&](size_t at, int item) {  // remove at, add again before at (or at the end), keyless
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(at));
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(std::min(at, list.size())), -1 - item);
  };
  auto value = [](int cell) { return cell < 0 ? -1 - cell : cell; };
  const int count = static_cast<int>(list.size());
  auto half = [](int n) { return n / 2 + (n % 2 != 0 && (n / 2) % 2 != 0 ? 1 : 0); };
  for (int gap = half(count); gap >= 1; gap = half(gap)) {
    for (int i = gap; i <= count - 1; ++i) {
      const int item = value(list[i]);
      int j = i;
      while (j >= gap && before(item, value(list[j - gap]))) {
        put(j, value(list[j - gap]));
        j -= gap;
      }
      put(j, item);
    }
  }
}

// 10,000 random lists, each sorted in every mode, give the reference's items
// and keys: numbers, texts that differ in case only, Empty, Null and equal
// items, some lists longer than the storage's blocks.
TEST_F(VariableStoreTest, SortMatchesThePlainReferenceOnRandomLists) {
  std::mt19937 rng(1779);
  const std::vector<Variant> pool = {
      1,   2,    2,    -7,   70000, 2.5,   1e10,  Variant(true), Variant(), Variant::Null(),
      u"", u"a", u"A", u"b", u"B",  u"ab", u"Ab", u"2",          u"10",     u"\u00e9"};
  auto same = [](const Variant& a, const Variant& b) {
    return a.Type() == b.Type() && (a.IsNull() || VariantEqual(a, b));
  };
  for (int list = 0; list < 10000; ++list) {
    std::vector<Variant> values(
        std::uniform_int_distribution<size_t>(0, list % 50 == 0 ? 140 : 24)(rng));
    std::vector<bool> keyed(values.size());
    for (size_t i = 0; i < values.size(); ++i) {
      values[i] = pool[rng() % pool.size()];
      keyed[i] = rng() % 4 == 0;
    }
    for (int mode : {0, 1, 2, 5}) {
      auto c = Collection::New();
      for (size_t i = 0; i < values.size(); ++i) {
        c->Add(values[i], keyed[i] ? Variant(u"k" + CStr(Variant(static_cast<int32_t>(i))))
                                   : Variant::Missing());
      }
      std::vector<int> expected(values.size());
      std::iota(expected.begin(), expected.end(), 0);
      ReferenceSort(expected, values, mode);
      store.Collection_Sort(*c, mode);
      ASSERT_EQ(static_cast<size_t>(c->Count()), expected.size());
      for (size_t i = 0; i < expected.size(); ++i) {
        const int32_t pos = static_cast<int32_t>(i + 1);
        const int cell = expected[i];
        const auto original = static_cast<size_t>(cell < 0 ? -1 - cell : cell);
        ASSERT_TRUE(same(c->Item(pos), values[original]))
            << "list " << list << " mode " << mode << " at " << pos;
        ASSERT_EQ(c->KeyAt(pos).has_value(), cell >= 0 && keyed[original])
            << "list " << list << " mode " << mode;
      }
    }
  }
}

TEST_F(VariableStoreTest, FindIdxKeyExactOrApproximated) {
  auto c = List({u"alpha", u"Host", u"HOSTNAME", 42});
  auto found = [&](Variant key, bool approx = false) {  // the type and the position
    Variant pos = store.Collection_FindIdxKey(*c, key, approx);
    return std::pair{pos.Type(), pos.ToLong()};
  };
  EXPECT_EQ(found(u"host"), std::pair(VarType::Long, 2));
  EXPECT_EQ(found(u"ho"), std::pair(VarType::Integer, -1));  // not found: a value, no failure
  EXPECT_EQ(found(u"ho", true).second, 2);
  EXPECT_EQ(found(u"h?stn", true).second, 3);  // wildcards in the key
  EXPECT_EQ(found(42).second, 4);              // numbers by their text
  EXPECT_RUNTIME_ERROR(found(u"[a", true), kErrInvalidPattern);
  // an item with no text form fails when reached, not before a match
  c = List({u"one", Variant::Null(), u"two"});
  EXPECT_EQ(found(u"ONE").second, 1);
  EXPECT_RUNTIME_ERROR(found(u"two"), kErrInvalidUseOfNull);
}

TEST_F(PauseAtNoon, PausaWaitsByTheCalendarAndTimerByTheClock) {
  std::vector<double> ran_at;  // handlers run while the pauses wait
  sim.loop.After(0.5, [&] { ran_at.push_back(sim.loop.Elapsed()); });
  EXPECT_TRUE(store.DateTime_Pausa(2).IsEmpty());  // until the target's calendar second begins
  EXPECT_NEAR(sim.loop.Elapsed(), 1.7, 0.01);
  int64_t pumps = sim.loop.PumpCount();
  for (int delay : {0, -5}) store.DateTime_Pausa(delay);  // zero and negative: no pump
  store.DateTime_PausaTimer(0);
  EXPECT_EQ(sim.loop.PumpCount(), pumps);

  sim.loop.After(0.2, [&] { ran_at.push_back(sim.loop.Elapsed()); });
  sim.loop.After(0.6, [&] { ran_at.push_back(sim.loop.Elapsed()); });  // after the end
  EXPECT_TRUE(store.DateTime_PausaTimer(u"0.5").IsEmpty());  // a text interval reads as a number
  EXPECT_NEAR(sim.loop.Elapsed(), 2.2, 0.01);
  ASSERT_EQ(ran_at.size(), 2u);
  EXPECT_NEAR(ran_at[0], 0.5, 1e-9);
  EXPECT_NEAR(ran_at[1], 1.9, 0.01);
  EXPECT_RUNTIME_ERROR(store.DateTime_PausaTimer(Variant::Null()), kErrInvalidUseOfNull);
}

TEST_F(PauseBeforeMidnight, PausaIsIndifferentToMidnight) {
  store.DateTime_Pausa(2);
  EXPECT_DOUBLE_EQ(sim.loop.Now(), At(86401));
}

TEST_F(PauseBeforeMidnight, PausaTimerFreezesUntilMidnightThenPumps) {
  sim.loop.RunFor(0.5);  // 23:59:59.5 for 1 s: frozen up to midnight, then pumping to 0.5
  std::vector<float> ran_at;
  sim.loop.After(0.2, [&] { ran_at.push_back(sim.loop.Timer()); });  // due 23:59:59.7
  sim.loop.After(0.7, [&] { ran_at.push_back(sim.loop.Timer()); });  // due 00:00:00.2
  store.DateTime_PausaTimer(1);
  EXPECT_NEAR(sim.loop.Elapsed(), 1.5, 0.01);
  ASSERT_EQ(ran_at.size(), 2u);
  EXPECT_NEAR(ran_at[0], 0.0f, 0.01);  // held until after the wrap
  EXPECT_NEAR(ran_at[1], 0.2f, 0.01);
}

TEST_F(PauseBeforeMidnight, PausaTimerWaitsForTheEndTimeOfDayAgain) {
  // A handler of the pausing strand, nested in the pause, returns after
  // midnight while the end was late in the day.
  double ended = -1;
  sim.loop.Post([&] {
    StrandRef mine = sim.loop.CurrentStrand();
    sim.loop.AfterInLoop(0.1, [&, mine] { sim.loop.RunOn(mine, [&] { sim.loop.RunFor(2); }); });
    store.DateTime_PausaTimer(0.9);
    ended = sim.loop.Elapsed();
  });
  sim.loop.RunFor(86402);
  EXPECT_NEAR(ended, 86400.9, 0.02);
}

}  // namespace
}  // namespace varnek
