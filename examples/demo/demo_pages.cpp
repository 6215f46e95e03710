// The registry of the demo host's subsystem pages.
#include "examples/demo/demo_pages.h"

#include <algorithm>

#include "varnek/runtime/strings.h"

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

Text WithCharset(const Text& page) {
  constexpr char16_t kMeta[] = u"<meta charset=\"windows-1252\">";
  const int32_t head = InStr(1, page, u"<head>", CompareMode::TextCompare);
  if (head == 0) return kMeta + page;
  Text named = page;
  named.insert(static_cast<size_t>(head - 1 + 6), kMeta);
  return named;
}

Text BrowserText(const Text& units) {
  bool past_ascii = false;
  for (char16_t unit : units) {
    const int32_t byte = Asc(Text(1, unit));
    if (Chr(byte)[0] != unit) return units;  // a unit no byte stands for: not from the wire
    past_ascii = past_ascii || byte >= 0x80;
  }
  if (!past_ascii) return units;
  // Only a whole UTF-8 text is taken: a stray byte decodes to U+FFFD.
  const Text decoded = Utf8ToText(TextToBytes(units));
  return decoded.find(u'\uFFFD') == Text::npos ? decoded : units;
}

Text FormValue(const PageRequest& r, const Text& name) {
  for (int32_t k = 1; r.param_names && k <= r.param_names->Count(); ++k) {
    if (r.param_names->Item(k).ToText() == name)
      return BrowserText(r.param_values->Item(k).ToText());
  }
  return Text();
}

}  // namespace varnek::demo
