// The page job shared by varnek-page and the demo, on virtual time: the cut
// into blocks never passes the block size, TAP takes any speed, and a line
// that vanishes mid-session is told as lost.
#include "examples/page/page_job.h"
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

struct PageJobTest : PagingTest {
  std::string report;
  int Send(const page::PageJob& job, const page::PageWatch& watch = {}) {
    return page::SendPage(
        adds, *comm, job, [this](const std::string& line) { report += line + "\n"; }, watch);
  }
  static page::PageJob Job(std::string protocol, std::string settings, std::string message) {
    page::PageJob job;
    job.protocol = std::move(protocol);
    job.settings = std::move(settings);
    job.pager = "A12345B";
    job.message = std::move(message);
    return job;
  }
};

TEST_F(PageJobTest, BlocksNeverPassTheBlockSize) {
  Text message;
  for (int i = 0; i < 9500; ++i) message += static_cast<char16_t>(u'a' + i % 26);
  // 9500 characters in blocks of 20 make more than 1000 blocks: four-digit
  // numbers twice in each header.
  for (const int size : {20, 21, 33, 230}) {
    for (const int length : {size, size + 1, 300, 9500}) {
      const Text part = message.substr(0, static_cast<size_t>(length));
      const std::vector<Text> blocks = page::CutIntoBlocks(adds, part, size);
      ASSERT_FALSE(blocks.empty());
      if (length <= size) {
        EXPECT_EQ(blocks, std::vector<Text>{part});
        continue;
      }
      Text joined;
      const Text total = Utf8ToText(std::to_string(blocks.size()));
      for (size_t i = 0; i < blocks.size(); ++i) {
        const Text& block = blocks[i];
        ASSERT_LE(block.size(), static_cast<size_t>(size))
            << size << "/" << length << " block " << i + 1;
        const Text head =
            u"#" + block.substr(1, 1) + u"#" + Utf8ToText(std::to_string(i + 1)) + total + u"#";
        ASSERT_EQ(block.substr(0, head.size()), head);
        joined += block.substr(head.size(), block.size() - head.size() - 1);
      }
      EXPECT_EQ(joined, part) << size << "/" << length;
    }
  }
}

TEST_F(PageJobTest, TapTakesAnySpeedTheMenusUpTo32767) {
  auto tap = Attach(std::make_shared<TapTerminal>());
  EXPECT_EQ(Send(Job("tap", "115200,N,8,1", "fast")), page::kPageSent);
  ASSERT_EQ(tap->pages().size(), 1u);
  EXPECT_EQ(report.substr(report.rfind("session")), "session: logged out\n");
  report.clear();
  EXPECT_EQ(Send(Job("zetron", "38400,N,8,1", "fast")), page::kPageBadJob);
  EXPECT_EQ(report, "bad settings: 38400,N,8,1 (zetron takes speeds up to 32767)\n");
}

TEST_F(PageJobTest, AVanishedLineIsToldAsLost) {
  Attach(std::make_shared<TapTerminal>(TapBehaviour{.ignore_blocks = true}));
  comms.on_traffic = [this](bool to_peer, const std::string& bytes) {
    if (to_peer && bytes.find('\x02') != std::string::npos)
      sim.loop.After(1, [this] { comms.Detach(1); });
  };
  page::PageWatch watch;
  watch.line_lost = [this] { return comms.PeerOf(1) == nullptr; };
  EXPECT_EQ(Send(Job("tap", "1200,E,7,1", "gone"), watch), page::kPageLineLost);
  EXPECT_EQ(report, "session: logged in\nblock 1/1 not sent: line lost\nsession: line lost\n");
  EXPECT_FALSE(comm->PortOpen());
}

}  // namespace
}  // namespace varnek
