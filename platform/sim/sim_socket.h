// The socket control on the simulated loop's virtual clock, with peers that a
// test scripts: connections arrive, write and close at chosen virtual times.
//
//   SimPlatform sim;                            // its sockets are sim.net
//   SimNetwork& net = sim.net;
//   ... start a server on port 8080 through sim.platform ...
//   auto peer = net.Connect(8080, 1.0);         // at Elapsed() == 1.0
//   peer->Write(u"GET / HTTP/1.0\r\n\r\n", 1.2);
//   sim.loop.RunFor(5);
//   EXPECT_EQ(peer->Received(), u"HTTP/1.0 200 OK...");
//   EXPECT_TRUE(peer->ClosedByServer());
//
// Times given to the scripting calls are on the loop's Elapsed() clock; a time
// already past means "on the next pass". The controls follow the same rules as
// the Linux ones (see the contract comments in platform/socket.h).
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "varnek/platform/sim/sim_loop.h"
#include "varnek/platform/socket.h"

namespace varnek {

class SimNetwork;
class SimSocket;

// The far end of one simulated connection.
class SimPeer : public std::enable_shared_from_this<SimPeer> {
 public:
  // Bytes (one unit a byte) reach the control at virtual time `at`.
  void Write(TextView data, double at = -1);
  // The peer closes at `at`: it neither sends nor reads any more, so the
  // control's next Send after it breaks the connection.
  void Close(double at = -1);
  // The peer stops sending at `at` (a half-close) but still reads answers.
  void ShutdownWrite(double at = -1);
  // The peer resets the connection at `at`: the control's connection fails at
  // once (State 1, ErrorText "Connection reset by peer", no Done).
  void Reset(double at = -1);

  // Everything the control has sent so far, in order.
  const Text& Received() const { return received_; }
  // The handle offered in ConnectionRequest (0 for outgoing connections).
  int32_t Handle() const { return handle_; }
  // A control took the connection (SetAcceptHandle or an outgoing Connect).
  bool Accepted() const { return accepted_; }
  // Nobody listened on the port, or the handle was not taken.
  bool Refused() const { return refused_; }
  // The control closed the connection.
  bool ClosedByServer() const { return closed_by_control_; }
  bool ClosedByPeer() const { return closed_by_peer_; }
  // The peer sends no more: it closed or half-closed.
  bool StoppedSending() const { return closed_by_peer_ || write_shut_; }
  // Virtual time (Elapsed) of the first byte received and of the close.
  double FirstByteAt() const { return first_byte_at_; }
  double ClosedAt() const { return closed_at_; }

  // Called each time bytes from the control arrive (for scripted servers).
  std::function<void(SimPeer&)> on_data;

 private:
  friend class SimNetwork;
  friend class SimSocket;
  SimPeer(SimNetwork& net, int32_t handle) : net_(net), handle_(handle) {}
  void DeliverFromControl(const Text& data);
  void ControlClosed();

  SimNetwork& net_;
  int32_t handle_;
  SimSocket* control_ = nullptr;  // the control holding the connection
  Text to_control_;               // written but not yet taken by the control
  Text received_;
  bool accepted_ = false;
  bool refused_ = false;
  bool closed_by_control_ = false;
  bool closed_by_peer_ = false;
  bool write_shut_ = false;
  double first_byte_at_ = -1;
  double closed_at_ = -1;
};

// The socket factory of the simulated platform, and the network its controls
// and the scripted peers share. It must outlive the controls it made; events
// still scheduled after it is gone are dropped.
class SimNetwork : public SocketFactory {
 public:
  explicit SimNetwork(SimLoop& loop);
  ~SimNetwork() override;
  SimNetwork(const SimNetwork&) = delete;
  SimNetwork& operator=(const SimNetwork&) = delete;

  std::unique_ptr<SocketCtl> Create() override;

  // A peer connects to the control listening on `port` at virtual time `at`.
  // With no listener then, the peer is Refused().
  std::shared_ptr<SimPeer> Connect(int32_t port, double at = -1);

  // A scripted server for outgoing connections: a control's Connect to any
  // host on `port` reaches it, and on_accept gets the peer of the connection.
  void Serve(int32_t port, std::function<void(std::shared_ptr<SimPeer>)> on_accept);
  void StopServing(int32_t port);
  // A Connect to this host name ends as a name that does not resolve (State
  // 1, ErrorText "Host not found"); every other host reaches the servers.
  void SetUnresolvable(Text host) { unresolvable_.insert(std::move(host)); }

  // Virtual seconds a Send takes to reach the peer and report Done, and an
  // outgoing Connect to complete.
  void SetSendDelay(double seconds) { send_delay_ = seconds; }
  double SendDelay() const { return send_delay_; }
  void SetConnectDelay(double seconds) { connect_delay_ = seconds; }
  double ConnectDelay() const { return connect_delay_; }

  // The address LocalAddress reports.
  void SetLocalAddress(Text address) { local_address_ = std::move(address); }
  const Text& LocalAddressText() const { return local_address_; }

  SimLoop& loop() { return loop_; }

 private:
  friend class SimPeer;
  friend class SimSocket;
  // Runs fn at Elapsed() == at (or on the next pass when that is past).
  void At(double at, std::function<void()> fn);
  void OfferConnection(const std::shared_ptr<SimPeer>& peer, int32_t port);

  SimLoop& loop_;
  std::map<int32_t, SimSocket*> listeners_;              // by port, from Bind until Close
  std::map<int32_t, std::shared_ptr<SimPeer>> offered_;  // handles in ConnectionRequest
  std::map<int32_t, std::function<void(std::shared_ptr<SimPeer>)>> servers_;
  std::set<Text> unresolvable_;
  int32_t next_handle_ = 1000;
  double send_delay_ = 0.01;
  double connect_delay_ = 0.01;
  Text local_address_ = u"192.168.1.10";
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
};

}  // namespace varnek
