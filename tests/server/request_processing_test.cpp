// Request processing through the simulated network: path normalisation,
// dispatch by method, POST fields, Basic authentication and the fallbacks.
#include <gtest/gtest.h>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

struct Seen {
  std::string kind, url, raw, ip;
  std::vector<std::string> header_names, header_values, param_names, param_values;
};

class RequestTest : public ServerFixture {
 protected:
  void SetUp() override {
    Start(8080, 3);
    server->GETReceived = [this](Variant& url, Variant& ip, Variant& raw, Variant& response,
                                 Variant&, Collection& names, Collection& values) {
      Record("GET", url, ip, raw, &names, &values, nullptr, nullptr);
      response = answer;
    };
    server->POSTReceived = [this](Variant& url, Variant& ip, Collection& pnames,
                                  Collection& pvalues, Variant& raw, Variant& response, Variant&,
                                  Collection& names, Collection& values) {
      Record("POST", url, ip, raw, &names, &values, &pnames, &pvalues);
      response = answer;
    };
    server->GENERICReceived = [this](Variant& ip, Variant& raw, Variant& response, Variant&) {
      Record("", Variant(), ip, raw, nullptr, nullptr, nullptr, nullptr);
      response = generic_answer;
    };
  }

  static std::vector<std::string> Items(const Collection* c) {
    std::vector<std::string> out;
    for (int32_t k = 1; c && k <= c->Count(); ++k) out.push_back(Utf8(c->Item(k)));
    return out;
  }

  void Record(const char* kind, const Variant& url, const Variant& ip, const Variant& raw,
              const Collection* hn, const Collection* hv, const Collection* pn,
              const Collection* pv) {
    seen.push_back({kind, Utf8(url), Utf8(raw), Utf8(ip), Items(hn), Items(hv), Items(pn),
                    Items(pv)});
  }

  // Sends one request text and returns what the peer got back.
  std::string Exchange(const std::string& request) {
    auto peer = Request(request, sim.loop.Elapsed());
    sim.loop.RunFor(4);
    return TextToBytes(peer->Received());
  }

  std::string UrlOf(const std::string& request) {
    seen.clear();
    Exchange(request);
    return seen.size() == 1 ? seen[0].url : "<" + std::to_string(seen.size()) + " events>";
  }

  std::vector<Seen> seen;
  Variant answer = u"ok";
  Variant generic_answer;
};

TEST_F(RequestTest, PathIsDecodedAndDirectoriesGetASlash) {
  EXPECT_EQ(UrlOf("GET /dir HTTP/1.0\r\n\r\n"), "/dir/");
  EXPECT_EQ(UrlOf("GET /dir/ HTTP/1.0\r\n\r\n"), "/dir/");
  EXPECT_EQ(UrlOf("GET /a/b.txt HTTP/1.1\r\n\r\n"), "/a/b.txt");
  EXPECT_EQ(UrlOf("GET /a.b/c HTTP/1.0\r\n\r\n"), "/a.b/c/");
  EXPECT_EQ(UrlOf("GET / HTTP/1.0\r\n\r\n"), "/");
  // The query string stays and takes part in the test.
  EXPECT_EQ(UrlOf("GET /x?a=1 HTTP/1.0\r\n\r\n"), "/x?a=1/");
  EXPECT_EQ(UrlOf("GET /x?a=1.5 HTTP/1.0\r\n\r\n"), "/x?a=1.5");
  EXPECT_EQ(UrlOf("GET /a%20b HTTP/1.0\r\n\r\n"), "/a b/");
  EXPECT_EQ(UrlOf("GET /a b HTTP/1.0\r\n\r\n"), "/a/");
  EXPECT_EQ(UrlOf("GET /f.txt%2Fsub HTTP/1.0\r\n\r\n"), "/f.txt/sub/");
  // No second blank: no path at all.
  EXPECT_EQ(UrlOf("GET /x\r\n\r\n"), "/");
}

TEST_F(RequestTest, MethodIsExactAndOtherTextsAreGeneric) {
  seen.clear();
  EXPECT_EQ(Exchange("get / HTTP/1.0\r\n\r\n"), std::string(1, '\0'));
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].kind, "");
  EXPECT_EQ(seen[0].raw, "get / HTTP/1.0\r\n\r\n");
  EXPECT_EQ(seen[0].ip, "127.0.0.1");

  // A ": " in the request line makes it a record of its own name.
  seen.clear();
  Exchange("GET /a: b HTTP/1.0\r\n\r\n");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].kind, "");

  // The host's answer to a generic text goes out as it stands.
  generic_answer = u"PONG\r\n";
  EXPECT_EQ(Exchange("PING"), "PONG\r\n");
}

TEST_F(RequestTest, HeadersArriveAsRecordsInOrder) {
  seen.clear();
  Exchange("GET /h HTTP/1.0\r\nHost: x\r\nAuthorization: one\r\nauthorization: two\r\n\r\n");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].header_names,
            (std::vector<std::string>{"GET", "Host", "Authorization", "authorization"}));
  EXPECT_EQ(seen[0].header_values,
            (std::vector<std::string>{"/h HTTP/1.0", "x", "one", "two"}));
  EXPECT_TRUE(seen[0].param_names.empty());
}

TEST_F(RequestTest, PostFieldsSplitAtSingleAmpersands) {
  seen.clear();
  Exchange("POST /f HTTP/1.0\r\nContent-Length: 7\r\n\r\na=1&b=2");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].kind, "POST");
  EXPECT_EQ(seen[0].param_names, (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(seen[0].param_values, (std::vector<std::string>{"1", "2"}));

  seen.clear();
  Exchange("POST /f HTTP/1.0\r\n\r\na=1&&b=2&c=%41+b&n%41me=v");
  ASSERT_EQ(seen.size(), 1u);
  // Values decoded, names not.
  EXPECT_EQ(seen[0].param_names, (std::vector<std::string>{"a", "c", "n%41me"}));
  EXPECT_EQ(seen[0].param_values, (std::vector<std::string>{"1&&b=2", "A b", "v"}));

  // A field without "=" is both name and value; middle dots become "&&".
  seen.clear();
  Exchange("POST /f HTTP/1.0\r\n\r\na&x=\xB7\xB7");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].param_names, (std::vector<std::string>{"a", "x"}));
  EXPECT_EQ(seen[0].param_values, (std::vector<std::string>{"a", "&&"}));

  // No blank line: no fields, still a POST.
  seen.clear();
  Exchange("POST /f HTTP/1.0\r\nX: y");
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].kind, "POST");
  EXPECT_TRUE(seen[0].param_names.empty());
}

TEST_F(RequestTest, EmptyAnswerFallsBackOn404) {
  answer = u"";
  const std::string got = Exchange("GET /nothing HTTP/1.0\r\n\r\n");
  EXPECT_EQ(got, TextToBytes(server->html_404error().ToText()));
  EXPECT_EQ(Exchange("POST /nothing HTTP/1.0\r\n\r\nq=1"), got);
}

TEST_F(RequestTest, SecuredPathsNeedKnownCredentials) {
  server->SecurePathAdd(u"/admin");
  server->UsersAdd(u"user:pass");
  seen.clear();
  const std::string refused = Exchange("GET /admin/x HTTP/1.0\r\n\r\n");
  EXPECT_TRUE(seen.empty()) << "a refused request never reaches the host";
  const std::string page = TextToBytes(server->http_ErrorResponse(401).ToText());
  EXPECT_EQ(refused, "HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /admin/x/\r\n"
                     "Server: Varnek\r\nContent-Length: " + std::to_string(page.size()) +
                         "\r\nContent-Type: text/html\r\n\r\n" + page);

  // "USER:PASS" passes for "user:pass"; the scheme word is not compared.
  EXPECT_EQ(Exchange("GET /admin HTTP/1.0\r\nAuthorization: Basic VVNFUjpQQVNT\r\n\r\n"), "ok");
  EXPECT_EQ(Exchange("GET /admin HTTP/1.0\r\nAuthorization: Whatever dXNlcjpwYXNz\r\n\r\n"),
            "ok");
  // With no blank there is no scheme word to cut: the whole value is the credentials.
  EXPECT_EQ(Exchange("GET /admin HTTP/1.0\r\nAuthorization: dXNlcjpwYXNz\r\n\r\n"), "ok");
  // The first Authorization header decides.
  EXPECT_EQ(Exchange("GET /admin HTTP/1.0\r\nAuthorization: Basic d3Jvbmc6eA==\r\n"
                     "Authorization: Basic dXNlcjpwYXNz\r\n\r\n")
                .substr(0, 12),
            "HTTP/1.0 401");
  // Broken Base64 finds no user.
  EXPECT_EQ(Exchange("GET /admin HTTP/1.0\r\nAuthorization: Basic %%%\r\n\r\n").substr(0, 12),
            "HTTP/1.0 401");
  EXPECT_EQ(Exchange("GET /public HTTP/1.0\r\n\r\n"), "ok");

  // Securing "/" refuses texts that are not HTTP too.
  server->SecurePathAdd(u"/");
  seen.clear();
  EXPECT_EQ(Exchange("PING").rfind("HTTP/1.0 401\r\nWWW-Authenticate: Basic realm = /\r\n", 0),
            0u);
  EXPECT_TRUE(seen.empty());
}

TEST_F(RequestTest, HostMayNameAnotherSlotForTheAnswer) {
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
  auto first = Request("GET /hold HTTP/1.0\r\n\r\n", sim.loop.Elapsed());
  sim.loop.RunFor(3);
  reports.clear();
  auto second = Request("GET /other HTTP/1.0\r\n\r\n", sim.loop.Elapsed());
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(first->Received()), "heldrouted");
  EXPECT_TRUE(second->Received().empty());
  // The rest of the receive handler follows the named slot too: slot 1 is
  // held open, so nothing is closed, and slot 2 keeps its peer and its text.
  EXPECT_FALSE(second->ClosedByServer());
  EXPECT_EQ(server->ProcesoStatus_Code(2), kSocketConnected);
  EXPECT_EQ(IndexOf("Evento (2)- Done:Receive"), -1);
  EXPECT_NE(IndexOf("Evento (1)- Done:Receive Now:Connected"), -1);
  second->Write(u"more", sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(2);
  EXPECT_EQ(Utf8(server->Proceso_Receive(2)), "more");
}

}  // namespace
}  // namespace varnek::testing
