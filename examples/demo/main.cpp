// varnek-demo: a whole host around HTTPServer on the Linux platform. Serves
// the demo pages until SIGINT or SIGTERM, then stops the server cleanly.
#include <malloc.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "examples/demo/demo_host.h"
#include "examples/demo/demo_options.h"
#include "examples/demo/file_limit.h"
#include "examples/demo/stderr_log.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_network_clock.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/tls_context.h"

namespace {

varnek::demo::StderrLog stderr_log;

void Log(const std::string& text) { stderr_log.Line(text); }

}  // namespace

int main(int argc, char** argv) {
  using namespace varnek;
  demo::Options options;
  std::string error;
  if (!demo::ParseOptions(argc, argv, options, error)) {
    if (!error.empty()) std::cerr << "varnek-demo: " << error << "\n";
    std::cerr << demo::Usage();
    return error.empty() ? 0 : 2;
  }
  // Buffers of 128 KiB and more (large requests and answers) get pages of
  // their own, which go back to the system when freed. Left to itself the
  // allocator raises this threshold after the first large free and keeps
  // what a burst of large requests needed in its heap for good.
  mallopt(M_MMAP_THRESHOLD, 128 * 1024);
  const std::string limit_note = demo::RaiseOpenFileLimit(options.slots);
  if (!limit_note.empty()) std::cerr << "varnek-demo: " << limit_note << "\n";

  // SIGINT and SIGTERM arrive as readable data on a descriptor in the loop;
  // nothing runs in a signal handler.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop_signals, nullptr);
  const int signal_fd = signalfd(-1, &stop_signals, SFD_NONBLOCK | SFD_CLOEXEC);
  if (signal_fd < 0) {
    std::perror("signalfd");
    return 1;
  }

  // The host's own loop, so it can watch the signal descriptor and choose
  // how handlers run. Never destroyed, as the platform's services are not.
  static LinuxLoop* const loop =
      new LinuxLoop(options.one_stack ? LoopMode::kOneStack : LoopMode::kStrands);
  Platform& platform = LinuxPlatformOn(*loop);
  stderr_log.Attach(*loop);
  if (options.time_port)  // a time server of the host's choosing, for the system page
    platform.network_clock =
        *new LinuxNetworkClock(*loop, static_cast<uint16_t>(options.time_port));
  if (!options.tls.empty()) {
    // The server names its certificate with one fixed name; here that name
    // stands for the files the flag names.
    auto* sockets = new LinuxSocketFactory(*loop);
    sockets->tls().AliasCertificate(u"VRNEK", options.tls);
    platform.sockets = *sockets;
  }
  bool stop = false;
  const bool watched = loop->Watch(signal_fd, EPOLLIN, [&](uint32_t) {
    signalfd_siginfo info{};
    while (read(signal_fd, &info, sizeof info) == sizeof info) {
      Log("signal " + std::to_string(info.ssi_signo) + ": stopping");
      stop = true;
    }
  });
  if (!watched) {
    std::perror("epoll_ctl");
    return 1;
  }

  HTTPServer server(platform);
  demo::DemoHost host(server, Log, options);
  for (const auto& user : options.users) server.UsersAdd(user.c_str());
  for (const auto& path : options.secure) server.SecurePathAdd(path.c_str());
  server.ServerPort(options.port);
  server.ServerSecure(!options.tls.empty());
  server.MaxConcurrentConnections(options.slots);
  if (options.watchdog != 0) server.WatchdogTimeout(static_cast<int16_t>(options.watchdog));
  if (!options.welcome.empty()) server.ServerWelcomeString(options.welcome.c_str());

  server.ServerOpen(true);
  if (!server.ServerOpen()) {
    stderr_log.Flush();
    std::cerr << "varnek-demo: the server did not start on port " << options.port
              << (options.tls.empty()
                      ? " (in use, or above 32767?)\n"
                      : " (in use, above 32767, or its certificate: see the reports above)\n");
    return 1;
  }
  const char* scheme = options.tls.empty() ? "http" : "https";
  std::cout << "varnek-demo serving on " << scheme << "://127.0.0.1:" << options.port << "/ and "
            << scheme << "://[::1]:" << options.port << "/ (" << TextToUtf8(server.HintText())
            << "), " << options.slots << " slots\n";
  if (options.defaults_for_admin) {
    std::cout << "/admin is secured for user admin, password admin\n";
  } else {
    for (const auto& path : options.secure) std::cout << "secured: " << path << "\n";
  }
  // The application's folder: the executable's, or the per-user data folder
  // when that one may not be written (an installed program).
  std::cout << "log, INI and history files go to " << TextToUtf8(platform.app->Path()) << "/\n";
  std::cout << "Ctrl-C stops it." << std::endl;

  while (!stop) loop->Pump(3600);

  server.ServerOpen(false);
  loop->Unwatch(signal_fd);
  close(signal_fd);
  stderr_log.Flush();
  std::cerr << "MaxPumpDepth " << loop->MaxPumpDepth() << " LiveStrands " << loop->LiveStrands()
            << " MaxLiveStrands " << loop->MaxLiveStrands()
            << (options.one_stack ? " (one stack)" : "") << std::endl;
  return 0;
}
