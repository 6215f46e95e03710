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
  int16_t baud = 1200, data = 7, stop = 1;
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
  // The dialogs take 16-bit settings: a speed above 32767 cannot be given.
  if (baud < 50 || baud > 32767 || data < 5 || data > 8 || (stop != 1 && stop != 2)) return false;
  line = {static_cast<int16_t>(baud), static_cast<int16_t>(data), static_cast<int16_t>(stop), parity == u"N"};
  return true;
}

}  // namespace

int SendPage(Adds& adds, CommCtl& comm, const PageJob& job, const std::function<void(const std::string&)>& report) {
  Line line;
  if (!ReadSettings(job.settings, line)) {
    report("bad settings: " + job.settings + " (baud up to 32767, N or E, 5-8 data bits, 1 or 2 stop bits)");
    return kPageBadJob;
  }
  const bool tap = job.protocol == "tap", skytel = job.protocol == "skytel", zetron = job.protocol == "zetron";
  if (!tap && !skytel && !zetron) {
    report("unknown protocol: " + job.protocol + " (tap, skytel or zetron)");
    return kPageBadJob;
  }
  const Variant init = Utf8ToText(job.init), phone = Utf8ToText(job.phone);
  const Variant password = Utf8ToText(job.password), pager = Utf8ToText(job.pager);
  const Variant port = Variant::Integer(static_cast<int16_t>(job.port));

  bool up = false;
  if (tap) {
    up = adds.TAP_InitDialog(comm, port, Variant::Integer(line.baud), Variant::Integer(line.data), line.parity_n,
                             Variant::Integer(line.stop), init, phone, password);
  } else if (skytel) {
    up = adds.SKYTEL_InitDialog(comm, static_cast<int16_t>(job.port), line.baud, line.data, line.parity_n, line.stop,
                                init, phone, pager);
  } else {
    up = adds.ZETRON_InitDialog(comm, static_cast<int16_t>(job.port), line.baud, line.data, line.parity_n,
                                line.stop, init, phone, password);
  }
  if (!up) {
    report("session: no " + job.protocol + " session (dial or login failed, line dropped)");
    return kPageNoSession;
  }
  report("session: logged in");

  // A long message goes as numbered blocks ("#A#12#...#"), a short one as it is.
  const int size = job.block_size > 0 ? job.block_size : (tap ? 230 : 200);
  std::vector<Text> blocks;
  const Text message = Utf8ToText(job.message);
  if (Len(message) > size) {
    Variant id;
    auto cut = adds.Mensajes_GenerarBloques(Variant(message), Variant::Long(size - 12), id);
    for (int32_t i = 1; i <= cut->Count(); ++i) blocks.push_back(cut->Item(i).ToText());
  } else {
    blocks.push_back(message);
  }

  int status = kPageSent;
  for (size_t i = 0; i < blocks.size(); ++i) {
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
    report("block " + std::to_string(i + 1) + "/" + std::to_string(blocks.size()) + " " +
           (sent ? "sent" : "refused") + " (" + std::to_string(Len(text.ToText())) + " characters)");
    if (!sent) status = kPageRefused;
    if (sent && job.history) adds.Mensajes_GuardaHistorico(pager, text);
  }
  bool closed = false;
  if (tap) {
    closed = adds.TAP_CloseDialog(comm);
  } else if (skytel) {
    closed = adds.SKYTEL_CloseDialog(comm);
  } else {
    closed = adds.ZETRON_CloseDialog(comm);
  }
  report(std::string("session: ") + (closed ? "logged out" : "closed without the terminal's goodbye"));
  return status;
}

std::shared_ptr<LinePeer> SimulatedPeer(const std::string& protocol) {
  if (protocol == "tap") return std::make_shared<TapTerminal>();
  if (protocol == "skytel") return std::make_shared<SkytelService>();
  if (protocol == "zetron") return std::make_shared<ZetronTerminal>();
  return nullptr;
}

}  // namespace varnek::page
