// Storage measurements: INI reads through the cache and from the file, long
// values and the section lister on large files, a record file of 1,500
// records, appends to it, and a scan of a tree of 10,000 files (appends under SIGKILL:
// append_kills_bench.cpp).
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "varnek/adds/store/storage.h"
#include "varnek/adds/store/variable_store.h"
#include "varnek/platform/platform.h"
#include "varnek/runtime/convert.h"

namespace varnek {
namespace {

class BenchStorage : public Storage {
 public:
  explicit BenchStorage(Platform& p) : Storage(p) {}
};

// A temporary folder for the whole run, removed at exit.
const std::string& Folder() {
  static std::string folder = [] {
    std::string pattern = "/tmp/varnek-store-bench-XXXXXX";
    if (!mkdtemp(pattern.data())) std::abort();
    std::atexit([] {
      std::error_code ignored;
      std::filesystem::remove_all(Folder(), ignored);
    });
    return pattern;
  }();
  return folder;
}

Text InFolder(const std::string& name) { return Utf8ToText(Folder() + "/" + name); }

// An INI file of 1,000 keys in 10 sections.
Text IniFile() {
  static Text path = [] {
    std::ofstream out(Folder() + "/bench.ini", std::ios::binary);
    for (int s = 0; s < 10; ++s) {
      out << "[section" << s << "]\r\n";
      for (int k = 0; k < 100; ++k)
        out << "key" << k << "=value of key " << s << "." << k << "\r\n";
    }
    return InFolder("bench.ini");
  }();
  return path;
}

void BM_IniGetStringHit(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  store.INI_SetFileName(IniFile());
  for (int k = 0; k < 100; ++k)
    store.INI_GetString(u"section5", u"key" + Utf8ToText(std::to_string(k)), u"");
  int k = 0;
  for (auto _ : state) {
    Text key = u"key" + Utf8ToText(std::to_string(k++ % 100));
    benchmark::DoNotOptimize(store.INI_GetString(u"section5", key, u""));
  }
  state.SetLabel("cache of 100 entries");
}
BENCHMARK(BM_IniGetStringHit);

void BM_IniGetStringMiss(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  store.INI_SetFileName(IniFile());
  for (auto _ : state) {
    store.INI_PurgeBuffer();  // a missing key is cached with its default: purge to read again
    benchmark::DoNotOptimize(store.INI_GetString(u"section9", u"nokey", u"dflt"));
  }
  state.SetLabel("key missing, file of 1,000 keys read");
}
BENCHMARK(BM_IniGetStringMiss);

void BM_IniGetStringFromFile(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  store.INI_SetFileName(IniFile());
  for (auto _ : state) {
    store.INI_PurgeBuffer();
    benchmark::DoNotOptimize(store.INI_GetString(u"section9", u"key99", u"dflt"));
  }
  state.SetLabel("last key of the file, cache empty");
}
BENCHMARK(BM_IniGetStringFromFile);

void BM_FileDbLeer1500(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  Text path = InFolder("history.db");
  std::string bytes;
  for (int i = 0; i < 1500; ++i)
    bytes += "2026-01-01 12:00:" + std::to_string(i % 60) + "\xF4message number " +
             std::to_string(i) + " to pager 5551234\xF4\xF5";
  std::ofstream(Folder() + "/history.db", std::ios::binary) << bytes;
  for (auto _ : state) benchmark::DoNotOptimize(store.FileDB_Leer(path));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(bytes.size()));
}
BENCHMARK(BM_FileDbLeer1500)->Unit(benchmark::kMillisecond);

// One 100-byte record appended per call, with its lock and marker.
void BM_FileDbAgregar(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  Text path = InFolder("appended.db");
  for (auto _ : state) store.FileDB_Agregar(path, Text(90, u'a'), u"b");
  state.SetLabel("100-byte records");
}
BENCHMARK(BM_FileDbAgregar);

void BM_ScanRecursiveFiles10000(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  std::string root = Folder() + "/tree";
  for (int d = 0; d < 100; ++d) {
    std::string dir = root + "/d" + std::to_string(d / 10) + "/e" + std::to_string(d % 10);
    std::filesystem::create_directories(dir);
    for (int f = 0; f < 100; ++f) std::ofstream(dir + "/f" + std::to_string(f) + ".txt") << "x";
  }
  size_t found = 0;
  for (auto _ : state) {
    store.Disk_ScanRecursiveFiles(Utf8ToText(root), u"*.txt");
    found = static_cast<size_t>(store.Disk_ScanRecursiveFiles_Lista->Count());
  }
  state.counters["files"] = static_cast<double>(found);
  state.SetLabel("111 folders, 10,000 files, Linux loop pumping");
}
BENCHMARK(BM_ScanRecursiveFiles10000)->Unit(benchmark::kMillisecond);

// A file of `bytes` units of a deterministic junk that holds "[", "]", CR
// and LF as often as random bytes would.
void WriteJunk(const std::string& path, size_t bytes, const std::string& head = {}) {
  std::string junk = head;
  junk.reserve(bytes);
  uint32_t state = 12345;
  while (junk.size() < bytes) {
    state = state * 1103515245u + 12345u;
    junk += static_cast<char>(state >> 24);
  }
  std::ofstream(path, std::ios::binary) << junk;
}

// INI_GetString of one long value, the cache purged: the value is read once.
void BM_IniGetStringLongValue(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  const size_t length = static_cast<size_t>(state.range(0));
  std::ofstream(Folder() + "/long.ini", std::ios::binary)
      << "[s]\r\nk=" << std::string(length, 'v') << "\r\n";
  store.INI_SetFileName(InFolder("long.ini"));
  size_t got = 0;
  for (auto _ : state) {
    store.INI_PurgeBuffer();
    got = store.INI_GetString(u"s", u"k", u"").size();
  }
  if (got != length) state.SkipWithError("the value did not come back whole");
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(length));
}
BENCHMARK(BM_IniGetStringLongValue)
    ->Arg(1 << 20)
    ->Arg(50 << 20)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);

// INI_ListAppName over 100 MB of junk, and over 20 MB that starts with 8,000
// sections.
void BM_IniListAppName(benchmark::State& state) {
  BenchStorage store(LinuxPlatform());
  const size_t megabytes = static_cast<size_t>(state.range(0));
  std::string head;
  if (state.range(1)) {
    for (int i = 0; i < 8000; ++i) head += "[section" + std::to_string(i) + "]\r\nk=v\r\n";
  }
  WriteJunk(Folder() + "/junk.ini", megabytes << 20, head);
  store.INI_SetFileName(InFolder("junk.ini"));
  size_t names = 0;
  for (auto _ : state) {
    Text list = CStr(store.INI_ListAppName());
    names = static_cast<size_t>(std::count(list.begin(), list.end(), u'\t'));
  }
  state.counters["names"] = static_cast<double>(names);
  state.SetLabel(std::to_string(megabytes) + " MB" +
                 (state.range(1) ? ", 8,000 sections first" : " of junk"));
}
BENCHMARK(BM_IniListAppName)
    ->Args({100, 0})
    ->Args({20, 1})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(2);

// Collection_Sort of n random texts (arg 0) or numbers (arg 1) in mode 0.
void BM_CollectionSort(benchmark::State& state) {
  VariableStore store(LinuxPlatform());
  const auto n = static_cast<int32_t>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    std::mt19937 rng(6);
    auto c = Collection::New();
    for (int32_t i = 0; i < n; ++i) {
      const auto r = static_cast<int32_t>(rng() % 1000000);
      c->Add(state.range(1) ? Variant(r) : Variant(u"item " + CStr(Variant(r))));
    }
    state.ResumeTiming();
    store.Collection_Sort(*c);
    benchmark::DoNotOptimize(c->Item(1));
  }
}
BENCHMARK(BM_CollectionSort)
    ->ArgsProduct({{16000, 64000}, {0, 1}})
    ->Unit(benchmark::kMillisecond)
    ->Iterations(1);

}  // namespace
}  // namespace varnek

BENCHMARK_MAIN();
