// The library's two outgoing requests, the gateway post and the GET, on a
// control the host left connected: it is closed untouched first, and the
// request takes a connection of its own.
#include "tests/net/net_fixture.h"

namespace varnek {
namespace {

TEST(OutgoingRequests, AControlLeftOpenIsClosedBeforeTheRequest) {
  SimPlatform sim;
  Adds adds{sim.platform};
  std::unique_ptr<SocketCtl> sock = sim.net.Create();
  std::vector<std::shared_ptr<SimPeer>> peers;
  sim.net.Serve(8080, [&](std::shared_ptr<SimPeer> peer) {
    peers.push_back(peer);
    peer->on_data = [answered = false](SimPeer& p) mutable {
      if (!answered) p.Write(u"200 </html>", -1);
      answered = true;
    };
  });
  const auto leave_open = [&] {
    sock->Connect(Variant(u"gw.test"), Variant(8080));
    sim.loop.RunFor(0.5);
    return sock->State() == kSocketConnected;
  };

  ASSERT_TRUE(leave_open());
  Variant url = u"http://gw.test:8080/p", field = u"pin", code = u"1", msg_field = u"msg",
          msg = u"hi";
  EXPECT_EQ(adds.POST_SendMensaje(sock.get(), url, field, code, msg_field, msg), -1);
  ASSERT_TRUE(leave_open());
  const Variant no = Variant::Missing();
  EXPECT_EQ(adds.HttpGetBound(sock.get(), Variant(u"gw.test:8080/"), no, no, 5).ToText(),
            u"200 </html>");

  ASSERT_EQ(peers.size(), 4u);
  for (size_t left : {0u, 2u}) {
    EXPECT_TRUE(peers[left]->ClosedByServer()) << left;
    EXPECT_EQ(peers[left]->Received(), u"") << left;
  }
  EXPECT_EQ(Bytes(peers[1]->Received()).substr(0, 8), "POST /p ");
  EXPECT_EQ(Bytes(peers[3]->Received()).substr(0, 6), "GET / ");
  EXPECT_EQ(sock->State(), kSocketClosed);
}

}  // namespace
}  // namespace varnek
