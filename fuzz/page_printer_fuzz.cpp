// Fuzzes the page-printer blocks: no crash, every block's checksum holds, and
// the payloads give back the escaped text exactly (a non-last payload is 128
// characters of it, or 127 or 126 and the blanks of a give-back; the last one
// is the rest and "&]"). The first input byte is the printer id's length.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"

using namespace varnek;

namespace {

uint32_t Sum(const Text& text) {
  uint32_t sum = 0;
  for (char16_t unit : text) sum += UnitToByte(unit);
  return sum;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static SimPlatform sim;
  static Adds adds(sim.platform);
  if (size == 0) return 0;
  const size_t id_length = std::min<size_t>(data[0] % 4, size - 1);
  const Text printer =
      BytesToText(std::string_view(reinterpret_cast<const char*>(data + 1), id_length));
  Variant text = BytesToText(
      std::string_view(reinterpret_cast<const char*>(data + 1 + id_length), size - 1 - id_length));
  adds.PagePrinter_GenerarBloques(text, Variant(printer));
  const Text escaped = text.ToText();
  const Collection& blocks = *adds.PagePrinter_Bloques;
  const size_t header = 2 + printer.size() + 1;  // "&[", id, message id
  size_t at = 0;
  for (int32_t i = 1; i <= blocks.Count(); ++i) {
    const Text block = blocks.Item(i).ToText();
    char number[16];
    std::snprintf(number, sizeof number, "%02X", i - 1);
    const size_t digits = std::string(number).size();
    if (block.size() < header + digits + 2 || block.compare(0, 2, u"&[") != 0) abort();
    if (block.substr(header, digits) != Utf8ToText(number)) abort();
    const Text head = block.substr(0, header + digits);
    const Text payload = block.substr(header + digits + 2);
    char sum[4];
    std::snprintf(sum, sizeof sum, "%02X", (Sum(head) + Sum(payload)) % 256);
    if (block.substr(header + digits, 2) != Utf8ToText(sum)) abort();
    if (i == blocks.Count()) {
      if (payload != escaped.substr(at) + u"&]") abort();
      at = escaped.size();
    } else {
      if (payload.size() != 128) abort();
      size_t take = 128;
      while (take > 126 && payload.compare(0, take, escaped, at, take) != 0) --take;
      if (payload.compare(0, take, escaped, at, take) != 0 ||
          payload.substr(take) != Text(128 - take, u' '))
        abort();
      at += take;
    }
  }
  if (at != escaped.size()) abort();
  return 0;
}
