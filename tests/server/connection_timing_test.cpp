// Connection handling on the virtual clock: the half-second settle and the
// 60 s cap, the pause before each close, the stale sweep, the watchdog, the
// welcome text, slot choice and the order of reports.
#include <gtest/gtest.h>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using ConnectionTest = ServerFixture;

TEST_F(ConnectionTest, OneGetReportsInNestingOrder) {
  Start(8080, 5);
  auto peer = Request("GET / HTTP/1.0\r\n\r\n", 1.0);
  sim.loop.RunFor(5);
  ASSERT_TRUE(peer->ClosedByServer());
  std::vector<std::string> got;
  for (const auto& r : reports) {
    if (r.rfind("Watchdog", 0) != 0) got.push_back(r);
  }
  ASSERT_EQ(got.size(), 6u);
  EXPECT_EQ(got[0], "Server - Solicitud Handle " + std::to_string(peer->Handle()));
  EXPECT_EQ(got[1], "Server - Asignando el motor 1");
  EXPECT_EQ(got[2], "Internal (1) - Procesando string recibido: GET / HTTP/1.0«CR»«LF»«CR»«LF»");
  // Done of Send and Close run inside the pauses of Receive's handler.
  EXPECT_EQ(got[3], "Evento (1)- Done:Send Now:Closed");
  EXPECT_EQ(got[4], "Evento (1)- Done:Close Now:Closed");
  EXPECT_EQ(got[5], "Evento (1)- Done:Receive Now:Closed");
  EXPECT_EQ(peer->Received().substr(0, 13), u"HTTP/1.0 404\r");
}

TEST_F(ConnectionTest, RequestCompleteAfterHalfSecondOfSilence) {
  Start(8080, 2);
  std::vector<std::string> texts;
  server->GETReceived = [&](Variant&, Variant&, Variant& raw, Variant& response, Variant&,
                            Collection&, Collection&) {
    texts.push_back(Utf8(raw));
    response = u"ok";
  };
  // Two parts 0.3 s apart make one request.
  auto a = net.Connect(8080, 1.0);
  a->Write(u"GET /a HTTP/1.0\r\n", 1.1);
  a->Write(u"\r\n", 1.4);
  // Two parts 1.5 s apart: the second comes while the first is answered.
  auto b = net.Connect(8080, 10.0);
  b->Write(u"GET /b HTTP/1.0\r\n", 10.1);
  b->Write(u"late", 10.7);
  sim.loop.RunFor(20);
  ASSERT_EQ(texts.size(), 2u);
  EXPECT_EQ(texts[0], "GET /a HTTP/1.0\r\n\r\n");
  EXPECT_EQ(texts[1], "GET /b HTTP/1.0\r\n");
  // Each answer leaves at least half a second after the last byte.
  EXPECT_GE(a->FirstByteAt(), 1.9);
  EXPECT_LT(a->FirstByteAt(), 2.2);
  // The 1 s pause before the close.
  EXPECT_NEAR(a->ClosedAt() - a->FirstByteAt(), 1.0, 0.1);
}

TEST_F(ConnectionTest, SlowTrickleIsCutAtSixtySeconds) {
  Start(8080, 1);
  std::string seen;
  double at = -1;
  server->GENERICReceived = [&](Variant&, Variant& raw, Variant& response, Variant&) {
    if (at < 0) {
      seen = Utf8(raw);
      at = sim.loop.Elapsed();
    }
    response = u"x";
  };
  auto peer = net.Connect(8080, 1.0);
  for (int k = 0; k < 250; ++k) peer->Write(u"z", 1.1 + 0.4 * k);  // 100 s of trickle
  sim.loop.RunFor(120);
  ASSERT_GE(at, 0);
  // The wait counts whole seconds on the clock: cut between 60 and 62 s.
  EXPECT_GT(at, 61.0);
  EXPECT_LT(at, 63.5);
  EXPECT_GT(seen.size(), 140u);
  EXPECT_LT(seen.size(), 160u);
}

TEST_F(ConnectionTest, WelcomeTextAndHeldConnection) {
  server->ServerWelcomeString(u"Hi");
  Start(8080, 2);
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant&,
                            Collection&, Collection&) { response = u"page"; };
  auto peer = net.Connect(8080, 1.0);
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(peer->Received()), "Hi");
  EXPECT_NEAR(peer->FirstByteAt(), 2.0, 0.1);
  EXPECT_EQ(IndexOf("Server - Enviando bienvenida al motor 1"), 2);
  // The welcome keeps every connection open past its first answer.
  peer->Write(u"GET / HTTP/1.0\r\n\r\n", 4.0);
  sim.loop.RunFor(5);
  EXPECT_EQ(Utf8(peer->Received()), "Hipage");
  EXPECT_FALSE(peer->ClosedByServer());
  EXPECT_TRUE(server->Proceso_KeepOpen(1));
}

TEST_F(ConnectionTest, OnlyEmptyOrBlankWelcomeSkipsTheWelcome) {
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant&,
                            Collection&, Collection&) { response = u"page"; };
  // "" sends nothing and lets the answer close the connection.
  server->ServerWelcomeString(u"");
  Start(8080, 2);
  auto plain = Request("GET / HTTP/1.0\r\n\r\n", 1.0);
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(plain->Received()), "page");
  EXPECT_TRUE(plain->ClosedByServer());
  EXPECT_TRUE(ReportsStartingWith("Server - Enviando").empty());

  // A Null is neither: the welcome path runs, its Send fails quietly, and
  // the slot is held open past the answer all the same.
  server->ServerWelcomeString(Variant::Null());
  auto held = net.Connect(8080, sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(3);
  EXPECT_EQ(ReportsStartingWith("Server - Enviando bienvenida al motor 1").size(), 1u);
  EXPECT_TRUE(held->Received().empty());
  EXPECT_TRUE(server->Proceso_KeepOpen(1));
  held->Write(u"GET / HTTP/1.0\r\n\r\n", sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(held->Received()), "page");
  EXPECT_FALSE(held->ClosedByServer());
}

TEST_F(ConnectionTest, SlotChoiceAndAllSlotsBusy) {
  Start(8080, 2);
  server->GETReceived = [&](Variant& url, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    if (Utf8(url) == "/hold/") server->Proceso_KeepOpen(idx, true);
    response = u"slot " + idx.ToText();
  };
  auto a = Request("GET /hold HTTP/1.0\r\n\r\n", 1.0);
  auto b = Request("GET /hold HTTP/1.0\r\n\r\n", 1.05);
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(a->Received()), "slot 1");
  EXPECT_EQ(Utf8(b->Received()), "slot 2");

  // A third peer gets nothing at all; only the request is reported.
  reports.clear();
  auto c = Request("GET / HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  EXPECT_TRUE(c->Received().empty());
  EXPECT_FALSE(c->Accepted());
  EXPECT_EQ(reports, std::vector<std::string>{"Server - Solicitud Handle " +
                                              std::to_string(c->Handle())});

  // Slot 1 freed: the next peer takes 1, not 3.
  server->Proceso_Close(1);
  auto d = Request("GET / HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(d->Received()), "slot 1");
}

TEST_F(ConnectionTest, StaleSweepFreesASlotForTheNewcomer) {
  Start(8080, 1);
  server->WatchdogTimeout(30000);  // keep the watchdog out of this
  auto silent = net.Connect(8080, 1.0);  // connects and never writes
  sim.loop.RunFor(240);
  auto early = Request("GET / HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  EXPECT_FALSE(early->Accepted()) << "4 minutes is not stale";
  EXPECT_TRUE(ReportsStartingWith("Server - Forzando").empty());

  sim.loop.RunFor(180);  // now more than 6 minute boundaries old
  auto late = Request("GET / HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(5);
  EXPECT_TRUE(silent->ClosedByServer());
  EXPECT_EQ(ReportsStartingWith("Server - Forzando cerrado del motor 1").size(), 1u);
  EXPECT_TRUE(late->Accepted());
  EXPECT_EQ(late->Received().substr(0, 12), u"HTTP/1.0 404");
}

TEST_F(ConnectionTest, WatchdogTicksEveryTenSecondsAndClosesSilentSlots) {
  Start(8080, 2);
  sim.loop.RunFor(10.5);
  ASSERT_EQ(ReportsStartingWith("Watchdog - Servidor ON State:Listening Error:").size(), 1u);
  sim.loop.RunFor(20);
  EXPECT_EQ(ReportsStartingWith("Watchdog - Servidor ").size(), 3u);

  // Defaults: a silent connection goes at the first tick past 300 s.
  auto silent = net.Connect(8080, sim.loop.Elapsed() + 0.2);
  const double connected = sim.loop.Elapsed() + 0.2;
  sim.loop.RunFor(295);
  EXPECT_FALSE(silent->ClosedByServer());
  sim.loop.RunFor(30);
  ASSERT_TRUE(silent->ClosedByServer());
  const double after = silent->ClosedAt() - connected;
  EXPECT_GT(after, 301.0);
  EXPECT_LT(after, 313.0);  // 301..311 s, plus the 1 s pause
  EXPECT_EQ(ReportsStartingWith("Watchdog - Forzando cerrado de motor 1").size(), 1u);
}

TEST_F(ConnectionTest, WatchdogTimeoutZeroOrNegativeOnRunningServer) {
  Start(8080, 3);
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    server->Proceso_KeepOpen(idx, true);
    response = u"held";
  };
  auto a = Request("GET / HTTP/1.0\r\n\r\n", 1.0);
  sim.loop.RunFor(3);
  server->WatchdogTimeout(0);  // no default applies on a running server
  sim.loop.RunFor(10);         // the tick at 10 s
  EXPECT_TRUE(a->ClosedByServer());
  EXPECT_EQ(server->WatchdogTimeout(), 0);

  // A stamp of this very second: 0 spares it, a negative timeout does not.
  auto b = Request("GET / HTTP/1.0\r\n\r\n", sim.loop.Elapsed() + 0.2);
  sim.loop.RunFor(3);
  ASSERT_EQ(server->ProcesoStatus_Code(1), kSocketConnected);
  server->Proceso_Send(1, u"!");  // refreshes the stamp
  HTTPServerTestAccess::Tick(*server);
  EXPECT_FALSE(b->ClosedByServer());
  server->WatchdogTimeout(-1);
  HTTPServerTestAccess::Tick(*server);
  EXPECT_TRUE(b->ClosedByServer());
  EXPECT_EQ(ReportsStartingWith("Watchdog - Forzando cerrado de motor 1").size(), 2u);
}

TEST_F(ConnectionTest, CloseThatNeverFinishesEndsTheWaitAfterTenSeconds) {
  Start(8080, 2);
  double receive_reported_at = -1;
  server->InternalState = [&](Variant&, Variant& text) {
    if (Utf8(text).rfind("Evento (1)- Done:Receive", 0) == 0) {
      receive_reported_at = sim.loop.Elapsed();
      reports.push_back(Utf8(text));
    }
  };
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) { response = u"slot " + idx.ToText(); };
  lingering.linger = 60;  // closes take a minute to finish
  auto first = Request("GET / HTTP/1.0\r\n\r\n", 1.0);
  sim.loop.RunFor(20);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0], "Evento (1)- Done:Receive Now:Closing");
  // Settle 0.5 s; the Done of the Send, nested in the pause after the answer,
  // pauses 1 s, closes and waits 10 s (whole-second clock); then the Receive
  // handler finds the socket still closing and does the same once more.
  EXPECT_GT(receive_reported_at, 1.6 + 2 * (1 + 9));
  EXPECT_LT(receive_reported_at, 1.6 + 2 * (1 + 10) + 0.5);
  // The slot stays unusable until it reads closed: the next peer takes 2.
  auto second = Request("GET / HTTP/1.0\r\n\r\n");
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(second->Received()), "slot 2");
}

TEST_F(ConnectionTest, DoneOfOtherOperationsOnlyReports) {
  Start(8080, 1);
  auto peer = net.Connect(8080, 1.0);  // connected, silent
  sim.loop.RunFor(1.5);
  ASSERT_EQ(server->CurrentConnections(), 1);
  reports.clear();
  HTTPServerTestAccess::Done(*server, 1, 7);
  HTTPServerTestAccess::Done(*server, 1, 12);
  EXPECT_EQ(reports, (std::vector<std::string>{"Evento (1)- Done:ReceiveFrom Now:Connected",
                                               "Evento (1)- Done: Now:Connected"}));
  EXPECT_EQ(server->CurrentConnections(), 1);
}

}  // namespace
}  // namespace varnek::testing
