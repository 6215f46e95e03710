// varnek-page: sends one page through a serial port and a paging dialog.
//
//   varnek-page --device /dev/ttyUSB0 --init ATZ --phone 5550100
//               --pager 1234 --message "Server down" --trace
//   echo "disk full" | varnek-page --port 1 --pager 1234 --message -
//
// The exit statuses are listed in the usage text below.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <memory>
#include <sstream>
#include <string>

#include "varnek/adds/adds.h"
#include "examples/page/page_job.h"
#include "examples/page/signal_cancel.h"
#include "varnek/platform/comm_tracer.h"
#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/test_doubles/pty_line.h"

namespace {

constexpr int kPortUnavailable = 69;  // the port cannot be opened or is held

const char kUsage[] =
    "usage: varnek-page (--device PATH | --port N | --simulate) --pager CODE\n"
    "                   (--message TEXT | --message - | --message-file PATH)\n"
    "                   [--protocol tap|skytel|zetron] [--settings 1200,E,7,1] [--init ATZ]\n"
    "                   [--phone NUMBER] [--password TEXT] [--block-size N]\n"
    "                   [--history] [--history-dir DIR] [--trace]\n"
    "\n"
    "Sends one page through a modem or a direct line to a TAP terminal, the\n"
    "Skytel menus or a Zetron terminal, and prints one line per block.\n"
    "\n"
    "  --device PATH       the serial device (a tty, a USB adapter, a pty)\n"
    "  --port N            port N: /dev/ttyS<N-1> unless VARNEK_COMM<N> names another device\n"
    "  --simulate          a simulated terminal of the protocol on a pty pair\n"
    "  --message TEXT      the message; \"-\" reads it from standard input\n"
    "  --message-file PATH reads the message from PATH (\"-\": standard input);\n"
    "                      a final line end is dropped\n"
    "  --settings S        baud,N|E,data bits,stop bits (default 1200,E,7,1); Skytel\n"
    "                      and Zetron take speeds up to 32767, TAP any\n"
    "  --block-size N      longest block, 20 to 10000 (default TAP 230, others 200);\n"
    "                      a longer message goes as numbered blocks\n"
    "  --history           appends each sent block to\n"
    "                      <folder of this program>/DB/yyyy-mm/dd/<pager>.dbs\n"
    "  --history-dir DIR   appends to DIR/<pager>.dbs instead (implies --history)\n"
    "  --trace             prints the line traffic, control characters spelled out\n"
    "  -h, --help          this text\n"
    "\n"
    "The port is held through its lock file in /var/lock (or /run/lock), as\n"
    "other serial programs do. SIGINT or SIGTERM cancels: the dialog logs out\n"
    "and hangs up.\n"
    "\n"
    "Exit status:\n"
    "  0   every block sent\n"
    "  1   a block was refused\n"
    "  2   no session: dialling or login failed\n"
    "  3   line lost: the device went away during the session\n"
    "  64  bad arguments\n"
    "  66  the message file cannot be read\n"
    "  69  the port cannot be opened: no such device, permission denied, held by another program\n"
    "  130 cancelled by SIGINT, 143 cancelled by SIGTERM\n";

bool ToInt(const std::string& text, int low, int high, int& out) {
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < low || value > high) return false;
  out = static_cast<int>(value);
  return true;
}

int Usage(const std::string& error) {
  std::fprintf(stderr, "varnek-page: %s\nTry 'varnek-page --help' for more information.\n",
               error.c_str());
  return varnek::page::kPageBadJob;
}

// The whole of a stream, without one final line end.
std::string ReadMessage(std::istream& in) {
  std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  if (!text.empty() && text.back() == '\n') text.pop_back();
  if (!text.empty() && text.back() == '\r') text.pop_back();
  return text;
}

// The traced port, refusing to open once a signal asked to stop: a dialog
// between its dial attempts then gives up instead of dialling again.
class StoppablePort : public varnek::CommTracer {
 public:
  using CommTracer::CommTracer;
  bool stopped = false;
  void SetPortOpen(bool open) override {
    if (open && stopped) varnek::Fail(varnek::kCommErrNotOpen, "Cancelled");
    CommTracer::SetPortOpen(open);
  }
};

}  // namespace

int main(int argc, char** argv) {
  using namespace varnek;
  page::PageJob job;
  std::string device, message_file;
  bool trace = false, simulate = false, have_port = false, have_message = false, from_stdin = false;
  for (int k = 1; k < argc; ++k) {
    const std::string flag = argv[k];
    if (flag == "--help" || flag == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (flag == "--trace") {
      trace = true;
      continue;
    }
    if (flag == "--simulate") {
      simulate = true;
      continue;
    }
    if (flag == "--history") {
      job.history = true;
      continue;
    }
    static const char* const kValued[] = {
        "--device",   "--port",  "--settings", "--init",         "--phone",      "--protocol",
        "--password", "--pager", "--message",  "--message-file", "--block-size", "--history-dir"};
    bool valued = false;
    for (const char* name : kValued) valued = valued || flag == name;
    if (!valued)
      return Usage(flag.rfind("-", 0) == 0 ? "unknown flag " + flag
                                           : "unexpected argument " + flag);
    if (k + 1 >= argc) return Usage("missing value after " + flag);
    const std::string value = argv[++k];
    if (flag == "--device")
      device = value;
    else if (flag == "--port") {
      if (!ToInt(value, 1, 255, job.port)) return Usage("bad port " + value + " (1 to 255)");
      have_port = true;
    } else if (flag == "--settings")
      job.settings = value;
    else if (flag == "--init")
      job.init = value;
    else if (flag == "--phone")
      job.phone = value;
    else if (flag == "--protocol")
      job.protocol = value;
    else if (flag == "--password")
      job.password = value;
    else if (flag == "--pager")
      job.pager = value;
    else if (flag == "--message" || flag == "--message-file") {
      have_message = true;
      from_stdin = value == "-";
      if (!from_stdin) (flag == "--message" ? job.message : message_file) = value;
    } else if (flag == "--history-dir") {
      job.history_dir = value;
      job.history = true;
    } else if (!ToInt(value, page::kMinBlockSize, page::kMaxBlockSize, job.block_size)) {
      return Usage("bad block size " + value + " (20 to 10000)");
    }
  }
  if (job.pager.empty()) return Usage("--pager is required");
  if (!have_message) return Usage("--message (or --message-file) is required");
  if (device.empty() && !have_port && !simulate)
    return Usage("give --device, --port or --simulate");
  if (from_stdin) {
    job.message = ReadMessage(std::cin);
  } else if (!message_file.empty()) {
    std::ifstream in(message_file, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "varnek-page: cannot read the message file %s\n", message_file.c_str());
      return 66;
    }
    job.message = ReadMessage(in);
  }
  if (job.message.empty()) return Usage("the message is empty");

  static LinuxLoop* const loop = new LinuxLoop;  // never destroyed, like the platform's services
  Platform& platform = LinuxPlatformOn(*loop);
  Adds adds(platform);
  LinuxComm port(*loop, platform.settings.get(), false);
  std::unique_ptr<PtyLine> line;
  if (simulate) {
    auto peer = page::SimulatedPeer(job.protocol);
    if (!peer) return Usage("unknown protocol " + job.protocol + " (tap, skytel or zetron)");
    line = std::make_unique<PtyLine>(*loop, peer);
    device = line->SlavePath();
    job.phone.clear();  // the simulated terminal sits on the line itself
    job.init.clear();
  }
  port.SetDevicePath(device);
  {  // a port that cannot be opened is told at once, before the dialog's retries
    try {
      port.SetCommPort(job.port);
      port.SetPortOpen(true);
      port.SetPortOpen(false);
    } catch (const RuntimeError& e) {
      std::fprintf(stderr, "varnek-page: %s\n", TextToUtf8(FailureText(e)).c_str());
      return kPortUnavailable;
    }
  }
  StoppablePort traced(port, [&](bool written, const Text& text) {
    if (!trace) return;
    std::printf("%s %s\n", written ? ">>" : "<<",
                TextToUtf8(adds.Var_ConvierteCharControlToText(Variant(text))).c_str());
    std::fflush(stdout);
  });
  SignalCancel stop(*loop, [&](int) {
    traced.stopped = true;
    adds.SetSERIAL_CancelOperation(true);
  });
  page::PageWatch watch;
  watch.line_lost = [&] { return port.LineLost(); };
  watch.cancelled = [&] { return stop.signal() != 0; };
  const int status = page::SendPage(
      adds, traced, job,
      [](const std::string& report) {
        std::printf("%s\n", report.c_str());
        std::fflush(stdout);
      },
      watch);
  if (stop.signal() != 0) return 128 + stop.signal();
  return status;
}
