// Collection: the host runtime's ordered list of Variants, positions from 1,
// with optional text keys (compared without regard to case). Reading, adding
// and removing by position cost O(sqrt n); finding a key walks the list.
//
//   auto c = Collection::New();
//   c->Add(u"b");  c->Add(u"a", u"first", 1);   // before position 1
//   c->Item(1);    // "a"
//   c->Item(u"FIRST");  // "a"
#pragma once

#include <memory>
#include <optional>

#include "varnek/runtime/chunked_sequence.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class Collection : public Object {
 public:
  static std::shared_ptr<Collection> New() { return std::make_shared<Collection>(); }
  const char* TypeName() const override { return "Collection"; }

  int32_t Count() const { return static_cast<int32_t>(items_.size()); }

  // Item by position (a number, 1..Count) or by key (a text). A position out of
  // range fails with 9; a key that is not there fails with 5.
  const Variant& Item(const Variant& index) const;
  const Variant& Item(int32_t position) const;

  // Add at the end, or before/after a position or key. A key already present
  // fails with 457 "This key is already associated with an element of this
  // collection". Pass Variant::Missing() (the default) for what is not given.
  void Add(const Variant& item, const Variant& key = Variant::Missing(),
           const Variant& before = Variant::Missing(), const Variant& after = Variant::Missing());

  // Remove by position or key; same failures as Item.
  void Remove(const Variant& index);

  // The key an item was added with, if any (not part of the classic surface;
  // tests use it to see that a sort dropped keys).
  std::optional<Text> KeyAt(int32_t position) const;

 private:
  struct Entry {
    Variant value;
    std::optional<Text> key;
  };
  size_t PositionOf(const Variant& index) const;  // 0-based, fails as Item
  size_t KeyPosition(const Text& key) const;      // 0-based, Count() when absent
  ChunkedSequence<Entry> items_;
  size_t keyed_ = 0;  // entries with a key: none to look for when 0
};

using CollectionPtr = std::shared_ptr<Collection>;

}  // namespace varnek
