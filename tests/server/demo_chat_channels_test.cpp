// The demo host's chat channels on the simulated server: a channel echoes and
// ends with "bye", and a channel whose slot passes to another connection
// between two polls leaves that connection alone.
#include <gtest/gtest.h>

#include <cmath>

#include "examples/demo/chat_channels.h"
#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

class ChatChannelsTest : public ServerFixture {
 protected:
  ChatChannelsTest() {
    server->InternalState = [this](Variant&, Variant& text) {
      chats.NoteReport(text.ToText());
      reports.push_back(Utf8(text));
    };
    // "/chat" opens a channel; "/hold" is a page of another host that keeps
    // its connection open and reads it with Proceso_Receive itself.
    server->GETReceived = [this](Variant& url, Variant&, Variant&, Variant& response, Variant& idx,
                                 Collection&, Collection&) {
      if (url.ToText() == u"/chat/") {
        response = chats.Open(idx.ToInteger());
        opened_at = sim.loop.Elapsed();
      } else if (url.ToText() == u"/hold/") {
        server->Proceso_KeepOpen(idx, true);
        response = u"held\r\n";
      }
    };
  }
  SocketCtl* Connected() {
    for (SocketCtl* c : made)
      if (c->State() == kSocketConnected) return c;
    return nullptr;
  }

  demo::ChatChannels chats{*server};
  double opened_at = -1;
};

TEST_P(ChatChannelsTest, EchoesUntilByeThenTheSlotCloses) {
  Start(8080, 1);
  auto peer = Request("GET /chat HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(peer->Received()),
            "HTTP/1.0 200\r\nServer: Varnek\r\nContent-Type: text/html\r\n\r\nchat open\r\n");
  EXPECT_EQ(chats.Count(), 1u);
  peer->Write(u"hello\r\n");
  sim.loop.RunFor(2);
  EXPECT_NE(Utf8(peer->Received()).find("chat open\r\necho: hello\r\n"), std::string::npos);
  peer->Write(u"bye\r\n");
  sim.loop.RunFor(5);
  EXPECT_EQ(Utf8(peer->Received()).substr(Utf8(peer->Received()).size() - 5), "bye\r\n");
  EXPECT_TRUE(peer->ClosedByServer());
  EXPECT_EQ(chats.Count(), 0u);
}

TEST_P(ChatChannelsTest, SlotGivenToAnotherConnectionBetweenTwoPollsIsLeftAlone) {
  Start(8080, 1);
  auto chat = Request("GET /chat HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  ASSERT_EQ(chats.Count(), 1u);
  ASSERT_GT(opened_at, 0);
  // Halfway between two polls (every 0.1 s from the opening), the slot's
  // connection ends and a new one takes the slot before the next poll.
  const double k = std::ceil((sim.loop.Elapsed() - opened_at) / 0.1);
  const double between = opened_at + 0.1 * k + 0.05 - sim.loop.Elapsed();
  std::shared_ptr<SimPeer> next;
  sim.loop.After(between, [&] {
    ASSERT_NE(Connected(), nullptr);
    Connected()->Close();
    next = Request("GET /hold HTTP/1.0\r\n\r\n");
  });
  sim.loop.RunFor(3);
  ASSERT_TRUE(next);
  EXPECT_TRUE(chat->ClosedByServer());
  EXPECT_EQ(CountOf("Server - Asignando el motor 1"), 2u);
  EXPECT_EQ(Utf8(next->Received()), "held\r\n");
  EXPECT_EQ(chats.Count(), 0u);  // the poller stopped at its first look
  // What the new connection sends is its host's to read, never echoed.
  next->Write(u"secret\r\n");
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(next->Received()), "held\r\n");
  EXPECT_EQ(Utf8(server->Proceso_Receive(1)), "secret\r\n");
}

TEST_P(ChatChannelsTest, ClientsThatCloseTheirSideFreeTheirSlots) {
  Start(8080, 2);
  server->WatchdogTimeout(300);
  auto first = Request("GET /chat HTTP/1.0\r\n\r\n");
  auto second = Request("GET /chat HTTP/1.0\r\n\r\n", 0.5);
  sim.loop.RunFor(3);
  ASSERT_EQ(chats.Count(), 2u);
  first->Write(u"last words\r\n", sim.loop.Elapsed());
  first->ShutdownWrite(sim.loop.Elapsed() + 0.01);  // before the poller has read them
  second->Close(sim.loop.Elapsed());
  sim.loop.RunFor(5);
  EXPECT_EQ(chats.Count(), 0u);
  EXPECT_TRUE(first->ClosedByServer());
  EXPECT_TRUE(second->ClosedByServer());
  EXPECT_EQ(Utf8(first->Received()).substr(Utf8(first->Received()).find("chat open\r\n")),
            "chat open\r\necho: last words\r\n");
  // Both slots are free for the next GETs, long before any watchdog.
  AnswerGet(u"next");
  auto a = Request(kGet), b = Request(kGet);
  sim.loop.RunFor(5);
  EXPECT_EQ(Utf8(a->Received()), "next");
  EXPECT_EQ(Utf8(b->Received()), "next");
}

VARNEK_BOTH_LOOP_MODES(ChatChannelsTest);

}  // namespace
}  // namespace varnek::testing
