// A whole TAP session at real time over a pty pair: the Linux comm control on
// the slave side, the simulated TAP terminal on the master, the Linux loop
// pumping. Bounded by the dialog's own time-outs (about 7 s when all is well).
#include <stdlib.h>

#include <chrono>
#include <cstdio>

#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/pty_line.h"
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

TEST(PtyTapSession, DeliversPagesAndLogsOutAtRealTime) {
  SimPlatform sim;
  LinuxLoop loop;
  LinuxCommFactory comms(loop, &sim.settings);
  sim.platform.loop = loop;  // real time from here on
  sim.platform.comms = comms;
  Adds adds(sim.platform);

  auto tap = std::make_shared<TapTerminal>();
  PtyLine line(loop, tap);
  // Port 3 maps to the pty through the settings store.
  sim.settings.Set(u"VarnekGlobal", u"Comm", u"Port3", Utf8ToText(line.SlavePath()));
  ::unsetenv("VARNEK_COMM3");
  auto comm = comms.Create();

  const auto start = std::chrono::steady_clock::now();
  ASSERT_TRUE(adds.TAP_InitDialog(*comm, 3, 1200, 7, false, 1, u"", u"", u"pw"));
  for (int i = 0; i < 10; ++i) {
    Variant message = Utf8ToText("Real page " + std::to_string(i));
    EXPECT_TRUE(adds.TAP_SendMsg(*comm, u"4321", message)) << i;
  }
  EXPECT_TRUE(adds.TAP_CloseDialog(*comm));
  const double wall = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();

  EXPECT_FALSE(comm->PortOpen());
  ASSERT_EQ(tap->pages().size(), 10u);
  EXPECT_EQ(tap->pages()[1].message, "Real page 1");
  EXPECT_EQ(tap->password(), "pw");
  EXPECT_TRUE(tap->logged_out());
  EXPECT_LT(wall, 40.0);  // three quiet spells of 2 s; generous for busy machines
  std::printf("[ figures  ] 10-page TAP session on a pty: %.2f s wall\n", wall);
}

}  // namespace
}  // namespace varnek
