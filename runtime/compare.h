// Comparison of Variants and texts, by the classic rules: numbers numerically,
// texts by code unit (binary) or without regard to case (text), a number below
// a text, Empty as 0 or "", Null giving no answer.
#pragma once

#include <optional>

#include "varnek/runtime/variant.h"

namespace varnek {

// How texts compare: by code unit (Binary, 0) or ignoring case and accents
// as described at StrComp (TextCompare, 1).
enum class CompareMode : int { Binary = 0, TextCompare = 1 };

// -1, 0 or 1; nullopt when either side is Null.
std::optional<int> CompareVariants(const Variant& a, const Variant& b,
                                   CompareMode mode = CompareMode::Binary);

// StrComp on texts: -1, 0 or 1. Binary orders by code unit; TextCompare ignores
// case and puts accented letters beside their base letter (a < À < B), the
// accents deciding only between otherwise equal texts. Another mode fails
// with 5.
int StrComp(TextView a, TextView b, CompareMode mode = CompareMode::Binary);

// a < b and a = b as an If would read them: a Null comparison is false.
bool VariantLess(const Variant& a, const Variant& b, CompareMode mode = CompareMode::Binary);
bool VariantEqual(const Variant& a, const Variant& b, CompareMode mode = CompareMode::Binary);

// The & operator: both sides as text; a lone Null or Empty side reads as "",
// Null & Null is Null.
Variant Concat(const Variant& a, const Variant& b);

}  // namespace varnek
