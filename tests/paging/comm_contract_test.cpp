// The comm control, simulated and on a Linux pty: one contract run on both
// (open, settings, writes reaching the far end, answers waking a pump, reads
// emptying the buffer, the XMComm variant, members by name, a vanished line).
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <type_traits>

#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/test_doubles/pty_line.h"
#include "varnek/platform/sim/sim_comm.h"
#include "varnek/platform/sim/sim_loop.h"
#include "tests/runtime/test_util.h"
#include "tests/support/pump.h"

namespace varnek {
namespace {

constexpr int32_t kPort = 7;

// Answers every chunk with "<" chunk ">" after 10 ms.
struct BracketPeer : LinePeer {
  void Receive(std::string_view bytes) override {
    heard += bytes;
    Say("<" + std::string(bytes) + ">", 0.01);
  }
  std::string heard;
};

struct SimEnv {
  SimLoop loop{46023.5};
  SimCommFactory comms{loop};
  void Attach(std::shared_ptr<LinePeer> peer) { comms.Attach(kPort, std::move(peer)); }
  void Vanish() { comms.Detach(kPort); }
  CommFactory& factory() { return comms; }
};

struct LinuxEnv {
  LinuxLoop loop;
  LinuxCommFactory comms{loop, nullptr};
  std::unique_ptr<PtyLine> line;
  void Attach(std::shared_ptr<LinePeer> peer) {
    line = std::make_unique<PtyLine>(loop, std::move(peer));
    setenv(("VARNEK_COMM" + std::to_string(kPort)).c_str(), line->SlavePath().c_str(), 1);
  }
  void Vanish() { line->Vanish(); }
  CommFactory& factory() { return comms; }
};

template <class Env>
class CommContract : public ::testing::Test {
 protected:
  Env env;
  template <class P>
  bool PumpFor(P pred) {
    return PumpUntilFor(env.loop, pred, 5);
  }
};

using Envs = ::testing::Types<SimEnv, LinuxEnv>;
TYPED_TEST_SUITE(CommContract, Envs);

TYPED_TEST(CommContract, OpensOnlyExistingPortsAndRefusesBadSettings) {
  auto comm = this->env.factory().Create();
  comm->SetCommPort(kPort + 40);  // nothing behind it (no such /dev/ttyS46 either)
  ::unsetenv("VARNEK_COMM47");
  EXPECT_EQ(FailureOf([&] { comm->SetPortOpen(true); }), kCommErrBadPort);
  EXPECT_FALSE(comm->PortOpen());
  ExpectFailures({{kCommErrNotOpen, [&] { comm->Input(); }},
                  {kCommErrNotOpen, [&] { comm->SetOutput(u"x"); }},
                  {kCommErrNotOpen, [&] { comm->InBufferCount(); }}});
  for (const char16_t* bad :
       {u"1200,E,7", u"fast,N,8,1", u"1200,X,8,1", u"1200,N,9,1", u"1200,N,8,3"}) {
    EXPECT_EQ(FailureOf([&] { comm->SetSettings(bad); }), kCommErrInvalidValue) << TextToUtf8(bad);
  }
  ExpectFailures({{kCommErrInvalidValue, [&] { comm->SetHandshaking(Variant(7)); }},
                  {0, [&] { comm->SetSettings(u" 1200 , e , 7 , 1 "); }}});
}

TYPED_TEST(CommContract, WritesReachThePeerAndAnswersWakeThePump) {
  auto peer = std::make_shared<BracketPeer>();
  this->env.Attach(peer);
  auto comm = this->env.factory().Create();
  comm->SetCommPort(kPort);
  comm->SetSettings(u"9600,N,8,1");
  comm->SetDTREnable(true);
  comm->SetHandshaking(Variant());
  comm->SetPortOpen(true);
  ASSERT_TRUE(comm->PortOpen());
  EXPECT_EQ(FailureOf([&] { comm->SetCommPort(3); }), kCommErrPortOpen);
  EXPECT_EQ(comm->Input(), u"");

  comm->SetOutput(u"AT\r\xE9");  // a byte above 127 travels as itself
  ASSERT_TRUE(this->PumpFor([&] { return comm->InBufferCount() >= 6; }));
  Text got = comm->Input();
  ASSERT_TRUE(this->PumpFor([&] {
    got += comm->Input();
    return got.size() >= 6;
  }));
  EXPECT_EQ(got, u"<AT\r\xE9>");
  EXPECT_EQ(peer->heard, "AT\r\xE9");
  EXPECT_EQ(comm->InBufferCount(), 0);
  EXPECT_EQ(comm->Input(), u"");
  EXPECT_TRUE(this->PumpFor([&] { return comm->OutBufferCount() == 0; }));

  // By name, as a late-bound caller reaches the members.
  EXPECT_TRUE(comm->Get(u"portopen").ToBool());
  comm->Let(u"Output", Variant(u"hi"));
  ASSERT_TRUE(this->PumpFor([&] { return comm->Get(u"InBufferCount").ToLong() >= 4; }));
  EXPECT_EQ(comm->Get(u"Input").ToText(), u"<hi>");
  EXPECT_EQ(FailureOf([&] { comm->Get(u"InputData"); }), kErrNoSuchMember);
  EXPECT_EQ(FailureOf([&] { comm->Let(u"Baud", Variant(1)); }), kErrNoSuchMember);

  {  // one control a line, root included (the lock file holds where the
     // kernel's exclusive flag lets root through)
    auto second = this->env.factory().Create();
    second->SetCommPort(kPort);
    EXPECT_EQ(FailureOf([&] { second->SetPortOpen(true); }), kCommErrPortOpen);
    EXPECT_FALSE(second->PortOpen());
  }
  comm->Let(u"PortOpen", Variant(false));
  EXPECT_FALSE(comm->PortOpen());
  auto third = this->env.factory().Create();  // free again once closed
  third->SetCommPort(kPort);
  third->SetPortOpen(true);
  EXPECT_TRUE(third->PortOpen());
}

TYPED_TEST(CommContract, ReopensWithSettingsTheDeviceIgnores) {
  // A pty keeps 8 data bits and no parity: 7 bits with even parity are
  // taken as far as it goes, at the first open, at a reopen and while open.
  this->env.Attach(std::make_shared<BracketPeer>());
  for (int round = 0; round < 2; ++round) {
    auto comm = this->env.factory().Create();
    comm->SetCommPort(kPort);
    comm->SetSettings(u"9600,E,7,1");
    EXPECT_EQ(FailureOf([&] { comm->SetPortOpen(true); }), 0) << round;
    EXPECT_EQ(FailureOf([&] { comm->SetSettings(u"9600,E,7,1"); }), 0) << round;
    EXPECT_EQ(FailureOf([&] { comm->SetSettings(u"1200,O,7,2"); }), 0) << round;
    EXPECT_TRUE(comm->PortOpen());
  }
}

TYPED_TEST(CommContract, XMCommReadsThroughInputData) {
  this->env.Attach(std::make_shared<BracketPeer>());
  auto comm = this->env.factory().Create(true);
  EXPECT_EQ(comm->TypeName(), u"XMComm");
  comm->SetCommPort(kPort);
  comm->SetPortOpen(true);
  comm->SetOutput(u"q");
  ASSERT_TRUE(this->PumpFor([&] { return comm->InBufferCount() >= 3; }));
  EXPECT_EQ(FailureOf([&] { comm->Input(); }), kErrNoSuchMember);
  EXPECT_EQ(comm->InputData(), u"<q>");
}

TYPED_TEST(CommContract, AVanishedLineReadsEmptyUntilClosed) {
  auto peer = std::make_shared<BracketPeer>();
  this->env.Attach(peer);
  auto comm = this->env.factory().Create();
  comm->SetCommPort(kPort);
  comm->SetPortOpen(true);
  this->env.Vanish();
  comm->SetOutput(u"lost");  // swallowed, never a failure
  // A dead line wakes nobody: pumps block for their whole time, no spinning.
  const float start = this->env.loop.Timer();
  for (int i = 0; i < 5; ++i) this->env.loop.Pump(0.1);
  EXPECT_GE(this->env.loop.Timer() - start, 0.45f);
  EXPECT_EQ(comm->Input(), u"");
  EXPECT_EQ(comm->InBufferCount(), 0);
  EXPECT_EQ(peer->heard, "");
  if constexpr (std::is_same_v<TypeParam, LinuxEnv>) {
    EXPECT_TRUE(static_cast<LinuxComm&>(*comm).LineLost());
  }
  comm->SetPortOpen(false);
  EXPECT_FALSE(comm->PortOpen());
  if constexpr (std::is_same_v<TypeParam, LinuxEnv>) {
    EXPECT_FALSE(static_cast<LinuxComm&>(*comm).LineLost());
  }
}

}  // namespace
}  // namespace varnek
