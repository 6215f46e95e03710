// The scripted loopback server's thread.
#include "tests/support/scripted_server.h"

#include <poll.h>
#include <unistd.h>

#include <chrono>

namespace varnek {

bool RequestComplete(const std::string& r) {
  const size_t head = r.find("\r\n\r\n");
  if (head == std::string::npos) return false;
  const size_t at = r.find("Content-length: ");
  if (at == std::string::npos || at > head) return true;
  const size_t length = std::stoul(r.substr(at + 16));
  return r.size() >= head + 4 + length;
}

ScriptedServer::ScriptedServer(Serve serve) : serve_(std::move(serve)) {
  thread_ = std::thread([this] { Run(); });
}

ScriptedServer::~ScriptedServer() {
  stop_ = true;
  thread_.join();
}

std::vector<std::string> ScriptedServer::requests() {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

void ScriptedServer::Run() {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
  while (!stop_ && std::chrono::steady_clock::now() < end) {
    pollfd p{listener_.fd, POLLIN, 0};
    if (::poll(&p, 1, 50) <= 0) continue;
    const int fd = listener_.Accept();
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

}  // namespace varnek
