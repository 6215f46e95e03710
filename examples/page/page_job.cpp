// Sending one page through the chosen dialog, block by block.
#include "examples/page/page_job.h"

#include <vector>

#include "varnek/adds/adds.h"
#include "varnek/platform/sim/line_peers.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek::page {

namespace {

struct Line {
  int32_t baud = 1200;
  int16_t data = 7, stop = 1;
  bool parity_n = false;
};

bool ReadSettings(const std::string& text, Line& line) {
  std::vector<Text> parts = Split(Utf8ToText(text), u",");
  if (parts.size() != 4) return false;
  double baud = 0, data = 0, stop = 0;
  const Text parity = UCase(Trim(parts[1]));
  if (!ParseNumber(Trim(parts[0]), baud) || !ParseNumber(Trim(parts[2]), data) ||
      !ParseNumber(Trim(parts[3]), stop) || (parity != u"N" && parity != u"E")) {
    return false;
  }
  if (baud < 50 || baud > 4000000 || data < 5 || data > 8 || (stop != 1 && stop != 2)) return false;
  line = {static_cast<int32_t>(baud), static_cast<int16_t>(data), static_cast<int16_t>(stop),
          parity == u"N"};
  return true;
}

int Digits(size_t n) { return static_cast<int>(std::to_string(n).size()); }

bool CloseDialog(Adds& adds, CommCtl& comm, const std::string& protocol) {
  if (protocol == "tap") return adds.TAP_CloseDialog(comm);
  if (protocol == "skytel") return adds.SKYTEL_CloseDialog(comm);
  return adds.ZETRON_CloseDialog(comm);
}

}  // namespace

std::vector<Text> CutIntoBlocks(Adds& adds, const Text& message, int size) {
  if (Len(message) <= size) return {message};
  // A block is "#" id "#" number total "#" slice "#": 5 characters and two
  // numbers as wide as the count of blocks, which depends on the slice.
  int digits = 1, slice = 0;
  for (;;) {
    slice = size - 5 - 2 * digits;
    if (slice < 1) return {};
    const size_t count = (static_cast<size_t>(Len(message)) + static_cast<size_t>(slice) - 1) /
                         static_cast<size_t>(slice);
    if (Digits(count) <= digits) break;
    digits = Digits(count);
  }
  Variant id;
  auto cut = adds.Mensajes_GenerarBloques(Variant(message), Variant::Long(slice), id);
  std::vector<Text> blocks;
  for (int32_t i = 1; i <= cut->Count(); ++i) blocks.push_back(cut->Item(i).ToText());
  return blocks;
}

int SendPage(Adds& adds, CommCtl& comm, const PageJob& job,
             const std::function<void(const std::string&)>& report, const PageWatch& watch) {
  Line line;
  if (!ReadSettings(job.settings, line)) {
    report("bad settings: " + job.settings + " (baud, N or E, 5-8 data bits, 1 or 2 stop bits)");
    return kPageBadJob;
  }
  const bool tap = job.protocol == "tap", skytel = job.protocol == "skytel",
             zetron = job.protocol == "zetron";
  if (!tap && !skytel && !zetron) {
    report("unknown protocol: " + job.protocol + " (tap, skytel or zetron)");
    return kPageBadJob;
  }
  // TAP takes its settings as Variants; Skytel and Zetron as 16-bit integers.
  if (!tap && line.baud > 32767) {
    report("bad settings: " + job.settings + " (" + job.protocol + " takes speeds up to 32767)");
    return kPageBadJob;
  }
  const int size = job.block_size > 0 ? job.block_size : (tap ? 230 : 200);
  const std::vector<Text> blocks = CutIntoBlocks(adds, Utf8ToText(job.message), size);
  if (blocks.empty()) {
    report("message too long for blocks of " + std::to_string(size) + " characters");
    return kPageBadJob;
  }
  const Variant init = Utf8ToText(job.init), phone = Utf8ToText(job.phone);
  const Variant password = Utf8ToText(job.password), pager = Utf8ToText(job.pager);
  const auto lost = [&] { return watch.line_lost && watch.line_lost(); };
  const auto cancelled = [&] {
    return adds.SERIAL_CancelOperation() || (watch.cancelled && watch.cancelled());
  };

  bool up = false;
  const auto data = static_cast<int16_t>(line.data), stop = static_cast<int16_t>(line.stop);
  if (tap) {
    up = adds.TAP_InitDialog(comm, Variant::Integer(static_cast<int16_t>(job.port)),
                             Variant::Long(line.baud), Variant::Integer(data), line.parity_n,
                             Variant::Integer(stop), init, phone, password);
  } else if (skytel) {
    up = adds.SKYTEL_InitDialog(comm, static_cast<int16_t>(job.port),
                                static_cast<int16_t>(line.baud), data, line.parity_n, stop, init,
                                phone, pager);
  } else {
    up = adds.ZETRON_InitDialog(comm, static_cast<int16_t>(job.port),
                                static_cast<int16_t>(line.baud), data, line.parity_n, stop, init,
                                phone, password);
  }
  if (!up) {
    if (cancelled()) {
      adds.SERIAL_Disconnect(comm);
      report("session: cancelled before the session was up");
      return kPageCancelled;
    }
    report("session: no " + job.protocol + " session (dial or login failed, line dropped)");
    return kPageNoSession;
  }
  report("session: logged in");

  int status = kPageSent;
  const std::string of = "/" + std::to_string(blocks.size());
  for (size_t i = 0; i < blocks.size() && status != kPageCancelled && status != kPageLineLost;
       ++i) {
    Variant text = blocks[i];
    bool sent = false;
    if (tap) {
      sent = adds.TAP_SendMsg(comm, pager, text);
    } else if (skytel) {
      sent = adds.SKYTEL_SendMsg(comm, pager, text);
    } else {
      try {
        sent = adds.ZETRON_SendMsg(comm, pager, text);
      } catch (const RuntimeError& e) {  // a pager code under 2 characters
        report("block: " + TextToUtf8(FailureText(e)));
      }
    }
    const std::string which = "block " + std::to_string(i + 1) + of;
    if (!sent && cancelled()) {
      report(which + " not sent: cancelled");
      status = kPageCancelled;
    } else if (!sent && lost()) {
      report(which + " not sent: line lost");
      status = kPageLineLost;
    } else {
      report(which + " " + (sent ? "sent" : "refused") + " (" + std::to_string(Len(text.ToText())) +
             " characters)");
      if (!sent) status = kPageRefused;
      if (sent && job.history) {
        if (job.history_dir.empty()) {
          adds.Mensajes_GuardaHistorico(pager, text);
        } else {
          adds.Mensajes_GuardaHistorico(pager, text, Utf8ToText(job.history_dir + "/"));
        }
      }
    }
    if (sent && i + 1 < blocks.size() && cancelled()) {
      report("block " + std::to_string(i + 2) + of + " not sent: cancelled");
      status = kPageCancelled;
    }
  }
  if (status == kPageLineLost) {
    adds.SERIAL_Disconnect(comm);
    report("session: line lost");
    return status;
  }
  if (status == kPageCancelled) {
    // The cancelled session's sends fail until its SERIAL_Disconnect, which
    // would hang up before any goodbye: the close routine runs on an Adds of
    // its own, whose flags are clear, and the first then only clears its flags.
    Adds closer(adds.platform());
    const bool closed = CloseDialog(closer, comm, job.protocol);
    adds.SERIAL_Disconnect(comm);
    report(std::string("session: cancelled, ") +
           (closed ? "logged out" : "closed without the terminal's goodbye"));
    return status;
  }
  const bool closed = CloseDialog(adds, comm, job.protocol);
  report(std::string("session: ") +
         (closed ? "logged out" : "closed without the terminal's goodbye"));
  return status;
}

std::shared_ptr<LinePeer> SimulatedPeer(const std::string& protocol) {
  if (protocol == "tap") return std::make_shared<TapTerminal>();
  if (protocol == "skytel") return std::make_shared<SkytelService>();
  if (protocol == "zetron") return std::make_shared<ZetronTerminal>();
  return nullptr;
}

}  // namespace varnek::page
