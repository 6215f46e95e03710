// Fuzzes the server's side of the secure channel: the input arrives as the
// peer's bytes (records with a hello, or anything else) on a socket pair, the
// channel reads until it fails, ends or waits, and what it writes is read
// away. No input may crash it or make it read or write out of bounds.
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "varnek/platform/linux/internal/tls_channel_internal.h"
#include "varnek/platform/linux/tls_context.h"
#include "varnek/platform/sim/sim_loop.h"

namespace {

using namespace varnek;

// A certificate made once for the run, in a folder of its own.
struct Harness {
  Harness() : loop(45000.0) {
    char folder[] = "/tmp/varnek-tls-fuzz.XXXXXX";
    if (!mkdtemp(folder)) std::abort();
    const std::string base = std::string(folder) + "/fuzz";
    const std::string make =
        "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 "
        "-subj /CN=localhost -keyout " +
        base + ".key -out " + base + ".pem 2>/dev/null";
    if (std::system(make.c_str()) != 0) std::abort();
    setenv("VARNEK_CERT_DIR", folder, 1);
    context = contexts.Server(u"fuzz");
    // Loaded: the files are no longer needed.
    std::remove((base + ".pem").c_str());
    std::remove((base + ".key").c_str());
    rmdir(folder);
  }
  SimLoop loop;
  TlsContexts contexts;
  TlsContext context;
};

void Drain(int fd) {
  char sink[16384];
  while (::recv(fd, sink, sizeof sink, MSG_DONTWAIT) > 0) {
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Harness* harness = new Harness;
  if (size > 65536) return 0;  // fits the socket pair's queue whole
  int pair[2];
  if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair) != 0) return 0;
  int buffer = 1 << 18;
  setsockopt(pair[1], SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
  setsockopt(pair[0], SOL_SOCKET, SO_RCVBUF, &buffer, sizeof buffer);
  if (size > 0) (void)::send(pair[1], data, size, MSG_NOSIGNAL);
  ::shutdown(pair[1], SHUT_WR);
  {
    auto channel = TlsChannel::Accepting(harness->loop, harness->context.get(), pair[0]);
    char plain[4096];
    for (int step = 0; step < 64; ++step) {
      const ssize_t n = channel->Read(plain, sizeof plain);
      Drain(pair[1]);
      if (n > 0) continue;
      if (n == 0 || errno != EAGAIN) break;
      if (channel->WatchEvents(EPOLLIN) == EPOLLIN) break;  // waits for bytes that never come
    }
    if (channel->Write("HTTP/1.0 200\r\n\r\n", 16) < 0) Drain(pair[1]);
    channel->Shutdown();
    Drain(pair[1]);
  }
  ::close(pair[0]);
  ::close(pair[1]);
  return 0;
}
