// The Like operator: whole-text match of `*`, `?`, `#`, `[list]`, `[!list]`.
// An unclosed `[` fails with 93 "Invalid pattern string".
//
//   Like(u"aM5b", u"a[L-P]#[!c-e]") == true
#pragma once

#include "varnek/runtime/compare.h"
#include "varnek/runtime/text.h"

namespace varnek {

bool Like(TextView text, TextView pattern, CompareMode mode = CompareMode::Binary);

}  // namespace varnek
