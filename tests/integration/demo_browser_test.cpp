// A real browser against the demo host: headless Chromium loads the index
// page and an echo page from varnek-demo, started as a child process, and
// the rendered DOM is checked.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "tests/integration/demo_process.h"
#include "tests/integration/integration_support.h"

namespace varnek {
namespace {

using namespace integration;

constexpr const char* kChromium = "/usr/bin/chromium";

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
