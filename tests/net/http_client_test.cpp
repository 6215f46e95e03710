// The HTTP client: NET_HTTPget's kept failure, the GET behind it on virtual
// time and on Linux loopback (request bytes, URL splitting, end markers,
// limits, 10 MB), the canned answer of NET_HTTPsend, downloads through
// libcurl and INET_OpenURL's show values.
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <filesystem>
#include <fstream>

#include "varnek/platform/sim/recording_web_services.h"
#include "tests/net/linux_net_fixture.h"
#include "tests/support/child_process.h"
#include "tests/net/net_fixture.h"
#include "tests/runtime/test_folder.h"

namespace varnek {
namespace {

const Variant kNo = Variant::Missing();

std::string RequestFor(const std::string& path, const std::string& host) {
  return "GET " + path +
         " HTTP/1.1\r\nAccept: text/plain\r\nAccept-Language: en-us\r\n"
         "Accept-Encoding: gzip, deflate\r\n"
         "User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)\r\n"
         "Host: " +
         host + "\r\nConnection: Keep-Alive\r\n\r\n";
}

struct HttpClient : SimNetFixture {
  // A server on `port` that answers each request with `parts`, one every
  // `step` virtual seconds, and keeps the connection open.
  void Serve(int port, std::vector<std::string> parts, double step = 0.1) {
    net.Serve(port, [=, this](std::shared_ptr<SimPeer> peer) {
      peers.push_back(peer);
      peer->on_data = [=, this](SimPeer& p) {
        double at = sim.loop.Elapsed();
        for (const auto& part : parts) p.Write(Units(part), at += step);
      };
    });
  }
};

TEST_F(HttpClient, NetHttpGetKeepsFailingWithObjectRequired) {
  Serve(8080, {"</html>"});
  sock->Connect(Variant(u"gw.test"), Variant(8080));  // open before: closed on the way
  sim.loop.RunFor(0.5);
  ASSERT_EQ(sock->State(), kSocketConnected);
  for (const char16_t* host : {u"http://gw.test:8080/x", u"gw.test/x", u"gw.test"}) {
    const double start = sim.loop.Elapsed();
    const Variant r = adds.NET_HTTPget(sock.get(), Variant(host), kNo, kNo, 5);
    EXPECT_EQ(r.ToText(), u"Error: (424) Object required") << Bytes(host);
    EXPECT_GE(sim.loop.Elapsed() - start, 1.0) << "the tail's pause";
    EXPECT_EQ(sock->State(), kSocketClosed);
  }
  EXPECT_EQ(peers.size(), 1u) << "no connection made";
  EXPECT_EQ(Request(), "");
}

TEST_F(HttpClient, BoundGetSplitsTheUrlAndTheCallerWins) {
  Serve(8080, {"a</HTML>"});
  Serve(80, {"b</HTML>"});
  Serve(21, {"c</HTML>"});
  Serve(9090, {"d</HTML>"});
  struct Case {
    const char16_t* host;
    Variant page, port;
    const char* request_line;
    const char* answer;
  };
  const Case cases[] = {
      {u"http://gw.test:8080/dir/page?q=1", kNo, kNo, "GET /dir/page?q=1 HTTP/1.1", "a</HTML>"},
      {u"http://gw.test:8080/dir/page", Variant(u"other"), Variant(9090), "GET /other HTTP/1.1",
       "d</HTML>"},
      {u"http://gw.test:8080/dir", Variant(u""), Variant(u""), "GET /dir HTTP/1.1", "a</HTML>"},
      {u"gw.test:0/x", kNo, kNo, "GET /x HTTP/1.1", "b</HTML>"},
      {u"ftp://gw.test/file", kNo, kNo, "GET /file HTTP/1.1", "c</HTML>"},
      {u"http://gw.test/", Variant(u"\\win"), kNo, "GET \\win HTTP/1.1", "b</HTML>"},
  };
  for (const Case& c : cases) {
    const Variant r = adds.HttpGetBound(sock.get(), Variant(c.host), c.page, c.port, 5);
    EXPECT_EQ(Bytes(r.ToText()), c.answer) << Bytes(c.host);
    EXPECT_EQ(Request().substr(0, Request().find("\r\n")), c.request_line) << Bytes(c.host);
  }
  EXPECT_EQ(Request().substr(Request().find("\r\n") + 2),
            RequestFor("/", "192.168.1.10").substr(16))
      << "the headers, Host the local address";
}

TEST_F(HttpClient, BoundGetEndsAtMarkersOrTheLimit) {
  Serve(8080, {"HTTP/1.1 200 OK\r\n\r\n<p>one", "</Html> trailing", "never read"}, 0.5);
  EXPECT_EQ(Bytes(adds.HttpGetBound(sock.get(), Variant(u"gw.test:8080/"), kNo, kNo, 5).ToText()),
            "HTTP/1.1 200 OK\r\n\r\n<p>one</Html> trailing");
  net.StopServing(8080);
  Serve(8080, {"line\r\n.END.\r\n", "late"}, 0.5);
  EXPECT_EQ(Bytes(adds.HttpGetBound(sock.get(), Variant(u"gw.test:8080/"), kNo, kNo, 5).ToText()),
            "line\r\n.END.\r\n");
  net.StopServing(8080);
  Serve(8080, {"partial"});
  double start = sim.loop.Elapsed();
  EXPECT_EQ(adds.HttpGetBound(sock.get(), Variant(u"gw.test:8080/"), kNo, kNo, 0).ToText(),
            u"partial");
  EXPECT_GE(sim.loop.Elapsed() - start, 9.0) << "pTimeOut 0 waits 10 s";
  EXPECT_LT(sim.loop.Elapsed() - start, 14.0);
  start = sim.loop.Elapsed();
  EXPECT_TRUE(adds.HttpGetBound(sock.get(), Variant(u"gw.test:7777/"), kNo, kNo, 5).IsEmpty())
      << "no connection: an empty result";
  EXPECT_GE(sim.loop.Elapsed() - start, 9.0) << "after the 10 s connect wait";
  EXPECT_EQ(Bytes(adds.HttpGetBound(sock.get(), Variant(u"gw.test:70000/"), kNo, kNo, 5).ToText()),
            "Error: (10049) Address is not valid");
  EXPECT_EQ(sock->State(), kSocketClosed);
}

TEST_F(HttpClient, HttpSendAndOpenUrl) {
  EXPECT_EQ(adds.NET_HTTPsend(Variant(u"ignored"), Variant(u"")), u"");
  EXPECT_EQ(adds.NET_HTTPsend(Variant(), Variant()), u"");
  EXPECT_EQ(Bytes(adds.NET_HTTPsend(kNo, Variant(u"<b>hi</b>"))),
            "HTTP/1.1 200 OK\r\nAge: 0\r\nServer: Lumbro ActiveX (Win32)\r\nVary: Host\r\n"
            "Last-Modified: Sun, 03 Sep 2000 20:16:08 GMT\r\nContent-Length: 9\r\n"
            "Connection: close\r\nXonnection: open\r\nContent-Type: application/octet-stream\r\n"
            "\r\n<b>hi</b>");
  RecordingWebServices web;
  sim.platform.web = web;
  EXPECT_FALSE(adds.INET_OpenURL(kNo, Variant(u"http://a/"), true, true));
  EXPECT_FALSE(adds.INET_OpenURL(kNo, Variant(u"http://b/"), false, true));
  EXPECT_FALSE(adds.INET_OpenURL(kNo, Variant(u"http://c/"), false, false));
  ASSERT_EQ(web.opened.size(), 3u);
  EXPECT_EQ(web.opened[0], (std::pair<Text, int32_t>{u"http://a/", 3}));
  EXPECT_EQ(web.opened[1].second, 0);
  EXPECT_EQ(web.opened[2].second, 1);
  web.download_result = 7;
  EXPECT_FALSE(adds.NET_DownloadFile(u"http://x/", u"/tmp/y"));
  web.download_result = 0;
  EXPECT_TRUE(adds.NET_DownloadFile(u"http://x/", u"/tmp/y"));
  EXPECT_EQ(web.downloads.size(), 2u);
}

// ---- On Linux loopback -------------------------------------------------------

struct LinuxHttpClient : LinuxNetFixture {
  TestFolder dir;
  std::string folder = dir.path();
};

TEST_F(LinuxHttpClient, BoundGetOverLoopbackByNumberAndByNameAndTenMegabytes) {
  const std::string big(10 * 1024 * 1024, 'z');
  ScriptedServer server([&](int fd, const std::string& request) {
    if (request.find("GET /big") == 0)
      SendAll(fd, "HTTP/1.1 200 OK\r\n\r\n" + big + "</html>");
    else
      SendAll(fd, "HTTP/1.1 200 OK\r\n\r\n<html>hello</HTML>");
    ReadUntil(
        fd, [&](const std::string&) { return server.stopping().load(); }, 3.0);
  });
  const std::string port = std::to_string(server.port());
  Variant r =
      adds.HttpGetBound(sock.get(), Variant(Units("127.0.0.1:" + port + "/page")), kNo, kNo, 5);
  EXPECT_EQ(Bytes(r.ToText()), "HTTP/1.1 200 OK\r\n\r\n<html>hello</HTML>");
  ASSERT_FALSE(server.requests().empty());
  EXPECT_EQ(server.requests().back(), RequestFor("/page", "127.0.0.1"))
      << "Host: the connection's own address";
  r = adds.HttpGetBound(sock.get(), Variant(Units("http://gateway.test:" + port + "/")), kNo, kNo,
                        5);
  EXPECT_EQ(Bytes(r.ToText()), "HTTP/1.1 200 OK\r\n\r\n<html>hello</HTML>")
      << "a name from the hosts file";
  r = adds.HttpGetBound(sock.get(), Variant(Units("http://127.0.0.1:" + port + "/big")), kNo, kNo,
                        20);
  EXPECT_EQ(r.ToText().size(), big.size() + 19 + 7);
  EXPECT_EQ(sock->State(), kSocketClosed);
}

// Downloads replace the target as every save replaces a file: only when
// complete, through its link, with its mode, in a folder the user may not
// write; a download killed on the way leaves nothing, and leftovers of older
// versions go with the next.
TEST_F(LinuxHttpClient, DownloadsAndTheirFailures) {
  const std::string big(10 * 1024 * 1024, 'q');
  int sent[2];
  ASSERT_EQ(pipe(sent), 0);
  ScriptedServer server([&](int fd, const std::string& request) {
    const auto answer = [&](const std::string& status, const std::string& body) {
      SendAll(fd, "HTTP/1.0 " + status + "\r\nContent-Length: " + std::to_string(body.size()) +
                      "\r\n\r\n" + body);
    };
    if (request.find("GET /file ") == 0)
      answer("200 OK", "file body\n");
    else if (request.find("GET /big ") == 0)
      answer("200 OK", big);
    else if (request.find("GET /slow ") == 0) {
      // half the body, then silence until the client goes
      SendAll(fd, "HTTP/1.0 200 OK\r\nContent-Length: 200000\r\n\r\n" + std::string(100000, 's'));
      (void)!write(sent[1], "s", 1);
      ReadUntil(
          fd, [&](const std::string&) { return server.stopping().load(); }, 30.0);
    } else
      answer("404 Not Found", "gone");
  });
  const std::string base = "http://127.0.0.1:" + std::to_string(server.port());
  auto download = [&](const std::string& path, const std::string& file) {
    LinuxLoop loop;  // its own loop: also used in children
    return LinuxWebServices(loop).DownloadToFile(Units(base + path), Units(file));
  };
  const std::string target = folder + "/got.txt";
  EXPECT_TRUE(adds.NET_DownloadFile(Units(base + "/file"), Units(target)));
  EXPECT_EQ(ReadFile(target), "file body\n");
  EXPECT_FALSE(adds.NET_DownloadFile(Units(base + "/missing"), Units(target)));
  EXPECT_EQ(ReadFile(target), "file body\n") << "a failure leaves the old file";
  EXPECT_TRUE(adds.NET_DownloadFile(Units(base + "/big"), Units(folder + "/big.bin")));
  EXPECT_EQ(ReadFile(folder + "/big.bin").size(), big.size());
  EXPECT_FALSE(adds.NET_DownloadFile(u"http:///nohost", Units(folder + "/x")));
  EXPECT_FALSE(adds.NET_DownloadFile(Units(base + "/file"), Units(folder + "/no/such/dir/x")));

  std::ofstream(folder + "/real.txt") << "old";
  chmod((folder + "/real.txt").c_str(), 0640);
  ASSERT_EQ(symlink("real.txt", (folder + "/link.txt").c_str()), 0);
  EXPECT_EQ(download("/file", folder + "/link.txt"), 0);
  EXPECT_TRUE(std::filesystem::is_symlink(folder + "/link.txt"));
  EXPECT_EQ(ReadFile(folder + "/real.txt"), "file body\n");
  struct stat st {};
  ASSERT_EQ(stat((folder + "/real.txt").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 0777, 0640u);

  std::filesystem::create_directory(folder + "/ro");
  std::ofstream(folder + "/ro/f.txt") << "old";
  for (const char* name : {"", "/ro", "/ro/f.txt"})
    (void)!chown((folder + name).c_str(), kNobody, kNobody);
  chmod((folder + "/ro").c_str(), 0555);
  EXPECT_EQ(AsNobody([&] {
              // where the old content is kept
              setenv("XDG_STATE_HOME", (folder + "/state").c_str(), 1);
              return std::to_string(download("/file", folder + "/ro/f.txt"));
            }),
            "0");
  EXPECT_EQ(ReadFile(folder + "/ro/f.txt"), "file body\n");

  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(download("/slow", folder + "/slow.bin"));
  pollfd ready{sent[0], POLLIN, 0};
  EXPECT_EQ(poll(&ready, 1, 20000), 1) << "the server sent part of the body";
  usleep(200000);  // time for the child to write what it got
  kill(child, SIGKILL);
  waitpid(child, nullptr, 0);
  close(sent[0]);
  close(sent[1]);
  std::ofstream(folder + "/slow.bin.part-AbC123") << "left by an older version";
  EXPECT_EQ(download("/file", folder + "/slow.bin"), 0);
  EXPECT_EQ(ReadFile(folder + "/slow.bin"), "file body\n");
  EXPECT_EQ(dir.Names(), (std::vector<std::string>{"big.bin", "got.txt", "link.txt", "real.txt",
                                                   "ro", "slow.bin", "state"}));
}

TEST(LinuxOpenUrl, StartsTheOpenerAndTellsWhenItCannot) {
  LinuxLoop loop;
  LinuxWebServices fine(loop, "true"), missing(loop, "/nonexistent/opener");
  EXPECT_EQ(fine.OpenUrl(u"http://127.0.0.1/", 1), 0);
  EXPECT_NE(missing.OpenUrl(u"http://127.0.0.1/", 1), 0);
}

}  // namespace
}  // namespace varnek
