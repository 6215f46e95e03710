// A scripted peer (platform/sim/line_peers.h) on the far end of a real pty
// pair, driven by the Linux loop at real time: the comm control opens the
// slave side like any serial device, and the peer answers on the master. A
// test double on the real machine, for tests, the demo and varnek-page.
//
//   PtyLine line(loop, std::make_shared<TapTerminal>());
//   comm.SetDevicePath(line.SlavePath());
#pragma once

#include <memory>
#include <string>

#include "varnek/platform/sim/line_peers.h"

namespace varnek {

class LinuxLoop;

class PtyLine {
 public:
  // Opens the pair; fails with kCommErrDevice when the system has no ptys.
  PtyLine(LinuxLoop& loop, std::shared_ptr<LinePeer> peer);
  ~PtyLine();
  PtyLine(const PtyLine&) = delete;
  PtyLine& operator=(const PtyLine&) = delete;

  // The device path of the slave side, for CommPort mapping or --device.
  const std::string& SlavePath() const;
  // Closes the master side: the device vanishes for whoever has it open.
  void Vanish();
  // Every chunk on the line: to_peer true for what the system wrote.
  std::function<void(bool to_peer, const std::string& bytes)> on_traffic;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace varnek
