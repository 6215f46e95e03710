// /rtf: a sample text as a rich-text edit control saves it, turned into a
// whole HTML page by Var_RTF2HTML, with a text area below to paste RTF of
// one's own and convert it (POST /rtf, field "rtf").
#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek::demo {

namespace {

// A heading centred in a large red face; bold, italic, underlined and struck
// words; colours, faces and sizes; entities, a dash and quotes; a bulleted
// list and a line to the right, in the control's line layout. Written so the
// converter's kept quirks do not show: a word that eats the unit behind its
// blank has one blank more, and nothing opens before a centred line.
const Text kSampleRtf =
    u"{\\rtf1\\ansi\\deff0\\deftab720{\\fonttbl{\\f0\\fswiss MS Sans Serif;}"
    u"{\\f1\\froman\\fcharset2 Symbol;}{\\f2\\fswiss Arial;}{\\f3\\froman Times New Roman;}"
    u"{\\f4\\fmodern Courier New;}}\r\n"
    u"{\\colortbl\\red0\\green0\\blue0;\\red192\\green0\\blue0;\\red0\\green128\\blue0;\\red0\\green0\\blue192;}\r\n"
    u"\\deflang1033\\pard\\qc\\plain\\f2\\fs36\\cf1 Varnek rich text\\plain\\f3\\fs20\r\n"
    u"\\par \\pard\\plain\\f3\\fs20 Plain text with \\b bold\\plain\\f3\\fs20 , \\i italic\\plain\\f3\\fs20 ,"
    u"\\ul underlined\\plain\\f3\\fs20  and \\strike struck\\plain\\f3\\fs20  words.\r\n"
    u"\\par \\plain\\f3\\fs20\\cf2 Green\\plain\\f3\\fs20 , \\cf3 blue\\plain\\f3\\fs20  and \\cf1 red\\plain\\f3\\fs20  text;"
    u" \\plain\\f2\\fs20 Arial\\plain\\f3\\fs20 , \\plain\\f4\\fs20 Courier New\\plain\\f3\\fs20  and "
    u"\\plain\\f3\\fs32 large\\plain\\f3\\fs20  or \\plain\\f3\\fs16 small\\plain\\f3\\fs20  letters.\r\n"
    u"\\par \\plain\\f3\\fs20 Caf\\'e9 cr\\'e8me br\\'fbl\\'e9e, na\\'efve fa\\'e7ade, 5\\'b0C, \\'bd \\'d7 3 = 1\\'bd, "
    u"\\'a9 2026 \\emdash   \\ldblquote  quoted\\rdblquote   and \\lquote  single\\rquote   quotes.\r\n"
    u"\\par \\pard{\\pntext\\f1\\'b7\\tab}{\\*\\pn\\pnlvlblt\\pnf1\\pnindent0{\\pntxtb\\'b7}}"
    u"\\fi-200\\li200\\plain\\f3\\fs20 First item\r\n"
    u"\\par \\plain\\f3\\fs20{\\pntext\\f1\\'b7\\tab}Second item, \\b in bold\\plain\\f3\\fs20\r\n"
    u"\\par \\pard\\plain\\qr\\f3\\fs20 The Varnek team\\plain\\f3\\fs20\r\n"
    u"\\par }\r\n";

constexpr char16_t kFormIntro[] =
    u"<HR><FORM METHOD=\"post\" ACTION=\"/rtf\" ACCEPT-CHARSET=\"UTF-8\">\r\n"
    u"<P>Paste RTF as a rich-text edit control saves it (a line break before \\deflang and every \\par) "
    u"and convert it:</P>\r\n<TEXTAREA NAME=\"rtf\" ROWS=\"12\" COLS=\"100\">";
constexpr char16_t kFormEnd[] =
    u"</TEXTAREA><BR>\r\n<INPUT TYPE=\"submit\" VALUE=\"Convert\">\r\n</FORM>\r\n";

// The converted page with the form before its end; the text area holds `rtf`.
Text WithForm(const Text& page, const Text& rtf) {
  const Text form = kFormIntro + HtmlEscape(rtf) + kFormEnd;
  const size_t end = page.rfind(u"</BODY>");
  if (end == Text::npos) return page + form;
  Text whole = page;
  whole.insert(end, form);
  return whole;
}

// GET: the sample; POST: the RTF of the form's text area.
void ServeRtf(PageRequest& r) {
  const bool pasted = r.param_names != nullptr;
  const Text source = pasted ? FormValue(r, u"rtf") : kSampleRtf;
  Variant rtf = source,
          options = pasted ? u"+H+G+T\"Converted RTF\"" : u"+H+G+T\"Varnek RTF sample\"";
  Text page;
  Guarded([&] { page = CStr(r.host.server().adds().Var_RTF2HTML(rtf, options)); },
          [&](const RuntimeError& e) { page = u"<P>" + HtmlEscape(FailureText(e)) + u"</P>"; });
  r.response = r.host.Framed(200, WithForm(page, source));
}

const bool registered = RegisterPage({u"/rtf", u"RTF converted to HTML", ServeRtf});

}  // namespace

}  // namespace varnek::demo
