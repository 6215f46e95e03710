// Hostile input on the simulated network: garbage, huge lines, endless
// headers, silent clients and floods. The server must answer what it can,
// never crash, and serve again once slots are free.
#include <gtest/gtest.h>

#include <chrono>
#include <random>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

class HostileInputTest : public ServerFixture {
 protected:
  void SetUp() override {
    Start(8080, 3);
    server->GETReceived = [this](Variant& url, Variant&, Variant&, Variant& response, Variant&,
                                 Collection& names, Collection&) {
      ++gets;
      last_header_count = names.Count();
      response = u"ok " + url.ToText();
    };
    server->GENERICReceived = [this](Variant&, Variant&, Variant&, Variant&) { ++generics; };
  }

  // Serving still works: a plain GET gets its answer.
  void ExpectStillServing() {
    auto peer = Request("GET /alive HTTP/1.0\r\n\r\n", sim.loop.Elapsed());
    sim.loop.RunFor(4);
    EXPECT_EQ(Utf8(peer->Received()), "ok /alive/");
  }

  int gets = 0;
  int generics = 0;
  int32_t last_header_count = 0;
};

TEST_F(HostileInputTest, GarbageAndNulBytesGetOneNul) {
  std::mt19937 random(12345);
  for (int round = 0; round < 20; ++round) {
    std::string junk(1 + random() % 600, '\0');
    for (char& c : junk) c = static_cast<char>(random() % 256);
    if (junk.rfind("GET ", 0) == 0 || junk.rfind("POST ", 0) == 0) junk[0] = 'x';
    auto peer = Request(junk, sim.loop.Elapsed());
    sim.loop.RunFor(3);
    EXPECT_EQ(peer->Received(), Text(1, u'\0')) << "round " << round;
    EXPECT_TRUE(peer->ClosedByServer());
  }
  EXPECT_EQ(generics, 20);
  // NULs inside an otherwise fine request do not stop it.
  auto peer = Request(std::string("GET /n\0ul HTTP/1.0\r\n\r\n", 22), sim.loop.Elapsed());
  sim.loop.RunFor(3);
  EXPECT_EQ(TextToBytes(peer->Received()), std::string("ok /n\0ul/", 9));
  ExpectStillServing();
}

TEST_F(HostileInputTest, HugeRequestLineAndManyHeaders) {
  const auto started = std::chrono::steady_clock::now();
  // A 1 MB path: the cutting routines stop at position 32767, so the blank
  // after the path is never found and the path is empty.
  auto huge = Request("GET /" + std::string(1 << 20, 'a') + " HTTP/1.0\r\n\r\n",
                      sim.loop.Elapsed());
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(huge->Received()), "ok /");
  EXPECT_TRUE(huge->ClosedByServer());

  // 10,000 header lines, half of them without ": ".
  std::string many = "GET /many HTTP/1.0\r\n";
  for (int k = 0; k < 10000; ++k) many += (k % 2) ? "X-N: v\r\n" : "no-colon-here\r\n";
  many += "\r\n";
  auto lots = Request(many, sim.loop.Elapsed());
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(lots->Received()), "ok /many/");
  EXPECT_EQ(last_header_count, 10001);
  ExpectStillServing();
  EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(20));
}

TEST_F(HostileInputTest, SilentClientsAndFloodDoNotStopTheServer) {
  server->WatchdogTimeout(20);
  // Three silent clients hold every slot; a flood of 50 more gets nothing.
  std::vector<std::shared_ptr<SimPeer>> silent;
  for (int k = 0; k < 3; ++k) silent.push_back(net.Connect(8080, sim.loop.Elapsed()));
  sim.loop.RunFor(1);
  std::vector<std::shared_ptr<SimPeer>> flood;
  for (int k = 0; k < 50; ++k) {
    flood.push_back(Request("GET / HTTP/1.0\r\n\r\n", sim.loop.Elapsed() + 0.01 * k));
  }
  sim.loop.RunFor(5);
  for (const auto& p : flood) EXPECT_TRUE(p->Received().empty());
  EXPECT_EQ(server->CurrentConnections(), 3);
  EXPECT_EQ(gets, 0);

  // The watchdog frees them, and serving goes on.
  sim.loop.RunFor(40);
  for (const auto& p : silent) EXPECT_TRUE(p->ClosedByServer());
  EXPECT_EQ(server->CurrentConnections(), 0);
  ExpectStillServing();
}

TEST_F(HostileInputTest, PeerThatLeavesEarlyFreesItsSlot) {
  // Writes and goes before the answer; the answer finds a closing socket.
  auto peer = net.Connect(8080, sim.loop.Elapsed());
  peer->Write(u"GET /gone HTTP/1.0\r\n\r\n", sim.loop.Elapsed() + 0.1);
  peer->Close(sim.loop.Elapsed() + 0.2);
  // One that connects and leaves without a byte.
  auto quiet = net.Connect(8080, sim.loop.Elapsed());
  quiet->Close(sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(15);
  EXPECT_EQ(server->CurrentConnections(), 0);
  ExpectStillServing();
}

}  // namespace
}  // namespace varnek::testing
