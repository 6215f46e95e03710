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
    const Text& key = index.RawString();
    for (size_t i = 0; i < items_.size(); ++i) {
      if (items_[i].key && SameKey(*items_[i].key, key)) return i;
    }
    Fail(kErrInvalidCall);
  }
  if (index.IsNull()) Fail(kErrInvalidUseOfNull);
  if (!index.IsNumberType() && !index.IsEmpty()) Fail(kErrTypeMismatch);
  int32_t position = CLng(index);
  if (position < 1 || position > Count()) Fail(kErrSubscript);
  return static_cast<size_t>(position - 1);
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
    for (const Entry& e : items_) {
      if (e.key && SameKey(*e.key, k)) Fail(kErrDuplicateKey);
    }
    entry.key = std::move(k);
  }
  size_t at = items_.size();
  if (!before.IsMissing()) {
    at = PositionOf(before);
  } else if (!after.IsMissing()) {
    at = PositionOf(after) + 1;
  }
  items_.insert(items_.begin() + static_cast<std::ptrdiff_t>(at), std::move(entry));
}

void Collection::Remove(const Variant& index) {
  items_.erase(items_.begin() + static_cast<std::ptrdiff_t>(PositionOf(index)));
}

std::optional<Text> Collection::KeyAt(int32_t position) const {
  if (position < 1 || position > Count()) Fail(kErrSubscript);
  return items_[static_cast<size_t>(position - 1)].key;
}

}  // namespace varnek
