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
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {
class Adds;
class CommCtl;
class LinePeer;
}  // namespace varnek

namespace varnek::page {

struct PageJob {
  std::string protocol = "tap";         // tap, skytel or zetron
  int port = 1;                         // CommPort (the device may be set apart)
  std::string settings = "1200,E,7,1";  // baud, N or E, data bits, stop bits
  std::string init;                     // modem initialisation ("" for none)
  std::string phone;                    // number to dial ("" for a direct line)
  std::string password;                 // TAP password (Zetron: accepted, unused)
  std::string pager;                    // pager code (Zetron: format, capcode, function)
  std::string message;
  int block_size = 0;       // 0: the protocol's own (TAP 230, others 200)
  bool history = false;     // keep each sent block in the day's history file
  std::string history_dir;  // "" for the day's folder; else DIR/<pager>.dbs
};

// Block sizes a job may ask for.
inline constexpr int kMinBlockSize = 20, kMaxBlockSize = 10000;

// Exit statuses of SendPage (and the tool).
enum PageStatus : int {
  kPageSent = 0,       // every block accepted
  kPageRefused = 1,    // the session ran, some block was refused
  kPageNoSession = 2,  // dialling or login failed (the line was dropped)
  kPageLineLost = 3,   // the device went away during the session
  kPageCancelled = 4,  // a cancel stopped it; the dialog logged out and hung up
  kPageBadJob = 64,    // settings or protocol that cannot be used
};

// What the caller tells SendPage about the line while it runs; either may
// be left empty.
struct PageWatch {
  std::function<bool()> line_lost;  // the device went away
  std::function<bool()> cancelled;  // a cancel was asked (also before any session)
};

// Runs Init, one Send per block, Close; reports one line per block
// ("block 1/2 sent", "block 2/2 refused") and the session's lines. A cancel
// (SERIAL_CancelOperation, or watch.cancelled) stops the blocks; the
// protocol's close routine then logs out and hangs up. Pumps.
int SendPage(Adds& adds, CommCtl& comm, const PageJob& job,
             const std::function<void(const std::string&)>& report, const PageWatch& watch = {});

// The blocks of a message: the message itself when it fits in `size`, else
// numbered blocks ("#A#12#...#") whose slices leave room for the header of
// the highest block number, so that no block is longer than `size`. Empty
// when even one character per block would not fit.
std::vector<Text> CutIntoBlocks(Adds& adds, const Text& message, int size);

// A fresh simulated far end for the protocol (a terminal, or the service's
// menus), for trying the dialogs without hardware; null for an unknown one.
std::shared_ptr<LinePeer> SimulatedPeer(const std::string& protocol);

}  // namespace varnek::page
