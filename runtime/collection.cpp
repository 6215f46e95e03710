// Collection: ordered Variants with optional case-insensitive keys.
#include "varnek/runtime/collection.h"

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {
namespace {

bool SameKey(const Text& a, const Text& b) {
  return a.size() == b.size() && StrComp(a, b, CompareMode::TextCompare) == 0;
}

Text KeyText(const Variant& key) {
  if (key.IsNull()) Fail(kErrInvalidUseOfNull);
  return CStr(key);
}

}  // namespace

size_t Collection::PositionOf(const Variant& index) const {
  if (index.IsString()) {
    size_t at = KeyPosition(index.RawString());
    if (at == items_.size()) Fail(kErrInvalidCall);
    return at;
  }
  if (index.IsNull()) Fail(kErrInvalidUseOfNull);
  if (!index.IsNumberType() && !index.IsEmpty()) Fail(kErrTypeMismatch);
  int32_t position = CLng(index);
  if (position < 1 || position > Count()) Fail(kErrSubscript);
  return static_cast<size_t>(position - 1);
}

size_t Collection::KeyPosition(const Text& key) const {
  if (keyed_ == 0) return items_.size();
  return items_.find_if([&](const Entry& e) { return e.key && SameKey(*e.key, key); });
}

const Variant& Collection::Item(const Variant& index) const {
  return items_[PositionOf(index)].value;
}

const Variant& Collection::Item(int32_t position) const {
  if (position < 1 || position > Count()) Fail(kErrSubscript);
  return items_[static_cast<size_t>(position - 1)].value;
}

void Collection::Add(const Variant& item, const Variant& key, const Variant& before,
                     const Variant& after) {
  if (!before.IsMissing() && !after.IsMissing()) Fail(kErrInvalidCall);
  Entry entry{item, std::nullopt};
  if (!key.IsMissing()) {
    Text k = KeyText(key);
    if (KeyPosition(k) != items_.size()) Fail(kErrDuplicateKey);
    entry.key = std::move(k);
  }
  size_t at = items_.size();
  if (!before.IsMissing()) {
    at = PositionOf(before);
  } else if (!after.IsMissing()) {
    at = PositionOf(after) + 1;
  }
  const bool keyed = entry.key.has_value();
  items_.insert(at, std::move(entry));
  if (keyed) ++keyed_;
}

void Collection::Remove(const Variant& index) {
  const size_t at = PositionOf(index);
  if (items_[at].key) --keyed_;
  items_.erase(at);
}

std::optional<Text> Collection::KeyAt(int32_t position) const {
  if (position < 1 || position > Count()) Fail(kErrSubscript);
  return items_[static_cast<size_t>(position - 1)].key;
}

}  // namespace varnek
