// Network tools on the real machine: NET_Stat over a table grown by 10,000
// loopback connections made here, and a POST_SendMensaje round trip to the
// demo host's /echo (started as a child on a free port).
//
//   build/bench/net_bench [--benchmark_filter=...]
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/memory_settings_store.h"

namespace {

using namespace varnek;

struct BenchPlatform {
  LinuxLoop loop;
  FixedApplication app{u"net_bench", u"/tmp", u""};
  MemorySettingsStore settings;
  LinuxSocketFactory sockets{loop};
  LinuxNetTables tables;
  SimPlatform sim;  // the services the bench does not reach
  Platform platform = sim.platform;
  BenchPlatform() {
    platform.loop = loop;
    platform.app = app;
    platform.settings = settings;
    platform.sockets = sockets;
    platform.net_tables = tables;
  }
};

// `count` loopback connections to one listener. The accepting ends live in
// a child process, so each process holds about `count` descriptors and stays
// under a hard limit of 20,000.
struct Connections {
  int port = 0;
  pid_t acceptor = -1;
  std::vector<int> clients;
  explicit Connections(int count) {
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    // A port below 32768, where the classic arithmetic shows it exactly.
    for (int p = 20000 + getpid() % 10000, tries = 0; tries < 50;
         ++tries, p = 20000 + (p - 19999) % 12000) {
      a.sin_port = htons(static_cast<uint16_t>(p));
      if (::bind(listener, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0) break;
    }
    ::listen(listener, 4096);
    socklen_t len = sizeof a;
    getsockname(listener, reinterpret_cast<sockaddr*>(&a), &len);
    port = ntohs(a.sin_port);
    acceptor = fork();
    if (acceptor == 0) {
      std::vector<int> held;
      for (int i = 0; i < count; ++i) {
        const int s = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (s < 0) break;
        held.push_back(s);
      }
      pause();  // holds them until killed
      _exit(0);
    }
    ::close(listener);
    for (int i = 0; i < count; ++i) {
      const int c = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
      if (c < 0 || ::connect(c, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
        if (c >= 0) ::close(c);
        std::perror("connect");
        break;
      }
      clients.push_back(c);
    }
  }
  ~Connections() {
    for (int fd : clients) ::close(fd);
    if (acceptor > 0) {
      kill(acceptor, SIGKILL);
      waitpid(acceptor, nullptr, 0);
    }
  }
};

Connections& TenThousand() {
  static Connections conns(10000);
  return conns;
}

void BM_NetStatTenThousandConnections(benchmark::State& state) {
  Connections& conns = TenThousand();
  BenchPlatform env;
  Adds adds(env.platform);
  int64_t rows = 0;
  for (auto _ : state) {
    rows = adds.NET_Stat().ToLong();
    benchmark::DoNotOptimize(rows);
  }
  state.counters["connections"] = static_cast<double>(conns.clients.size());
  state.counters["rows"] = static_cast<double>(rows);
}
BENCHMARK(BM_NetStatTenThousandConnections)->Unit(benchmark::kMillisecond)->Iterations(10);

void BM_NetStatOnePortOfTenThousand(benchmark::State& state) {
  Connections& conns = TenThousand();
  BenchPlatform env;
  Adds adds(env.platform);
  const int32_t shown = conns.port;
  int64_t rows = 0;
  for (auto _ : state) {
    rows = adds.NET_Stat(false, 5, Variant(shown)).ToLong();
    benchmark::DoNotOptimize(rows);
  }
  state.counters["rows"] = static_cast<double>(rows);
}
BENCHMARK(BM_NetStatOnePortOfTenThousand)->Unit(benchmark::kMillisecond)->Iterations(10);

// The demo host as a child; -1 when it did not come up.
pid_t StartDemo(int port) {
  const pid_t pid = fork();
  if (pid == 0) {
    const std::string p = std::to_string(port);
    if (freopen("/dev/null", "w", stdout) && freopen("/dev/null", "w", stderr)) {
      execl(VARNEK_DEMO_PATH, "varnek-demo", "--port", p.c_str(), static_cast<char*>(nullptr));
    }
    _exit(127);
  }
  for (int k = 0; k < 100; ++k) {
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const bool up = ::connect(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
    ::close(fd);
    if (up) return pid;
    usleep(50000);
  }
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  return -1;
}

void BM_PostRoundTripToDemoEcho(benchmark::State& state) {
  const int port = 20000 + getpid() % 12000;
  const pid_t demo = StartDemo(port);
  if (demo < 0) {
    state.SkipWithError("the demo host did not start");
    return;
  }
  BenchPlatform env;
  Adds adds(env.platform);
  auto sock = env.sockets.Create();
  int32_t last = 0;
  for (auto _ : state) {
    Variant url = Utf8ToText("http://127.0.0.1:" + std::to_string(port) + "/echo"),
            code_field = u"code", code = u"1234", message_field = u"message",
            message = u"round trip";
    last = adds.POST_SendMensaje(sock.get(), url, code_field, code, message_field, message);
  }
  state.counters["result"] = last;
  kill(demo, SIGTERM);
  waitpid(demo, nullptr, 0);
}
BENCHMARK(BM_PostRoundTripToDemoEcho)->Unit(benchmark::kMillisecond)->Iterations(5)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
