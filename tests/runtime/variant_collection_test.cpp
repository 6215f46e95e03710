// Variant subtypes and arrays; Collection positions, keys and failures; failure modes.
#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "varnek/runtime/collection.h"
#include "varnek/runtime/convert.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(Variant, SubtypesRawAccessAndArrays) {
  // an integer takes the smallest of Integer, Long and Double that holds it
  EXPECT_EQ(Variant(-32768).Type(), VarType::Integer);
  EXPECT_EQ(Variant(int64_t{-32769}).Type(), VarType::Long);
  EXPECT_EQ(Variant(uint32_t{4294967295u}).Type(), VarType::Double);
  EXPECT_EQ(Variant("caf\xC3\xA9").RawString(), u"caf\u00E9");  // host text is UTF-8
  // raw access checks the subtype; objects fail as the classic runtime does
  ExpectFailures({{13, [] { Variant(1).RawLong(); }},
                  {424, [] { Variant().ObjectAs<Collection>(); }},
                  {13, [] { Variant(std::make_shared<Object>()).ObjectAs<Collection>(); }}});
  // arrays: bounds fail with 9; growing the last dimension keeps every item at its subscripts
  auto arr = VariantArray::OneDim(1, 3);
  arr->At({1}) = Variant(u"a");
  ExpectFailures({{9, [&] { arr->At({0}); }}, {9, [&] { arr->At({4}); }}, {9, [&] {
                                                                             arr->At({1, 1});
                                                                           }}});
  arr->ResizeLast(5);
  EXPECT_EQ(CStr(arr->At({1})), u"a");
  EXPECT_TRUE(arr->At({5}).IsEmpty());
  VariantArray grid{{0, 0}, {1, 1}, std::vector<Variant>(4)};
  grid.At({0, 1}) = Variant(u"01");
  grid.At({1, 0}) = Variant(u"10");
  grid.ResizeLast(2);
  EXPECT_EQ(CStr(grid.At({0, 1})) + CStr(grid.At({1, 0})), u"0110");
  EXPECT_TRUE(grid.At({1, 2}).IsEmpty());
}

TEST(Collection, PositionsKeysAndFailures) {
  auto c = Collection::New();
  c->Add(Variant(u"b"));
  c->Add(Variant(u"a"), Variant(u"First"), Variant(1));
  c->Add(Variant(u"c"), Variant(u"third"));
  c->Add(Variant(u"b2"), Variant::Missing(), Variant::Missing(), Variant(u"FIRST"));
  // order: a(First) b2 b c(third)
  EXPECT_EQ(ItemTexts(*c), (std::vector<Text>{u"a", u"b2", u"b", u"c"}));
  EXPECT_EQ(c->Item(Variant(u"first")).RawString(), u"a");
  EXPECT_EQ(c->Item(Variant(u"THIRD")).RawString(), u"c");
  EXPECT_EQ(c->Item(Variant(2.5)).RawString(), u"b2");  // position rounds half to even
  EXPECT_EQ(c->KeyAt(1), Text(u"First"));
  EXPECT_FALSE(c->KeyAt(2).has_value());

  ExpectFailures({{9, [&] { c->Item(0); }},
                  {9, [&] { c->Item(5); }},
                  {5, [&] { c->Item(Variant(u"nokey")); }},
                  {457, [&] { c->Add(Variant(1), Variant(u"FiRsT")); }},
                  {9, [&] { c->Add(Variant(1), Variant::Missing(), Variant(9)); }},
                  {5, [&] { c->Add(Variant(1), Variant::Missing(), Variant(1), Variant(1)); }},
                  {94, [&] { c->Item(Variant::Null()); }}});
  EXPECT_EQ(c->Count(), 4);  // failed adds leave the collection alone

  c->Add(Variant(u"end"), Variant::Missing(), Variant::Missing(), Variant(4));
  EXPECT_EQ(c->Item(5).RawString(), u"end");
  c->Remove(Variant(u"first"));
  EXPECT_EQ(c->Item(1).RawString(), u"b2");
  c->Remove(Variant(1));
  EXPECT_EQ(c->Count(), 3);
  EXPECT_EQ(FailureOf([&] { c->Remove(Variant(4)); }), 9);
  c->Add(Variant(u"again"), Variant(u"first"));  // a removed key can be used again
  EXPECT_EQ(c->Item(Variant(u"First")).RawString(), u"again");
}

// Random adds and removes at any place, by position and by key, against a
// plain list: the list grows past the sizes where the storage re-chunks and
// shrinks to nothing again. A copy keeps its own items.
TEST(Collection, MatchesAPlainListUnderRandomEdits) {
  struct Plain {
    Variant value;
    std::optional<Text> key;
  };
  std::vector<Plain> plain;
  auto c = Collection::New();
  std::mt19937 rng(27);
  auto pick = [&](size_t n) { return std::uniform_int_distribution<size_t>(0, n - 1)(rng); };
  auto expect_same = [&](const Collection& col, const std::vector<Plain>& ref, int step) {
    ASSERT_EQ(static_cast<size_t>(col.Count()), ref.size()) << step;
    for (size_t i = 0; i < ref.size(); ++i) {
      ASSERT_EQ(CStr(col.Item(static_cast<int32_t>(i + 1))), CStr(ref[i].value))
          << step << " at " << i;
      ASSERT_EQ(col.KeyAt(static_cast<int32_t>(i + 1)), ref[i].key) << step << " at " << i;
    }
  };
  int next = 0;
  for (int step = 0; step < 24000; ++step) {
    const bool growing = step < 14000;
    if (plain.empty() || pick(100) < (growing ? 70u : 25u)) {
      const size_t at = plain.empty() ? 0 : pick(plain.size() + 1);
      Plain p{Variant(++next), std::nullopt};
      if (pick(10) == 0) p.key = u"K" + CStr(Variant(next));
      if (at == plain.size()) {
        c->Add(p.value, p.key ? Variant(*p.key) : Variant::Missing());
      } else {
        c->Add(p.value, p.key ? Variant(*p.key) : Variant::Missing(),
               Variant(static_cast<int32_t>(at + 1)));
      }
      plain.insert(plain.begin() + static_cast<std::ptrdiff_t>(at), p);
    } else {
      const size_t at = pick(plain.size());
      c->Remove(plain[at].key ? Variant(*plain[at].key) : Variant(static_cast<int32_t>(at + 1)));
      plain.erase(plain.begin() + static_cast<std::ptrdiff_t>(at));
    }
    const size_t probe = plain.empty() ? 0 : pick(plain.size());
    if (!plain.empty() && plain[probe].key) {
      ASSERT_EQ(CStr(c->Item(Variant(*plain[probe].key))), CStr(plain[probe].value)) << step;
    }
    if (step % 2000 == 0) expect_same(*c, plain, step);
  }
  expect_same(*c, plain, -1);
  EXPECT_LT(plain.size(), 2000u);  // the walk came down again

  Collection copy = *c;
  const std::vector<Plain> before = plain;
  while (c->Count() > 0) c->Remove(Variant(1));
  expect_same(copy, before, -2);
}

TEST(Failure, TextAndModes) {
  EXPECT_EQ(FailureText(RuntimeError(6)), u"Error: (6) Overflow");
  int steps = 0, last = 0;
  EXPECT_FALSE(Resume([&] { Fail(13); }));
  EXPECT_TRUE(Resume([&] { ++steps; }));
  auto note = [&](const RuntimeError& e) { last = e.number(); };
  EXPECT_FALSE(Guarded(
      [&] {
        ++steps;
        CInt(Variant(1e9));
        ++steps;
      },
      note));
  EXPECT_EQ(steps, 2);
  EXPECT_EQ(last, 6);
  // programming errors pass
  EXPECT_THROW(Guarded([] { throw std::logic_error("bug"); }), std::logic_error);
}

}  // namespace
}  // namespace varnek
