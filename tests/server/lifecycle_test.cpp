// Start and stop: defaults written back, report order, failures, restarts and
// the waits of Stop, on virtual time.
#include <gtest/gtest.h>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

using LifecycleTest = ServerFixture;

TEST_F(LifecycleTest, FirstStartWritesDefaultsAndReportsInOrder) {
  EXPECT_EQ(Utf8(server->HintText()), "Not active");
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(server->WatchdogTimeout(), 0);

  server->ServerOpen(true);
  EXPECT_TRUE(server->ServerOpen());
  EXPECT_EQ(server->ServerPort(), 80);
  EXPECT_EQ(server->MaxConcurrentConnections().ToLong(), 5);
  EXPECT_EQ(server->WatchdogTimeout(), 300);
  // Port 80 is left out of the URL.
  EXPECT_EQ(Utf8(server->HintText()), "http://192.168.1.10/");
  EXPECT_EQ(reports, (std::vector<std::string>{"Init - Deteniendo server",
                                               "Init - Creando motores (5)",
                                               "Init - Creando socket de entrada"}));
  EXPECT_EQ(server->ProcesoStatus_Code(5), kSocketClosed);
  EXPECT_EQ(server->ProcesoStatus_Code(6), 0) << "slots 1..5 only";
  EXPECT_EQ(server->CurrentConnections(), 0);

  server->ServerOpen(false);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(Utf8(server->HintText()), "Not active");
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0) << "slots removed";
  // Stop writes no report of its own.
  EXPECT_EQ(reports.size(), 3u);
}

TEST_F(LifecycleTest, PortAbove16BitsFailsWithFourReports) {
  server->ServerPort(32768);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(reports, (std::vector<std::string>{"Init - Deteniendo server",
                                               "Init - Error cargando motores",
                                               "Init - Deteniendo server",
                                               "Init - Cerrando socket de escucha"}));
  EXPECT_EQ(server->ProcesoStatus_Code(1), 0) << "no slot was created";
  EXPECT_EQ(Utf8(server->HintText()), "Not active");

  // 32767 is the highest port that starts, and shows in the URL.
  reports.clear();
  server->ServerPort(32767);
  server->ServerOpen(true);
  EXPECT_TRUE(server->ServerOpen());
  EXPECT_EQ(Utf8(server->HintText()), "http://192.168.1.10:32767/");
}

TEST_F(LifecycleTest, PortInUseAndSlotLeftOverFailTheStart) {
  HTTPServer other(sim.platform);
  other.ServerPort(8080);
  other.ServerOpen(true);
  ASSERT_TRUE(other.ServerOpen());
  server->ServerPort(8080);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_EQ(reports.size(), 6u);
  EXPECT_EQ(reports[3], "Init - Error cargando motores");
  EXPECT_EQ(reports[5], "Init - Cerrando socket de escucha");

  // Stop walks the count as it reads now: set to 0 on a running server, it
  // unloads nothing, Init makes it 5 again and fails loading slot 1 anew.
  reports.clear();
  server->ServerPort(8081);
  server->MaxConcurrentConnections(3);
  server->ServerOpen(true);
  ASSERT_TRUE(server->ServerOpen());
  server->MaxConcurrentConnections(0);
  server->ServerOpen(true);
  EXPECT_FALSE(server->ServerOpen());
  // The failure path's Stop then walks 1..5 and removes the old slots.
  EXPECT_EQ(server->ProcesoStatus_Code(3), 0);
  EXPECT_NE(std::find(reports.begin(), reports.end(), "Init - Error cargando motores"),
            reports.end());

  // A value that does not convert leaves the member alone.
  server->MaxConcurrentConnections(u"many");
  EXPECT_EQ(server->MaxConcurrentConnections().ToLong(), 5);
}

TEST_F(LifecycleTest, StopOnNeverStartedServerIsHarmlessAndRestartDropsConnections) {
  server->ServerOpen(false);
  EXPECT_FALSE(server->ServerOpen());
  EXPECT_TRUE(reports.empty());

  Start(8080, 2);
  server->GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant& idx,
                            Collection&, Collection&) {
    server->Proceso_KeepOpen(idx, true);
    response = u"held";
  };
  auto peer = Request("GET / HTTP/1.0\r\n\r\n", 0.5);
  sim.loop.RunFor(3);
  ASSERT_EQ(server->CurrentConnections(), 1);
  reports.clear();
  server->ServerOpen(true);  // a restart
  EXPECT_TRUE(server->ServerOpen());
  EXPECT_TRUE(peer->ClosedByServer());
  EXPECT_EQ(server->CurrentConnections(), 0);
  EXPECT_EQ(reports.front(), "Init - Deteniendo server");
  EXPECT_EQ(ReportsStartingWith("Server - Forzando").size(), 0u) << "no report per connection";
}

TEST_F(LifecycleTest, StopWaitsUpToTenSecondsForTheListener) {
  Start(8080, 1);
  lingering.linger = 30;  // the listener's close never finishes in time
  const double before = sim.loop.Elapsed();
  server->ServerOpen(false);
  const double waited = sim.loop.Elapsed() - before;
  // The deadline is on the whole-second clock: 9 to 10 seconds.
  EXPECT_GE(waited, 9.0);
  EXPECT_LE(waited, 10.0);

  lingering.linger = 2;
  Start(8081, 1);
  const double again = sim.loop.Elapsed();
  server->ServerOpen(false);
  EXPECT_NEAR(sim.loop.Elapsed() - again, 2.0, 0.01) << "ends as soon as it reads closed";
}

TEST_F(LifecycleTest, SizeIsFixedAndPropertiesAreStoredOnly) {
  server->Resize(300, 40);
  EXPECT_EQ(server->Width(), 16);
  EXPECT_EQ(server->Height(), 16);
  server->ServerBusyString(u"busy");
  server->ServerSecure(true);
  EXPECT_EQ(Utf8(server->ServerBusyString()), "busy");
  EXPECT_TRUE(server->ServerSecure());
  EXPECT_FALSE(server->ClientSecure());
}

}  // namespace
}  // namespace varnek::testing
