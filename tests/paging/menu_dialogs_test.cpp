// The Skytel and Zetron dialogs against their simulated services, directly on
// the line (no number to dial), on virtual time.
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

TEST_F(PagingTest, SkytelWalksTheMenus) {
  auto service = Attach(std::make_shared<SkytelService>());
  ASSERT_TRUE(adds.SKYTEL_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u"5551234"));
  Variant message = u"Hola se\xF1or\r\n";
  EXPECT_TRUE(adds.SKYTEL_SendMsg(*comm, u"5551234", message));
  EXPECT_EQ(message.ToText(), u"Hola senor ");  // filtered, also in the caller's variable
  Variant second = u"again";
  EXPECT_TRUE(adds.SKYTEL_SendMsg(*comm, u"5551234", second));
  ASSERT_EQ(service->pages().size(), 2u);
  EXPECT_EQ(service->pages()[0], (std::pair<std::string, std::string>{"5551234", "Hola senor "}));
  EXPECT_EQ(sent, "\r\n5551234\r\n1\r\nHola senor \r\nY\r\n1\r\nagain\r\nY\r\n");
  EXPECT_TRUE(adds.SKYTEL_CloseDialog(*comm));
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_FALSE(adds.SKYTEL_CloseDialog(*comm));  // closed port
  {  // no answer to a message of 400 characters: its wait is 20 s, then False
    ASSERT_TRUE(adds.SKYTEL_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u"5551234"));
    service->behaviour().ignore_message = true;
    Variant long_one = Text(400, u'x');
    // the menu's answer and 2 quiet seconds, 400 characters at 120 a second
    // going out while the 20 s run
    EXPECT_NEAR(Timed([&] { EXPECT_FALSE(adds.SKYTEL_SendMsg(*comm, u"5551234", long_one)); }),
                2 + 20, 1.2);
    EXPECT_TRUE(comm->PortOpen());  // a failed send leaves the line up
  }
}

TEST_F(PagingTest, SkytelGivesUpOnARepeatedMenuOrMissingCr) {
  {  // the menu again at each "1": four attempts, then False, line up
    Attach(std::make_shared<SkytelService>(MenuBehaviour{.repeat_menu = true}));
    ASSERT_TRUE(adds.SKYTEL_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u"77"));
    sent.clear();
    Variant m = u"x";
    EXPECT_FALSE(adds.SKYTEL_SendMsg(*comm, u"77", m));
    EXPECT_EQ(sent, "1\r\n1\r\n1\r\n1\r\n");
    EXPECT_TRUE(comm->PortOpen());
  }
  {  // prompts without their leading CR are not recognised: the line is dropped
    adds.SERIAL_Disconnect(*comm);
    Attach(std::make_shared<SkytelService>(MenuBehaviour{.drop_leading_cr = true}));
    EXPECT_FALSE(adds.SKYTEL_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u"77"));
    EXPECT_FALSE(comm->PortOpen());
  }
}

TEST_F(PagingTest, ZetronAnswersTheQuestionsInTurnAndReportsTheAcceptance) {
  auto terminal = Attach(std::make_shared<ZetronTerminal>());
  ASSERT_TRUE(adds.ZETRON_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u"unused"));
  Variant message = u"Meet at 5\r";
  // The good page: after "Page Now" the check's "C" brings "* Message
  // Accepted *", which is no "Message" question; a last "C" and True. Eight
  // collections, each ending 1-2 s after its answer.
  EXPECT_LT(Timed([&] { EXPECT_TRUE(adds.ZETRON_SendMsg(*comm, u"A12345B", message)); }),
            8 * 2 + 1);
  EXPECT_EQ(message.ToText(), u"Meet at 5 ");
  ASSERT_EQ(terminal->pages().size(), 1u);
  const auto& page =
      terminal->pages()[0];  // the function is the capcode's last character; "B" is dropped
  EXPECT_EQ(page.format + "|" + page.capcode + "|" + page.function + "|" + page.message,
            "A|12345|5|Meet at 5 ");
  EXPECT_EQ(sent, "\rC\rA\r12345\r5\rMeet at 5 \rY\rY\rC\rC\r");
  EXPECT_NE(heard.find("* Message Accepted *"), std::string::npos);
  EXPECT_EQ(heard.substr(heard.size() - 9), "Format ? ");  // back at the format question
  {  // a code of 2 characters: empty capcode, the first character twice;
     // fewer fail to the caller
    adds.SERIAL_Disconnect(*comm);
    auto fresh = Attach(std::make_shared<ZetronTerminal>());
    ASSERT_TRUE(adds.ZETRON_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u""));
    Variant m = u"x";
    adds.ZETRON_SendMsg(*comm, u"AB", m);
    ASSERT_EQ(fresh->pages().size(), 1u);
    EXPECT_EQ(fresh->pages()[0].capcode, "");
    EXPECT_EQ(fresh->pages()[0].function, "A");
    EXPECT_THROW(adds.ZETRON_SendMsg(*comm, u"A", m), RuntimeError);
  }
  EXPECT_TRUE(adds.ZETRON_CloseDialog(*comm));
  EXPECT_FALSE(comm->PortOpen());
  EXPECT_FALSE(adds.ZETRON_CloseDialog(*comm));
}

TEST_F(PagingTest, ZetronStopsAtTheMinuteOnARepeatedQuestion) {
  Attach(std::make_shared<ZetronTerminal>(MenuBehaviour{.repeat_message = true}));
  ASSERT_TRUE(adds.ZETRON_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u""));
  Variant m = u"x";
  const double took = Timed([&] { EXPECT_FALSE(adds.ZETRON_SendMsg(*comm, u"A12345B", m)); });
  EXPECT_TRUE(took >= 59 && took < 60 + 10 + 2) << took;  // a state's wait may run past the limit
  {  // a silent terminal: Init tries three wake-ups and drops the line
    Attach(std::make_shared<ZetronTerminal>(MenuBehaviour{.silent = true}));
    EXPECT_FALSE(adds.ZETRON_InitDialog(*comm, 1, 1200, 8, true, 1, u"", u"", u""));
    EXPECT_FALSE(comm->PortOpen());
  }
}

}  // namespace
}  // namespace varnek
