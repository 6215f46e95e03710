// End to end on 127.0.0.1, every wait bounded: HTTPServer on the Linux loop
// (pumped on the test's thread) answering raw sockets, curl and python, and the
// demo host (VARNEK_DEMO_PATH) met by curl, raw clients and headless Chromium.
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/linux/linux_loop.h"
#include "runtime/convert.h"
#include "runtime/strings.h"
#include "server/http_server.h"

namespace varnek {
namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
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

 private:
  int fd_ = -1;
  bool closed_ = false;
};

// Connects, sends and reads until the server closes or the limit ("" if none).
std::string RawExchange(int port, const std::string& request, double seconds = 5.0) {
  RawClient c;
  if (!c.Connect(port) || !c.Send(request)) return "";
  return c.ReadAll(seconds);
}

// Runs a command line under `timeout` (it kills its process group); its stdout.
std::string RunCommand(const std::string& command, double seconds = 10.0) {
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

const std::string kGetHello = "GET /hello HTTP/1.0\r\n\r\n";

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

TEST_F(ServerE2ETest, FallbacksExactAndHostAnswersToCurlAndPython) {
  Start();
  EXPECT_EQ(Exchange("GET /none HTTP/1.0\r\n\r\n"), TextToBytes(server.html_404error().ToText()));
  server.SecurePathAdd(u"/x");
  server.UsersAdd(u"user:pass");
  const std::string page = TextToBytes(server.http_ErrorResponse(401).ToText());
  EXPECT_EQ(Exchange("GET /x HTTP/1.0\r\n\r\n"),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /x/\r\nServer: Varnek\r\n"
            "Content-Length: " + std::to_string(page.size()) +
                "\r\nContent-Type: text/html\r\n\r\n" + page);
  EXPECT_EQ(Exchange("HELLO\r\n"), std::string(1, '\0'));  // not HTTP, left alone: one NUL
  const auto curl = Command("curl -s -m 5 http://127.0.0.1:" + std::to_string(port) + "/hello");
  EXPECT_EQ(curl, "hello");
  const auto python = Command(
      "python3 -c \"import http.client as h; c = h.HTTPConnection('127.0.0.1', " +
      std::to_string(port) + ", timeout=5); c.request('POST', '/form', body='a=1&&b=2&c=x%20y', "
      "headers={'Content-Type': 'application/x-www-form-urlencoded'}); r = c.getresponse(); "
      "print(r.status, r.read().decode(), end='')\"");
  EXPECT_EQ(python, "200 a=[1&&b=2]\nc=[x y]\n");
}

TEST_F(ServerE2ETest, AllSlotsBusyGivesNoBytesAtAll) {
  Start(1);
  const std::string reply = RunClientWhilePumping(server.loop(), [&] {
    RawClient holder, late;  // the holder takes the only slot and stays silent
    if (!holder.Connect(port)) return std::string("no connect");
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    if (!late.Connect(port) || !late.Send(kGetHello)) return std::string("no connect");
    return late.ReadAll(2.5);
  });
  EXPECT_EQ(reply, "");
  std::string seen;  // two requests, one slot assigned
  for (const auto& r : reports) seen += r.rfind("Server - ", 0) ? "" : r.substr(0, 15) + ";";
  EXPECT_EQ(seen, "Server - Solici;Server - Asigna;Server - Solici;");
}

class DemoProcess {
 public:
  ~DemoProcess() { Stop(); }

  // Starts on a free port below 32768, waits until it accepts; a child that exits is retried.
  bool Start(std::vector<std::string> extra = {}, const std::string& log_path = "/dev/null") {
    std::mt19937 random(std::random_device{}());
    for (int attempt = 0; attempt < 10; ++attempt) {
      std::string port = std::to_string(port_ = 20000 + static_cast<int>(random() % 12000));
      std::vector<char*> args{const_cast<char*>("varnek-demo"), const_cast<char*>("--port"),
                              port.data()};
      for (auto& e : extra) args.push_back(e.data());
      args.push_back(nullptr);
      if ((pid_ = fork()) == 0) {
        if (freopen("/dev/null", "w", stdout) && freopen(log_path.c_str(), "w", stderr)) {
          execv(VARNEK_DEMO_PATH, args.data());
        }
        _exit(127);
      }
      for (int k = 0; k < 60 && waitpid(pid_, nullptr, WNOHANG) == 0; ++k) {
        if (RawClient().Connect(port_)) return true;
        usleep(50000);
      }
      Stop();
    }
    return false;
  }
  // SIGTERM, then at most 15 s for the exit; the exit status, or -1.
  int Stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    int status = -1;
    for (int k = 0; k < 750 && waitpid(pid_, &status, WNOHANG) == 0; ++k) usleep(20000);
    if (kill(pid_, 0) == 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    pid_ = -1;
    return status >= 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  int port() const { return port_; }

 private:
  pid_t pid_ = -1;
  int port_ = 0;
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

TEST_F(DemoHostTest, PagesSecuredAreaAndEcho) {
  ASSERT_TRUE(demo.Start({}, log_path));
  EXPECT_EQ(Code("", "/admin/"), "401") << "without flags /admin needs admin:admin";
  EXPECT_NE(Curl("-u admin:admin", "/admin/").find("You passed"), std::string::npos);
  EXPECT_EQ(Code("", "/nowhere"), "404");
  const std::string echo = Curl("-d 'a=1&&b=2&c=%3Cb%3E'", "/echo");
  for (const char* part : {"URL\t/echo/\n", "Header\tPOST\t/echo HTTP/1.1\n",
                           "Param\ta\t1&amp;&amp;b=2\nParam\tc\t&lt;b&gt;\n</pre>"}) {
    EXPECT_NE(echo.find(part), std::string::npos) << part << "\n" << echo;
  }
  EXPECT_EQ(demo.Stop(), 0);
  std::stringstream log;  // timestamped reports, and the loop's deepest nesting at exit
  log << std::ifstream(log_path).rdbuf();
  for (const char* part : {" Init - Creando motores (5)\n", " Server - Asignando el motor 1\n",
                           "MaxPumpDepth "}) {
    EXPECT_NE(log.str().find(part), std::string::npos) << part << "\n" << log.str();
  }
}

TEST_F(DemoHostTest, ChatChannelAndLineProtocol) {
  ASSERT_TRUE(demo.Start({"--slots", "2", "--user", "u:p", "--secure", "/private"}));
  RawClient chat;
  ASSERT_TRUE(chat.Connect(demo.port()));
  ASSERT_TRUE(chat.Send("GET /chat HTTP/1.0\r\n\r\n"));
  EXPECT_EQ(chat.ReadUntil("chat open\r\n", 4.0),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\nchat open\r\n");
  ASSERT_TRUE(chat.Send("hello\r\n"));
  EXPECT_EQ(chat.ReadUntil("\r\n", 4.0), "echo: hello\r\n");
  ASSERT_TRUE(chat.Send("bye\r\n"));
  EXPECT_EQ(chat.ReadAll(5.0), "bye\r\n");
  EXPECT_TRUE(chat.PeerClosed());
  EXPECT_EQ(RawExchange(demo.port(), "PING now\r\n"), "PONG\r\n");
  EXPECT_EQ(RawExchange(demo.port(), "HELO\r\n"), std::string(1, '\0'));
  EXPECT_EQ(Code("-u admin:admin", "/private/"), "401");  // the flags replaced the tables
  EXPECT_EQ(Code("", "/admin/"), "200");
}

TEST_F(DemoHostTest, HundredSimultaneousGetsAreAnsweredSideBySide) {
  ASSERT_TRUE(demo.Start({"--slots", "100"}));
  struct Outcome {
    std::string answer;
    double seconds = 0;
  };
  // Connected first, then all requests at once, each read on its own thread.
  std::vector<std::unique_ptr<RawClient>> clients;
  for (int k = 0; k < 100; ++k) {
    clients.push_back(std::make_unique<RawClient>());
    ASSERT_TRUE(clients.back()->Connect(demo.port()));
  }
  const auto start = Clock::now();
  std::vector<std::future<Outcome>> outcomes;
  for (auto& client : clients) {
    outcomes.push_back(std::async(std::launch::async, [&client, start] {
      Outcome o;
      if (client->Send("GET / HTTP/1.0\r\n\r\n")) o.answer = client->ReadAll(20.0);
      o.seconds = SecondsSince(start);
      return o;
    }));
  }
  int whole = 0;
  double slowest = 0;
  for (auto& f : outcomes) {
    const Outcome o = f.get();
    whole += o.answer.rfind("HTTP/1.0 200", 0) == 0 && o.answer.find("</html>") != std::string::npos;
    slowest = std::max(slowest, o.seconds);
  }
  EXPECT_EQ(whole, 100);
  // Each answer takes its own 0.5 s settle; one after another they would take
  // far longer. The margin is for sanitizer builds on busy machines.
  EXPECT_LT(slowest, 8.0);
}

constexpr const char* kChromium = "/usr/bin/chromium";

TEST_F(DemoHostTest, ChromiumRendersIndexAndEcho) {
  if (access(kChromium, X_OK) != 0) GTEST_SKIP() << "no " << kChromium << " on this machine";
  ASSERT_TRUE(demo.Start());
  char profile[] = "/tmp/varnek-chromium-XXXXXX";
  ASSERT_NE(mkdtemp(profile), nullptr);
  const auto dom = [&](const std::string& path) {
    return RunCommand(std::string(kChromium) + " --headless --no-sandbox --disable-gpu"
                      " --disable-quic --no-first-run --disable-background-networking"
                      " --disable-component-update --disable-sync"
                      " --user-data-dir=" + profile + " --dump-dom 'http://127.0.0.1:" +
                      std::to_string(demo.port()) + path + "' 2>/dev/null", 30.0);
  };
  const std::string index = dom("/");
  for (const char* part : {"<title>Varnek demo</title>", "<form method=\"post\" action=\"/echo\">",
                           "href=\"/echo?x=1\"", "href=\"/admin/\"", "href=\"/chat\""}) {
    EXPECT_NE(index.find(part), std::string::npos) << part << "\n" << index;
  }
  const std::string echo = dom("/echo?x=1");
  for (const char* part : {"<pre>", "URL\t/echo?x=1/\n", "RemoteIP\t127.0.0.1\n",
                           "Header\tGET\t/echo?x=1 HTTP/1.1\n", "Header\tUser-Agent\t",
                           "HeadlessChrome"}) {
    EXPECT_NE(echo.find(part), std::string::npos) << part << "\n" << echo;
  }
  std::error_code ignored;
  std::filesystem::remove_all(profile, ignored);
}

}  // namespace
}  // namespace varnek
