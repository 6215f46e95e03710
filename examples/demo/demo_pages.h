// Pages of the demo host beyond the server's own (index, echo, admin, chat):
// each subsystem's page lives in its own file and registers itself here, so
// the index lists it and GET/POST requests under its path reach it.
//
//   // in examples/demo/rtf_page.cpp
//   static const bool registered = varnek::demo::RegisterPage(
//       {u"/rtf", u"RTF converted to HTML", [](varnek::demo::PageRequest& r) {
//          r.response = r.host.Framed(200, u"...");
//        }});
#pragma once

#include <functional>
#include <vector>

#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {
class HTTPServer;
}

namespace varnek::demo {

class DemoHost;
struct Options;

// One request as a page sees it. `params_*` are null for a GET.
struct PageRequest {
  DemoHost& host;
  const Options& options;
  const Variant& url;
  const Variant& ip;
  const Variant& idx;
  const Collection& header_names;
  const Collection& header_values;
  const Collection* param_names;
  const Collection* param_values;
  Variant& response;  // left empty: the server's 404 page goes out
};

struct Page {
  Text path;   // served for this path and anything below it ("/rtf", "/rtf?x")
  Text title;  // the index page's link text
  std::function<void(PageRequest&)> handler;
};

// Adds a page; call from a static initialiser in the page's own file.
// Returns true so it can initialise a static.
bool RegisterPage(Page page);

// The registered pages, in the order of their paths.
const std::vector<Page>& RegisteredPages();

// The page whose path `url` names (the path itself, or followed by "/", "?"),
// or null.
const Page* FindPage(const Text& url);

// The page with its character set named for the browser, since the wire
// carries one byte a unit in windows-1252: <meta charset="windows-1252">
// right after the first "<head>" (any case), or in front when it has none.
//   WithCharset(u"<html><head><title>x</title>") ==
//     u"<html><head><meta charset=\"windows-1252\"><title>x</title>"
Text WithCharset(const Text& page);

// A text as a browser sent it: a URL or a form in UTF-8 reaches the demo as
// its bytes, one unit each. Units that read as UTF-8 with at least one
// character past ASCII are decoded; any other text stands as it came.
//   BrowserText(u"\u00C3\u00A9t\u00C3\u00A9") == u"\u00E9t\u00E9"   // "été"
Text BrowserText(const Text& units);

// The POST field `name` through BrowserText; "" when the form has none.
Text FormValue(const PageRequest& r, const Text& name);

}  // namespace varnek::demo
