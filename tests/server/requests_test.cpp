// Requests on the simulated network: paths, methods, POST fields, Basic authentication,
// fallbacks, and hostile input after which the server serves again.
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

// One event the host saw ("" kind: generic); headers and POST fields as "name=value".
struct Seen {
  std::string kind, url, raw, ip;
  Strings headers, params;
};

Strings Pairs(const Collection* names, const Collection* values) {
  Strings out;
  for (int32_t k = 1; names && k <= names->Count(); ++k) {
    out.push_back(Utf8(names->Item(k)) + "=" + Utf8(values->Item(k)));
  }
  return out;
}

class RequestTest : public ServerFixture {
 protected:
  void SetUp() override {
    Start(8080, 3);
    server->GETReceived = [this](Variant& url, Variant& ip, Variant& raw, Variant& response,
                                 Variant&, Collection& names, Collection& values) {
      seen.push_back({"GET", Utf8(url), Utf8(raw), Utf8(ip), Pairs(&names, &values), {}});
      response = answer;
    };
    server->POSTReceived = [this](Variant& url, Variant& ip, Collection& pnames,
                                  Collection& pvalues, Variant& raw, Variant& response, Variant&,
                                  Collection& names, Collection& values) {
      seen.push_back({"POST", Utf8(url), Utf8(raw), Utf8(ip), Pairs(&names, &values),
                      Pairs(&pnames, &pvalues)});
      response = answer;
    };
    server->GENERICReceived = [this](Variant& ip, Variant& raw, Variant& response, Variant&) {
      seen.push_back({"", "", Utf8(raw), Utf8(ip), {}, {}});
      response = generic_answer;
    };
  }

  // Sends one request text; returns what came back, with its events in `seen`.
  std::string Exchange(const std::string& request) {
    seen.clear();
    auto peer = Request(request);
    sim.loop.RunFor(4);
    EXPECT_TRUE(peer->ClosedByServer());
    return TextToBytes(peer->Received());
  }
  void ExpectStillServing() {
    EXPECT_EQ(Exchange("GET /alive HTTP/1.0\r\n\r\n"), "ok");
    EXPECT_EQ(Only().url, "/alive/");
  }
  const Seen& Only() {
    EXPECT_EQ(seen.size(), 1u);
    return seen.at(0);
  }

  std::vector<Seen> seen;
  Variant answer = u"ok";
  Variant generic_answer;
};

TEST_P(RequestTest, PathIsDecodedAndDirectoriesGetASlash) {
  // clang-format off
  const std::pair<const char*, const char*> rows[] = {
      {"/dir HTTP/1.0", "/dir/"}, {"/dir/ HTTP/1.0", "/dir/"}, {"/a/b.txt HTTP/1.1", "/a/b.txt"},
      {"/a.b/c HTTP/1.0", "/a.b/c/"}, {"/ HTTP/1.0", "/"},
      {"/x?a=1 HTTP/1.0", "/x?a=1/"}, {"/x?a=1.5 HTTP/1.0", "/x?a=1.5"},  // the query counts
      {"/a%20b HTTP/1.0", "/a b/"}, {"/a b HTTP/1.0", "/a/"},
      {"/f.txt%2Fsub HTTP/1.0", "/f.txt/sub/"}, {"/x", "/"}};  // no second blank: no path
  // clang-format on
  for (const auto& [line, url] : rows) {
    Exchange(std::string("GET ") + line + "\r\n\r\n");
    EXPECT_EQ(Only().url, url) << line;
  }
}

TEST_P(RequestTest, MethodHeadersGenericTextsAndFallback) {
  EXPECT_EQ(Exchange("get / HTTP/1.0\r\n\r\n"), std::string(1, '\0'));
  EXPECT_EQ(Only().kind, "");
  EXPECT_EQ(Only().raw, "get / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(Only().ip, "127.0.0.1");
  Exchange("GET /a: b HTTP/1.0\r\n\r\n");  // a ": " in the request line makes it a record
  EXPECT_EQ(Only().kind, "");
  generic_answer = u"PONG\r\n";  // the host's answer to a generic text goes out as it stands
  EXPECT_EQ(Exchange("PING"), "PONG\r\n");

  Exchange("GET /h HTTP/1.0\r\nHost: x\r\nAuthorization: one\r\nauthorization: two\r\n\r\n");
  EXPECT_EQ(Only().headers,
            (Strings{"GET=/h HTTP/1.0", "Host=x", "Authorization=one", "authorization=two"}));
  EXPECT_TRUE(Only().params.empty());
  answer = u"";  // an empty answer falls back on the 404 page
  const std::string got = Exchange("GET /nothing HTTP/1.0\r\n\r\n");
  EXPECT_EQ(got, TextToBytes(server->html_404error().ToText()));
  EXPECT_EQ(Exchange("POST /nothing HTTP/1.0\r\n\r\nq=1"), got);
}

TEST_P(RequestTest, PostFieldsSplitAtSingleAmpersands) {
  const std::pair<const char*, Strings> rows[] = {
      {"Content-Length: 7\r\n\r\na=1&b=2", {"a=1", "b=2"}},
      // values decoded, names not
      {"\r\na=1&&b=2&c=%41+b&n%41me=v", {"a=1&&b=2", "c=A b", "n%41me=v"}},
      // a field without "=" is both name and value; middle dots become "&&"
      {"\r\na&x=\xB7\xB7", {"a=a", "x=&&"}},
      {"X: y", {}},  // no blank line: no fields, still a POST
  };
  for (const auto& [rest, fields] : rows) {
    Exchange(std::string("POST /f HTTP/1.0\r\n") + rest);
    EXPECT_EQ(Only().kind, "POST") << rest;
    EXPECT_EQ(Only().params, fields) << rest;
  }
}

TEST_P(RequestTest, SecuredPathsNeedKnownCredentials) {
  server->SecurePathAdd(u"/admin");
  server->UsersAdd(u"user:pass");
  const std::string page = TextToBytes(server->http_ErrorResponse(401).ToText());
  EXPECT_EQ(Exchange("GET /admin/x HTTP/1.0\r\n\r\n"),
            "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /admin/x/\r\nServer: Varnek\r\n"
            "Content-Length: " +
                std::to_string(page.size()) + "\r\nContent-Type: text/html\r\n\r\n" + page);
  EXPECT_TRUE(seen.empty()) << "a refused request never reaches the host";
  {  // a CR LF decoded from the path stays inside the realm line
    const std::string head =
        "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /admin  Set-Cookie: x=1    <b>x/\r\n"
        "Server: Varnek\r\n";
    const std::string got =
        Exchange("GET /admin%0D%0ASet-Cookie:%20x=1%0D%0A%0D%0A<b>x HTTP/1.0\r\n\r\n");
    EXPECT_EQ(got.substr(0, head.size()), head);
  }
  const std::pair<const char*, const char*> rows[] = {
      {"Basic VVNFUjpQQVNT", "ok"},     // "USER:PASS" passes for "user:pass"
      {"Whatever dXNlcjpwYXNz", "ok"},  // the scheme word is not compared
      {"dXNlcjpwYXNz", "ok"},           // no blank: the whole value is the credentials
      {"Basic d3Jvbmc6eA==\r\nAuthorization: Basic dXNlcjpwYXNz", "HTTP/1.0 401"},  // first decides
      {"Basic %%%", "HTTP/1.0 401"},  // broken Base64 finds no user
  };
  for (const auto& [auth, start] : rows) {
    const std::string got =
        Exchange(std::string("GET /admin HTTP/1.0\r\nAuthorization: ") + auth + "\r\n\r\n");
    EXPECT_EQ(got.substr(0, std::string(start).size()), start) << auth;
  }
  EXPECT_EQ(Exchange("GET /public HTTP/1.0\r\n\r\n"), "ok");
  server->SecurePathAdd(u"/");  // securing "/" refuses texts that are not HTTP too
  EXPECT_EQ(Exchange("PING").rfind("HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /\r\n", 0), 0u);
  EXPECT_TRUE(seen.empty());
}

TEST_P(RequestTest, HostMayNameAnotherSlotForTheAnswer) {
  server->GETReceived = [&](Variant& url, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    if (Utf8(url) == "/hold/") {
      server->Proceso_KeepOpen(idx, true);
      response = u"held";
    } else {
      idx = 1;  // answer on the held connection instead
      response = u"routed";
    }
  };
  auto first = Request("GET /hold HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  reports.clear();
  auto second = Request("GET /other HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(first->Received()), "heldrouted");
  EXPECT_TRUE(second->Received().empty());
  // The rest of the handler follows the named slot: slot 1 is held, slot 2 keeps peer and text.
  EXPECT_FALSE(second->ClosedByServer());
  EXPECT_EQ(server->ProcesoStatus_Code(2), kSocketConnected);
  EXPECT_EQ(CountOf("Evento (2)- Done:Receive"), 0u);
  EXPECT_EQ(CountOf("Evento (1)- Done:Receive Now:Connected"), 1u);
  second->Write(u"more", sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(2);
  EXPECT_EQ(Utf8(server->Proceso_Receive(2)), "more");
}

TEST_P(RequestTest, GarbageNulHugeLineAndManyHeaders) {
  std::mt19937 random(12345);
  for (int round = 0; round < 20; ++round) {
    std::string junk(1 + random() % 600, '\0');
    for (char& c : junk) c = static_cast<char>(random() % 256);
    if (junk.rfind("GET ", 0) == 0 || junk.rfind("POST ", 0) == 0) junk[0] = 'x';
    EXPECT_EQ(Exchange(junk), std::string(1, '\0')) << "round " << round;
    EXPECT_EQ(Only().kind, "");
  }
  EXPECT_EQ(Exchange(std::string("GET /n\0ul HTTP/1.0\r\n\r\n", 22)), "ok");  // NULs inside
  EXPECT_EQ(Only().url, std::string("/n\0ul/", 6));
  const auto started = std::chrono::steady_clock::now();
  // A 1 MB path: cutting stops at position 32767, so no blank after it and no path.
  EXPECT_EQ(Exchange("GET /" + std::string(1 << 20, 'a') + " HTTP/1.0\r\n\r\n"), "ok");
  EXPECT_EQ(Only().url, "/");
  std::string many = "GET /many HTTP/1.0\r\n";  // 10,000 header lines, half without ": "
  for (int k = 0; k < 10000; ++k) many += (k % 2) ? "X-N: v\r\n" : "no-colon-here\r\n";
  EXPECT_EQ(Exchange(many + "\r\n"), "ok");
  EXPECT_EQ(Only().headers.size(), 10001u);
  ExpectStillServing();
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
}

TEST_P(RequestTest, SilentClientsFloodAndEarlyLeavers) {
  server->WatchdogTimeout(20);
  std::vector<std::shared_ptr<SimPeer>> silent, flood;
  for (int k = 0; k < 3; ++k) silent.push_back(net.Connect(8080, sim.loop.Elapsed()));
  sim.loop.RunFor(1);
  seen.clear();  // three silent clients hold every slot; a flood of 50 more gets nothing
  for (int k = 0; k < 50; ++k) flood.push_back(Request(kGet, sim.loop.Elapsed() + 0.01 * k));
  sim.loop.RunFor(5);
  for (const auto& p : flood) EXPECT_TRUE(p->Received().empty());
  EXPECT_EQ(server->CurrentConnections(), 3);
  EXPECT_TRUE(seen.empty());
  sim.loop.RunFor(40);  // the watchdog frees them
  for (const auto& p : silent) EXPECT_TRUE(p->ClosedByServer());
  EXPECT_EQ(server->CurrentConnections(), 0);
  ExpectStillServing();
  auto gone = Request("GET /gone HTTP/1.0\r\n\r\n");
  gone->Close(sim.loop.Elapsed() + 0.2);  // goes before the answer; `quiet` without a byte
  auto quiet = net.Connect(8080, sim.loop.Elapsed());
  quiet->Close(sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(15);
  EXPECT_EQ(server->CurrentConnections(), 0);
  ExpectStillServing();
}

VARNEK_BOTH_LOOP_MODES(RequestTest);

}  // namespace
}  // namespace varnek::testing
