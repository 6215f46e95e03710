// The TAP dialog against the simulated modem and terminal on virtual time:
// exact bytes of a good session, refusals, silence and the failure paths.
#include <time.h>

#include <cstdio>

#include "varnek/runtime/dates.h"
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

struct TapTest : PagingTest {
  using PagingTest::PagingTest;
  std::shared_ptr<TapTerminal> tap;
  std::shared_ptr<HayesModem> modem;
  void Wire(TapBehaviour t = {}, ModemBehaviour m = {}) {
    tap = std::make_shared<TapTerminal>(t);
    modem = Attach(std::make_shared<HayesModem>(tap, m));
  }
  bool Init() {
    return adds.TAP_InitDialog(*comm, 1, 1200, 7, false, 1, u"ATZ", u"5550100", u"secret");
  }
  bool Page(const Text& message, const Text& pager = u"1") {
    Variant m = message;
    return adds.TAP_SendMsg(*comm, pager, m);
  }
};

TEST_F(TapTest, CheckSumKeepsTwelveBitsAsDigitsFrom48) {
  // 177; none; 4080 + 17 = 4097; 233: above 127 counts in full
  for (auto [block, sum] : {std::pair<Text, const char16_t*>{u"\x02"
                                                             u"1\ra\r\x03",
                                                             u"0;1"},
                            {u"", u"000"},
                            {Text(16, u'\xFF') + u'\x11', u"001"},
                            {Text(1, u'\xE9'), u"0>9"}})
    EXPECT_EQ(adds.TAP_CheckSum(block), sum) << TextToUtf8(block);
}

TEST_F(TapTest, AGoodSessionSendsTheExactBytes) {
  Wire();
  ASSERT_TRUE(Init());
  EXPECT_EQ(tap->password(), "secret");
  EXPECT_TRUE(Page(u"Hello", u"1234"));
  EXPECT_TRUE(Page(u"Call me", u"5678"));
  EXPECT_TRUE(adds.TAP_CloseDialog(*comm));
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_TRUE(adds.SerialOperationOpen());  // close leaves the session flags
  const std::string block1 =
      "\x02"
      "1234\rHello\r\x03";
  const std::string block2 =
      "\x02"
      "5678\rCall me\r\x03";
  EXPECT_EQ(sent, "ATZ\rATDT5550100\r\r\x1bPG1secret\r" + block1 + TapTerminal::Checksum(block1) +
                      "\r" + block2 + TapTerminal::Checksum(block2) + "\r\x04\r");
  ASSERT_EQ(tap->pages().size(), 2u);
  EXPECT_EQ(tap->pages()[1].message, "Call me");
  EXPECT_TRUE(tap->logged_out());
  EXPECT_FALSE(adds.TAP_CloseDialog(*comm));  // closed port: False, no change
}

TEST_F(TapTest, RefusedBlocksAndLooseAnswers) {
  {  // NAK and RS give False and leave the line up
    Wire({.refuse_blocks = true});
    ASSERT_TRUE(Init());
    EXPECT_FALSE(Page(u"x"));
    tap->behaviour().refuse_blocks = false;
    tap->behaviour().abandon_blocks = true;
    EXPECT_FALSE(Page(u"x"));
    EXPECT_TRUE(comm->PortOpen());
    EXPECT_EQ(tap->refused(), 2);
  }
  {  // a bare ACK without its CR does not count
    Wire({.ack_without_cr = true});
    ASSERT_TRUE(Init());
    EXPECT_FALSE(Page(u"x"));
    EXPECT_EQ(tap->pages().size(), 1u);
  }
  {  // ACK CR is looked for first: a NAK CR after it does not undo it
    struct Both : LinePeer {
      void Receive(std::string_view) override { Say("\x15\r\x06\r\x15\r", 0.1); }
    };
    adds.SERIAL_Disconnect(*comm);
    Attach(std::make_shared<Both>());
    Open();
    EXPECT_TRUE(Page(u"x"));
  }
  {  // "INVALID" holds "ID": the wake-up passes
    Wire({.invalid_id = true});
    EXPECT_TRUE(Init());
  }
  {  // the filter changes the caller's message even when the send fails
    adds.SERIAL_Disconnect(*comm);
    Variant m = u"Ca\xF1\xF3n\r\n!";
    EXPECT_FALSE(adds.TAP_SendMsg(*comm, u"1", m, true));
    EXPECT_EQ(m.ToText(), u"Canon !");
  }
}

TEST_F(TapTest, SilentAndStubbornTerminalsFailWithinTheirTimeOuts) {
  {  // no "[p": three logins of 10 s, the line is dropped, the flags clear
    Wire({.repeat_id = true});
    EXPECT_LT(Timed([&] { EXPECT_FALSE(Init()); }), 2 + 17 + 2 * 3 + 3 * 10 + 1);
    EXPECT_FALSE(comm->PortOpen() || adds.SerialOperationOpen());
  }
  {  // a silent terminal: three wake-ups of 3 s
    Wire({.silent = true});
    EXPECT_NEAR(Timed([&] { EXPECT_FALSE(Init()); }), 19 + 3 * 3, 3.1);
  }
  {  // no modem answer at all: three dials, each 3 + 10 + 45 s
    Wire({}, {.silent = true});
    EXPECT_NEAR(Timed([&] { EXPECT_FALSE(Init()); }), 3 * (3 + 10 + 45), 4.0);
  }
  {  // no ACK: the wait of a 600-character page is 12 s
    Wire();
    ASSERT_TRUE(Init());
    tap->behaviour().silent = true;
    const double took = Timed([&] { EXPECT_FALSE(Page(Text(600, u'x'))); });
    EXPECT_TRUE(took > 11 && took <= 12.1) << took;  // the wait runs while the block goes out
  }
  {  // a line that vanishes mid-session: False, never a hang
    Wire();
    ASSERT_TRUE(Init());
    comms.Detach(1);
    EXPECT_FALSE(Page(u"x"));
    EXPECT_FALSE(adds.TAP_CloseDialog(*comm));
  }
}

TEST_F(TapTest, OddLinesAndOddControls) {
  {  // the XMComm variant is read through InputData: a whole session works
    Wire();
    comm = comms.Create(true);
    ASSERT_TRUE(Init());
    EXPECT_TRUE(Page(u"via InputData", u"9"));
    EXPECT_TRUE(adds.TAP_CloseDialog(*comm));
  }
  {  // every byte 0..255 in a message: written as it stands; the terminal
     // cuts the block at the ETX inside it and refuses it
    Wire();
    comm = comms.Create();
    ASSERT_TRUE(Init());
    Text all;
    for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
    sent.clear();
    EXPECT_FALSE(Page(all));
    EXPECT_NE(sent.find(TextToBytes(all)), std::string::npos);
    EXPECT_TRUE(comm->PortOpen());
  }
  {  // a terminal that chatters after its "[p": the login's collection holds
     // while the chatter lasts (50 s here) and 2 s more, then the page goes
    Wire({.flood = true});
    const double took = Timed([&] { ASSERT_TRUE(Init()); });
    EXPECT_TRUE(took > 19 + 50 && took < 19 + 50 + 8) << took;
    EXPECT_TRUE(Page(u"x"));
  }
}

struct TapAcrossMidnight : TapTest {
  TapAcrossMidnight() : TapTest(DateFromParts(2026, 1, 1, 23, 59, 40)) {}
};

TEST_F(TapAcrossMidnight, ASessionRunsOverTheDateChange) {
  Wire();
  ASSERT_TRUE(adds.TAP_InitDialog(*comm, 1, 1200, 7, false, 1, u"ATZ", u"555", u""));
  EXPECT_LT(sim.loop.Timer(), 3600);  // the clock has wrapped
  EXPECT_TRUE(Page(u"after midnight"));
  EXPECT_TRUE(adds.TAP_CloseDialog(*comm));
  EXPECT_LT(sim.loop.Elapsed(), 40);
}

TEST_F(TapTest, TenPagesOnTheVirtualClock) {
  Wire({}, {.connect_delay = 15});
  const double start = Elapsed();
  const int64_t pumps = sim.loop.PumpCount();
  timespec cpu0{}, cpu1{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu0);
  ASSERT_TRUE(Init());
  for (int i = 0; i < 10; ++i) {
    EXPECT_TRUE(
        Page(Utf8ToText("Page number " + std::to_string(i)), Utf8ToText(std::to_string(1000 + i))));
  }
  EXPECT_TRUE(adds.TAP_CloseDialog(*comm));
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &cpu1);
  const double cpu_ms = static_cast<double>(cpu1.tv_sec - cpu0.tv_sec) * 1e3 +
                        static_cast<double>(cpu1.tv_nsec - cpu0.tv_nsec) / 1e6;
  EXPECT_EQ(tap->pages().size(), 10u);
  // Reported for the README, not asserted.
  std::printf("[ figures  ] 10-page TAP session: %.2f simulated s, %.3f ms CPU, %lld pumps\n",
              Elapsed() - start, cpu_ms, static_cast<long long>(sim.loop.PumpCount() - pumps));
}

}  // namespace
}  // namespace varnek
