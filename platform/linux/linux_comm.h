// The comm control on a Linux tty with termios. Port N is the device
// /dev/ttyS<N-1> unless the environment variable VARNEK_COMM<N> or the
// setting "Port<N>" of family "Comm" in group "VarnekGlobal" names another
// (the environment wins). Received text moves from the kernel's queue
// (TIOCINQ) into the control's buffer in the pump the kernel wakes, or when
// InBufferCount is read; OutBufferCount is the kernel's queue (TIOCOUTQ)
// plus what waits in the control to be written. The buffer sizes are kept,
// but the kernel's queues keep their own size.
//
// A port is held through its UUCP lock file (platform/linux/internal/uucp_lock.h)
// and the kernel's exclusive flag: a port another program holds fails with
// 8005 naming the holder's pid. Settings are applied as far as the device
// takes them and read back: a pty keeps 8 data bits and no parity whatever
// is asked, and only a speed or raw mode that did not take fails (8015).
#pragma once

#include <memory>
#include <string>

#include "varnek/platform/comm.h"

namespace varnek {

class LinuxLoop;
class SettingsStore;

// The device path of port `port`, by the mapping above.
std::string CommDevicePath(int32_t port, SettingsStore* settings);

class LinuxComm : public CommCtl {
 public:
  LinuxComm(LinuxLoop& loop, SettingsStore* settings, bool xm);
  ~LinuxComm() override;
  LinuxComm(const LinuxComm&) = delete;
  LinuxComm& operator=(const LinuxComm&) = delete;

  // Uses this device in place of the port number's mapping ("" goes back to
  // the mapping). Takes effect at the next open.
  void SetDevicePath(std::string path);

  // True while the port is open on a device that went away (unplugged, or
  // the far end of a pty closed); closing the port clears it.
  bool LineLost() const;

  Text TypeName() const override;
  bool PortOpen() const override;
  void SetPortOpen(bool open) override;
  void SetCommPort(double port) override;
  void SetSettings(TextView settings) override;
  void SetDTREnable(bool enable) override;
  void SetHandshaking(const Variant& mode) override;
  void SetInBufferSize(int32_t size) override;
  void SetOutBufferSize(int32_t size) override;
  int32_t InBufferCount() const override;
  int32_t OutBufferCount() const override;
  Text Input() override;
  Text InputData() override;
  void SetOutput(TextView text) override;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

class LinuxCommFactory : public CommFactory {
 public:
  LinuxCommFactory(LinuxLoop& loop, SettingsStore* settings) : loop_(loop), settings_(settings) {}
  std::unique_ptr<CommCtl> Create(bool xm = false) override;

 private:
  LinuxLoop& loop_;
  SettingsStore* settings_;
};

}  // namespace varnek
