// Costs of the system services on the real Linux sources: one reading of
// the power class, the processor load, memory, and a server's clock over
// SNTP on loopback (a responder in the same loop) or the local clock.
#include <benchmark/benchmark.h>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_network_clock.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "tests/support/sntp_responder.h"

namespace varnek {
namespace {

void BM_PowerUpdate(benchmark::State& state) {
  Adds adds;
  for (auto _ : state) benchmark::DoNotOptimize(adds.POWER_Update());
}
BENCHMARK(BM_PowerUpdate);

void BM_CPUUsage(benchmark::State& state) {
  Adds adds;
  for (auto _ : state) benchmark::DoNotOptimize(adds.Win_CPUUsage());
}
BENCHMARK(BM_CPUUsage);

void BM_Memoria(benchmark::State& state) {
  Adds adds;
  for (auto _ : state) benchmark::DoNotOptimize(adds.Win_Memoria(1));
}
BENCHMARK(BM_Memoria);

void BM_RemoteDateTimeLoopback(benchmark::State& state) {
  LinuxLoop loop;
  SntpResponder responder(loop, SntpResponder::kAnswer);
  LinuxNetworkClock clock(loop, responder.port, 2.0);
  SimPlatform sim;
  Platform platform = sim.platform;
  platform.loop = loop;
  platform.network_clock = clock;
  Adds adds(platform);
  for (auto _ : state) benchmark::DoNotOptimize(adds.NET_GetRemoteDateTime(u"127.0.0.1"));
}
BENCHMARK(BM_RemoteDateTimeLoopback)->UseRealTime();

void BM_LocalDateTime(benchmark::State& state) {
  Adds adds;
  for (auto _ : state) benchmark::DoNotOptimize(adds.NET_GetRemoteDateTime(u""));
}
BENCHMARK(BM_LocalDateTime)->UseRealTime();

}  // namespace
}  // namespace varnek

BENCHMARK_MAIN();
