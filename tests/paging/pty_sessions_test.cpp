// Whole sessions at real time over pty pairs: the Linux comm control on the
// slave side, a scripted peer on the master, the Linux loop pumping. Each is
// bounded by the dialogs' own time-outs; all told about a minute of wall time.
#include <signal.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "examples/page/page_job.h"
#include "examples/page/signal_cancel.h"
#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/test_doubles/pty_line.h"
#include "tests/paging/paging_fixture.h"
#include "tests/support/pump.h"

namespace varnek {
namespace {

constexpr int16_t kPort = 3;

struct PtySession : ::testing::Test {
  SimPlatform sim;
  LinuxLoop loop;
  LinuxCommFactory comms{loop, &sim.settings};
  std::unique_ptr<Adds> adds;
  std::unique_ptr<PtyLine> line;
  std::unique_ptr<CommCtl> comm;
  std::string sent;  // what the system wrote
  std::function<void(const std::string&)> on_sent;
  SteadyClock::time_point start = SteadyClock::now();

  PtySession() {
    sim.platform.loop = loop;  // real time from here on
    sim.platform.comms = comms;
    adds = std::make_unique<Adds>(sim.platform);
  }
  // Puts `peer` on a pty that port 3 maps to, through the settings store.
  template <class Peer>
  std::shared_ptr<Peer> Line(std::shared_ptr<Peer> peer, bool xm = false) {
    line = std::make_unique<PtyLine>(loop, peer);
    line->on_traffic = [this](bool to_peer, const std::string& bytes) {
      if (!to_peer) return;
      sent += bytes;
      if (on_sent) on_sent(bytes);
    };
    sim.settings.Set(u"VarnekGlobal", u"Comm", u"Port3", Utf8ToText(line->SlavePath()));
    ::unsetenv("VARNEK_COMM3");
    comm = comms.Create(xm);
    return peer;
  }
  double Wall() const { return SecondsSince(start); }
};

TEST_F(PtySession, DeliversTapPagesAndLogsOut) {
  auto tap = Line(std::make_shared<TapTerminal>());
  ASSERT_TRUE(adds->TAP_InitDialog(*comm, kPort, 1200, 7, false, 1, u"", u"", u"pw"));
  for (int i = 0; i < 10; ++i) {
    Variant message = Utf8ToText("Real page " + std::to_string(i));
    EXPECT_TRUE(adds->TAP_SendMsg(*comm, u"4321", message)) << i;
  }
  EXPECT_TRUE(adds->TAP_CloseDialog(*comm));
  EXPECT_FALSE(comm->PortOpen());
  ASSERT_EQ(tap->pages().size(), 10u);
  EXPECT_EQ(tap->pages()[1].message, "Real page 1");
  EXPECT_EQ(tap->password(), "pw");
  EXPECT_TRUE(tap->logged_out());
  EXPECT_LT(Wall(), 40.0);  // three quiet spells of 2 s; generous for busy machines
  std::printf("[ figures  ] 10-page TAP session on a pty: %.2f s wall\n", Wall());
}

TEST_F(PtySession, DialsThreeTimesOnABusyLineAt7E1) {
  // Each attempt reopens the port at 1200,E,7,1, which a pty takes as 8N1.
  auto modem =
      Line(std::make_shared<HayesModem>(nullptr, ModemBehaviour{.busy = true, .connect_delay = 4}));
  EXPECT_FALSE(adds->TAP_InitDialog(*comm, kPort, 1200, 7, false, 1, u"", u"5550100", u"pw"));
  EXPECT_EQ(sent, "ATDT5550100\rATDT5550100\rATDT5550100\r");
  EXPECT_EQ(modem->commands().size(), 3u);
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_LT(Wall(), 3 * (2 + 4 + 2) + 10.0);
}

TEST_F(PtySession, ZetronGoodPageAt9600E71) {
  auto terminal = Line(std::make_shared<ZetronTerminal>());
  // Opened once without dialling; the dialog's own connect reopens the port.
  ASSERT_TRUE(adds->SERIAL_Connect(*comm, kPort, 9600, 7, false, 1, u"", u"", 45));
  ASSERT_TRUE(adds->ZETRON_InitDialog(*comm, kPort, 9600, 7, false, 1, u"", u"", u""));
  sent.clear();
  Variant message = u"Pump 3 stopped";
  const double before = Wall();
  EXPECT_TRUE(adds->ZETRON_SendMsg(*comm, u"A12345B", message));
  const double page = Wall() - before;
  EXPECT_LT(page, 30.0);  // eight collections of 1-2 s, far from the 60 s limit
  EXPECT_EQ(sent, "A\r12345\r5\rPump 3 stopped\rY\rY\rC\rC\r");  // exactly two "C" CR
  ASSERT_EQ(terminal->pages().size(), 1u);
  EXPECT_EQ(terminal->pages()[0].message, "Pump 3 stopped");
  EXPECT_TRUE(adds->ZETRON_CloseDialog(*comm));
  std::printf("[ figures  ] Zetron good page on a pty: %.2f s wall\n", page);
}

TEST_F(PtySession, SendCommandOnXMCommReadsTheModemsAnswer) {
  Line(std::make_shared<HayesModem>(nullptr), true);
  ASSERT_TRUE(adds->SERIAL_Connect(*comm, kPort, 1200, 7, false, 1, u"", u"", 45));
  EXPECT_EQ(adds->SERIAL_SendCommand(*comm, u"ATI").ToText(), u"Varnek line modem");
  EXPECT_LT(Wall(), 4.0);  // the answer ends the wait, not the 5 s limit
}

TEST_F(PtySession, SigintMidPageLogsOutAndHangsUp) {
  auto tap = Line(std::make_shared<TapTerminal>(TapBehaviour{.ignore_blocks = true}));
  SignalCancel stop(loop, [&](int) { adds->SetSERIAL_CancelOperation(true); });
  on_sent = [](const std::string& bytes) {
    // a block is on its way
    if (bytes.find('\x02') != std::string::npos) ::kill(::getpid(), SIGINT);
  };
  page::PageJob job;
  job.port = kPort;
  job.pager = "1234";
  job.message = "Cancel me";
  std::string report;
  page::PageWatch watch;
  watch.cancelled = [&] { return stop.signal() != 0; };
  const int status = page::SendPage(
      *adds, *comm, job, [&](const std::string& text) { report += text + "\n"; }, watch);
  EXPECT_EQ(status, page::kPageCancelled);
  EXPECT_EQ(stop.signal(), SIGINT);
  EXPECT_EQ(report,
            "session: logged in\nblock 1/1 not sent: cancelled\nsession: cancelled, logged out\n");
  EXPECT_TRUE(tap->logged_out());
  EXPECT_EQ(sent.substr(sent.size() - 2), "\x04\r");  // EOT CR
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_FALSE(adds->SERIAL_CancelOperation());
  EXPECT_LT(Wall(), 20.0);  // the block's 10 s wait was cut short
}

}  // namespace
}  // namespace varnek
