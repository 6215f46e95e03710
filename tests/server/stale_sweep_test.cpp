// The accept handler's sweep of stale slots on virtual time: which slots it
// closes, in what order, with which reports, as connections age, refresh
// their stamps, free their slots and arrive during a sweep's own pause.
#include <cstdio>
#include <utility>

#include "tests/server/server_fixture.h"

namespace varnek::testing {
namespace {

struct StaleSweepTest : ServerFixture {
  // The server's own reports, each after the virtual second since t0 it came
  // at (the peers' handles left out), taken since the last call.
  StaleSweepTest() {
    server->InternalState = [this](Variant&, Variant& text) {
      const std::string line = Utf8(text);
      if (line.rfind("Server - ", 0) != 0 || line.rfind("Server - Solicitud", 0) == 0) return;
      char at[32];
      std::snprintf(at, sizeof at, "%.1f ", sim.loop.Elapsed() - t0);
      seen.push_back(at + line.substr(9));
    };
  }
  Strings Take() { return std::exchange(seen, {}); }
  // Runs the loop until `second` seconds after t0.
  void RunUntil(double second) { sim.loop.RunFor(t0 + second - sim.loop.Elapsed()); }
  double t0 = 0;
  Strings seen;
};

TEST_P(StaleSweepTest, ClosesTheSameSlotsInTheSameOrder) {
  Start(8080, 5);
  t0 = sim.loop.Elapsed();
  server->WatchdogTimeout(30000);           // the watchdog stays out of this
  AnswerGet(u"held", true);                 // every GET is held open as a channel
  auto a = net.Connect(8080, t0 + 1);       // slot 1, silent
  auto b = Request(kGet, t0 + 100);         // slot 2, a channel the host keeps fresh
  auto c = net.Connect(8080, t0 + 130);     // slot 3, silent
  auto gone = net.Connect(8080, t0 + 140);  // slot 4, leaves at once: free, its stamp stays
  gone->Close(t0 + 141);
  for (double at = 160; at < 900; at += 120)
    sim.loop.After(at, [&] { server->Proceso_Send(2, u"."); });
  RunUntil(200);
  EXPECT_EQ(Take(), (Strings{"1.0 Asignando el motor 1", "100.0 Asignando el motor 2",
                             "130.0 Asignando el motor 3", "140.0 Asignando el motor 4"}));

  // Four minutes on: nobody is stale; the newcomer takes the lowest free slot.
  auto d = net.Connect(8080, t0 + 250);
  RunUntil(260);
  EXPECT_EQ(Take(), (Strings{"250.0 Asignando el motor 4"}));

  // Seven minutes: slot 1 is stale, slot 3 (five boundaries) not yet.
  auto e = net.Connect(8080, t0 + 430);
  RunUntil(460);
  EXPECT_TRUE(a->ClosedByServer());
  EXPECT_FALSE(c->ClosedByServer());
  EXPECT_EQ(Take(), (Strings{"430.0 Forzando cerrado del motor 1", "431.0 Asignando el motor 1"}));

  // Ten minutes: slots 3 and 4 (taken at 250) are stale, the fresh channel
  // is not; a peer that comes during the first close's pause sweeps too.
  auto f = net.Connect(8080, t0 + 620);
  auto g = net.Connect(8080, t0 + 620.5);
  RunUntil(680);
  EXPECT_TRUE(c->ClosedByServer());
  EXPECT_FALSE(b->ClosedByServer());
  // Each sweep walks on its own: on strands side by side; on one stack the
  // second runs nested in the first's pause and closes slot 4 before the
  // first gets there.
  const Strings strands = {
      "620.0 Forzando cerrado del motor 3", "620.5 Forzando cerrado del motor 3",
      "621.0 Forzando cerrado del motor 4", "621.5 Forzando cerrado del motor 4",
      "622.0 Asignando el motor 3",         "622.5 Asignando el motor 4"};
  const Strings one_stack = {"620.0 Forzando cerrado del motor 3",
                             "620.5 Forzando cerrado del motor 3",
                             "621.5 Forzando cerrado del motor 4", "622.5 Asignando el motor 3",
                             "622.5 Asignando el motor 4"};
  EXPECT_EQ(Take(), GetParam() == LoopMode::kStrands ? strands : one_stack);
}

VARNEK_BOTH_LOOP_MODES(StaleSweepTest);

}  // namespace
}  // namespace varnek::testing
