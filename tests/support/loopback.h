// Loopback peers for the tests: sockets bound to a port the kernel picks, a
// listener, a blocking client whose reads end at a deadline, a hosts file of
// the test's own and a port for a server whose ports are 16-bit Integers.
#pragma once

#include <sys/socket.h>

#include <functional>
#include <string>
#include <vector>

namespace varnek {

// A socket of `type` bound to the loopback address of `family` on a port the
// kernel picks, stored in `port`; -1 when that family has no loopback here.
int BoundToLoopback(int family, int type, int& port);

// A Unix stream socket bound to the file `path`, or -1.
int BoundToPath(const std::string& path);

// Whether ::1 can be bound here at all.
bool HasIPv6Loopback();

// A port in 20000..31999 for a server that takes ports up to 32767 only:
// below the ephemeral range, chosen at random so that retries spread.
int RandomServerPort();

// A listening TCP socket on loopback; fd is -1 when the family has none.
struct LoopbackListener {
  explicit LoopbackListener(int family = AF_INET, int backlog = 16);
  ~LoopbackListener();
  LoopbackListener(const LoopbackListener&) = delete;
  LoopbackListener& operator=(const LoopbackListener&) = delete;
  // The next connection (flags as for accept4), or -1.
  int Accept(int flags = SOCK_CLOEXEC) const;
  int fd = -1, port = 0;
};

// Sends all of `bytes` on a blocking socket; false once the peer has gone.
bool SendAll(int fd, const std::string& bytes);

// Reads from fd until `done(text)` holds, the peer closes or `seconds` pass.
std::string ReadUntil(int fd, const std::function<bool(const std::string&)>& done,
                      double seconds = 5.0);

// A hosts file of the test's own that the Linux resolver reads while this lives.
struct HostsFile {
  explicit HostsFile(const std::string& lines);
  ~HostsFile();
  HostsFile(const HostsFile&) = delete;
  HostsFile& operator=(const HostsFile&) = delete;
  std::string path;
};

// A blocking TCP client on the test's thread. local_port is its own port, as
// the server should see it; eof is set once the server has closed or reset.
class LoopbackClient {
 public:
  LoopbackClient() = default;
  explicit LoopbackClient(int port, const char* address = "127.0.0.1") { Connect(port, address); }
  ~LoopbackClient() { Close(); }
  LoopbackClient(const LoopbackClient&) = delete;
  LoopbackClient& operator=(const LoopbackClient&) = delete;

  bool Connect(int port, const char* address = "127.0.0.1");
  bool Send(const std::string& bytes) { return SendAll(fd, bytes); }
  // What is readable after waiting up to `ms` for the first byte.
  std::string ReadSome(int ms = 0);
  // Reads until `marker` (when not empty), the server's close, or `seconds` pass.
  std::string ReadUntil(const std::string& marker, double seconds = 5.0);
  std::string ReadAll(double seconds = 5.0) { return ReadUntil("", seconds); }
  bool PeerClosed() const { return eof; }
  // Without waiting: whether the server has closed (or reset) the connection;
  // bytes that wait are read and dropped.
  bool ClosedNow();
  // Stops sending and still reads: the half-close of `nc -N`.
  void ShutdownWrite();
  void Close();

  int fd = -1;
  bool connected = false, eof = false;
  int local_port = 0;
};

// Connects, sends and reads until the server closes or the limit ("" if none).
std::string RawExchange(int port, const std::string& request, double seconds = 5.0);

// What a client saw of one request: the answer, and when the server closed
// the connection (seconds since the exchange began; -1 when it did not).
struct Answer {
  std::string text;
  double at = -1;
};

// Connects one client a request, then sends them all, and reads every
// connection until the server closes it, at most `seconds` in all.
std::vector<Answer> ExchangeAtOnce(int port, const std::vector<std::string>& requests,
                                   double seconds);

}  // namespace varnek
