// Clients as they come on a real network, on 127.0.0.1 with every wait
// bounded: a client that half-closes after its request, a POST larger than
// the kernel's queue, one past the most a request may hold, a crowd of silent
// connections against few slots, and the demo host's open-file limit and
// log lines.
#include <malloc.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <filesystem>
#include <sstream>
#include <thread>

#include "tests/integration/e2e_support.h"
#include "tests/support/sanitizers.h"

namespace varnek {
namespace {
using namespace e2e;

// Counts what reached the host, and answers a POST with the length of its raw text.
class RealClientsTest : public ServerE2ETest {
 protected:
  RealClientsTest() {
    AnswerPostLength();
    server.GENERICReceived = [this](Variant&, Variant&, Variant&, Variant&) { ++generic; };
  }
  int generic = 0;
};

TEST_F(RealClientsTest, HalfClosedClientGetsTheWholeAnswer) {
  Start();
  const std::string answer = RunClientWhilePumping(server.loop(), [&] {
    LoopbackClient c(port);
    if (!c.Send(kGetHello)) return std::string("no connect");
    c.ShutdownWrite();  // as `nc -N` does after its input
    return c.ReadAll(5.0);
  });
  EXPECT_EQ(answer,
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Length: 5\r\n"
            "Content-Type: text/html\r\n\r\nhello");
}

TEST_F(RealClientsTest, EncodedLineEndsInASecuredPathAddNoHeaderForCurl) {
  server.SecurePathAdd(u"/admin");
  Start();
  const std::string head =
      Command("curl -s -m 5 -D - -o /dev/null 'http://127.0.0.1:" + std::to_string(port) +
              "/admin%0D%0ASet-Cookie:%20x=1%0D%0A%0D%0A<script>'");
  EXPECT_EQ(
      head.rfind("HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /admin  Set-Cookie: x=1", 0), 0u)
      << head;
  EXPECT_EQ(head.find("\nSet-Cookie"), std::string::npos) << head;
}

TEST_F(RealClientsTest, PostOf100KBArrivesWholeAsOneRequest) {
  Start();
  const std::string head = "POST /big HTTP/1.0\r\nContent-Length: 102400\r\n\r\n";
  std::string body = "a=";
  while (body.size() < 102400) body += "0123456789abcdef";
  body.resize(102400);
  const std::string answer = RunClientWhilePumping(
      server.loop(),
      [&] {
        LoopbackClient c(port);
        if (!c.Send(head)) return std::string("no connect");
        // In pieces, as a slow client writes: each gap is well under the half-second settle.
        for (size_t at = 0; at < body.size(); at += 25600) {
          if (!c.Send(body.substr(at, 25600))) return std::string("send failed");
          std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
        return c.ReadAll(10.0);
      },
      30.0);
  const std::string expected = "length " + std::to_string(head.size() + body.size());
  EXPECT_NE(answer.find("\r\n\r\n" + expected), std::string::npos) << answer.substr(0, 200);
  EXPECT_EQ(posts, 1);
  EXPECT_EQ(generic, 0);
}

// What a closed connection held goes back: after 1 MiB requests and answers
// on three slots at once, the heap holds what it held after three small ones.
TEST_F(RealClientsTest, ClosedConnectionsGiveTheirBuffersBack) {
#ifdef VARNEK_SANITIZED
  GTEST_SKIP() << "the sanitizers' allocator keeps books of its own";
#endif
  server.POSTReceived = [this](Variant&, Variant&, Collection&, Collection&, Variant& raw,
                               Variant& response, Variant&, Collection&, Collection&) {
    response = CStr(server.http_Header(e200_OK, eTextHTML, Len(CStr(raw)))) + CStr(raw);
  };
  Start(3);
  // Three at once; how many got an answer larger than their request.
  const auto post = [&](size_t body) {
    const std::string request = "POST /big HTTP/1.0\r\n\r\na=" + std::string(body, 'x');
    return RunClientWhilePumping(
        server.loop(),
        [&] {
          std::vector<std::future<size_t>> sizes;
          for (int k = 0; k < 3; ++k) {
            sizes.push_back(std::async(std::launch::async,
                                       [&] { return RawExchange(port, request, 20).size(); }));
          }
          int whole = 0;
          for (auto& size : sizes) whole += size.get() > request.size();
          return whole;
        },
        60.0);
  };
  const auto idle_heap = [&] {
    EXPECT_TRUE(PumpUntil(
        server.loop(), [&] { return server.CurrentConnections() == 0; }, 400));
    // Handlers still in their close pause hold their texts a little longer.
    const double settle_until = server.loop().Timer() + 2.0;
    for (int k = 0; k < 40 && server.loop().Timer() < settle_until; ++k) server.loop().Pump(0.1);
    reports.clear();  // the fixture keeps every report, requests included
    const struct mallinfo2 m = mallinfo2();
    return m.uordblks + m.hblkhd;
  };
  ASSERT_EQ(post(1000), 3);
  const size_t before = idle_heap();
  ASSERT_EQ(post(1 << 20), 3);
  // Adds keeps the last request's record list (about 2 MiB), as the contract says.
  EXPECT_LT(idle_heap(), before + 2 * 1024 * 1024 + 512 * 1024);
}

TEST_F(RealClientsTest, RequestPastTheMaximumEndsItsConnectionAndTheServerGoesOn) {
  Start(1);
  struct Outcome {
    std::string reply;
    bool closed = false;
  };
  const Outcome outcome = RunClientWhilePumping(
      server.loop(),
      [&] {
        Outcome o;
        LoopbackClient c(port);
        if (!c.connected) return o;
        c.Send(std::string(kMaxWaitingBytes + 1024 * 1024, 'x'));  // fails once the server resets
        o.reply = c.ReadAll(5.0);
        o.closed = c.PeerClosed();
        return o;
      },
      60.0);
  EXPECT_TRUE(outcome.closed);
  EXPECT_EQ(outcome.reply, "");
  EXPECT_EQ(posts + generic, 0);
  EXPECT_EQ(Exchange(kGetHello).substr(0, 12), "HTTP/1.0 200");  // the one slot serves again
}

// Descriptors the process holds now.
int OpenDescriptors(pid_t pid) {
  std::error_code error;
  int count = 0;
  for (auto it = std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd", error);
       !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
    ++count;
  }
  return count;
}

TEST_F(DemoHostTest, SilentCrowdAgainstFewSlotsThenServesAgain) {
  ASSERT_TRUE(demo.Start({"--slots", "20"}));
  const int baseline = OpenDescriptors(demo.pid());
  ASSERT_GT(baseline, 0);
  std::vector<std::unique_ptr<LoopbackClient>> crowd;
  for (int k = 0; k < 500; ++k) {
    crowd.push_back(std::make_unique<LoopbackClient>(demo.port()));
    ASSERT_TRUE(crowd.back()->connected) << k;
  }
  // Twenty take the slots; the demo closes every other one at once.
  int ended = 0;
  const auto start = SteadyClock::now();
  while (ended < 480 && SecondsSince(start) < 30) {
    ended = 0;
    for (auto& c : crowd) ended += c->ClosedNow();
    if (ended < 480) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(ended, 480);
  EXPECT_EQ(waitpid(demo.pid(), nullptr, WNOHANG), 0) << "the demo is gone";
  EXPECT_LE(OpenDescriptors(demo.pid()), baseline + 20);
  crowd.clear();  // they leave: the slots are free again
  std::string code;
  for (int k = 0; k < 50 && code != "200"; ++k) {
    code = Code("", "/");
    if (code != "200") std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  EXPECT_EQ(code, "200");
  EXPECT_LE(OpenDescriptors(demo.pid()), baseline + 1);
}

TEST_F(DemoHostTest, OpenFileLimitRaisedToTheHardLimitOrReported) {
  rlimit own{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &own), 0);
  if (own.rlim_max == RLIM_INFINITY || own.rlim_max < 512) GTEST_SKIP() << "hard limit unsuitable";
  demo.SetFileLimit(256, own.rlim_max);
  ASSERT_TRUE(demo.Start({"--slots", "5"}, log_path));
  std::istringstream limits(ReadFile("/proc/" + std::to_string(demo.pid()) + "/limits"));
  std::string line;
  while (std::getline(limits, line) && line.rfind("Max open files", 0) != 0) {
  }
  std::istringstream fields(line.substr(std::string("Max open files").size()));
  std::string soft, hard;
  fields >> soft >> hard;
  EXPECT_EQ(soft, std::to_string(own.rlim_max));
  EXPECT_EQ(hard, std::to_string(own.rlim_max));
  EXPECT_EQ(demo.Stop(), 0);
  EXPECT_EQ(Log().find("open-file limit"), std::string::npos) << Log();

  demo.SetFileLimit(64, 64);  // below twice --slots: said at start, and the demo still serves
  ASSERT_TRUE(demo.Start({"--slots", "100"}, log_path));
  EXPECT_EQ(Code("", "/"), "200");
  EXPECT_EQ(demo.Stop(), 0);
  ExpectContains(
      Log(),
      {"varnek-demo: the open-file limit is 64 (hard limit), less than twice --slots (200)"});
}

TEST_F(DemoHostTest, EachLogLineKeepsAtMostFourKilobytesOfItsReport) {
  ASSERT_TRUE(demo.Start({}, log_path));
  // 200 KB of control bytes, each reported as an alias several bytes long.
  EXPECT_EQ(RunCommand("sh -c \"head -c 204800 /dev/zero | tr '\\\\0' '\\\\1' | curl -s -m 10 "
                       "-o /dev/null -w %{http_code} --data-binary @- " +
                           demo.Base() + "/echo\"",
                       12.0),
            "200");
  demo.Stop();
  std::istringstream log(Log());
  size_t longest = 0, cut = 0;
  for (std::string line; std::getline(log, line);) {
    longest = std::max(longest, line.size());
    cut += line.find(" more bytes cut)") != std::string::npos;
  }
  EXPECT_LT(longest, 4096u + 100);
  EXPECT_GE(cut, 1u);
}

}  // namespace
}  // namespace varnek
