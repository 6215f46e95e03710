// varnek-page: sends one page through a serial port and a paging dialog.
//
//   varnek-page --device /dev/ttyUSB0 --init ATZ --phone 5550100
//               --pager 1234 --message "Server down" --trace
//
// Exit status: 0 every block sent, 1 a block refused, 2 no session (dial or
// login failed), 64 bad arguments or a port that cannot be opened.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "varnek/adds/adds.h"
#include "examples/page/page_job.h"
#include "varnek/platform/comm_tracer.h"
#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/sim/pty_line.h"

namespace {

const char kUsage[] =
    "usage: varnek-page (--device PATH | --port N | --simulate) --pager CODE --message TEXT\n"
    "                   [--protocol tap|skytel|zetron] [--settings 1200,E,7,1] [--init ATZ]\n"
    "                   [--phone NUMBER] [--password TEXT] [--block-size N] [--history] [--trace]\n"
    "Port N is /dev/ttyS<N-1> unless VARNEK_COMM<N> names another device.\n"
    "--simulate talks to a simulated terminal of the protocol on a pty pair.\n";

bool ToInt(const std::string& text, int low, int high, int& out) {
  char* end = nullptr;
  const long value = std::strtol(text.c_str(), &end, 10);
  if (text.empty() || *end != '\0' || value < low || value > high) return false;
  out = static_cast<int>(value);
  return true;
}

int Usage(const std::string& error) {
  if (!error.empty()) std::fprintf(stderr, "varnek-page: %s\n", error.c_str());
  std::fputs(kUsage, stderr);
  return varnek::page::kPageBadJob;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace varnek;
  page::PageJob job;
  std::string device;
  bool trace = false, simulate = false, have_port = false;
  for (int k = 1; k < argc; ++k) {
    const std::string flag = argv[k];
    if (flag == "--help" || flag == "-h") return Usage("");
    if (flag == "--trace") { trace = true; continue; }
    if (flag == "--simulate") { simulate = true; continue; }
    if (flag == "--history") { job.history = true; continue; }
    if (k + 1 >= argc) return Usage("missing value after " + flag);
    const std::string value = argv[++k];
    if (flag == "--device") device = value;
    else if (flag == "--port") { if (!ToInt(value, 1, 255, job.port)) return Usage("bad port " + value); have_port = true; }
    else if (flag == "--settings") job.settings = value;
    else if (flag == "--init") job.init = value;
    else if (flag == "--phone") job.phone = value;
    else if (flag == "--protocol") job.protocol = value;
    else if (flag == "--password") job.password = value;
    else if (flag == "--pager") job.pager = value;
    else if (flag == "--message") job.message = value;
    else if (flag == "--block-size") { if (!ToInt(value, 20, 10000, job.block_size)) return Usage("bad block size " + value); }
    else return Usage("unknown flag " + flag);
  }
  if (job.pager.empty()) return Usage("--pager is required");
  if (device.empty() && !have_port && !simulate) return Usage("give --device, --port or --simulate");

  static LinuxLoop* const loop = new LinuxLoop;  // never destroyed, like the platform's services
  Platform& platform = LinuxPlatformOn(*loop);
  Adds adds(platform);
  LinuxComm port(*loop, platform.settings.get(), false);
  std::unique_ptr<PtyLine> line;
  if (simulate) {
    auto peer = page::SimulatedPeer(job.protocol);
    if (!peer) return Usage("unknown protocol " + job.protocol);
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
      return page::kPageBadJob;
    }
  }
  CommTracer traced(port, [&](bool written, const Text& text) {
    if (!trace) return;
    std::printf("%s %s\n", written ? ">>" : "<<", TextToUtf8(adds.Var_ConvierteCharControlToText(Variant(text))).c_str());
    std::fflush(stdout);
  });
  const int status = page::SendPage(adds, traced, job, [](const std::string& report) {
    std::printf("%s\n", report.c_str());
    std::fflush(stdout);
  });
  return status;
}
