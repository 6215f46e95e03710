// Our own case and collation tables for 16-bit units: Basic Latin, Latin-1,
// Latin Extended-A, the cp1252 extras, Greek and Cyrillic. The C locale is
// never consulted.
#pragma once

#include <cstdint>

namespace varnek {

// Simple one-to-one case mapping; units without a case map to themselves.
char16_t UpperUnit(char16_t unit);
char16_t LowerUnit(char16_t unit);

// Text-compare weights of one unit, case ignored: the primary weight sorts
// letters after digits and punctuation and puts accented letters beside their
// base letter (A = a < À = à < B); the secondary tells accents apart (0 for the
// plain letter). Equal units under text compare have equal weights.
struct UnitWeight {
  uint32_t primary;
  uint32_t secondary;
};
UnitWeight TextWeight(char16_t unit);

// True when two units are equal under text compare (same letter, any case).
inline bool TextUnitEqual(char16_t a, char16_t b) { return a == b || LowerUnit(a) == LowerUnit(b); }

}  // namespace varnek
