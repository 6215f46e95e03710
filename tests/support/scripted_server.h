// A TCP server on 127.0.0.1 that runs `serve(fd, request)` for each
// connection on a thread of its own, then closes the connection. It stops
// taking connections when destroyed, and lives at most 120 s.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/loopback.h"

namespace varnek {

// The request is whole: headers, then Content-length bytes and a CR LF if any.
bool RequestComplete(const std::string& r);

class ScriptedServer {
 public:
  using Serve = std::function<void(int fd, const std::string& request)>;
  explicit ScriptedServer(Serve serve);
  ~ScriptedServer();
  int port() const { return listener_.port; }
  std::vector<std::string> requests();
  // Set by a serve function that waits for the client: the test is ending.
  const std::atomic<bool>& stopping() const { return stop_; }

 private:
  void Run();
  Serve serve_;
  LoopbackListener listener_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<std::string> requests_;
  std::thread thread_;
};

}  // namespace varnek
