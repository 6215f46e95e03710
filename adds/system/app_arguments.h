// Picking one argument out of a command line, or any text cut the same way.
//
// The text before the first separator is argument 1 and position 0 is the
// whole text, untrimmed. Each argument loses the blanks on its right, the
// rest of the text those on its left. Only one unit of the separator is
// stepped over, so of a separator of two or more units the rest stays at the
// front of the next piece: "a--b" cut by "--" gives "a" and "-b". A separator
// position past 32767 fails with 6 (a 16-bit working variable).
//
//   AppArgumentsOf(2, u"/", u"x /y")    // "y"
//   AppArgumentsOf(1, u"/", u"/a /b")   // "" (what stands before the first "/")
#pragma once

#include "varnek/runtime/text.h"
#include "varnek/runtime/variant.h"

namespace varnek {

// The element at Position of the cut text, or "" when Position is outside
// the pieces or does not convert to a number. An empty separator takes the
// text apart unit by unit. Open while cutting, resume for the pick.
Variant AppArgumentsOf(const Variant& Position, const Text& Separator, const Text& SourceString);

}  // namespace varnek
