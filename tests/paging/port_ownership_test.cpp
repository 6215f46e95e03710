// Port ownership on Linux: the UUCP lock file beside the kernel's exclusive
// flag (a second program is refused, root included; a stale lock is
// removed), and open failures that name their cause. Real ptys, the
// system's lock directory.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>

#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/internal/uucp_lock.h"
#include "varnek/platform/linux/test_doubles/pty_line.h"
#include "tests/runtime/test_folder.h"
#include "tests/support/child_process.h"

namespace varnek {
namespace {

std::string Slurp(const std::string& path) { return PathExists(path) ? ReadBytes(path) : "<none>"; }

std::string TenColumns(int pid) {
  char text[16];
  std::snprintf(text, sizeof text, "%10d\n", pid);
  return text;
}

struct PortOwnership : ::testing::Test {
  LinuxLoop loop;
  PtyLine line{loop, std::make_shared<TapTerminal>()};
  std::string lock = UucpLockDirectory() + "/" + UucpLockName(line.SlavePath());

  void SetUp() override {
    if (UucpLockDirectory().empty() || ::access(UucpLockDirectory().c_str(), W_OK) != 0) {
      GTEST_SKIP() << "no lock directory this user may write";
    }
  }
  void TearDown() override { ::unlink(lock.c_str()); }

  // Opens `path` on a fresh control; the failure's number and text, or 0.
  std::pair<int, std::string> TryOpen(std::unique_ptr<LinuxComm>& comm, const std::string& path) {
    comm = std::make_unique<LinuxComm>(loop, nullptr, false);
    comm->SetDevicePath(path);
    try {
      comm->SetPortOpen(true);
    } catch (const RuntimeError& e) {
      return {e.number(), e.description()};
    }
    return {0, ""};
  }
};

TEST_F(PortOwnership, TheLockFileHoldsOurPidWhileOpen) {
  EXPECT_EQ(UucpLockName(line.SlavePath()),
            "LCK.." + line.SlavePath().substr(5).replace(3, 1, "_"));  // pts_N
  std::unique_ptr<LinuxComm> comm, second;
  ASSERT_EQ(TryOpen(comm, line.SlavePath()).first, 0);
  EXPECT_EQ(Slurp(lock), TenColumns(::getpid()));
  // The same process asking again is refused by its own lock.
  const auto refused = TryOpen(second, line.SlavePath());
  EXPECT_EQ(refused.first, kCommErrPortOpen);
  EXPECT_NE(refused.second.find("held by pid " + std::to_string(::getpid())), std::string::npos)
      << refused.second;
  comm->SetPortOpen(false);
  EXPECT_EQ(Slurp(lock), "<none>");
}

TEST_F(PortOwnership, ALiveProgramHoldingTheLineIsNamed) {
  // A second program opens the line and holds it until killed.
  pid_t holder = 0;
  const bool held = KillWhenReady(
      [&](int ready) {
        ::alarm(30);  // never outlives a test gone wrong
        LinuxLoop child_loop;
        LinuxComm comm(child_loop, nullptr, false);
        comm.SetDevicePath(line.SlavePath());
        if (Resume([&] { comm.SetPortOpen(true); }) && ::write(ready, "1", 1) == 1) {
          for (;;) ::pause();  // holding the line
        }
      },
      {},
      [&](pid_t child) {
        holder = child;
        std::unique_ptr<LinuxComm> comm;
        const auto refused = TryOpen(comm, line.SlavePath());
        EXPECT_EQ(refused.first, kCommErrPortOpen);
        EXPECT_EQ(refused.second, "Port already open: " + line.SlavePath() + " is held by pid " +
                                      std::to_string(child));
        EXPECT_FALSE(comm->PortOpen());
      });
  ASSERT_TRUE(held) << "the second program could not open the line";
  EXPECT_EQ(Slurp(lock), TenColumns(holder));  // left behind: stale from now on
}

TEST_F(PortOwnership, AStaleLockIsRemovedAtTheNextOpen) {
  const pid_t gone = EndedProcessId();
  ASSERT_GT(gone, 0);
  WriteBytes(lock, TenColumns(gone));
  std::unique_ptr<LinuxComm> comm;
  EXPECT_EQ(TryOpen(comm, line.SlavePath()).first, 0);
  EXPECT_EQ(Slurp(lock), TenColumns(::getpid()));
}

TEST_F(PortOwnership, OpenFailuresNameTheirCause) {
  struct Case {
    std::string path;
    int number;
    std::string text;
  };
  const Case cases[] = {
      {"/nonexistent/tty", kCommErrBadPort, "No such device: /nonexistent/tty"},
      {"/tmp", kCommErrBadPort, "A directory, not a serial device: /tmp"},
      {"/dev/null", kCommErrBadPort, "Not a serial device: /dev/null"},
  };
  for (const Case& c : cases) {
    std::unique_ptr<LinuxComm> comm;
    EXPECT_EQ(TryOpen(comm, c.path), std::make_pair(c.number, c.text));
  }
  // no lock left behind
  EXPECT_EQ(Slurp(UucpLockDirectory() + "/" + UucpLockName("/dev/null")), "<none>");
}

}  // namespace
}  // namespace varnek
