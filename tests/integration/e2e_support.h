// What the end-to-end tests share: raw loopback clients whose reads end at a
// deadline, commands run under `timeout`, a client thread beside a pumping
// loop and the server fixture on the Linux loop (the demo host as a child
// process is tests/demo_process.h). Every wait is bounded.
#pragma once

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <future>
#include <random>
#include <string>
#include <vector>

#include "tests/demo_process.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/http_server.h"

namespace varnek::e2e {

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// A blocking TCP client on loopback whose reads end at a deadline.
class RawClient {
 public:
  ~RawClient() { ::close(fd_); }
  bool Connect(int port) {
    fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_port = htons(static_cast<uint16_t>(port));
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return ::connect(fd_, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
  }
  bool Send(const std::string& bytes) {
    return ::send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL) ==
           static_cast<ssize_t>(bytes.size());
  }
  // Reads until `marker` (when not empty), the server's close, or `seconds` pass.
  std::string ReadUntil(const std::string& marker, double seconds = 5.0) {
    const auto start = Clock::now();
    std::string out;
    char buf[65536];
    while (!closed_ && (marker.empty() || out.find(marker) == std::string::npos)) {
      pollfd p{fd_, POLLIN, 0};
      const double left = seconds - SecondsSince(start);
      if (left <= 0 || ::poll(&p, 1, static_cast<int>(left * 1000) + 1) <= 0) break;
      const ssize_t n = ::recv(fd_, buf, sizeof buf, 0);
      if (n > 0) out.append(buf, static_cast<size_t>(n));
      else closed_ = true;  // end of stream or reset
    }
    return out;
  }
  std::string ReadAll(double seconds = 5.0) { return ReadUntil("", seconds); }
  bool PeerClosed() const { return closed_; }
  // Without waiting: whether the server has closed (or reset) the connection;
  // bytes that wait are read and dropped.
  bool ClosedNow() {
    char buf[4096];
    for (int k = 0; k < 64 && !closed_; ++k) {
      const ssize_t n = ::recv(fd_, buf, sizeof buf, MSG_DONTWAIT);
      if (n > 0 || (n < 0 && errno == EINTR)) continue;
      closed_ = n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK);
      break;
    }
    return closed_;
  }
  // Stops sending and still reads: the half-close of `nc -N`.
  void ShutdownWrite() { ::shutdown(fd_, SHUT_WR); }
  int fd() const { return fd_; }

 private:
  int fd_ = -1;
  bool closed_ = false;
};

// Connects, sends and reads until the server closes or the limit ("" if none).
inline std::string RawExchange(int port, const std::string& request, double seconds = 5.0) {
  RawClient c;
  if (!c.Connect(port) || !c.Send(request)) return "";
  return c.ReadAll(seconds);
}

// Runs a command line under `timeout` (it kills its process group); its stdout.
inline std::string RunCommand(const std::string& command, double seconds = 10.0) {
  std::string output;
  FILE* pipe = ::popen(("timeout -k 2 " + std::to_string(seconds) + " " + command).c_str(), "r");
  char buf[4096];
  for (size_t n; pipe && (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
  if (pipe) ::pclose(pipe);
  return output;
}

// Runs `client` (which bounds its own waits) on a thread while this one pumps `loop`.
template <class Fn>
auto RunClientWhilePumping(HostLoop& loop, Fn client, double max_seconds = 20.0) {
  auto future = std::async(std::launch::async, std::move(client));
  const auto start = Clock::now();
  while (future.wait_for(std::chrono::seconds(0)) != std::future_status::ready &&
         SecondsSince(start) < max_seconds) {
    loop.Pump(0.02);
  }
  return future.get();
}

inline constexpr const char* kChromium = "/usr/bin/chromium";

// Headless Chromium's DOM of `url` after loading, with a profile of its own
// under `profile_folder`; "" when it did not finish within `seconds`.
inline std::string ChromiumDom(const std::string& url, const std::string& profile_folder,
                               const std::string& extra_flags = "", double seconds = 30.0) {
  return RunCommand(std::string(kChromium) + " --headless --no-sandbox --disable-gpu"
                    " --disable-quic --no-first-run --disable-background-networking"
                    " --disable-component-update --disable-sync " + extra_flags +
                    " --user-data-dir=" + profile_folder + " --dump-dom '" + url + "' 2>/dev/null", seconds);
}

inline const std::string kGetHello = "GET /hello HTTP/1.0\r\n\r\n";

class ServerE2ETest : public ::testing::Test {
 protected:
  ServerE2ETest() : server(LinuxPlatform()) {
    server.InternalState = [this](Variant&, Variant& text) { reports.push_back(text.ToUtf8()); };
    server.GETReceived = [this](Variant& url, Variant&, Variant&, Variant& response, Variant&,
                                Collection&, Collection&) {
      if (url.ToText() == u"/hello/") {
        response = CStr(server.http_Header(e200_OK, eTextHTML, 5)) + u"hello";
      }
    };
    server.POSTReceived = [this](Variant&, Variant&, Collection& names, Collection& values,
                                 Variant&, Variant& response, Variant&, Collection&,
                                 Collection&) {
      Text body;
      for (int32_t k = 1; k <= names.Count(); ++k) {
        body += names.Item(k).ToText() + u"=[" + values.Item(k).ToText() + u"]\n";
      }
      response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
    };
  }

  // Ports above 32767 do not start; pick below and retry when one is taken.
  void Start(int32_t slots = 3) {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 20 && !server.ServerOpen(); ++attempt) {
      port = 20000 + static_cast<int>(random() % 12000);
      server.ServerPort(port);
      server.MaxConcurrentConnections(slots);
      server.ServerOpen(true);
    }
    ASSERT_TRUE(server.ServerOpen());
  }
  std::string Exchange(const std::string& request) {
    return RunClientWhilePumping(server.loop(), [&] { return RawExchange(port, request); });
  }
  std::string Command(const std::string& command) {
    return RunClientWhilePumping(server.loop(), [&] { return RunCommand(command, 8.0); });
  }

  HTTPServer server;
  int port = 0;
  std::vector<std::string> reports;
};

class DemoHostTest : public ::testing::Test {
 protected:
  void TearDown() override { unlink(log_path.c_str()); }
  std::string Curl(const std::string& args, const std::string& path) {
    return RunCommand("curl -s -m 5 " + args + " http://127.0.0.1:" +
                          std::to_string(demo.port()) + path, 8.0);
  }
  std::string Code(const std::string& args, const std::string& path) {
    return Curl("-o /dev/null -w '%{http_code}' " + args, path);
  }

  std::string log_path = "/tmp/varnek-demo-log-" + std::to_string(getpid());
  DemoProcess demo;
};

}  // namespace varnek::e2e
