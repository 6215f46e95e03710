// Code 39 drawing: the exact boxes and sizings on a recording control, the
// table's quirks, and real PNGs read back by zbarimg.
#include <gtest/gtest.h>

#include <cstdio>

#include "varnek/adds/adds.h"
#include "varnek/adds/generators/code39.h"
#include "varnek/platform/linux/internal/cairo_surface.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "tests/runtime/test_folder.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

using generators::Code39Pattern;

struct BarcodeTest : ::testing::Test {
  SimPlatform sim;
  Adds adds{sim.platform};

  // The calls that drew black boxes.
  static int BlackBoxes(const RecordingSurface& box) {
    int n = 0;
    for (const std::string& call : box.calls)
      n += call.starts_with("box") && call.ends_with(" 000000");
    return n;
  }
};

TEST_F(BarcodeTest, EmptyTextDrawsStartAndStopExactly) {
  RecordingSurface box(300, 100);  // unit 2.5 -> 2; text 16 px high, bottom 100 - 24
  adds.Var_DrawBarcode(Variant(u""), box);
  // clang-format off
  const std::vector<std::string> expected = {
      "scale pixels", "clear", "remove picture",
      "width 990",  // 2 symbols * 1.1 * 2 * 15
      "box 0 0 2 76 FFFFFF", "box 2 0 4 76 000000", "box 4 0 6 76 FFFFFF",
      "box 6 0 8 76 FFFFFF", "box 8 0 10 76 000000", "box 10 0 12 76 FFFFFF",
      "box 12 0 16 76 000000", "box 16 0 18 76 FFFFFF", "box 18 0 22 76 000000",
      "box 22 0 24 76 FFFFFF", "box 24 0 26 76 000000",
      "box 26 0 28 76 FFFFFF", "box 28 0 30 76 000000", "box 30 0 32 76 FFFFFF",
      "box 32 0 34 76 FFFFFF", "box 34 0 36 76 000000", "box 36 0 38 76 FFFFFF",
      "box 38 0 42 76 000000", "box 42 0 44 76 FFFFFF", "box 44 0 48 76 000000",
      "box 48 0 50 76 FFFFFF", "box 50 0 52 76 000000",
      "box 52 0 54 76 FFFFFF",  // the last white unit
      "width 840",              // (2 + 54) * 990 / 66
      "at 28 80", "print ", "fix picture"};
  // clang-format on
  EXPECT_EQ(box.calls, expected);
  EXPECT_EQ(sim.clipboard.clears, 1);
  EXPECT_EQ(sim.clipboard.format, 2);
  EXPECT_EQ(sim.clipboard.image, box.Picture());
  EXPECT_FALSE(sim.clipboard.image.empty());
}

TEST_F(BarcodeTest, UnitWidthTextAndSizing) {
  // scale height / 40, ties to even, never below 1
  for (auto [height, unit] : {std::pair{20.0, 1}, {59.0, 1}, {60.0, 2}, {100.0, 2}, {140.0, 4}}) {
    RecordingSurface box(300, height);
    adds.Var_DrawBarcode(Variant(u""), box);
    EXPECT_EQ(box.calls[4], "box 0 0 " + std::to_string(unit) + " " +
                                std::to_string(static_cast<int>(height - 24)) + " FFFFFF")
        << height;
  }
  // lower case draws and prints as capitals; the caller's text stays
  Variant text = u"b1";
  RecordingSurface lower(300, 100), upper(300, 100);
  adds.Var_DrawBarcode(text, lower);
  adds.Var_DrawBarcode(Variant(u"B1"), upper);
  EXPECT_EQ(lower.calls, upper.calls);
  EXPECT_EQ(text.ToText(), u"b1");
  EXPECT_EQ(lower.calls[lower.calls.size() - 2], "print B1");
  // the text is centred on the fitted width: 4 symbols end at x 106, fit 108
  EXPECT_EQ(upper.calls[upper.calls.size() - 4], "width 1620");
  EXPECT_EQ(upper.calls[upper.calls.size() - 3], "at 46 80");  // (108 - 16) / 2
  // a border: the scale area follows the outer width in proportion
  RecordingSurface framed(300, 100, 2);
  adds.Var_DrawBarcode(Variant(u""), framed);
  EXPECT_EQ(framed.calls[3], "width 1003.2");  // 66 * 4560 / 300
}

TEST_F(BarcodeTest, TableQuirksAndEveryByte) {
  // A holds the start pattern; "*", "#", "@", "!", ",", "_" hold nothing
  EXPECT_EQ(Code39Pattern(u'A'), Code39Pattern(1));
  EXPECT_EQ(Code39Pattern(2), Code39Pattern(1));
  for (char16_t c : Text(u"*#@!,_")) EXPECT_EQ(Code39Pattern(c), u"") << static_cast<int>(c);
  EXPECT_EQ(Code39Pattern(u'0'), u"11 221");
  EXPECT_EQ(Code39Pattern(u'Z'), u"1 2211");
  // "A1" draws the start symbol in A's place
  RecordingSurface a1(300, 100), start1(300, 100);
  adds.Var_DrawBarcode(Variant(u"A1"), a1);
  adds.Var_DrawBarcode(Variant(Text(u"\x01") + u"1"), start1);
  EXPECT_EQ(std::vector(a1.calls.begin(), a1.calls.end() - 3),
            std::vector(start1.calls.begin(), start1.calls.end() - 3));
  // characters without a pattern draw nothing but are printed
  RecordingSurface skipped(300, 100);
  adds.Var_DrawBarcode(Variant(u"*#@!,_"), skipped);
  EXPECT_EQ(BlackBoxes(skipped), 10);  // start and stop only
  EXPECT_EQ(skipped.calls[skipped.calls.size() - 2], "print *#@!,_");
  // every byte: 71 units with a pattern (a-z draw as A-Z, and codes 1 and 2)
  // plus start and stop, five bars each
  Text all;
  for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  RecordingSurface every(300, 100);
  adds.Var_DrawBarcode(Variant(all), every);
  EXPECT_EQ(BlackBoxes(every), 73 * 5);
  EXPECT_EQ(FailureOf([&] { adds.Var_DrawBarcode(Variant::Null(), every); }), 94);
}

// Runs zbarimg on a PNG and gives what it read, without the line end.
std::string ReadBars(const std::string& png) {
  TestFolder dir;
  WriteBytes(dir("bars.png"), png);
  std::string out;
  if (FILE* pipe = popen(
          ("timeout 30 zbarimg -q --raw '" + dir("bars.png") + "' 2>/dev/null").c_str(), "r")) {
    char buffer[512];
    for (size_t n; (n = fread(buffer, 1, sizeof buffer, pipe)) > 0;) out.append(buffer, n);
    pclose(pipe);
  }
  while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
  return out;
}

TEST_F(BarcodeTest, CairoPngsReadBackByZbar) {
  CairoSurfaceFactory cairo;
  sim.platform.surfaces = cairo;
  const std::pair<Text, std::string> cases[] = {
      {u"HELLO WORLD", "HELLO WORLD"}, {u"12345", "12345"}, {u"code-39 $/+%.", "CODE-39 $/+%."},
      {u"VX9 QZ", "VX9 QZ"},           {u"lower", "LOWER"},
  };
  for (const auto& [text, read] : cases) {
    auto box = sim.platform.surfaces->Create(400, 100);
    adds.Var_DrawBarcode(Variant(text), *box);
    const std::string png = box->Picture();
    ASSERT_GT(png.size(), 8u);
    EXPECT_EQ(png.substr(1, 3), "PNG");
    EXPECT_EQ(sim.clipboard.image, png);
    EXPECT_EQ(ReadBars(png), read) << TextToUtf8(text);
  }
}

}  // namespace
}  // namespace varnek
