// CPU cost of an idle DateTime_PausaTimer on the real Linux loop: a 5-second
// wait with nothing happening should sleep in epoll, not spin.
//
//   build-*/bench/pause_bench [seconds]
#include <benchmark/benchmark.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "varnek/adds/store/variable_store.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/memory_settings_store.h"

namespace {

double CpuSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  auto secs = [](const timeval& tv) {
    return static_cast<double>(tv.tv_sec) + static_cast<double>(tv.tv_usec) / 1e6;
  };
  return secs(usage.ru_utime) + secs(usage.ru_stime);
}

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 5.0;
  varnek::LinuxLoop loop;
  varnek::MemorySettingsStore settings;
  varnek::FixedApplication app(u"pause_bench", u"/tmp", u"");
  varnek::SimPlatform sim;  // the services a pause does not reach
  varnek::Platform platform = sim.platform;
  platform.loop = loop;
  platform.app = app;
  platform.settings = settings;
  varnek::VariableStore store(platform);

  const double cpu_before = CpuSeconds();
  const auto wall_before = std::chrono::steady_clock::now();
  store.DateTime_PausaTimer(seconds);
  const double wall =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wall_before).count();
  const double cpu = CpuSeconds() - cpu_before;
  benchmark::DoNotOptimize(cpu);

  std::printf(
      "DateTime_PausaTimer(%.1f) idle on LinuxLoop: wall %.3f s, CPU (user+sys) %.6f s, %.3f%% of wall, "
      "max pump depth %d\n",
      seconds, wall, cpu, 100.0 * cpu / wall, loop.MaxPumpDepth());

  // The calendar pause, whole seconds: 2 s.
  const double cpu2_before = CpuSeconds();
  const auto wall2_before = std::chrono::steady_clock::now();
  store.DateTime_Pausa(2);
  const double wall2 =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - wall2_before).count();
  const double cpu2 = CpuSeconds() - cpu2_before;
  std::printf(
      "DateTime_Pausa(2) idle on LinuxLoop: wall %.3f s, CPU (user+sys) %.6f s, %.3f%% of wall\n",
      wall2, cpu2, 100.0 * cpu2 / wall2);
  return 0;
}
