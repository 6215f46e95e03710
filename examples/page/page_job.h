// One page to send through a paging dialog (TAP, Skytel or Zetron), shared by
// the varnek-page tool and the demo host's /page: the line settings, the
// dialog's arguments, the cut into blocks, and a report line per step.
//
//   PageJob job; job.pager = "1234"; job.message = "Hello";
//   int status = SendPage(adds, comm, job, [](const std::string& line) { puts(line.c_str()); });
#pragma once

#include <functional>
#include <memory>
#include <string>

namespace varnek {
class Adds;
class CommCtl;
class LinePeer;
}

namespace varnek::page {

struct PageJob {
  std::string protocol = "tap";        // tap, skytel or zetron
  int port = 1;                        // CommPort (the device may be set apart)
  std::string settings = "1200,E,7,1"; // baud, N or E, data bits, stop bits
  std::string init;                    // modem initialisation ("" for none)
  std::string phone;                   // number to dial ("" for a direct line)
  std::string password;                // TAP password (Zetron: accepted, unused)
  std::string pager;                   // pager code (Zetron: format, capcode, function)
  std::string message;
  int block_size = 0;                  // 0: the protocol's own (TAP 230, others 200)
  bool history = false;                // keep each sent block in the day's history file
};

// Exit statuses of SendPage (and the tool).
enum PageStatus : int {
  kPageSent = 0,        // every block accepted
  kPageRefused = 1,     // the session ran, some block was refused
  kPageNoSession = 2,   // dialling or login failed (the line was dropped)
  kPageBadJob = 64,     // settings or protocol that cannot be used
};

// Runs Init, one Send per block, Close; reports one line per block
// ("block 1/2 sent", "block 2/2 refused") and the session's lines. Pumps.
int SendPage(Adds& adds, CommCtl& comm, const PageJob& job, const std::function<void(const std::string&)>& report);

// A fresh simulated far end for the protocol (a terminal, or the service's
// menus), for trying the dialogs without hardware; null for an unknown one.
std::shared_ptr<LinePeer> SimulatedPeer(const std::string& protocol);

}  // namespace varnek::page
