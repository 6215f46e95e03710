// Connections side by side on strands: what changes against one stack, on
// virtual time.
#include <algorithm>
#include <string>
#include <vector>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using SideBySideTest = ServerFixture;

TEST_P(SideBySideTest, SimultaneousGetsAreAllAnsweredAfterTheirOwnSettle) {
  Start(8080, 20);
  AnswerGet(u"hello");
  std::vector<std::shared_ptr<SimPeer>> peers;
  for (int k = 0; k < 20; ++k) peers.push_back(Request(kGet, 1.0));  // bytes at 1.1
  sim.loop.RunFor(60);
  double last = 0;
  for (const auto& peer : peers) {
    ASSERT_TRUE(peer->ClosedByServer());
    EXPECT_NE(Utf8(peer->Received()).find("hello"), std::string::npos);
    last = std::max(last, peer->FirstByteAt());
  }
  if (GetParam() == LoopMode::kStrands) {
    // 0.5 s of settle after the bytes, plus the send's own delay.
    for (const auto& peer : peers) EXPECT_NEAR(peer->FirstByteAt(), 1.1 + 0.5 + 0.01, 0.02);
    EXPECT_EQ(sim.loop.LiveStrands(), 0);
    EXPECT_GE(sim.loop.MaxLiveStrands(), 20);
  } else {
    // One stack: each answer waits for the handlers nested above it.
    EXPECT_GT(last, 1.1 + 10);
    EXPECT_EQ(sim.loop.MaxLiveStrands(), 0);
  }
}

TEST_P(SideBySideTest, AHostHandlerThatPausesHoldsUpOnlyItsOwnConnection) {
  Start(8080, 5);
  double slow_answered_at = -1;
  server->GETReceived = [&](Variant& url, Variant&, Variant&, Variant& response, Variant&,
                            Collection&, Collection&) {
    if (Utf8(url).find("slow") != std::string::npos) {
      sim.loop.PumpUntilTimer(sim.loop.Timer() + 5);  // the host waits 5 s
      slow_answered_at = sim.loop.Elapsed();
    }
    response = u"done";
  };
  auto slow = Request("GET /slow HTTP/1.0\r\n\r\n", 1.0);
  auto fast = Request(kGet, 1.2);  // bytes at 1.3, settled at 1.8
  sim.loop.RunFor(30);
  ASSERT_TRUE(slow->ClosedByServer());
  ASSERT_TRUE(fast->ClosedByServer());
  if (GetParam() == LoopMode::kStrands) {
    EXPECT_NEAR(slow_answered_at, 1.6 + 5, 0.02);
    EXPECT_NEAR(fast->FirstByteAt(), 1.8 + 0.01, 0.02);
  } else {
    EXPECT_GT(fast->FirstByteAt(), 1.6 + 5);  // nested inside the slow one's wait
  }
}

TEST_P(SideBySideTest, TwoConnectionsArrivingTogetherTakeSlotsOneAndTwo) {
  Start(8080, 5);
  AnswerGet(u"slot ", false, true);
  auto first = Request(kGet, 1.0);
  auto second = Request(kGet, 1.0);
  sim.loop.RunFor(10);
  // One stack answers the later arrival from inside the earlier one's wait,
  // so the earlier one finds slot 1 taken.
  const bool strands = GetParam() == LoopMode::kStrands;
  EXPECT_EQ(Utf8(first->Received()), strands ? "slot 1" : "slot 2");
  EXPECT_EQ(Utf8(second->Received()), strands ? "slot 2" : "slot 1");
  EXPECT_EQ(CountOf("Server - Asignando el motor 1"), 1u);
  EXPECT_EQ(CountOf("Server - Asignando el motor 2"), 1u);
}

TEST_P(SideBySideTest, WatchdogClosesASilentSlotWhileAnotherHandlerIsPaused) {
  Start(8080, 5);
  server->WatchdogTimeout(15);
  bool paused = false;
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant&, Collection&,
                            Collection&) {
    paused = true;
    sim.loop.PumpUntilTimer(sim.loop.Timer() + 100);
    paused = false;
    response = u"late";
  };
  auto busy = Request(kGet, 1.0);        // slot 1, its handler paused from 1.6 to 101.6
  auto silent = net.Connect(8080, 2.0);  // slot 2, never says a word
  sim.loop.RunFor(60);
  // On one stack the ticks nest inside the paused handler; with strands they
  // run beside it. Either way the silent slot goes in time. (On one stack the
  // run itself cannot end before the pause.)
  if (GetParam() == LoopMode::kStrands) {
    ASSERT_TRUE(paused);
  }
  ASSERT_TRUE(silent->ClosedByServer());
  // Silent for more than 15 s at a tick of the 10 s watchdog, then a 1 s pause.
  EXPECT_GT(silent->ClosedAt(), 2.0 + 15);
  EXPECT_LT(silent->ClosedAt(), 2.0 + 15 + 10 + 1 + 0.1);
  EXPECT_GE(CountOf("Watchdog - Forzando cerrado de motor 2"), 1u);
  sim.loop.RunFor(60);
  EXPECT_FALSE(paused);  // the paused handler ran to its end
  EXPECT_TRUE(busy->ClosedByServer());
}

// A client resets while the host's handler for it waits; a second client
// takes the slot and is held open; the first handler resumes. What it sends,
// keeps or closes reaches nobody, while a host timer still addresses the slot
// by number.
TEST_P(SideBySideTest, AHandlerWhoseClientLeftActsOnNothingOnTheSlotsNextClient) {
  Start(8080, 1);
  int calls = 0;
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    if (++calls > 1) {
      server->Proceso_KeepOpen(idx, true);
      response = u"public";
      return;
    }
    sim.loop.PumpUntilTimer(sim.loop.Timer() + 5);  // like /send waiting on its gateway
    server->Proceso_KeepOpen(idx, false);
    server->Proceso_Send(idx, u"secret sent");
    EXPECT_EQ(Utf8(server->Proceso_Receive(idx)), "");
    server->Proceso_Close(idx);
    response = u"secret answer";
  };
  auto first = Request(kGet, 1.0);  // handler waits from 1.6 to 6.6
  first->Reset(2.0);
  auto second = Request(kGet, 3.0);  // slot 1 again, held open from 3.6
  second->Write(u"kept for the second", 4.0);
  auto timer = sim.loop.CreateTimer();
  timer->SetInterval(2000);
  timer->on_tick = [&] {
    timer->SetEnabled(false);
    server->Proceso_Send(1, u" tick");  // at 5.0, inside the first handler's wait
  };
  sim.loop.After(3.0 - sim.loop.Elapsed(), [&] { timer->SetEnabled(true); });
  sim.loop.RunFor(20);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(Utf8(first->Received()), "");
  EXPECT_EQ(Utf8(second->Received()), "public tick");
  EXPECT_FALSE(second->ClosedByServer());
  EXPECT_TRUE(server->Proceso_KeepOpen(1));
  EXPECT_EQ(Utf8(server->Proceso_Receive(1)), "kept for the second");
  EXPECT_EQ(server->ProcesoStatus_Code(1), kSocketConnected);
}

// The server restarts while an answered client's handler pauses before its
// close; a new client takes the same slot number in the new run. The old
// handler, resuming, leaves that connection alone.
TEST_P(SideBySideTest, AHandlerOfTheRunBeforeARestartActsOnNothingInTheNewRun) {
  Start(8080, 1);
  AnswerGet(u"old run");
  auto first = Request(kGet, 1.0);  // answered at 1.6, its handler pauses until 2.6
  sim.loop.After(1.8 - sim.loop.Elapsed(), [&] {
    server->ServerOpen(false);
    server->ServerOpen(true);
  });
  auto second = net.Connect(8080, 2.0);  // slot 1 of the new run, silent
  sim.loop.RunFor(5);
  EXPECT_NE(Utf8(first->Received()).find("old run"), std::string::npos);
  EXPECT_FALSE(second->ClosedByServer());
  EXPECT_EQ(server->ProcesoStatus_Code(1), kSocketConnected);
}

TEST_P(SideBySideTest, OneAddressHoldsAtMostItsShareOfSlotsWhenAsked) {
  for (const int32_t share : {0, 2}) {
    Start(8080, 5);
    server->MaxConnectionsPerAddress(share);
    std::vector<std::shared_ptr<SimPeer>> silent;
    for (int k = 0; k < 3; ++k) silent.push_back(net.Connect(8080, sim.loop.Elapsed() + 0.1 * k));
    sim.loop.RunFor(2);
    EXPECT_EQ(CountOf("Server - Solicitud Handle "), 3u) << share;
    EXPECT_EQ(CountOf("Server - Asignando el motor "), share ? 2u : 3u) << share;
    EXPECT_EQ(silent[2]->Refused(), share != 0) << "left unanswered, as with no free slot";
    server->ServerOpen(false);
  }
}

VARNEK_BOTH_LOOP_MODES(SideBySideTest);

}  // namespace
}  // namespace varnek::testing
