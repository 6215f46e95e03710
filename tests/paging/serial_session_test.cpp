// The serial session on virtual time: connecting and dialling, the waits of
// Receive and WaitFor, Send, SendCommand's cleaning, and the cancel flag.
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

// Answers each chunk after `delay` with a scripted reply, or echoes it.
struct ScriptPeer : LinePeer {
  std::function<std::string(std::string_view)> reply;
  double delay = 0.1;
  std::string heard;
  void Receive(std::string_view bytes) override {
    heard += bytes;
    if (reply) Say(reply(bytes), delay);
  }
};

TEST_F(PagingTest, ConnectSetsUpThePortAndDialsThroughTheModem) {
  auto tap = std::make_shared<TapTerminal>();
  auto modem = Attach(std::make_shared<HayesModem>(tap));
  // No number: True after the set-up, no modem command at all.
  EXPECT_TRUE(adds.SERIAL_Connect(*comm, u"1", 1200, 7, false, 1, u"   ", u"", 45));
  EXPECT_TRUE(comm->PortOpen());
  EXPECT_TRUE(adds.SerialOperationOpen());
  EXPECT_TRUE(modem->commands().empty());
  EXPECT_EQ(sent, "");

  // A good dial: init, ATDT, the connect message in the second collection.
  sent.clear();
  const double start = Elapsed();
  EXPECT_TRUE(adds.SERIAL_Connect(*comm, u"1", 1200, 7, false, 1, u"ATZ", u"5550100", 45));
  EXPECT_EQ(sent, "ATZ\rATDT5550100\r");
  EXPECT_TRUE(modem->connected());
  // init answer and 2 quiet s, connect 15 s after ATDT, 2 quiet s
  EXPECT_NEAR(Elapsed() - start, 2 + 15 + 2, 1.05);

  {  // A port that does not exist: False and the port stays closed.
    EXPECT_TRUE(adds.SERIAL_Disconnect(*comm));
    EXPECT_FALSE(adds.SERIAL_Connect(*comm, u"9", 1200, 8, true, 1, u"", u"", 45));
    EXPECT_FALSE(comm->PortOpen());
    EXPECT_FALSE(adds.SERIAL_Connect(*comm, u"COM1", 1200, 8, true, 1, u"", u"", 45));  // port 0
    EXPECT_FALSE(adds.SERIAL_Disconnect(*comm));
    EXPECT_FALSE(adds.SerialOperationOpen());
  }
}

TEST_F(PagingTest, ConnectFailsOnLowerCaseEarlyOrMissingConnect) {
  // clang-format off
  struct Case {
    const char* what; ModemBehaviour modem; const char16_t* init; int16_t timeout; bool up;
    double seconds;
  };
  const Case cases[] = {
      {"lower-case connect: not found, the line is dropped",
       {.lower_case_connect = true}, u"ATZ", 45, false, 0},
      {"a connect within the first 10 s goes with the echo",
       {.connect_delay = 1}, u"", 45, false, 0},
      {"echo off: a connect after 12 s is in the second collection",
       {.echo = false, .connect_delay = 12}, u"ATE0", 45, true, 0},
      {"a silent modem: 3 s for the init, 10 s, then slTOut",
       {.silent = true}, u"ATZ", 20, false, 3 + 10 + 20},
  };
  // clang-format on
  for (const Case& c : cases) {
    Attach(std::make_shared<HayesModem>(nullptr, c.modem));
    const double start = Elapsed();
    EXPECT_EQ(adds.SERIAL_Connect(*comm, 1, 1200, 8, true, 1, c.init, u"555", c.timeout), c.up)
        << c.what;
    EXPECT_EQ(comm->PortOpen(), c.up) << c.what;
    EXPECT_EQ(adds.SerialOperationOpen(), c.up) << c.what;
    if (c.seconds > 0) {
      EXPECT_NEAR(Elapsed() - start, c.seconds, 3.0) << c.what;
    }
    adds.SERIAL_Disconnect(*comm);
  }
}

TEST_F(PagingTest, ReceiveWaitsForFirstTextThenTwoQuietSeconds) {
  auto peer = Attach(std::make_shared<ScriptPeer>());
  Open();
  // time-out 0 on an idle line: at once, without waiting
  EXPECT_LT(Timed([&] { EXPECT_EQ(adds.SERIAL_Receive(*comm, 0), u""); }), 0.05);
  {  // nothing comes: the whole time-out (whole seconds: between t-1 and t)
    const double took = Timed([&] { EXPECT_EQ(adds.SERIAL_Receive(*comm, 5), u""); });
    EXPECT_TRUE(took > 4.0 && took <= 5.05) << took;
  }
  {  // text after 1 s, more 1.5 s later: both, then 2 quiet seconds
    sim.loop.After(1.0, [&] { peer->emit("one ", 0); });
    sim.loop.After(2.5, [&] { peer->emit("two", 0); });
    EXPECT_NEAR(Timed([&] { EXPECT_EQ(adds.SERIAL_Receive(*comm, 5), u"one two"); }), 2.5 + 2,
                1.05);
  }
  {  // a stop string already there ends the wait once the buffer runs empty
    sim.loop.After(0.5, [&] { peer->emit("xx\x06\r", 0); });
    const Text stop = u"\x06";
    EXPECT_LT(Timed([&] {
                EXPECT_EQ(adds.SERIAL_Receive(*comm, 10, false, true, stop, u"\x15"), u"xx\x06\r");
              }),
              0.6);
  }
  {  // without the extension the limit stays: text after it is read only once
    for (int i = 1; i <= 6; ++i) sim.loop.After(0.8 * i, [&] { peer->emit(".", 0); });
    Text got;
    EXPECT_LT(Timed([&] { got = adds.SERIAL_Receive(*comm, 3, false, false); }), 3.5);
    EXPECT_TRUE(got.size() >= 2 && got.size() <= 4) << got.size();
    sim.loop.RunFor(10);
    adds.SERIAL_Receive(*comm, 0);
  }
  {  // a chattering line holds Receive while it chatters, however short t is
    for (int i = 1; i <= 20; ++i) sim.loop.After(0.5 * i, [&] { peer->emit(".", 0); });
    EXPECT_NEAR(Timed([&] {
                  EXPECT_EQ(adds.SERIAL_Receive(*comm, 0).size(),
                            0u);  // nothing waiting yet: at once
                  EXPECT_EQ(adds.SERIAL_Receive(*comm, 1).size(), 20u);
                }),
                10 + 2, 1.05);
  }
}

TEST_F(PagingTest, WaitForEndsOnItsStringsOrOnAnEmptyRead) {
  auto peer = Attach(std::make_shared<ScriptPeer>());
  Open();
  sim.loop.After(1, [&] { peer->emit("abc", 0); });
  sim.loop.After(2, [&] { peer->emit("OK", 0); });
  EXPECT_EQ(adds.SERIAL_WaitFor(*comm, u"OK", u"", u"", 10), u"abcOK");
  // All three empty: ends at the first read that brings nothing.
  EXPECT_EQ(adds.SERIAL_WaitFor(*comm, u"", u"", u"", 1), u"");
  // A string that never comes: only a cancel ends the wait (bounded here).
  sim.loop.After(30, [&] { adds.SetSERIAL_CancelOperation(true); });
  EXPECT_NEAR(Timed([&] { EXPECT_EQ(adds.SERIAL_WaitFor(*comm, u"never", u"", u"", 2), u""); }), 30,
              2.1);
}

TEST_F(PagingTest, SendAndTheCancelFlag) {
  auto peer = Attach(std::make_shared<ScriptPeer>());
  {  // before any session the cancel does nothing
    adds.SetSERIAL_CancelOperation(true);
    EXPECT_FALSE(adds.SERIAL_CancelOperation());
  }
  EXPECT_FALSE(adds.SERIAL_Send(*comm, u"closed"));
  Open();
  EXPECT_TRUE(adds.SERIAL_Send(*comm, u"hello"));
  sim.loop.RunFor(1);
  EXPECT_EQ(peer->heard, "hello");

  // A cancel from a handler ends a wait at its next test.
  sim.loop.After(3, [&] { adds.SetSERIAL_CancelOperation(true); });
  EXPECT_NEAR(Timed([&] { EXPECT_EQ(adds.SERIAL_Receive(*comm, 30), u""); }), 3, 0.1);
  EXPECT_TRUE(adds.SERIAL_CancelOperation());
  adds.SetSERIAL_CancelOperation(false);  // cannot be cleared this way
  EXPECT_TRUE(adds.SERIAL_CancelOperation());
  EXPECT_FALSE(adds.SERIAL_Send(*comm, u"more"));
  EXPECT_EQ(adds.SERIAL_Receive(*comm, 5), u"");
  // Connect keeps the flag: with a number to dial it fails.
  EXPECT_FALSE(adds.SERIAL_Connect(*comm, 1, 1200, 8, true, 1, u"", u"555", 45));
  EXPECT_TRUE(adds.SERIAL_Disconnect(*comm));
  EXPECT_FALSE(adds.SERIAL_CancelOperation());
}

TEST_F(PagingTest, SendCommandCleansTheModemsAnswer) {
  auto peer = Attach(std::make_shared<ScriptPeer>());
  EXPECT_TRUE(adds.SERIAL_SendCommand(*comm, u"ATI").IsEmpty());  // closed port
  Open();
  peer->reply = [](std::string_view) { return std::string("ATI3\r\n\r\nV1.2\r\nOK\r\n"); };
  EXPECT_EQ(adds.SERIAL_SendCommand(*comm, u"ATI3").ToText(), u"V1.2");
  EXPECT_EQ(adds.SERIAL_SendCommand(*comm, u"ATI3", u"V1.").ToText(), u"2");
  peer->reply = [](std::string_view) { return std::string("\r\nERROR\r\n"); };
  EXPECT_EQ(adds.SERIAL_SendCommand(*comm, u"ATX").ToText(), u"ERROR");
  {  // text already in the control's buffer is read at once: the wait never
     // blocks while the buffer holds text (nothing on the loop would wake it)
    struct Buffered : CommCtl {
      std::vector<Text> reads{u"", u"ATI3\r\n", u"\r\nV1.2\r\nOK\r\n"};
      size_t next = 0;
      bool PortOpen() const override { return true; }
      int32_t InBufferCount() const override {
        return next < reads.size() ? static_cast<int32_t>(reads[next].size()) : 0;
      }
      Text Input() override { return next < reads.size() ? reads[next++] : Text(); }
      void SetOutput(TextView) override {}
    } buffered;
    EXPECT_LT(
        Timed([&] { EXPECT_EQ(adds.SERIAL_SendCommand(buffered, u"ATI3").ToText(), u"V1.2"); }),
        0.5);
  }
  {  // an echo alone, no answer: removed, after 5 s
    peer->reply = [](std::string_view bytes) { return std::string(bytes); };
    EXPECT_NEAR(Timed([&] { EXPECT_EQ(adds.SERIAL_SendCommand(*comm, u"AT").ToText(), u""); }), 5,
                1.05);
  }
  {  // the XMComm variant offers InputData in place of Input: read through it
    adds.SERIAL_Disconnect(*comm);  // one control a port
    peer->reply = [](std::string_view) { return std::string("ATI3\r\n\r\nV1.2\r\nOK\r\n"); };
    auto xm = comms.Create(true);
    xm->SetCommPort(1);
    xm->SetPortOpen(true);
    EXPECT_EQ(adds.SERIAL_SendCommand(*xm, u"ATI3").ToText(), u"V1.2");
  }
}

}  // namespace
}  // namespace varnek
