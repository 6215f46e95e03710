// GET /barcode?text=...: the text as Code 39 bars, a PNG drawn by
// Var_DrawBarcode on a 100-pixel-high picture control.
#include <memory>

#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/platform/drawing_surface.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek::demo {

namespace {

constexpr char16_t kDefaultText[] = u"HELLO 39";

// The value of "text=" in the query (the server has URL-decoded it, a unit a
// byte; a browser's UTF-8 is decoded here), or a default. The server gives a URL whose last segment
// has no dot a closing
// "/"; that one is dropped again here.
Text QueryText(Text url) {
  const int32_t query = InStr(url, u"?");
  if (query == 0) return kDefaultText;
  if (!url.empty() && url.back() == u'/') {
    const size_t segment = url.rfind(u'/', url.size() - 2);
    if (url.find(u'.', segment == Text::npos ? 0 : segment) == Text::npos) url.pop_back();
  }
  for (const Text& pair : Split(Mid(url, query + 1), u"&")) {
    if (pair.rfind(u"text=", 0) == 0) return BrowserText(pair.substr(5));
  }
  return kDefaultText;
}

void ServeBarcode(PageRequest& r) {
  HTTPServer& server = r.host.server();
  Adds& adds = server.adds();
  auto box = adds.platform().surfaces->Create(400, 100);
  const bool drawn =
      Guarded([&] { adds.Var_DrawBarcode(Variant(QueryText(r.url.ToText())), *box); },
              [&](const RuntimeError& e) {
                r.response = r.host.Framed(500, u"<p>" + HtmlEscape(FailureText(e)) + u"</p>");
              });
  if (!drawn) return;
  // One unit a byte on the wire; the server has no image type of its own, so
  // the header goes without one and the PNG line is added before its end.
  const Text body = BytesToText(box->Picture());
  Text head = CStr(server.http_Header(e200_OK, -1, Variant::Long(Len(body))));
  head.insert(head.size() - 2, u"Content-Type: image/png\r\n");
  r.response = head + body;
}

const bool registered = RegisterPage({u"/barcode", u"Code 39 bars of a text (PNG)", ServeBarcode});

}  // namespace

}  // namespace varnek::demo
