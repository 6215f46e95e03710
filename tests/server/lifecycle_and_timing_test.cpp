// Start and stop, and connections on the virtual clock: reports, failures, the
// waits of Stop and Close, settle and cap, sweep, watchdog, welcome and slots.
#include <gtest/gtest.h>

#include <cmath>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using LifecycleTest = ServerFixture;

TEST_P(LifecycleTest, FirstStartWritesDefaultsAndReportsInOrder) {
  EXPECT_EQ(Utf8(server->HintText()), "Not active");
  server->ServerOpen(false);  // stopping a server never started is harmless and silent
  EXPECT_TRUE(reports.empty());
  server->ServerOpen(true);
  EXPECT_EQ(server->ServerPort(), 80);
  EXPECT_EQ(server->MaxConcurrentConnections().ToLong(), 5);
  EXPECT_EQ(server->WatchdogTimeout(), 300);
  EXPECT_EQ(Utf8(server->HintText()), "http://192.168.1.10/") << "port 80 is left out";
  EXPECT_EQ(reports, (Strings{"Init - Deteniendo server", "Init - Creando motores (5)",
                              "Init - Creando socket de entrada"}));
  EXPECT_EQ(server->ProcesoStatus_Code(5), kSocketClosed);
  EXPECT_EQ(server->ProcesoStatus_Code(6), 0) << "slots 1..5 only";
  server->ServerOpen(false);
  EXPECT_EQ(Utf8(server->HintText()), "Not active");
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0) << "slots removed";
  EXPECT_EQ(reports.size(), 3u) << "Stop writes no report of its own";
}

TEST_P(LifecycleTest, PortAbove16BitsPortInUseAndSlotsLeftOverFailTheStart) {
  server->ServerPort(32768);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(reports, (Strings{"Init - Deteniendo server", "Init - Error cargando motores",
                              "Init - Deteniendo server", "Init - Cerrando socket de escucha"}));
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0) << "no slot was created";
  EXPECT_EQ(Utf8(server->HintText()), "Not active");
  server->ServerPort(32767);  // the highest port that starts, shown in the URL
  server->ServerOpen(true);
  EXPECT_EQ(Utf8(server->HintText()), "http://192.168.1.10:32767/");

  HTTPServer other(sim.platform);
  other.ServerPort(8080);
  other.ServerOpen(true);
  ASSERT_TRUE(other.ServerOpen());
  reports.clear();
  server->ServerPort(8080);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  ASSERT_EQ(reports.size(), 6u);
  EXPECT_EQ(reports[3], "Init - Error cargando motores");
  EXPECT_EQ(reports[5], "Init - Cerrando socket de escucha");

  Start(8081, 3);
  // Stop walks the count as it reads (0: nothing); Init makes it 5, fails, and Stop walks 1..5.
  server->MaxConcurrentConnections(0);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(server->ProcesoStatus_Code(3), 0);
  EXPECT_EQ(CountOf("Init - Error cargando motores"), 1u);
  server->MaxConcurrentConnections(u"many");  // does not convert: left alone
  EXPECT_EQ(server->MaxConcurrentConnections().ToLong(), 5);
}

TEST_P(LifecycleTest, RestartDropsConnectionsWithoutReports) {
  Start(8080, 2);
  AnswerGet(u"held", true);
  auto peer = Request(kGet, 0.5);
  sim.loop.RunFor(3);
  ASSERT_EQ(server->CurrentConnections(), 1);
  reports.clear();
  server->ServerOpen(true);
  EXPECT_TRUE(server->ServerOpen());
  EXPECT_TRUE(peer->ClosedByServer());
  EXPECT_EQ(server->CurrentConnections(), 0);
  EXPECT_EQ(reports.front(), "Init - Deteniendo server");
  EXPECT_EQ(CountOf("Server - Forzando"), 0u);
}

TEST_P(LifecycleTest, StopWaitsUpToTenSecondsForTheListener) {
  Start(8080, 1);
  linger = 30;  // the listener's close never finishes in time
  double before = sim.loop.Elapsed();
  server->ServerOpen(false);
  EXPECT_GE(sim.loop.Elapsed() - before, 9.0);  // a deadline on the whole-second clock
  EXPECT_LE(sim.loop.Elapsed() - before, 10.0);
  linger = 2;
  Start(8081, 1);
  before = sim.loop.Elapsed();
  server->ServerOpen(false);
  EXPECT_NEAR(sim.loop.Elapsed() - before, 2.0, 0.01) << "ends as soon as it reads closed";
}

using ConnectionTest = ServerFixture;

TEST_P(ConnectionTest, OneGetReportsInNestingOrder) {
  Start(8080, 5);
  auto peer = Request(kGet, 1.0);
  sim.loop.RunFor(5);
  ASSERT_TRUE(peer->ClosedByServer());
  std::erase_if(reports, [](const std::string& r) { return r.rfind("Watchdog", 0) == 0; });
  // Done of Send and Close run inside the pauses of Receive's handler.
  EXPECT_EQ(reports,
            (Strings{"Server - Solicitud Handle " + std::to_string(peer->Handle()),
                     "Server - Asignando el motor 1",
                     "Internal (1) - Procesando string recibido: "
                     "GET / HTTP/1.0«CR»«LF»«CR»«LF»",
                     "Evento (1)- Done:Send Now:Closed", "Evento (1)- Done:Close Now:Closed",
                     "Evento (1)- Done:Receive Now:Closed"}));
  EXPECT_EQ(peer->Received().substr(0, 13), u"HTTP/1.0 404\r");
}

TEST_P(ConnectionTest, RequestCompleteAfterHalfSecondOfSilenceCutAtSixty) {
  Start(8080, 2);
  std::vector<std::string> texts;  // what reached the host
  std::string trickle;
  double trickle_at = -1;
  server->GETReceived = [&](Variant&, Variant&, Variant& raw, Variant& response, Variant&,
                            Collection&, Collection&) {
    texts.push_back(Utf8(raw));
    response = u"ok";
  };
  server->GENERICReceived = [&](Variant&, Variant& raw, Variant& response, Variant&) {
    if (Utf8(raw)[0] != 'z') return;
    if (trickle_at < 0) trickle = Utf8(raw), trickle_at = sim.loop.Elapsed();
    response = u"x";
  };
  auto a = net.Connect(8080, 1.0);  // two parts 0.3 s apart make one request
  a->Write(u"GET /a HTTP/1.0\r\n", 1.1);
  a->Write(u"\r\n", 1.4);
  auto b = net.Connect(8080, 10.0);  // 0.6 s apart: the second comes while the first is answered
  b->Write(u"GET /b HTTP/1.0\r\n", 10.1);
  b->Write(u"late", 10.7);
  auto c = net.Connect(8080, 20.0);  // 100 s of trickle
  for (int k = 0; k < 250; ++k) c->Write(u"z", 20.1 + 0.4 * k);
  sim.loop.RunFor(140);
  EXPECT_EQ(texts, (Strings{"GET /a HTTP/1.0\r\n\r\n", "GET /b HTTP/1.0\r\n"}));
  EXPECT_GE(a->FirstByteAt(), 1.9);  // half a second after the last byte
  EXPECT_LT(a->FirstByteAt(), 2.2);
  EXPECT_NEAR(a->ClosedAt() - a->FirstByteAt(), 1.0, 0.1);  // the pause before the close
  EXPECT_GT(trickle_at, 80.0);  // cut 60 to 62 s in, on the whole-second clock
  EXPECT_LT(trickle_at, 82.5);
  EXPECT_GT(trickle.size(), 140u);
  EXPECT_LT(trickle.size(), 160u);
}

TEST_P(ConnectionTest, WelcomeTextHoldsConnectionsOpen) {
  AnswerGet(u"page");
  server->ServerWelcomeString(u"");  // "" sends nothing and lets the answer close
  Start(8080, 2);
  auto plain = Request(kGet, 1.0);
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(plain->Received()), "page");
  EXPECT_TRUE(plain->ClosedByServer());
  EXPECT_EQ(CountOf("Server - Enviando"), 0u);

  server->ServerWelcomeString(u"Hi");
  reports.clear();
  auto hi = net.Connect(8080, sim.loop.Elapsed() + 1.0);
  const double connected = sim.loop.Elapsed() + 1.0;
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(hi->Received()), "Hi");
  EXPECT_NEAR(hi->FirstByteAt() - connected, 1.0, 0.1);
  EXPECT_EQ(reports.at(2), "Server - Enviando bienvenida al motor 1");
  hi->Write(BytesToText(kGet), sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(5);
  EXPECT_EQ(Utf8(hi->Received()), "Hipage");
  EXPECT_FALSE(hi->ClosedByServer());
  server->Proceso_Close(1);

  server->ServerWelcomeString(Variant::Null());  // its Send fails quietly, the slot is held
  reports.clear();
  auto held = net.Connect(8080, sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(3);
  EXPECT_EQ(CountOf("Server - Enviando bienvenida al motor 1"), 1u);
  EXPECT_TRUE(held->Received().empty());
  held->Write(BytesToText(kGet), sim.loop.Elapsed() + 0.1);
  sim.loop.RunFor(4);
  EXPECT_EQ(Utf8(held->Received()), "page");
  EXPECT_FALSE(held->ClosedByServer());
  EXPECT_TRUE(server->Proceso_KeepOpen(1));
}

TEST_P(ConnectionTest, SlotChoiceAndAllSlotsBusy) {
  Start(8080, 2);
  AnswerGet(u"slot ", true, true);
  auto a = Request(kGet, 1.0);
  auto b = Request(kGet, 1.05);
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(a->Received()) + "," + Utf8(b->Received()), "slot 1,slot 2");
  reports.clear();
  auto c = Request(kGet);  // gets nothing at all; only the request is reported
  sim.loop.RunFor(3);
  EXPECT_TRUE(c->Received().empty());
  EXPECT_FALSE(c->Accepted());
  EXPECT_EQ(reports, Strings{"Server - Solicitud Handle " + std::to_string(c->Handle())});
  server->Proceso_Close(1);  // slot 1 freed: the next peer takes 1, not 3
  auto d = Request(kGet);
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(d->Received()), "slot 1");
}

TEST_P(ConnectionTest, StaleSweepFreesASlotForTheNewcomer) {
  Start(8080, 1);
  server->WatchdogTimeout(30000);  // keep the watchdog out of this
  auto silent = net.Connect(8080, 1.0);
  sim.loop.RunFor(240);
  auto early = Request(kGet);
  sim.loop.RunFor(3);
  EXPECT_FALSE(early->Accepted()) << "4 minutes is not stale";
  sim.loop.RunFor(180);  // now more than 6 minute boundaries old
  auto late = Request(kGet);
  sim.loop.RunFor(5);
  EXPECT_TRUE(silent->ClosedByServer());
  EXPECT_EQ(CountOf("Server - Forzando cerrado del motor 1"), 1u);
  EXPECT_EQ(late->Received().substr(0, 12), u"HTTP/1.0 404");
}

TEST_P(ConnectionTest, WatchdogTicksEveryTenSecondsAndClosesSilentSlots) {
  Start(8080, 2);
  sim.loop.RunFor(10.5);
  ASSERT_EQ(CountOf("Watchdog - Servidor ON State:Listening Error:"), 1u);
  sim.loop.RunFor(20);
  EXPECT_EQ(CountOf("Watchdog - Servidor "), 3u);
  const double connected = sim.loop.Elapsed() + 0.2;  // silent: goes at the tick past 300 s
  auto silent = net.Connect(8080, connected);
  sim.loop.RunFor(325);
  EXPECT_GT(silent->ClosedAt() - connected, 301.0);
  EXPECT_LT(silent->ClosedAt() - connected, 313.0);  // 301..311 s, plus the 1 s pause
  EXPECT_EQ(CountOf("Watchdog - Forzando cerrado de motor 1"), 1u);
}

TEST_P(ConnectionTest, WatchdogTimeoutZeroOrNegativeOnRunningServer) {
  sim.loop.RunFor(0.5);  // ticks at 10.5, 20.5, ...: half a second into the clock's second
  Start(8080, 3);
  AnswerGet(u"held", true);
  auto a = Request(kGet, 1.0);
  sim.loop.RunFor(3);
  server->WatchdogTimeout(0);  // no default applies on a running server
  sim.loop.RunFor(10);         // the tick at 10.5 s
  EXPECT_TRUE(a->ClosedByServer());
  EXPECT_EQ(server->WatchdogTimeout(), 0);
  auto b = Request(kGet, sim.loop.Elapsed() + 0.2);
  sim.loop.RunFor(3);
  ASSERT_EQ(server->ProcesoStatus_Code(1), kSocketConnected);
  // A stamp 0.3 s before a tick falls in the tick's own second: 0 spares
  // it, -1 does not.
  const auto send_just_before_the_tick = [&] {
    const double tick = std::ceil((sim.loop.Elapsed() - 0.5) / 10.0) * 10.0 + 0.5;
    sim.loop.RunFor(tick - 0.3 - sim.loop.Elapsed());
    server->Proceso_Send(1, u"!");
    const size_t ticks = CountOf("Watchdog - Servidor ");
    sim.loop.RunFor(0.5);
    EXPECT_EQ(CountOf("Watchdog - Servidor "), ticks + 1);
  };
  send_just_before_the_tick();
  EXPECT_FALSE(b->ClosedByServer());
  server->WatchdogTimeout(-1);
  send_just_before_the_tick();
  sim.loop.RunFor(1.5);  // the close's pause
  EXPECT_TRUE(b->ClosedByServer());
  EXPECT_EQ(CountOf("Watchdog - Forzando cerrado de motor 1"), 2u);
}

TEST_P(ConnectionTest, DoneOfOtherOperationsOnlyReports) {
  Start(8080, 1);
  auto peer = net.Connect(8080, sim.loop.Elapsed());  // connected, silent
  sim.loop.RunFor(1.5);
  ASSERT_EQ(server->CurrentConnections(), 1);
  reports.clear();
  SocketCtl& slot1 = *made.back();  // listener, slot 0, slot 1
  slot1.on_done(7);
  slot1.on_done(12);  // no name outside 1..9
  EXPECT_EQ(reports, (Strings{"Evento (1)- Done:ReceiveFrom Now:Connected",
                              "Evento (1)- Done: Now:Connected"}));
  EXPECT_EQ(server->CurrentConnections(), 1);
}

TEST_P(ConnectionTest, CloseThatNeverFinishesEndsTheWaitAfterTenSeconds) {
  Start(8080, 2);
  double receive_reported_at = -1;
  server->InternalState = [&](Variant&, Variant& text) {
    if (Utf8(text).rfind("Evento (1)- Done:Receive", 0) != 0) return;
    receive_reported_at = sim.loop.Elapsed();
    reports.push_back(Utf8(text));
  };
  AnswerGet(u"slot ", false, true);
  linger = 60;  // closes take a minute to finish
  Request(kGet, 1.0);
  sim.loop.RunFor(25);
  EXPECT_EQ(reports, Strings{"Evento (1)- Done:Receive Now:Closing"});
  // Settle 0.5 s; Send's Done, nested in the pause after the answer, pauses 1 s, closes and
  // waits 10 s (whole-second clock); Receive's handler finds it closing and does the same.
  EXPECT_GT(receive_reported_at, 1.6 + 2 * (1 + 9));
  EXPECT_LT(receive_reported_at, 1.6 + 2 * (1 + 10) + 0.5);
  auto second = Request(kGet);  // slot 1 is unusable until it reads closed
  sim.loop.RunFor(3);
  EXPECT_EQ(Utf8(second->Received()), "slot 2");
}

VARNEK_BOTH_LOOP_MODES(LifecycleTest);
VARNEK_BOTH_LOOP_MODES(ConnectionTest);

}  // namespace
}  // namespace varnek::testing
