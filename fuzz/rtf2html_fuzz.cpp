// Fuzzes the RTF converter: no crash and no hang; the only failures that may
// come out are the documented ones (5 invalid argument, 6 overflow of a
// "\cf" number, 9 a font past the table, 13 a component or "\'hh" that is no
// number). The first byte picks the options. The output may grow faster than
// the input (every character after a font change writes the font's name).
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "varnek/adds/generators/rtf_to_html.h"
#include "varnek/runtime/failure.h"

using namespace varnek;

namespace {
const char16_t* const kOptions[] = {u"", u"+H", u"+H+G+T\"t\"", u"+T\"x"};
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  const Text rtf = BytesToText(std::string_view(reinterpret_cast<const char*>(data + 1), size - 1));
  try {
    const Text html = generators::RtfToHtml(rtf, kOptions[data[0] % 4]);
    // The page holds the bare conversion, whole, between its head and tail.
    if (data[0] % 4 == 1) {
      const Text bare = generators::RtfToHtml(rtf, u"");
      const Text head = u"<BODY>\r\n", tail = u"</BODY>\r\n</HTML>";
      const size_t at = html.find(head);
      if (at == Text::npos || html.compare(at + head.size(), bare.size(), bare) != 0 ||
          html.size() != at + head.size() + bare.size() + tail.size()) {
        abort();
      }
    }
  } catch (const RuntimeError& e) {
    const int n = e.number();
    if (n != 5 && n != 6 && n != 9 && n != 13) {
      std::fprintf(stderr, "undocumented failure %d: %s\n", n, e.what());
      abort();
    }
  }
  return 0;
}
