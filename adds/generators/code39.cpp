// The Code 39 table by character code, and its boxes.
#include "varnek/adds/generators/code39.h"

#include <array>

namespace varnek::generators {

namespace {

// Index 0..90; codes not listed are empty.
const std::array<const char16_t*, 91> kPatterns = [] {
  std::array<const char16_t*, 91> t{};
  t.fill(u"");
  t[1] = t[2] = u"1 1221";
  t[32] = u"1 2121";
  t[36] = u"1 1 1 11";
  t[37] = u"11 1 1 1";
  t[43] = u"1 11 1 1";
  t[45] = u"1 1122";
  t[46] = u"2 1121";
  t[47] = u"1 1 11 1";
  const char16_t* digits[] = {u"11 221", u"21 112", u"12 112", u"22 111", u"11 212",
                              u"21 211", u"12 211", u"11 122", u"21 121", u"12 121"};
  for (int i = 0; i < 10; ++i) t[48 + i] = digits[i];
  t[65] = u"1 1221";
  const char16_t* letters[] = {
      u"121 12", u"221 11", u"112 12", u"212 11", u"122 11", u"111 22", u"211 21", u"121 21",
      u"112 21", u"2111 2",  // B..K
      u"1211 2", u"2211 1", u"1121 2", u"2121 1", u"1221 1", u"1112 2", u"2112 1", u"1212 1",
      u"1122 1",                                                          // L..T
      u"2 1112", u"1 2112", u"2 2111", u"1 1212", u"2 1211", u"1 2211"};  // U..Z
  for (int i = 0; i < 25; ++i) t[66 + i] = letters[i];
  return t;
}();

}  // namespace

TextView Code39Pattern(int32_t code) {
  if (code < 0 || code > 90) return u"";
  return kPatterns[static_cast<size_t>(code)];
}

std::vector<BarBox> Code39Boxes(TextView sequence, double& x, double bar_width) {
  std::vector<BarBox> boxes;
  boxes.reserve(sequence.size() * 11);
  for (char16_t unit : sequence) {
    for (char16_t symbol : Code39Pattern(UnitToByte(unit))) {
      if (symbol == u' ') {
        boxes.push_back({x, x + bar_width, kWhite});
        x += bar_width;
        continue;
      }
      const double bar = symbol == u'2' ? bar_width * 2 : bar_width;
      boxes.push_back({x, x + bar_width, kWhite});
      x += bar_width;
      boxes.push_back({x, x + bar, kBlack});
      x += bar;
    }
  }
  return boxes;
}

}  // namespace varnek::generators
