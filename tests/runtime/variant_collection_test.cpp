// Variant subtypes and arrays; Collection positions, keys and failures.
#include <gtest/gtest.h>

#include "runtime/collection.h"
#include "runtime/convert.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(Variant, SubtypesFromConstructors) {
  EXPECT_EQ(Variant().Type(), VarType::Empty);
  EXPECT_EQ(Variant::Null().Type(), VarType::Null);
  EXPECT_EQ(Variant::Missing().Type(), VarType::Missing);
  EXPECT_EQ(Variant(255).Type(), VarType::Integer);
  EXPECT_EQ(Variant(32767).Type(), VarType::Integer);
  EXPECT_EQ(Variant(-32768).Type(), VarType::Integer);
  EXPECT_EQ(Variant(32768).Type(), VarType::Long);
  EXPECT_EQ(Variant(-32769).Type(), VarType::Long);
  EXPECT_EQ(Variant(size_t{7}).Type(), VarType::Integer);
  EXPECT_EQ(Variant(int64_t{70000}).Type(), VarType::Long);
  EXPECT_EQ(Variant(int64_t{1} << 40).Type(), VarType::Double);
  EXPECT_EQ(Variant(int64_t{1} << 40).RawDouble(), 1099511627776.0);
  EXPECT_EQ(Variant(uint32_t{4294967295u}).Type(), VarType::Double);
  EXPECT_EQ(Variant(int16_t{-5}).RawInteger(), -5);
  EXPECT_EQ(Variant(0.5).Type(), VarType::Double);
  EXPECT_EQ(Variant(0.5f).Type(), VarType::Single);
  EXPECT_EQ(Variant(true).Type(), VarType::Boolean);
  EXPECT_EQ(Variant::Byte(7).Type(), VarType::Byte);
  EXPECT_EQ(Variant("caf\xC3\xA9").RawString(), u"caf\u00E9");
  EXPECT_EQ(Variant(u"x").Type(), VarType::String);
  EXPECT_TRUE(Variant(Date{1}).IsNumberType());
  EXPECT_FALSE(Variant(u"1").IsNumberType());
  // raw access checks the subtype; objects fail as the classic runtime does
  EXPECT_EQ(FailureOf([] { Variant(1).RawLong(); }), 13);
  EXPECT_EQ(FailureOf([] { Variant().ObjectAs<Collection>(); }), 424);
  EXPECT_EQ(FailureOf([] { Variant(std::make_shared<Object>()).ObjectAs<Collection>(); }), 13);
  EXPECT_EQ(Variant(Collection::New()).ObjectAs<Collection>()->Count(), 0);
  // value semantics: a copy is independent
  Variant a(u"abc");
  Variant b = a;
  b = Variant(5);
  EXPECT_EQ(a.RawString(), u"abc");
  EXPECT_EQ(Variant(12).ToUtf8(), "12");
}

TEST(Variant, ArraysBoundsAndResize) {
  auto arr = VariantArray::OneDim(1, 3);
  arr->At({1}) = Variant(u"a");
  arr->At({3}) = Variant(3);
  EXPECT_EQ(FailureOf([&] { arr->At({0}); }), 9);
  EXPECT_EQ(FailureOf([&] { arr->At({4}); }), 9);
  EXPECT_EQ(FailureOf([&] { arr->At({1, 1}); }), 9);
  arr->ResizeLast(5);
  EXPECT_EQ(arr->At({1}).RawString(), u"a");
  EXPECT_EQ(arr->At({3}).RawInteger(), 3);
  EXPECT_TRUE(arr->At({5}).IsEmpty());
  arr->ResizeLast(1);
  EXPECT_EQ(arr->items.size(), 1u);
  // two dimensions: growing the last keeps every item at its subscripts
  auto grid = std::make_shared<VariantArray>();
  grid->lower = {0, 0};
  grid->upper = {1, 1};
  grid->items.resize(4);
  grid->At({0, 1}) = Variant(1);
  grid->At({1, 0}) = Variant(2);
  grid->At({1, 1}) = Variant(3);
  grid->ResizeLast(2);
  EXPECT_EQ(grid->At({0, 1}).RawInteger(), 1);
  EXPECT_EQ(grid->At({1, 0}).RawInteger(), 2);
  EXPECT_EQ(grid->At({1, 1}).RawInteger(), 3);
  EXPECT_TRUE(grid->At({1, 2}).IsEmpty());
  // copies of a Variant share the array; Clone does not
  Variant v(grid);
  Variant shared = v;
  auto copy = grid->Clone();
  shared.RawArray()->At({0, 0}) = Variant(9);
  EXPECT_EQ(grid->At({0, 0}).RawInteger(), 9);
  EXPECT_TRUE(copy->At({0, 0}).IsEmpty());
}

TEST(Collection, PositionsKeysAndFailures) {
  auto c = Collection::New();
  c->Add(Variant(u"b"));
  c->Add(Variant(u"a"), Variant(u"First"), Variant(1));
  c->Add(Variant(u"c"), Variant(u"third"));
  c->Add(Variant(u"b2"), Variant::Missing(), Variant::Missing(), Variant(u"FIRST"));
  // order: a(First) b2 b c(third)
  ASSERT_EQ(c->Count(), 4);
  EXPECT_EQ(c->Item(1).RawString(), u"a");
  EXPECT_EQ(c->Item(2).RawString(), u"b2");
  EXPECT_EQ(c->Item(Variant(u"first")).RawString(), u"a");
  EXPECT_EQ(c->Item(Variant(u"THIRD")).RawString(), u"c");
  EXPECT_EQ(c->Item(Variant(2.5)).RawString(), u"b2");  // position rounds half to even
  EXPECT_EQ(c->KeyAt(1), Text(u"First"));
  EXPECT_FALSE(c->KeyAt(2).has_value());

  EXPECT_EQ(FailureOf([&] { c->Item(0); }), 9);
  EXPECT_EQ(FailureOf([&] { c->Item(5); }), 9);
  EXPECT_EQ(FailureOf([&] { c->Item(Variant(u"nokey")); }), 5);
  EXPECT_EQ(FailureOf([&] { c->Add(Variant(1), Variant(u"FiRsT")); }), 457);
  EXPECT_EQ(FailureOf([&] { c->Add(Variant(1), Variant::Missing(), Variant(9)); }), 9);
  EXPECT_EQ(FailureOf([&] { c->Add(Variant(1), Variant::Missing(), Variant(1), Variant(1)); }), 5);
  EXPECT_EQ(FailureOf([&] { c->Item(Variant::Null()); }), 94);
  EXPECT_EQ(c->Count(), 4);  // failed adds leave the collection alone

  c->Add(Variant(u"end"), Variant::Missing(), Variant::Missing(), Variant(4));
  EXPECT_EQ(c->Item(5).RawString(), u"end");
  c->Remove(Variant(u"first"));
  EXPECT_EQ(c->Item(1).RawString(), u"b2");
  c->Remove(Variant(1));
  EXPECT_EQ(c->Count(), 3);
  EXPECT_EQ(FailureOf([&] { c->Remove(Variant(4)); }), 9);
  // a removed key can be used again
  c->Add(Variant(u"again"), Variant(u"first"));
  EXPECT_EQ(c->Item(Variant(u"First")).RawString(), u"again");
}

TEST(Failure, DescriptionsAndModes) {
  EXPECT_EQ(ErrorDescription(5), "Invalid procedure call or argument");
  EXPECT_EQ(ErrorDescription(3), "Return without GoSub");
  EXPECT_EQ(ErrorDescription(457), "This key is already associated with an element of this collection");
  EXPECT_EQ(ErrorDescription(438), "Object doesn't support this property or method");
  EXPECT_EQ(ErrorDescription(75), "Path/File access error");
  EXPECT_EQ(ErrorDescription(12345), "Application-defined or object-defined error");
  EXPECT_EQ(FailureText(RuntimeError(6)), u"Error: (6) Overflow");
  int steps = 0;
  EXPECT_FALSE(Resume([&] { Fail(13); }));
  EXPECT_TRUE(Resume([&] { ++steps; }));
  int last = 0;
  EXPECT_FALSE(Guarded([&] { ++steps; CInt(Variant(1e9)); ++steps; }, [&](const RuntimeError& e) { last = e.number(); }));
  EXPECT_EQ(steps, 2);
  EXPECT_EQ(last, 6);
  // programming errors pass through
  EXPECT_THROW(Guarded([] { throw std::logic_error("bug"); }), std::logic_error);
}

}  // namespace
}  // namespace varnek
