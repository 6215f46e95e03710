// The classic string functions on 16-bit texts. Positions are 1-based and 0
// means not found. Arguments that the classic runtime rejects fail with 5.
//
//   Mid(u"test", 2, 4) == u"est";  InStr(4, u"abcdef", u"") == 4
//   Replace(u"aXbX", u"X", u"-") == u"a-b-"
#pragma once

#include <cstdint>
#include <vector>

#include "varnek/runtime/compare.h"
#include "varnek/runtime/text.h"

namespace varnek {

int32_t Len(TextView s);
Text Left(TextView s, int32_t length);   // length < 0 fails with 5
Text Right(TextView s, int32_t length);  // length < 0 fails with 5
Text Mid(TextView s, int32_t start);     // start < 1 fails with 5
Text Mid(TextView s, int32_t start, int32_t length);
// The Mid statement: overwrite units of s from start with those of repl,
// never changing the length of s. length < 0 means "all of repl that fits";
// start < 1 or past the end of s fails with 5.
void MidAssign(Text& s, int32_t start, int32_t length, TextView repl);

// InStr(start, s1, s2, mode); start < 1 or a mode other than Binary/TextCompare
// fails with 5. An empty s1 gives 0, then start past Len(s1) gives 0, then an
// empty s2 gives start. TextCompare ignores case only (é = É, e <> é).
int32_t InStr(int32_t start, TextView s1, TextView s2, CompareMode mode = CompareMode::Binary);
inline int32_t InStr(TextView s1, TextView s2, CompareMode mode = CompareMode::Binary) {
  return InStr(1, s1, s2, mode);
}
// InStrRev(s1, s2, start = -1 meaning the end, mode): the last match that
// ends at or before start; start 0 or below -1 fails with 5.
int32_t InStrRev(TextView s1, TextView s2, int32_t start = -1,
                 CompareMode mode = CompareMode::Binary);

// Case from our own tables (Latin-1, Latin Extended-A, the cp1252 extras,
// Greek, Cyrillic), never the C locale: UCase(u"\u00FF") == u"\u0178".
Text UCase(TextView s);
Text LCase(TextView s);
Text Trim(TextView s);  // only U+0020 is removed
Text LTrim(TextView s);
Text RTrim(TextView s);
Text Space(int32_t count);                  // count < 0 fails with 5
Text String(int32_t count, char16_t unit);  // count < 0 fails with 5
Text StrReverse(TextView s);

// Replace(expression, find, replacement, start, count, mode): the result
// starts at start (the classic quirk); count -1 replaces all.
Text Replace(TextView expression, TextView find, TextView replacement, int32_t start = 1,
             int32_t count = -1, CompareMode mode = CompareMode::Binary);

// Split with count -1 for all; an empty expression or count 0 gives no
// items, an empty delimiter the whole expression; count < -1 fails with 5.
std::vector<Text> Split(TextView expression, TextView delimiter = u" ", int32_t count = -1,
                        CompareMode mode = CompareMode::Binary);
Text Join(const std::vector<Text>& items, TextView delimiter = u" ");

// Asc: the cp1252 byte of the first unit ("" fails with 5). AscW: the unit as
// a signed 16-bit value. Chr: the unit of a byte 0..255 (else fails with 5).
// ChrW: -32768..65535 (else fails with 5).
int32_t Asc(TextView s);
int32_t AscW(TextView s);
Text Chr(int32_t byte);
Text ChrW(int32_t code);

}  // namespace varnek
