// A real browser against the demo host: headless Chromium loads the index
// page and an echo page from varnek-demo, started as a child process, and
// the rendered DOM is checked.
#include <gtest/gtest.h>

#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <random>
#include <string>

#include "tests/integration/integration_support.h"

namespace varnek {
namespace {

using namespace integration;

constexpr const char* kChromium = "/usr/bin/chromium";

// The demo host as a child process, stopped with SIGTERM at the end.
class DemoProcess {
 public:
  ~DemoProcess() { Stop(); }

  // Starts on a port below 32768 and waits until it accepts connections.
  bool Start() {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 10; ++attempt) {
      port_ = 20000 + static_cast<int>(random() % 12000);
      pid_ = fork();
      if (pid_ == 0) {
        const std::string port = std::to_string(port_);
        freopen("/dev/null", "w", stdout);
        freopen("/dev/null", "w", stderr);
        execl(VARNEK_DEMO_PATH, "varnek-demo", "--port", port.c_str(), static_cast<char*>(nullptr));
        _exit(127);
      }
      if (pid_ < 0) return false;
      const auto deadline = DeadlineIn(3.0);
      while (SecondsLeft(deadline) > 0) {
        RawClient probe;
        if (probe.Connect(port_, 0.2)) return true;
        int status = 0;
        if (waitpid(pid_, &status, WNOHANG) == pid_) break;  // port taken: it gave up
        usleep(50000);
      }
      Stop();
    }
    return false;
  }

  void Stop() {
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    const auto deadline = DeadlineIn(15.0);
    int status = 0;
    while (waitpid(pid_, &status, WNOHANG) == 0) {
      if (SecondsLeft(deadline) <= 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
        break;
      }
      usleep(20000);
    }
    pid_ = -1;
  }

  int port() const { return port_; }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
};

std::string DumpDom(const std::string& url, const std::string& profile) {
  const std::string command = std::string(kChromium) +
                              " --headless --no-sandbox --disable-gpu --disable-quic"
                              " --no-first-run --disable-background-networking"
                              " --disable-component-update --disable-sync --user-data-dir=" +
                              profile + " --dump-dom '" + url + "' 2>/dev/null";
  return RunCommand(command, 30.0).output;
}

TEST(DemoBrowserTest, ChromiumRendersIndexAndEcho) {
  if (access(kChromium, X_OK) != 0) GTEST_SKIP() << "no " << kChromium << " on this machine";
  DemoProcess demo;
  ASSERT_TRUE(demo.Start());
  char profile_template[] = "/tmp/varnek-chromium-XXXXXX";
  ASSERT_NE(mkdtemp(profile_template), nullptr);
  const std::string profile = profile_template;
  const std::string base = "http://127.0.0.1:" + std::to_string(demo.port());

  const std::string index = DumpDom(base + "/", profile);
  EXPECT_NE(index.find("<title>Varnek demo</title>"), std::string::npos) << index;
  EXPECT_NE(index.find("<form method=\"post\" action=\"/echo\">"), std::string::npos);
  EXPECT_NE(index.find("href=\"/echo?x=1\""), std::string::npos);
  EXPECT_NE(index.find("href=\"/admin/\""), std::string::npos);
  EXPECT_NE(index.find("href=\"/chat\""), std::string::npos);

  const std::string echo = DumpDom(base + "/echo?x=1", profile);
  EXPECT_NE(echo.find("<pre>"), std::string::npos) << echo;
  EXPECT_NE(echo.find("URL\t/echo?x=1/\n"), std::string::npos);
  EXPECT_NE(echo.find("RemoteIP\t127.0.0.1\n"), std::string::npos);
  EXPECT_NE(echo.find("Header\tGET\t/echo?x=1 HTTP/1.1\n"), std::string::npos);
  EXPECT_NE(echo.find("Header\tUser-Agent\t"), std::string::npos);
  EXPECT_NE(echo.find("HeadlessChrome"), std::string::npos);

  demo.Stop();
  std::error_code ignored;
  std::filesystem::remove_all(profile, ignored);
}

}  // namespace
}  // namespace varnek
