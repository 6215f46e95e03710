// An optional argument passed by reference: absent, the caller's variable
// (which a routine may store a default or a changed value back into), or a
// value given in place. Routines read and write it through Get().
//
//   int32_t Post(OptionalArg timeout = {});
//   Variant t;           Post(t);            // t receives the default 45
//   Post(Variant(10));   Post();             // a value; absent (Missing)
#pragma once

#include "varnek/runtime/variant.h"

namespace varnek {

class OptionalArg {
 public:
  OptionalArg() : own_(Variant::Missing()), target_(&own_) {}
  OptionalArg(Variant& variable) : target_(&variable) {}              // NOLINT: by reference
  OptionalArg(const Variant& value) : own_(value), target_(&own_) {}  // NOLINT: a value
  OptionalArg(const OptionalArg&) = delete;
  OptionalArg& operator=(const OptionalArg&) = delete;

  // The caller's variable, or the value held here.
  Variant& Get() const { return *target_; }
  // Not passed at all (or passed as Missing).
  bool IsMissing() const { return target_->IsMissing(); }
  // Missing or Empty: what takes a default in most routines.
  bool IsMissingOrEmpty() const { return target_->IsMissing() || target_->IsEmpty(); }

 private:
  Variant own_;
  Variant* target_;
};

}  // namespace varnek
