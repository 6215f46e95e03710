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

}  // namespace varnek::demo
