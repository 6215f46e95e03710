// The registry of the demo host's subsystem pages.
#include "examples/demo/demo_pages.h"

#include <algorithm>

namespace varnek::demo {

namespace {

// Function-local so registration from other files' static initialisers
// never meets an unconstructed vector.
std::vector<Page>& Pages() {
  static std::vector<Page> pages;
  return pages;
}

}  // namespace

bool RegisterPage(Page page) {
  auto& pages = Pages();
  auto at = std::lower_bound(pages.begin(), pages.end(), page.path,
                             [](const Page& p, const Text& path) { return p.path < path; });
  pages.insert(at, std::move(page));
  return true;
}

const std::vector<Page>& RegisteredPages() { return Pages(); }

const Page* FindPage(const Text& url) {
  for (const Page& page : Pages()) {
    if (url.compare(0, page.path.size(), page.path) != 0) continue;
    if (url.size() == page.path.size()) return &page;
    const char16_t next = url[page.path.size()];
    if (next == u'/' || next == u'?') return &page;
  }
  return nullptr;
}

}  // namespace varnek::demo
