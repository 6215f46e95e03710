// The simulated socket control: listener states, accepting scripted peers,
// the once-per-arrival ready event, sends, closes from both sides, outgoing
// connections.
#include "platform/sim/sim_socket.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "runtime/failure.h"

namespace varnek {
namespace {

constexpr double kStart = 46023.5;

int FailureNumber(const std::function<void()>& fn) {
  try {
    fn();
  } catch (const RuntimeError& e) {
    return e.number();
  }
  return 0;
}

// A listener on `port` whose ConnectionRequest hands each handle to the next
// free slot of `slots`.
struct Server {
  Server(SimNetwork& net, int32_t port, int slot_count) {
    listener = net.Create();
    listener->on_connection_request = [this](int32_t handle) {
      handles.push_back(handle);
      for (auto& s : slots) {
        if (s->State() == kSocketClosed && take) {
          s->SetAcceptHandle(handle);
          return;
        }
      }
    };
    listener->Create(Variant::Missing(), port);
    listener->Bind(Variant::Missing(), port);
    listener->Listen();
    for (int i = 0; i < slot_count; ++i) {
      slots.push_back(net.Create());
      auto* s = slots.back().get();
      s->on_receive_ready = [this, i] { ready.push_back(i); };
      s->on_done = [this, i](int32_t op) { done.push_back({i, op}); };
    }
  }
  std::unique_ptr<SocketCtl> listener;
  std::vector<std::unique_ptr<SocketCtl>> slots;
  std::vector<int32_t> handles;
  std::vector<int> ready;
  std::vector<std::pair<int, int32_t>> done;
  bool take = true;
};

TEST(SimSocket, ListenerStatesAndPortInUse) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  auto a = net.Create();
  EXPECT_EQ(a->State(), kSocketClosed);
  a->Create(Variant::Missing(), 8080);
  EXPECT_EQ(a->State(), kSocketCreated);
  EXPECT_FALSE(a->Listening());
  a->Bind(Variant::Missing(), 8080);
  a->Listen();
  EXPECT_EQ(a->State(), kSocketListening);
  EXPECT_TRUE(a->Listening());
  EXPECT_EQ(a->StateText(), u"Listening");

  // second listener on the same port
  auto b = net.Create();
  b->Create(Variant::Missing(), 8080);
  EXPECT_EQ(FailureNumber([&] { b->Bind(Variant::Missing(), 8080); }), kSockErrAddressInUse);
  // Create on a socket that is not closed
  EXPECT_EQ(FailureNumber([&] { a->Create(Variant::Missing(), 8081); }), kSockErrWrongState);

  // closing frees the port
  a->Close();
  EXPECT_EQ(a->State(), kSocketClosed);
  EXPECT_FALSE(a->Listening());
  b->Bind(Variant::Missing(), 8080);
  b->Listen();
  EXPECT_EQ(b->State(), kSocketListening);

  // a listener destroyed without Close frees its port too
  b.reset();
  auto c = net.Create();
  c->Create(Variant::Missing(), 8080);
  c->Bind(Variant::Missing(), 8080);
  EXPECT_EQ(c->LocalPort(), 8080);
}

TEST(SimSocket, AcceptAndRefuse) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  Server srv(net, 80, 1);

  // taken: the slot is connected at the virtual time of the connect
  auto p1 = net.Connect(80, 1.0);
  loop.RunFor(0.5);
  EXPECT_TRUE(srv.handles.empty());
  loop.RunFor(1.0);
  ASSERT_EQ(srv.handles.size(), 1u);
  EXPECT_EQ(srv.handles[0], p1->Handle());
  EXPECT_TRUE(p1->Accepted());
  EXPECT_EQ(srv.slots[0]->State(), kSocketConnected);
  EXPECT_EQ(srv.slots[0]->RemoteAddress(), u"127.0.0.1");

  // no free slot: the handle is offered, not taken, and dropped
  auto p2 = net.Connect(80);
  loop.RunFor(0.1);
  EXPECT_EQ(srv.handles.size(), 2u);
  EXPECT_FALSE(p2->Accepted());
  EXPECT_TRUE(p2->Refused());
  // a dropped handle can no longer be taken
  auto extra = net.Create();
  EXPECT_EQ(FailureNumber([&] { extra->SetAcceptHandle(p2->Handle()); }), kSockErrInvalidHandle);

  // nobody listening on the port
  auto p3 = net.Connect(81);
  loop.RunFor(0.1);
  EXPECT_TRUE(p3->Refused());
  EXPECT_EQ(srv.handles.size(), 2u);

  // a closed listener offers nothing
  srv.listener->Close();
  auto p4 = net.Connect(80);
  loop.RunFor(0.1);
  EXPECT_TRUE(p4->Refused());
  EXPECT_EQ(srv.handles.size(), 2u);
}

TEST(SimSocket, ReceiveReadyOncePerArrivalUntilReceive) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  Server srv(net, 80, 1);
  SocketCtl& s = *srv.slots[0];
  auto peer = net.Connect(80, 0.1);
  peer->Write(u"GET / ", 0.2);
  peer->Write(u"HTTP/1.0", 0.4);

  loop.RunFor(0.3);
  EXPECT_EQ(srv.ready.size(), 1u);
  EXPECT_EQ(s.ReceiveReadyCount(), 6);
  loop.RunFor(0.2);
  // more bytes, no second event, but the count grew
  EXPECT_EQ(srv.ready.size(), 1u);
  EXPECT_EQ(s.ReceiveReadyCount(), 14);

  s.Receive(kReceiveText);
  // the data is there at once; the Done comes on a later pass
  EXPECT_EQ(s.ReceivedData().Type(), VarType::String);
  EXPECT_EQ(s.ReceivedData().ToText(), u"GET / HTTP/1.0");
  EXPECT_EQ(s.ReceiveReadyCount(), 0);
  EXPECT_TRUE(srv.done.empty());
  loop.DoEvents();
  ASSERT_EQ(srv.done.size(), 1u);
  EXPECT_EQ(srv.done[0].second, kOpReceive);

  // re-armed by Receive: the next arrival raises the event again
  peer->Write(u"\r\n\r\n", 1.0);
  loop.RunFor(1.0);
  EXPECT_EQ(srv.ready.size(), 2u);
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"\r\n\r\n");

  // bytes that came before the handle was taken raise the event after it
  Server late(net, 90, 1);
  late.take = false;
  auto early = net.Connect(90, 3.0);
  early->Write(u"early", 3.0);
  late.listener->on_connection_request = [&](int32_t h) {
    loop.RunFor(0.5);  // the app pumps before it takes the handle
    late.slots[0]->SetAcceptHandle(h);
  };
  loop.RunFor(2.5);
  EXPECT_EQ(late.ready.size(), 1u);
  EXPECT_EQ(late.slots[0]->ReceiveReadyCount(), 5);

  // Receive on a closed socket fails and reports nothing
  auto closed = net.Create();
  EXPECT_EQ(FailureNumber([&] { closed->Receive(kReceiveText); }), kSockErrWrongState);
}

TEST(SimSocket, SendReportsDoneAfterDelayAndCloseFromBothSides) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  Server srv(net, 80, 2);
  auto peer = net.Connect(80, 0.0);
  loop.RunFor(0.1);
  SocketCtl& s = *srv.slots[0];

  // bytes are cp1252 units and arrive in order; Done(8) once per Send
  s.Send(Variant(Text(u"HTTP/1.0 200 OK\r\n")));
  s.Send(Variant(Text(u"caf\u00e9")));
  EXPECT_EQ(peer->Received(), u"");
  loop.RunFor(0.05);
  EXPECT_EQ(peer->Received(), u"HTTP/1.0 200 OK\r\ncaf\u00e9");
  ASSERT_EQ(srv.done.size(), 2u);
  EXPECT_EQ(srv.done[0].second, kOpSend);
  EXPECT_EQ(srv.done[1].second, kOpSend);

  // server closes: State 1 at once, peer sees it, Done(3) once, later Close
  // on a closed socket is silent
  srv.done.clear();
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_TRUE(peer->ClosedByServer());
  s.Close();
  loop.RunFor(0.1);
  ASSERT_EQ(srv.done.size(), 1u);
  EXPECT_EQ(srv.done[0].second, kOpClose);
  EXPECT_EQ(FailureNumber([&] { s.Send(Variant(Text(u"x"))); }), kSockErrWrongState);

  // a send still in flight when Close comes reaches the peer but gives no Done
  auto p2 = net.Connect(80);
  loop.RunFor(0.1);
  srv.done.clear();
  s.Send(Variant(Text(u"bye")));
  s.Close();
  EXPECT_EQ(p2->Received(), u"bye");
  loop.RunFor(0.1);
  EXPECT_EQ(p2->Received(), u"bye");
  ASSERT_EQ(srv.done.size(), 1u);
  EXPECT_EQ(srv.done[0].second, kOpClose);

  // peer closes a connection that never carried a byte: the slot is free
  auto p3 = net.Connect(80);
  loop.RunFor(0.1);
  EXPECT_EQ(s.State(), kSocketConnected);
  p3->Close();
  loop.RunFor(0.1);
  EXPECT_EQ(s.State(), kSocketClosed);
  EXPECT_FALSE(p3->ClosedByServer());

  // peer writes then closes: Closing, the data can still be read
  auto p4 = net.Connect(80);
  p4->Write(u"PING", loop.Elapsed() + 0.05);
  p4->Close(loop.Elapsed() + 0.06);
  loop.RunFor(0.1);
  EXPECT_EQ(s.State(), kSocketClosing);
  EXPECT_EQ(s.StateText(), u"Closing");
  EXPECT_EQ(s.ReceiveReadyCount(), 4);
  s.Receive(kReceiveText);
  EXPECT_EQ(s.ReceivedData().ToText(), u"PING");
  s.Close();
  EXPECT_EQ(s.State(), kSocketClosed);
}

TEST(SimSocket, HandlerMayDestroyItsOwnControl) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  Server srv(net, 80, 1);
  int fired = 0;
  std::string big(256, 'x');  // a capture that dies with the handler
  srv.slots[0]->on_receive_ready = [&srv, &fired, big] {
    srv.slots[0].reset();
    fired += static_cast<int>(big.size());
  };
  auto peer = net.Connect(80, 0.1);
  peer->Write(u"x", 0.2);
  loop.RunFor(0.5);
  EXPECT_EQ(fired, 256);
  EXPECT_TRUE(peer->ClosedByServer());
}

TEST(SimSocket, OutgoingConnectToScriptedServer) {
  SimLoop loop(kStart);
  SimNetwork net(loop);
  std::shared_ptr<SimPeer> far;
  net.Serve(80, [&](std::shared_ptr<SimPeer> p) {
    far = p;
    p->on_data = [](SimPeer& self) {
      if (self.Received().find(u"\r\n\r\n") != Text::npos) {
        self.Write(u"HTTP/1.0 200 OK\r\n\r\nok");
        self.Close();
      }
    };
  });
  auto c = net.Create();
  std::vector<int32_t> done;
  c->on_done = [&](int32_t op) { done.push_back(op); };
  c->Create(Variant::Missing(), Variant::Missing());
  c->Connect(Variant(Text(u"example.test")), 80);
  EXPECT_EQ(c->State(), kSocketConnecting);
  loop.RunFor(0.05);
  EXPECT_EQ(c->State(), kSocketConnected);
  ASSERT_EQ(done.size(), 1u);
  EXPECT_EQ(done[0], kOpConnect);
  ASSERT_TRUE(far);

  c->Send(Variant(Text(u"GET / HTTP/1.0\r\n\r\n")));
  loop.RunFor(0.1);
  EXPECT_EQ(far->Received(), u"GET / HTTP/1.0\r\n\r\n");
  // the answer waits, the server has gone: Closing until read
  EXPECT_EQ(c->State(), kSocketClosing);
  EXPECT_EQ(c->ReceiveReadyCount(), 21);
  c->Receive(kReceiveText);
  EXPECT_EQ(c->ReceivedData().ToText(), u"HTTP/1.0 200 OK\r\n\r\nok");

  // nothing served on the port: back to Closed with an error text
  auto d = net.Create();
  d->Connect(Variant(Text(u"example.test")), 81);
  loop.RunFor(0.05);
  EXPECT_EQ(d->State(), kSocketClosed);
  EXPECT_EQ(d->ErrorText(), u"Connection refused");
}

}  // namespace
}  // namespace varnek
