// What the end-to-end tests share: a crowd of simultaneous GETs, the server
// on the Linux loop answering /hello and echoing POST fields, and the demo
// host as a child process met by curl. Every wait is bounded.
#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tests/support/commands.h"
#include "tests/support/demo_process.h"
#include "tests/support/expect.h"
#include "tests/support/loopback.h"
#include "tests/support/pump.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/http_server.h"

namespace varnek::e2e {

inline const std::string kGetHello = "GET /hello HTTP/1.0\r\n\r\n";

// Sends `count` GETs at once and reads every answer until its close.
inline std::vector<std::string> SimultaneousGets(int port, int count) {
  std::vector<std::string> texts;
  for (const Answer& a :
       ExchangeAtOnce(port, std::vector<std::string>(count, "GET / HTTP/1.0\r\n\r\n"), 60)) {
    texts.push_back(a.text);
  }
  return texts;
}

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
                                 Variant&, Variant& response, Variant&, Collection&, Collection&) {
      Text body;
      for (int32_t k = 1; k <= names.Count(); ++k) {
        body += names.Item(k).ToText() + u"=[" + values.Item(k).ToText() + u"]\n";
      }
      response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
    };
  }
  // Answers a POST with "length N", N the length of its raw text.
  void AnswerPostLength() {
    server.POSTReceived = [this](Variant&, Variant&, Collection&, Collection&, Variant& raw,
                                 Variant& response, Variant&, Collection&, Collection&) {
      ++posts;
      const Text body = u"length " + CStr(Variant::Long(Len(CStr(raw))));
      response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
    };
  }

  // Ports above 32767 do not start; pick below and retry when one is taken.
  void Start(int32_t slots = 3) {
    for (int attempt = 0; attempt < 20 && !server.ServerOpen(); ++attempt) {
      port = RandomServerPort();
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
  int port = 0, posts = 0;
  std::vector<std::string> reports;
};

class DemoHostTest : public ::testing::Test {
 protected:
  void TearDown() override { unlink(log_path.c_str()); }
  std::string Curl(const std::string& args, const std::string& path, double seconds = 5) {
    return RunCommand(
        "curl -s -m " + std::to_string(seconds) + " " + args + " " + demo.Base() + path,
        seconds + 3);
  }
  std::string Code(const std::string& args, const std::string& path) {
    return Curl("-o /dev/null -w '%{http_code}' " + args, path);
  }
  std::string Log() { return ReadFile(log_path); }

  std::string log_path = "/tmp/varnek-demo-log-" + std::to_string(getpid());
  DemoProcess demo;
};

}  // namespace varnek::e2e
