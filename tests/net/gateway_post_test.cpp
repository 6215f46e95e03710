// POST_SendMensaje on virtual time against scripted gateways: the request's
// exact bytes, defaults stored back, the three marks, closes, silence, time
// limits, bad targets and a 10 MB answer.
#include "tests/net/net_fixture.h"

namespace varnek {
namespace {

constexpr int kPort = 8080;
const Variant kNo = Variant::Missing();  // an argument not passed

struct GatewayPost : SimNetFixture {
  // The gateway: answers `answer` 0.1 s after the request (if not empty),
  // then closes when `close_after` says so. Records what it received.
  void Gateway(std::string answer, bool close_after, int port = kPort, bool close_at_once = false) {
    net.Serve(port, [=, this](std::shared_ptr<SimPeer> peer) {
      peers.push_back(peer);
      if (close_at_once) return peer->Close(sim.loop.Elapsed());
      peer->on_data = [=, this](SimPeer& p) {
        if (p.Received().find(u"\r\n\r\n") == Text::npos || answered) return;
        answered = true;
        if (!answer.empty()) p.Write(Units(answer), sim.loop.Elapsed() + 0.1);
        if (close_after) p.Close(sim.loop.Elapsed() + 0.2);
      };
    });
  }
  // A call with the six required arguments and the marks given.
  int32_t Post(Variant url, Variant ok = Variant::Missing(), Variant fail = Variant::Missing(),
               Variant delayed = Variant::Missing(), Variant timeout = Variant::Missing()) {
    Variant code_field = u"pin", code = u"77", msg_field = u"msg";
    message = u"hi";
    answered = false;
    return adds.POST_SendMensaje(sock.get(), url, code_field, code, msg_field, message, {}, {}, ok,
                                 fail, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, delayed,
                                 timeout);
  }

  bool answered = false;
  Variant message;
};

TEST_F(GatewayPost, RequestBytesDefaultsStoredBackAndDelivery) {
  Gateway("HTTP/1.0 200 OK\r\n\r\nqueued", false);
  Variant url = u"http://gw.test:8080/cgi/send?x=1", code_field = u"pin", code = u"12 34",
          msg_field = u"msg", msg = Variant(T("Añ é\r\nb&c")), sig_field = u"sig", sig = u"Me",
          a1 = u"a1", v1 = u"v 1", a2, fail, timeout;
  const double start = sim.loop.Elapsed();
  const int32_t r =
      adds.POST_SendMensaje(sock.get(), url, code_field, code, msg_field, msg, sig_field, sig, {},
                            fail, a1, v1, a2, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, timeout);
  EXPECT_EQ(r, -1);
  const std::string body = "pin=12 34&msg=An+e+b%26c&sig=Me&a1=v+1";
  EXPECT_EQ(Request(),
            "POST /cgi/send?x=1 HTTP/1.0\r\n"
            "Content-type: application/x-www-form-urlencoded\r\n"
            "Host: 192.168.1.10\r\n"
            "Content-length: " +
                std::to_string(body.size()) + "\r\n\r\n" + body + "\r\n");
  EXPECT_EQ(msg.ToText(), u"An e b&c") << "the filtered message goes back";
  EXPECT_EQ(timeout.ToLong(), 45);
  EXPECT_TRUE(a2.IsString()) << "an Empty optional takes its default";
  EXPECT_TRUE(fail.IsString());
  EXPECT_EQ(adds.POST_SendMensaje_Response.ToText(), u"HTTP/1.0 200 OK\r\n\r\nqueued");
  EXPECT_GE(sim.loop.Elapsed() - start, 1.1) << "the read follows a 1 s pause";
  EXPECT_EQ(sock->State(), kSocketClosed);
  EXPECT_TRUE(peers.back()->ClosedByServer());
}

TEST_F(GatewayPost, TheMarksDecideAndOkIsLookedAtFirst) {
  struct Case {
    const char* answer;
    Variant ok, fail, delayed;
    int32_t expected;
  };
  const Case cases[] = {
      {"ERR: bad pin", Variant::Missing(), u"ERR", Variant::Missing(), 0},
      {"later please", Variant::Missing(), u"ERR", u"later", -5},
      {"HTTP/1.0 200 OK\r\n\r\nERR", Variant::Missing(), u"ERR", Variant::Missing(), -1},
      {"body with 200 only", Variant::Missing(), Variant::Missing(), Variant::Missing(), -1},
      {"Sent: OK", u"OK", u"ok", Variant::Missing(), -1},
      {"sent: ok", u"OK", u"ok", Variant::Missing(), 0},  // searches are case-sensitive
  };
  for (const Case& c : cases) {
    net.StopServing(kPort);
    Gateway(c.answer, false);
    EXPECT_EQ(Post(u"http://gw.test:8080/p", c.ok, c.fail, c.delayed, Variant(10)), c.expected)
        << c.answer;
    EXPECT_EQ(Bytes(adds.POST_SendMensaje_Response.ToText()), c.answer);
    EXPECT_TRUE(peers.back()->ClosedByServer());
  }
}

TEST_F(GatewayPost, ClosesSilenceAndTimeLimits) {
  {  // closed at once: nothing waiting gives 0, "" as the answer
    Gateway("", false, kPort, true);
    EXPECT_EQ(Post(u"http://gw.test:8080/p"), 0);
    EXPECT_TRUE(adds.POST_SendMensaje_Response.IsString());
    EXPECT_EQ(adds.POST_SendMensaje_Response.ToText(), u"");
  }
  {  // with OK blank, a close means delivered; an Empty OK stays Empty and counts as blank
    EXPECT_EQ(Post(u"http://gw.test:8080/p", Variant(u"")), -1);
    Variant url = u"http://gw.test:8080/p", f = u"pin", c = u"1", mf = u"msg", m = u"m", ok;
    EXPECT_EQ(adds.POST_SendMensaje(sock.get(), url, f, c, mf, m, {}, {}, ok), -1);
    EXPECT_TRUE(ok.IsEmpty());
  }
  net.StopServing(kPort);
  Gateway("", false);
  {  // never answers: 0 at the limit, which the request's send starts
    const double start = sim.loop.Elapsed();
    EXPECT_EQ(Post(u"http://gw.test:8080/p", kNo, kNo, kNo, Variant(5)), 0);
    const double took = sim.loop.Elapsed() - start;
    EXPECT_GE(took, 5.0);
    EXPECT_LT(took, 8.0);
    EXPECT_EQ(adds.POST_SendMensaje_Response.ToText(), u"");
    EXPECT_EQ(Post(u"http://gw.test:8080/p", Variant(u""), {}, {}, Variant(5)), 0)
        << "blank OK, no close";
  }
  {  // pTimeOut 0: the connect stage ends at once, before anything is sent
    EXPECT_EQ(Post(u"http://gw.test:8080/p", kNo, kNo, kNo, Variant(0)), 0);
    EXPECT_TRUE(adds.POST_SendMensaje_Response.IsEmpty());
  }
  {  // a name that does not resolve, and a port nobody serves: 0 after the connect limit
    net.SetUnresolvable(u"nowhere.test");
    const double start = sim.loop.Elapsed();
    EXPECT_EQ(Post(u"http://nowhere.test/p", kNo, kNo, kNo, Variant(3)), 0);
    EXPECT_GE(sim.loop.Elapsed() - start, 2.0) << "whole seconds: a limit of 3 is 2 to 3 s";
    EXPECT_EQ(Post(u"http://gw.test:9999/p", kNo, kNo, kNo, Variant(3)), 0);
    EXPECT_TRUE(adds.POST_SendMensaje_Response.IsEmpty());
  }
}

TEST_F(GatewayPost, FailuresGiveMinusTwo) {
  Gateway("200", false);
  Variant url = u"http://gw.test/p", f = u"pin", c = u"1", mf = u"msg", m = Variant(T("ñ"));
  EXPECT_EQ(adds.POST_SendMensaje(nullptr, url, f, c, mf, m), -2) << "no socket control";
  EXPECT_TRUE(adds.POST_SendMensaje_Response.IsEmpty());
  EXPECT_EQ(m.ToText(), T("ñ")) << "the settings failed first: nothing filtered yet";
  url = u"http://gw.test:70000/p";
  EXPECT_EQ(adds.POST_SendMensaje(sock.get(), url, f, c, mf, m), -2);
  EXPECT_EQ(m.ToText(), u"n") << "filtered before the connect failed";
  url = u"http:///p";
  EXPECT_EQ(adds.POST_SendMensaje(sock.get(), url, f, c, mf, m), -2) << "no host";
  EXPECT_TRUE(adds.POST_SendMensaje_Response.IsEmpty());
  EXPECT_EQ(sock->State(), kSocketClosed);
}

TEST_F(GatewayPost, UrlCuttingQuirksAreKept) {
  Gateway("200", false, 80);
  Post(u"http://gw.test", kNo, kNo, kNo, Variant(5));
  EXPECT_EQ(Request().substr(0, 16), "POST  HTTP/1.0\r\n") << "no path: two blanks";
  Post(u"http://ht/x", kNo, kNo, kNo, Variant(5));
  EXPECT_EQ(Request().substr(0, 25), "POST tp://ht/x HTTP/1.0\r\n")
      << "cut at the host inside the scheme";
  Post(u"http://gw.test:80/p", kNo, kNo, kNo, Variant(5));
  EXPECT_EQ(Request().substr(0, 19), "POST /p HTTP/1.0\r\n\x43") << "an explicit :80 as none";
  EXPECT_EQ(Post(u"http://gw.test:0/p", kNo, kNo, kNo, Variant(5)), -1) << "port 0 reads as 80";
  EXPECT_EQ(Request().substr(0, 21), "POST :0/p HTTP/1.0\r\nC") << "but ':0' is not cut";
}

TEST_F(GatewayPost, ATenMegabyteAnswerIsCollectedWholeAndOnePastTheMaximumCut) {
  std::string big(10 * 1024 * 1024, 'x');
  Gateway(big + " 200", true);
  EXPECT_EQ(Post(u"http://gw.test:8080/p", kNo, kNo, kNo, Variant(10)), -1);
  EXPECT_EQ(adds.POST_SendMensaje_Response.ToText().size(), big.size() + 4);
  // Past the 16 MiB the socket holds, what fits is kept and the marks judge it.
  Gateway("HTTP/1.0 200 OK\r\n\r\n" + std::string(kMaxWaitingBytes, 'x'), false);
  EXPECT_EQ(Post(u"http://gw.test:8080/p", kNo, kNo, kNo, Variant(10)), -1);
  EXPECT_EQ(adds.POST_SendMensaje_Response.ToText().size(), static_cast<size_t>(kMaxWaitingBytes));
  EXPECT_EQ(Bytes(adds.POST_SendMensaje_Response.ToText()).substr(0, 12), "HTTP/1.0 200");
}

}  // namespace
}  // namespace varnek
