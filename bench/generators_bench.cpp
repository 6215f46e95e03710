// Speed of the content generators: Var_RTF2HTML over 64 KB and 1 MB of
// edit-control RTF (time should grow linearly; goal under 100 ms for 1 MB),
// over 1, 5 and 20 MB of rich-edit text whose "\b0" and "\i0" close nothing
// (every close stays owed to the end: linear too), and Var_DrawBarcode of a 40-character text on
// the Cairo picture control.
#include <benchmark/benchmark.h>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/internal/cairo_surface.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"

using namespace varnek;

namespace {

// Paragraphs as an edit control writes them, with fonts, colours, bold,
// italic, entities and quotes, until the text holds n units.
Text SampleRtf(size_t n) {
  Text rtf =
      u"{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\fswiss MS Sans Serif;}{\\f1\\froman Times New Roman;}}\r\n"
      u"{\\colortbl\\red0\\green0\\blue0;\\red255\\green0\\blue0;}\r\n\\deflang1033\\pard\\plain\\f1\\fs20 ";
  const Text paragraph =
      u"Plain text, \\plain\\f1\\fs20\\b bold\\plain\\f1\\fs20  and \\plain\\f1\\fs20\\cf1\\i red italic"
      u"\\plain\\f1\\fs20 , caf\\'e9 \\ldblquote quoted\\rdblquote  text with some more words.\r\n\\par ";
  while (rtf.size() < n) rtf += paragraph;
  return rtf + u"}";
}

// Paragraphs of "\b word\b0" and "\i word\i0" until the text holds n units.
Text BoldRunsRtf(size_t n) {
  Text rtf =
      u"{\\rtf1\\ansi\\deff0{\\fonttbl{\\f0\\fswiss Arial;}}\r\n\\deflang1033\\pard\\f0\\fs20 ";
  const Text paragraph = u"Some \\b bold\\b0  words and \\i italic\\i0  ones in a line.\r\n\\par ";
  while (rtf.size() < n) rtf += paragraph;
  return rtf + u"}";
}

// Var_RTF2HTML over the text `make` gives for state.range(0) units.
void BM_RTF2HTML(benchmark::State& state, Text (*make)(size_t), const char16_t* flags) {
  SimPlatform sim;
  Adds adds(sim.platform);
  Variant rtf = make(static_cast<size_t>(state.range(0))), options = Text(flags);
  for (auto _ : state) benchmark::DoNotOptimize(adds.Var_RTF2HTML(rtf, options));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}
BENCHMARK_CAPTURE(BM_RTF2HTML, edit_control, SampleRtf, u"+H")
    ->Arg(64 << 10)
    ->Arg(1 << 20)
    ->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_RTF2HTML, bold_runs, BoldRunsRtf, u"")
    ->Arg(1 << 20)
    ->Arg(5 << 20)
    ->Arg(20 << 20)
    ->Unit(benchmark::kMillisecond);

void BM_DrawBarcode40(benchmark::State& state) {
  SimPlatform sim;  // the clipboard is the recording one: no file is written
  CairoSurfaceFactory cairo;
  Adds adds(sim.platform);
  const Variant text = u"VARNEK 0123456789 CODE-39 $/+%. XYZ QRST";  // 40 units
  for (auto _ : state) {
    auto box = cairo.Create(400, 100);
    adds.Var_DrawBarcode(text, *box);
    benchmark::DoNotOptimize(box->Picture());
  }
}
BENCHMARK(BM_DrawBarcode40)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
