// End to end on 127.0.0.1, every wait bounded: HTTPServer on the Linux loop
// (pumped on the test's thread) answering raw sockets, curl and python, and the
// demo host (VARNEK_DEMO_PATH) met by curl, raw clients and headless Chromium
// (every page in Chromium: demo_pages_browser_test.cpp).
#include <chrono>
#include <condition_variable>
#include <fstream>
#include <mutex>

#include "tests/integration/e2e_support.h"

namespace varnek {
namespace {
using namespace e2e;

TEST_F(ServerE2ETest, FallbacksExactAndHostAnswersToCurlAndPython) {
  Start();
  EXPECT_EQ(Exchange("GET /none HTTP/1.0\r\n\r\n"), TextToBytes(server.html_404error().ToText()));
  server.SecurePathAdd(u"/x");
  server.UsersAdd(u"user:pass");
  const std::string page = TextToBytes(server.http_ErrorResponse(401).ToText());
  EXPECT_EQ(Exchange("GET /x HTTP/1.0\r\n\r\n"),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /x/\r\nServer: Varnek\r\n"
            "Content-Length: " +
                std::to_string(page.size()) + "\r\nContent-Type: text/html\r\n\r\n" + page);
  EXPECT_EQ(Exchange("HELLO\r\n"), std::string(1, '\0'));  // not HTTP, left alone: one NUL
  const auto curl = Command("curl -s -m 5 http://127.0.0.1:" + std::to_string(port) + "/hello");
  EXPECT_EQ(curl, "hello");
  const auto python = Command(
      "python3 -c \"import http.client as h; c = h.HTTPConnection('127.0.0.1', " +
      std::to_string(port) +
      ", timeout=5); c.request('POST', '/form', body='a=1&&b=2&c=x%20y', "
      "headers={'Content-Type': 'application/x-www-form-urlencoded'}); r = c.getresponse(); "
      "print(r.status, r.read().decode(), end='')\"");
  EXPECT_EQ(python, "200 a=[1&&b=2]\nc=[x y]\n");
}

TEST_F(ServerE2ETest, AllSlotsBusyGivesNoBytesAtAll) {
  Start(1);
  std::mutex mutex;  // the late client connects once the holder has the slot
  std::condition_variable assigned_changed;
  bool assigned = false;
  server.InternalState = [&](Variant&, Variant& text) {
    reports.push_back(text.ToUtf8());
    if (reports.back().rfind("Server - Asignando", 0) != 0) return;
    std::lock_guard lock(mutex);
    assigned = true;
    assigned_changed.notify_all();
  };
  const std::string reply = RunClientWhilePumping(server.loop(), [&] {
    LoopbackClient holder, late;  // the holder takes the only slot and stays silent
    if (!holder.Connect(port)) return std::string("no connect");
    std::unique_lock lock(mutex);
    if (!assigned_changed.wait_for(lock, std::chrono::seconds(10), [&] { return assigned; })) {
      return std::string("the holder got no slot");
    }
    lock.unlock();
    if (!late.Connect(port) || !late.Send(kGetHello)) return std::string("no connect");
    return late.ReadAll(2.5);
  });
  EXPECT_EQ(reply, "");
  std::string seen;  // two requests, one slot assigned
  for (const auto& r : reports) seen += r.rfind("Server - ", 0) ? "" : r.substr(0, 15) + ";";
  EXPECT_EQ(seen, "Server - Solici;Server - Asigna;Server - Solici;");
}

TEST_F(DemoHostTest, PagesSecuredAreaAndEcho) {
  ASSERT_TRUE(demo.Start({}, log_path));
  EXPECT_EQ(Code("", "/admin/"), "401") << "without flags /admin needs admin:admin";
  EXPECT_EQ(Code("", "/ADMIN/"), "401") << "matched without regard to case, as the server does";
  for (const char* path : {"/admin/", "/ADMIN/", "/Admin/x"})
    ExpectContains(Curl("-u admin:admin", path), {"You passed"});
  EXPECT_EQ(Code("-u admin:admin", "/other/"), "404");
  EXPECT_EQ(Code("", "/nowhere"), "404");
  ExpectContains(Curl("-d 'a=1&&b=2&c=%3Cb%3E'", "/echo"),
                 {"URL\t/echo/\n", "Header\tPOST\t/echo HTTP/1.1\n",
                  "Param\ta\t1&amp;&amp;b=2\nParam\tc\t&lt;b&gt;\n</pre>"});
  EXPECT_EQ(demo.Stop(), 0);
  // timestamped reports, and the loop's deepest nesting at exit
  ExpectContains(Log(), {" Init - Creando motores (5)\n", " Server - Asignando el motor 1\n",
                         "MaxPumpDepth "});
}

TEST_F(DemoHostTest, ChatChannelAndLineProtocol) {
  ASSERT_TRUE(demo.Start({"--slots", "3", "--user", "u:p", "--secure",
                          "/private"}));  // three curls within a close pause
  LoopbackClient chat(demo.port());
  ASSERT_TRUE(chat.connected);
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
  EXPECT_EQ(Code("", "/private/"), "401");
  EXPECT_EQ(Code("", "/admin/"), "404");  // public now, so not the secured page
}

TEST_F(DemoHostTest, PageFormSendsThroughTheSimulatedTerminal) {
  ASSERT_TRUE(demo.Start({}, log_path));
  ExpectContains(Curl("", "/page"), {"<form method=\"post\" action=\"/page\">"});
  // The TAP dialog over a pty pair inside the demo: about 6 s of quiet spells.
  ExpectContains(
      Curl("-d 'pager=55&message=Hello%20pty&protocol=tap'", "/page", 40),
      {"<b id=\"result\">sent</b>", "block 1/1 sent (9 characters)", "session: logged out",
       "&gt;&gt; &laquo;STX&raquo;55&laquo;CR&raquo;Hello pty&laquo;CR&raquo;&laquo;ETX&raquo;",
       "&lt;&lt; &laquo;ACK&raquo;&laquo;CR&raquo;"});
}

TEST_F(DemoHostTest, HundredSimultaneousGetsAreAnsweredSideBySide) {
  ASSERT_TRUE(demo.Start({"--slots", "100"}));
  const auto start = SteadyClock::now();
  for (const std::string& answer : SimultaneousGets(demo.port(), 100)) {
    EXPECT_EQ(answer.rfind("HTTP/1.0 200", 0), 0u) << answer;
    EXPECT_NE(answer.find("</html>"), std::string::npos) << answer;
  }
  // Each answer takes its own 0.5 s settle; one after another they would take
  // far longer. The margin is for sanitizer builds on busy machines.
  EXPECT_LT(SecondsSince(start), 8.0);
}

TEST_F(DemoHostTest, RtfPageAndBarcodePngReadBackByZbar) {
  const std::string clip = "/tmp/varnek-demo-clip-" + std::to_string(getpid()) + ".png";
  setenv("VARNEK_CLIPBOARD_FILE", clip.c_str(), 1);  // the child's clipboard stays here
  ASSERT_TRUE(demo.Start());
  unsetenv("VARNEK_CLIPBOARD_FILE");
  ExpectContains(Curl("", "/rtf"), {"<TITLE>Varnek RTF sample</TITLE>", "<B>",
                                    "Caf&eacute; cr&egrave;me", "<UL><LI>", "</BODY>\r\n</HTML>"});
  const std::string png = "/tmp/varnek-demo-bars-" + std::to_string(getpid()) + ".png";
  ExpectContains(Curl("-D - -o " + png, "/barcode?text=Demo%2039-x"),
                 {"Content-Type: image/png\r\n"});
  EXPECT_EQ(RunCommand("zbarimg -q --raw " + png + " 2>/dev/null", 30.0), "DEMO 39-X\n");
  EXPECT_EQ(ReadFile(png), ReadFile(clip));  // the clipboard holds the same picture
  unlink(png.c_str());
  unlink(clip.c_str());
}

TEST_F(DemoHostTest, ChromiumSubmitsThePageForm) {
  if (access(kChromium, X_OK) != 0) GTEST_SKIP() << "no " << kChromium << " on this machine";
  ASSERT_TRUE(demo.Start());
  TempFolder folder("chromium");
  // A page of the browser's own that posts the demo's form fields on load.
  const std::string form = folder.path + "/submit.html";
  std::ofstream(form)
      << "<html><body><form method=\"post\" action=\"http://127.0.0.1:" << demo.port()
      << "/page\"><input name=\"pager\" value=\"42\"><input name=\"message\" value=\"From "
         "Chromium\"><input name=\"protocol\" value=\"tap\"></form>"
         "<script>document.forms[0].submit()</script></body></html>";
  ExpectContains(
      ChromiumDom("file://" + form, folder.path + "/profile", "--virtual-time-budget=40000", 60.0),
      {"<b id=\"result\">sent</b>", "block 1/1 sent (13 characters)",
       "«STX»42«CR»From Chromium«CR»«ETX»"});
}

}  // namespace
}  // namespace varnek
