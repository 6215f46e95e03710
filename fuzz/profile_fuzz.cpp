// Fuzzes the private-profile reader and its in-place edits: any bytes parse,
// every lookup and buffer fill stays in bounds, and a key just written reads
// back with its value.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "varnek/platform/internal/profile_text.h"
#include "varnek/runtime/casemap.h"

using namespace varnek;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  ProfileText ini(BytesToText(bytes));

  const size_t buffer_size = size ? data[0] % 40 : 0;
  std::vector<Text> sections = ini.Sections();
  Text buffer(buffer_size, u' ');
  FillProfileList(sections, buffer);
  for (const Text& section : sections) {
    std::vector<Text> keys = ini.Keys(section);
    buffer.assign(buffer_size, u' ');
    FillProfileList(keys, buffer);
    for (const Text& key : keys) {
      // (a listed key may still read as missing: an earlier line of the same
      // name without "=" wins, and an empty name is never found)
      std::optional<Text> value = ini.Find(section, key);
      buffer.assign(buffer_size, u' ');
      FillProfileBuffer(value ? *value : Text(u"default"), buffer);
    }
  }

  // Writes: a key in the first section and in a new one read back.
  Text section = sections.empty() ? Text(u"fuzz") : sections.front();
  size_t before = ini.text().size();
  ini.Set(section, u"fuzzkey", u"v1");
  if (ini.Find(section, u"fuzzkey") != Text(u"v1")) std::abort();
  if (ini.text().size() < before) std::abort();
  ini.Set(u"fuzz-new-section", u"k", u"v2");
  if (ini.Find(u"fuzz-new-section", u"k") != Text(u"v2")) std::abort();
  ini.DeleteKey(section, u"fuzzkey");
  bool had_new = false;
  for (const Text& name : sections) {
    Text upper;
    for (char16_t c : name) upper += UpperUnit(c);
    had_new |= upper == u"FUZZ-NEW-SECTION";
  }
  ini.DeleteSection(u"fuzz-new-section");
  if (!had_new && ini.Find(u"fuzz-new-section", u"k")) std::abort();
  return 0;
}
