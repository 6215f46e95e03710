// Speed of the text toolkit's routines that the server leans on, on 1 KB,
// 64 KB and 1 MB inputs (one unit per byte). Time should grow linearly.
//
// The inputs are made by formulas that bench/compare_codecs.py repeats, so
// its Python figures are taken on the same data.
#include <benchmark/benchmark.h>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/text.h"

using namespace varnek;

namespace {

// Byte i of the sample data.
uint8_t SampleByte(size_t i) { return static_cast<uint8_t>((i * 131 + 7) & 255); }

Text SampleBytes(size_t n) {
  Text t(n, u'\0');
  for (size_t i = 0; i < n; ++i) t[i] = ByteToUnit(SampleByte(i));
  return t;
}

// A form body of n units: letters, "+" and two-digit escapes of 16..255.
Text SampleUrlEncoded(size_t n) {
  static constexpr char16_t kHex[] = u"0123456789ABCDEF";
  Text t;
  t.reserve(n + 3);
  for (size_t i = 0; t.size() < n; ++i) {
    auto b = static_cast<unsigned>(16 + (i * 131 + 7) % 240);
    bool alnum = (b >= '0' && b <= '9') || (b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z');
    if (alnum) {
      t += static_cast<char16_t>(b);
    } else if (b == ' ') {
      t += u'+';
    } else {
      t += u'%';
      t += kHex[b / 16];
      t += kHex[b % 16];
    }
  }
  return t;
}

// Header lines "X-Name-i: value i" until n units.
Text SampleHeaders(size_t n) {
  Text t = u"GET /index.html HTTP/1.0\r\n";
  for (int i = 0; t.size() < n; ++i) {
    t += u"X-Header-" + Utf8ToText(std::to_string(i)) + u": some value number " +
         Utf8ToText(std::to_string(i * 7)) + u"\r\n";
  }
  return t;
}

struct Fixture {
  SimPlatform sim;
  TextToolkit kit{sim.platform};
};

Fixture& Shared() {
  static Fixture f;
  return f;
}

void SizeArgs(benchmark::internal::Benchmark* b) { b->Arg(1 << 10)->Arg(64 << 10)->Arg(1 << 20); }

void BM_Var_Translate(benchmark::State& state) {
  size_t n = static_cast<size_t>(state.range(0));
  Text source;
  while (source.size() < n) source += u"field,";
  source.resize(n);
  for (auto _ : state) {
    benchmark::DoNotOptimize(Shared().kit.Var_Translate(source, u",", u";;"));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * n));
}

void BM_URL_Encode(benchmark::State& state) {
  Variant input = SampleBytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Shared().kit.URL_Encode(input));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_URL_Decode(benchmark::State& state) {
  Variant input = SampleUrlEncoded(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Shared().kit.URL_Decode(input));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64_Encode(benchmark::State& state) {
  Text input = SampleBytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Shared().kit.Base64_Encode(input));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Base64_Decode(benchmark::State& state) {
  // The encoding of the sample bytes, cut to the wanted size in whole groups.
  size_t n = static_cast<size_t>(state.range(0));
  Text input = Shared().kit.Base64_Encode(SampleBytes(n / 4 * 3));
  for (auto _ : state) benchmark::DoNotOptimize(Shared().kit.Base64_Decode(input));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * input.size()));
}

void BM_Script_SecuenciaProcesa(benchmark::State& state) {
  Variant block = SampleHeaders(static_cast<size_t>(state.range(0)));
  Variant record_sep = u"\r\n";
  for (auto _ : state) {
    Variant field_sep = u": ";
    benchmark::DoNotOptimize(Shared().kit.Script_SecuenciaProcesa(block, record_sep, field_sep));
  }
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

void BM_Var_ConvierteCharControlToText(benchmark::State& state) {
  Variant input = SampleBytes(static_cast<size_t>(state.range(0)));
  for (auto _ : state) benchmark::DoNotOptimize(Shared().kit.Var_ConvierteCharControlToText(input));
  state.SetBytesProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_Var_Translate)->Apply(SizeArgs);
BENCHMARK(BM_URL_Encode)->Apply(SizeArgs);
BENCHMARK(BM_URL_Decode)->Apply(SizeArgs);
BENCHMARK(BM_Base64_Encode)->Apply(SizeArgs);
BENCHMARK(BM_Base64_Decode)->Apply(SizeArgs);
BENCHMARK(BM_Script_SecuenciaProcesa)->Apply(SizeArgs);
BENCHMARK(BM_Var_ConvierteCharControlToText)->Apply(SizeArgs);

BENCHMARK_MAIN();
