// Storage under two processes and under SIGKILL: writes lost when two
// processes write different families of the settings group or different
// sections of one INI file at once (also on the in-place path, a file with a
// second hard link), and whole-file saves on the in-place path killed at
// random points (files found neither old nor new, keep copies left over).
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "varnek/platform/linux/internal/file_settings_store.h"
#include "varnek/platform/linux/internal/linux_files.h"
#include "varnek/platform/linux/internal/linux_profiles.h"
#include "varnek/runtime/convert.h"
#include "tests/support/child_process.h"

namespace varnek {
namespace {

namespace fs = std::filesystem;

constexpr int kWrites = 200;
constexpr int kTrials = 5;

// A fresh folder for one measurement, removed afterwards.
struct Scratch {
  std::string path = "/tmp/varnek-writers-bench-XXXXXX";
  Scratch() {
    if (!mkdtemp(path.data())) std::abort();
  }
  ~Scratch() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
};

// Counts, over kTrials trials, the keys missing at the end (of 2 x kWrites)
// and the trials in which a writer's last value was rolled back.
template <typename Write, typename Read>
void CountLostWrites(benchmark::State& state, bool hard_link, Write write, Read read) {
  int lost = 0, rolled_back = 0;
  for (auto _ : state) {
    for (int trial = 0; trial < kTrials; ++trial) {
      Scratch scratch;
      const std::string file = scratch.path + "/shared.ini";
      std::ofstream(file) << "[start]\nk=v\n";
      if (hard_link) fs::create_hard_link(file, scratch.path + "/second-name.ini");
      RunSideBySide(2, [&](int c) {
        for (int i = 0; i < kWrites; ++i) {
          write(file, c, "k" + std::to_string(i), std::to_string(i));
          write(file, c, "last", std::to_string(i));
        }
      });
      for (int c = 0; c < 2; ++c) {
        for (int i = 0; i < kWrites; ++i)
          lost += read(file, c, "k" + std::to_string(i)) != std::to_string(i);
        rolled_back += read(file, c, "last") != std::to_string(kWrites - 1);
      }
    }
  }
  state.counters["writes"] = 2 * kWrites * kTrials;
  state.counters["lost"] = lost;
  state.counters["rolled_back_trials"] = rolled_back;
}

std::string Family(int c) { return "Family" + std::to_string(c); }

void BM_TwoWritersSettings(benchmark::State& state) {
  CountLostWrites(
      state, false,
      [](const std::string& file, int c, const std::string& key, const std::string& value) {
        FileSettingsStore(fs::path(file).parent_path())
            .Set(u"VarnekGlobal", Utf8ToText(Family(c)), Utf8ToText(key), Utf8ToText(value));
      },
      [](const std::string& file, int c, const std::string& key) {
        return TextToUtf8(FileSettingsStore(fs::path(file).parent_path())
                              .Get(u"VarnekGlobal", Utf8ToText(Family(c)), Utf8ToText(key), u""));
      });
}
BENCHMARK(BM_TwoWritersSettings)->Unit(benchmark::kMillisecond)->Iterations(1);

void BM_TwoWritersIni(benchmark::State& state) {
  CountLostWrites(
      state, state.range(0) != 0,
      [](const std::string& file, int c, const std::string& key, const std::string& value) {
        LinuxProfiles().WriteString(Utf8ToText(Family(c)), Utf8ToText(key), Utf8ToText(value),
                                    Utf8ToText(file));
      },
      [](const std::string& file, int c, const std::string& key) {
        return TextToUtf8(LinuxProfiles().GetValue(Utf8ToText(Family(c)), Utf8ToText(key), u"",
                                                   Utf8ToText(file)));
      });
  state.SetLabel(state.range(0) ? "in place (two hard links)" : "rename path");
}
BENCHMARK(BM_TwoWritersIni)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond)->Iterations(1);

// 100 children save a 64 KB file with a second hard link, old and new in
// turn, each killed at a point of its choosing; after each kill the file is
// read as the next open would read it.
void BM_KilledInPlaceSaves(benchmark::State& state) {
  int bad = 0;
  size_t keeps = 0;
  for (auto _ : state) {
    Scratch scratch;
    const std::string tmpdir = scratch.path + "/tmpdir";
    fs::create_directory(tmpdir);
    setenv("TMPDIR", tmpdir.c_str(), 1);
    const std::string file = scratch.path + "/linked.bin";
    const std::string a(65536, 'A'), b(65536 + 999, 'B');
    std::ofstream(file, std::ios::binary) << a;
    fs::create_hard_link(file, scratch.path + "/second-name.bin");
    for (int run = 0; run < 100; ++run) {
      KillWhenReady([&](int ready) {
        for (int i = 0; i < 4000; ++i) {
          LinuxFiles().WriteAll(Utf8ToText(file), i % 2 ? a : b);
          if (i == run % 20) (void)!write(ready, "r", 1);
        }
      });
      std::string got;
      try {
        got = LinuxFiles().ReadAll(Utf8ToText(file), true);
      } catch (...) {
      }
      bad += got != a && got != b;
    }
    for (const std::string& folder : {scratch.path, tmpdir})
      for (const auto& entry : fs::recursive_directory_iterator(folder))
        keeps += entry.path().filename().string().find("keep") != std::string::npos;
    unsetenv("TMPDIR");
  }
  state.counters["kills"] = 100;
  state.counters["neither_old_nor_new"] = bad;
  state.counters["keep_copies_left"] = static_cast<double>(keeps);
}
BENCHMARK(BM_KilledInPlaceSaves)->Unit(benchmark::kMillisecond)->Iterations(1);

}  // namespace
}  // namespace varnek

BENCHMARK_MAIN();
