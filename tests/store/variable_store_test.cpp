// The variable store, Collection_Sort and Collection_FindIdxKey, and the two
// pauses on the simulated loop's virtual clock.
#include "adds/store/variable_store.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/sim/sim_platform.h"
#include "runtime/failure.h"

namespace varnek {
namespace {

constexpr double kDay = 46023.0;  // 2026-01-01
double At(double seconds_of_day) { return kDay + seconds_of_day / 86400.0; }

int FailureNumber(const std::function<void()>& f) {
  try {
    f();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

CollectionPtr List(std::initializer_list<Variant> items) {
  auto c = Collection::New();
  for (const Variant& v : items) c->Add(v);
  return c;
}

std::vector<Text> Texts(const Collection& c) {
  std::vector<Text> out;
  for (int32_t i = 1; i <= c.Count(); ++i) out.push_back(c.Item(i).ToText());
  return out;
}

TEST(VariableStore, SettlesTheAddressAndStoresTexts) {
  SimPlatform sim;
  VariableStore store(sim.platform);

  // never set: "", a String
  Variant got = store.Var_VariableGet(u"Nothing");
  EXPECT_TRUE(got.IsString());
  EXPECT_EQ(got.ToText(), u"");

  // empty family and group become the title and "VarnekGlobal", written back
  Variant family = u"", group = u"";
  EXPECT_TRUE(store.Var_VariableSet(u"NumMsg", 17, family, group));
  EXPECT_EQ(family.ToText(), u"VarnekTest");
  EXPECT_EQ(group.ToText(), u"VarnekGlobal");
  EXPECT_EQ(sim.settings.Get(u"VarnekGlobal", u"VarnekTest", u"NumMsg", u"?"), u"17");

  // a missing group written back too; Empty counts as length 0
  Variant only_family;
  EXPECT_EQ(store.Var_VariableGet(u"NumMsg", only_family).ToText(), u"17");
  EXPECT_EQ(only_family.ToText(), u"VarnekTest");

  // given family and group are used as they are; literal arguments allowed
  store.Var_VariableSet(u"Rate", 2.5, u"Paging", u"Other");
  EXPECT_EQ(sim.settings.Get(u"Other", u"Paging", u"Rate", u"?"), u"2.5");
  EXPECT_EQ(store.Var_VariableGet(u"Rate", u"Paging", u"Other").ToText(), u"2.5");
  EXPECT_EQ(store.Var_VariableGet(u"Rate", u"Paging").ToText(), u"");  // default group
  Variant g2 = u"";
  EXPECT_EQ(store.Var_VariableGet(u"Rate", u"Paging", g2).ToText(), u"");
  EXPECT_EQ(g2.ToText(), u"VarnekGlobal");

  // open: a Null content or name fails with 94 and writes nothing
  size_t before = sim.settings.Size();
  EXPECT_EQ(FailureNumber([&] { store.Var_VariableSet(u"X", Variant::Null()); }), kErrInvalidUseOfNull);
  EXPECT_EQ(FailureNumber([&] { store.Var_VariableGet(Variant::Null()); }), kErrInvalidUseOfNull);
  EXPECT_EQ(sim.settings.Size(), before);
}

TEST(VariableStore, SortFollowsTheModeAndTheListOperations) {
  SimPlatform sim;
  VariableStore store(sim.platform);

  // by Variant comparison: capitals before small letters
  auto c = List({u"b", u"B", u"a"});
  store.Collection_Sort(*c);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"B", u"a", u"b"}));

  // without case: "a" first, "b" and "B" in either order
  c = List({u"b", u"B", u"a"});
  store.Collection_Sort(*c, 2);
  EXPECT_EQ(c->Item(1).ToText(), u"a");

  // the gap sequence 5 -> 2 -> 1 (ties to even) decides where equal items land
  c = List({u"a", u"b", u"a", u"B", u"a"});
  store.Collection_Sort(*c, 2);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"a", u"a", u"a", u"b", u"B"}));
  c = List({u"c", u"b", u"a", u"C", u"B", u"A", u"c"});
  store.Collection_Sort(*c, 2);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"a", u"A", u"B", u"b", u"c", u"C", u"c"}));

  // numbers: by value in mode 0, as texts in mode 1; numbers before texts
  c = List({10, u"x", 9, 2.5, -1});
  store.Collection_Sort(*c, 0);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"-1", u"2.5", u"9", u"10", u"x"}));
  c = List({10, 9, 100});
  store.Collection_Sort(*c, 1);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"10", u"100", u"9"}));

  // any other mode leaves the order alone
  c = List({u"z", u"a"});
  store.Collection_Sort(*c, 7);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"z", u"a"}));

  // empty and one-item lists: gap 0, nothing happens, the key stays
  c = Collection::New();
  store.Collection_Sort(*c);
  EXPECT_EQ(c->Count(), 0);
  c->Add(u"only", u"k1");
  store.Collection_Sort(*c);
  EXPECT_EQ(c->KeyAt(1), Text(u"k1"));

  // keys are lost for every item from the second position on
  c = Collection::New();
  c->Add(u"a", u"ka");
  c->Add(u"c", u"kc");
  c->Add(u"b", u"kb");
  store.Collection_Sort(*c);
  EXPECT_EQ(Texts(*c), (std::vector<Text>{u"a", u"b", u"c"}));
  EXPECT_EQ(c->KeyAt(1), Text(u"ka"));
  EXPECT_FALSE(c->KeyAt(2).has_value());
  EXPECT_FALSE(c->KeyAt(3).has_value());
}

TEST(VariableStore, FindIdxKeyMatchesWithoutCaseOrByPrefixPattern) {
  SimPlatform sim;
  VariableStore store(sim.platform);
  auto c = List({u"alpha", u"Host", u"HOSTNAME", 42});

  Variant pos = store.Collection_FindIdxKey(*c, u"host");
  EXPECT_EQ(pos.Type(), VarType::Long);
  EXPECT_EQ(pos.ToLong(), 2);
  EXPECT_EQ(store.Collection_FindIdxKey(*c, u"ho", true).ToLong(), 2);
  EXPECT_EQ(store.Collection_FindIdxKey(*c, u"hostn", true).ToLong(), 3);
  EXPECT_EQ(store.Collection_FindIdxKey(*c, u"h?stn", true).ToLong(), 3);  // wildcards in the key
  EXPECT_EQ(store.Collection_FindIdxKey(*c, 42).ToLong(), 4);              // numbers by their text

  // not found is the value -1, not a failure
  Variant none = store.Collection_FindIdxKey(*c, u"ho");
  EXPECT_EQ(none.Type(), VarType::Integer);
  EXPECT_EQ(none.ToLong(), -1);
  EXPECT_EQ(store.Collection_FindIdxKey(*Collection::New(), u"x").ToLong(), -1);

  // open: an item with no text form fails when reached, not before a match
  auto with_null = List({u"one", Variant::Null(), u"two"});
  EXPECT_EQ(store.Collection_FindIdxKey(*with_null, u"ONE").ToLong(), 1);
  EXPECT_EQ(FailureNumber([&] { store.Collection_FindIdxKey(*with_null, u"two"); }), kErrInvalidUseOfNull);
  EXPECT_EQ(FailureNumber([&] { store.Collection_FindIdxKey(*c, u"[a", true); }), kErrInvalidPattern);
}

TEST(VariableStore, PausaWaitsByTheCalendarAndPumps) {
  SimPlatform sim(At(43200.3));  // 12:00:00.3
  VariableStore store(sim.platform);
  int depth_in_handler = -1;
  sim.loop.After(0.5, [&] { depth_in_handler = sim.loop.PumpDepth(); });

  // returns when the calendar second of the target begins: 1.7 s later
  EXPECT_TRUE(store.DateTime_Pausa(2).IsEmpty());
  EXPECT_NEAR(sim.loop.Elapsed(), 1.7, 0.01);
  EXPECT_EQ(depth_in_handler, 1);  // the handler ran inside the pause

  // zero and negative delays return without a pump
  int64_t pumps = sim.loop.PumpCount();
  store.DateTime_Pausa(0);
  store.DateTime_Pausa(-5);
  EXPECT_EQ(sim.loop.PumpCount(), pumps);

  // indifferent to midnight
  SimPlatform late(At(86399));
  VariableStore late_store(late.platform);
  late_store.DateTime_Pausa(2);
  EXPECT_NEAR(late.loop.Elapsed(), 2, 0.01);
  EXPECT_DOUBLE_EQ(late.loop.Now(), kDay + 1 + 1 / 86400.0);
}

TEST(VariableStore, PausaTimerPumpsUntilTheEndAndFreezesAcrossMidnight) {
  {
    SimPlatform sim(At(43200));
    VariableStore store(sim.platform);
    std::vector<int> depths;
    sim.loop.After(0.2, [&] { depths.push_back(sim.loop.PumpDepth()); });
    sim.loop.After(0.6, [&] { depths.push_back(sim.loop.PumpDepth()); });  // after the end
    EXPECT_TRUE(store.DateTime_PausaTimer(0.5).IsEmpty());
    EXPECT_NEAR(sim.loop.Elapsed(), 0.5, 0.01);
    EXPECT_EQ(depths, std::vector<int>{1});

    // a text interval reads as a number; 0 returns after no pump at all
    store.DateTime_PausaTimer(u"0.25");
    EXPECT_NEAR(sim.loop.Elapsed(), 0.75, 0.01);
    int64_t pumps = sim.loop.PumpCount();
    store.DateTime_PausaTimer(0);
    EXPECT_EQ(sim.loop.PumpCount(), pumps);
    EXPECT_EQ(FailureNumber([&] { store.DateTime_PausaTimer(Variant::Null()); }), kErrInvalidUseOfNull);
  }
  {
    // 23:59:59.5 for 1 s: frozen for the half second up to midnight, then
    // pumping until 0.5 of the new day.
    SimPlatform sim(At(86399.5));
    VariableStore store(sim.platform);
    std::vector<float> ran_at;
    sim.loop.After(0.2, [&] { ran_at.push_back(sim.loop.Timer()); });  // due 23:59:59.7
    sim.loop.After(0.7, [&] { ran_at.push_back(sim.loop.Timer()); });  // due 00:00:00.2
    store.DateTime_PausaTimer(1);
    EXPECT_NEAR(sim.loop.Elapsed(), 1.0, 0.01);
    ASSERT_EQ(ran_at.size(), 2u);
    EXPECT_NEAR(ran_at[0], 0.0f, 0.01);  // held until after the wrap
    EXPECT_NEAR(ran_at[1], 0.2f, 0.01);
  }
  {
    // A handler that returns after midnight while the end was late in the
    // day: the wait runs on until that time of day comes again.
    SimPlatform sim(At(86399));
    VariableStore store(sim.platform);
    sim.loop.After(0.1, [&] { sim.loop.RunFor(2); });
    store.DateTime_PausaTimer(0.9);
    EXPECT_NEAR(sim.loop.Elapsed(), 86400.9, 0.02);
  }
}

}  // namespace
}  // namespace varnek
