// GET /rtf: a sample text as a rich-text edit control saves it, turned into a
// whole HTML page by Var_RTF2HTML.
#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek::demo {

namespace {

// Fonts, colours, bold, italic, underline, a centred line, a bulleted list,
// entities and quotes, in the control's line layout.
const Text kSampleRtf =
    u"{\\rtf1\\ansi\\deff0\\deftab720{\\fonttbl{\\f0\\fswiss MS Sans Serif;}"
    u"{\\f1\\froman\\fcharset2 Symbol;}{\\f2\\fswiss Arial;}{\\f3\\froman Times New Roman;}}\r\n"
    u"{\\colortbl\\red0\\green0\\blue0;\\red255\\green0\\blue0;\\red0\\green128\\blue0;}\r\n"
    u"\\deflang1033\\pard\\qc\\plain\\f2\\fs32\\cf1\\b Varnek \\plain\\f2\\fs32\\cf1 rich text\\plain\\f2\\fs20 \r\n"
    u"\\par \\pard\\plain\\f3\\fs20 Plain text with \\plain\\f3\\fs20\\b bold\\plain\\f3\\fs20 , "
    u"\\plain\\f3\\fs20\\i italic\\plain\\f3\\fs20  and \\plain\\f3\\fs20\\ul underlined\\plain\\f3\\fs20  words.\r\n"
    u"\\par \\plain\\f3\\fs20\\cf2 Caf\\'e9 cr\\'e8me br\\'fbl\\'e9e, 5\\'b0C, \\'a9 2026 \\emdash  "
    u"\\ldblquote quoted\\rdblquote  text.\r\n"
    u"\\par \\pard{\\pntext\\f1\\'b7\\tab}{\\*\\pn\\pnlvlblt\\pnf1\\pnindent0{\\pntxtb\\'b7}}"
    u"\\fi-200\\li200\\plain\\f3\\fs20 First item\r\n"
    u"\\par \\plain\\f3\\fs20{\\pntext\\f1\\'b7\\tab}Second item\r\n"
    u"\\par \\pard\\plain\\f3\\fs20 The end.\r\n"
    u"\\par }\r\n";

void ServeRtf(PageRequest& r) {
  Variant rtf = kSampleRtf, options = u"+H+G+T\"Varnek RTF sample\"";
  Text page;
  Guarded([&] { page = CStr(r.host.server().adds().Var_RTF2HTML(rtf, options)); },
          [&](const RuntimeError& e) { page = u"<p>" + HtmlEscape(FailureText(e)) + u"</p>"; });
  r.response = r.host.Framed(200, page);
}

const bool registered = RegisterPage({u"/rtf", u"RTF converted to HTML", ServeRtf});

}  // namespace

}  // namespace varnek::demo
