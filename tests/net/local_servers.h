// Real peers on 127.0.0.1 for the network tests: a scripted TCP server on a
// thread of its own, the demo host as a child process (tests/demo_process.h),
// and a Linux platform whose resolver reads a hosts file of the test's own
// and never asks DNS.
// Every wait is bounded.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/demo_process.h"
#include "tests/platform/loopback_client.h"
#include "varnek/adds/adds.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/internal/linux_web_services.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/platform.h"

namespace varnek {

// The standard output of a shell command.
inline std::string Shell(const std::string& command) {
  std::string out;
  if (FILE* p = popen(command.c_str(), "r")) {
    char buf[4096];
    for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    pclose(p);
  }
  return out;
}

// Reads from fd until `done(text)` holds, the peer closes or `seconds` pass.
inline std::string ReadUntil(int fd, const std::function<bool(const std::string&)>& done,
                             double seconds = 5.0) {
  std::string got;
  const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  char buf[65536];
  while (!done(got) && std::chrono::steady_clock::now() < end) {
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    const ssize_t n = ::recv(fd, buf, sizeof buf, 0);
    if (n <= 0) break;
    got.append(buf, static_cast<size_t>(n));
  }
  return got;
}

// The request is whole: headers, then Content-length bytes and a CR LF if any.
inline bool RequestComplete(const std::string& r) {
  const size_t head = r.find("\r\n\r\n");
  if (head == std::string::npos) return false;
  const size_t at = r.find("Content-length: ");
  if (at == std::string::npos || at > head) return true;
  const size_t length = std::stoul(r.substr(at + 16));
  return r.size() >= head + 4 + length;
}

inline bool SendAll(int fd, const std::string& bytes) {
  size_t sent = 0;
  while (sent < bytes.size()) {
    const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return false;
    sent += static_cast<size_t>(n);
  }
  return true;
}

// A TCP server on 127.0.0.1 that runs `serve(fd, request)` for each
// connection on its own thread, then closes the connection. It stops taking
// connections when destroyed, and lives at most 120 s.
class ScriptedServer {
 public:
  using Serve = std::function<void(int fd, const std::string& request)>;
  explicit ScriptedServer(Serve serve) : serve_(std::move(serve)) {
    listen_fd_ = BoundToLoopback(AF_INET, SOCK_STREAM, port_);
    ::listen(listen_fd_, 16);
    thread_ = std::thread([this] { Run(); });
  }
  ~ScriptedServer() {
    stop_ = true;
    thread_.join();
    ::close(listen_fd_);
  }
  int port() const { return port_; }
  std::vector<std::string> requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }
  // Set by a serve function that waits for the client: the test is ending.
  const std::atomic<bool>& stopping() const { return stop_; }

 private:
  void Run() {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
    while (!stop_ && std::chrono::steady_clock::now() < end) {
      pollfd p{listen_fd_, POLLIN, 0};
      if (::poll(&p, 1, 50) <= 0) continue;
      const int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      const std::string request = ReadUntil(fd, RequestComplete);
      {
        std::lock_guard<std::mutex> lock(mutex_);
        requests_.push_back(request);
      }
      serve_(fd, request);
      ::close(fd);
    }
  }
  Serve serve_;
  int listen_fd_ = -1, port_ = 0;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

// A Linux platform for one test: its own loop and sockets, names from a
// hosts file ("gateway.test" is 127.0.0.1) and never from DNS.
struct LinuxNetPlatform {
  LinuxNetPlatform() {
    sockets.SetResolverConfig({"", "f", 500, 1});
    platform.loop = loop;
    platform.app = app;
    platform.settings = settings;
    platform.sockets = sockets;
    platform.net_tables = tables;
    platform.web = web;
  }
  HostsFile hosts{"127.0.0.1 gateway.test\n"};
  LinuxLoop loop;
  FixedApplication app{u"VarnekNetTest", u"/tmp", {}};
  MemorySettingsStore settings;
  LinuxSocketFactory sockets{loop};
  LinuxNetTables tables;
  LinuxWebServices web{loop};
  SimPlatform sim;                    // the services a network test does not reach
  Platform platform = sim.platform;
};

// Adds on that platform, with a socket control of its own.
struct LinuxNetFixture : ::testing::Test {
  LinuxNetPlatform env;
  Adds adds{env.platform};
  std::unique_ptr<SocketCtl> sock = env.sockets.Create();
};

}  // namespace varnek
