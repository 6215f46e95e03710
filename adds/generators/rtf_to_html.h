// The RTF to HTML 3.2 converter: a pure function over the line-oriented RTF a
// rich-text edit control writes (a CR LF ahead of "\deflang" and of every
// "\par"). It is not a general RTF reader: tables are found by plain search,
// each control word resumes the scan at its own fixed place, and text goes out
// unescaped. Positions count 16-bit units from 1; every search is exact.
//
//   RtfToHtml(u"{\\rtf1\r\n\\deflang1033 Hi \\b bold\\plain\r\n\\par }", u"")
//     == u"Hi <B>bold</B>"
#pragma once

#include "varnek/runtime/text.h"

namespace varnek::generators {

// Converts `rtf`; `options` may hold "+H" (a whole page), "+G" (the generator
// line in its head) and +T"title". Open: failures are raised, never a partial
// text: 9 for "\fN" past the font table, 13 for a colour component or a
// "\'hh" that is no number, 5 for "+T" without a closing quote (raised with
// or without "+H"). Linear in the input. Never pumps.
Text RtfToHtml(const Text& rtf, const Text& options);

// The 96 rows of the entity table, each the replacement padded to 8 units and
// "{hh}" in lower-case hex. Code 00 reads "&nbsp;" and 85 "...", on purpose.
extern const char16_t kRtfEntityTable[];

}  // namespace varnek::generators
