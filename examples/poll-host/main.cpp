// A host with a poll loop and a periodic timer of its own, with Varnek on
// the external-loop backend: the host watches Varnek's one descriptor
// beside its own and calls RunReady when it is readable or Varnek's time
// has come. Answers GET / with a page, as varnek-minimal does.
// Usage: varnek-poll-host [--port N] [--tick-ms N] [--own-loop]. SIGINT or
// SIGTERM ends it with a summary of its timer on stderr. --own-loop gives
// the thread to Varnek's own loop instead (no host timer), for comparison.
#include <sys/epoll.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>

#include "varnek/platform/linux/external_loop.h"
#include "varnek/platform/platform.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/http_server.h"

namespace {

using Clock = std::chrono::steady_clock;

int Milliseconds(Clock::duration d) {
  return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count());
}

}  // namespace

int main(int argc, char** argv) {
  using namespace varnek;
  int port = 8080;
  int tick_ms = 100;
  bool own_loop = false;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--own-loop") == 0)
      own_loop = true;
    else if (i + 1 >= argc)
      break;
    else if (std::strcmp(argv[i], "--port") == 0)
      port = std::atoi(argv[++i]);
    else if (std::strcmp(argv[i], "--tick-ms") == 0)
      tick_ms = std::max(1, std::atoi(argv[++i]));
  }

  // The signals end the host through its own loop, as a descriptor.
  sigset_t stop_signals;
  sigemptyset(&stop_signals);
  sigaddset(&stop_signals, SIGINT);
  sigaddset(&stop_signals, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop_signals, nullptr);
  const int signal_fd = signalfd(-1, &stop_signals, SFD_CLOEXEC);

  // never destroyed, like the platform's services
  static ExternalLoop* const loop = new ExternalLoop;
  HTTPServer server(LinuxPlatformOn(*loop));
  long served = 0;
  server.GETReceived = [&](Variant& url, Variant& ip, Variant&, Variant& response, Variant&,
                           Collection&, Collection&) {
    if (url.ToText() != u"/") return;
    ++served;
    Text body = u"<p>Hello, " + ip.ToText() + u", from a poll loop</p>";
    response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
  };
  server.MaxConcurrentConnections(200);
  server.ServerPort(port);
  server.ServerOpen(true);
  if (!server.ServerOpen()) {
    std::cerr << "varnek-poll-host: cannot serve on port " << port << "\n";
    return 1;
  }
  std::cout << "varnek-poll-host serving on http://127.0.0.1:" << port << "/" << std::endl;

  if (own_loop) {
    bool stop = false;
    loop->Watch(signal_fd, EPOLLIN, [&](uint32_t) { stop = true; });
    while (!stop) loop->Pump(3600);
    std::cerr << "varnek-poll-host: " << served << " requests served on Varnek's own loop"
              << std::endl;
    server.ServerOpen(false);
    return 0;
  }

  // The host's own timer: a tick every tick_ms, its gaps measured.
  const auto period = std::chrono::milliseconds(tick_ms);
  auto next_tick = Clock::now() + period;
  auto last_tick = Clock::now();
  long ticks = 0;
  Clock::duration longest_gap{};
  for (;;) {
    pollfd fds[2] = {{loop->Descriptor(), POLLIN, 0}, {signal_fd, POLLIN, 0}};
    int timeout = std::max(0, Milliseconds(next_tick - Clock::now()) + 1);
    const int varnek_timeout = loop->TimeoutMilliseconds();
    if (varnek_timeout >= 0) timeout = std::min(timeout, varnek_timeout);
    if (poll(fds, 2, timeout) < 0 && errno != EINTR) break;
    if (fds[1].revents & POLLIN) break;
    loop->RunReady();
    const auto now = Clock::now();
    if (now >= next_tick) {
      ++ticks;
      longest_gap = std::max(longest_gap, now - last_tick);
      last_tick = now;
      // A late tick is not caught up: the next one is a period after it.
      next_tick += period;
      if (next_tick <= now) next_tick = now + period;
    }
  }
  std::cerr << "varnek-poll-host: " << ticks << " ticks of " << tick_ms << " ms, longest gap "
            << Milliseconds(longest_gap) << " ms, " << served << " requests served" << std::endl;
  server.ServerOpen(false);
  return 0;
}
