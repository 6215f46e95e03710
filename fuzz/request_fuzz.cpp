// Fuzzes request processing end to end through the simulated socket control:
// the input is written by a peer (in up to three parts, at times taken from
// the first byte), the server answers on virtual time, and whatever it sends
// is accepted. Only the runtime's own failures may be swallowed, and only
// where the server's resume mode does so; anything else crashes the target.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/platform/sim/sim_socket.h"
#include "varnek/server/http_server.h"

namespace {

using namespace varnek;

struct Harness {
  Harness() {
    server = std::make_unique<HTTPServer>(sim.platform);
    server->UsersAdd("user:pass");
    server->SecurePathAdd("/s");
    server->GETReceived = [](Variant& url, Variant&, Variant&, Variant& response, Variant& idx,
                             Collection&, Collection&) {
      // Some answers hold the slot open, to exercise the raw channel.
      if (url.ToText().size() % 7 == 3) response = u"x";
      if (url.ToText().size() % 11 == 5) response = u"held";
      (void)idx;
    };
    server->POSTReceived = [](Variant&, Variant&, Collection& names, Collection&, Variant&,
                              Variant& response, Variant&, Collection&,
                              Collection&) { response = Variant::Long(names.Count()); };
    server->ServerPort(8080);
    server->MaxConcurrentConnections(2);
    server->ServerOpen(true);
  }
  SimPlatform sim;
  SimNetwork& net = sim.net;
  std::unique_ptr<HTTPServer> server;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Harness h;
  if (size == 0) return 0;
  const uint8_t timing = data[0];
  const std::string bytes(reinterpret_cast<const char*>(data + 1), size - 1);
  const double now = h.sim.loop.Elapsed();
  auto peer = h.net.Connect(8080, now);
  // Split points and gaps from the timing byte: gaps below and above the
  // half-second settle both occur.
  const size_t cut1 = bytes.size() * (timing & 3) / 4;
  const size_t cut2 = cut1 + (bytes.size() - cut1) * ((timing >> 2) & 3) / 4;
  const double gap = 0.1 * ((timing >> 4) & 15);
  peer->Write(BytesToText(bytes.substr(0, cut1)), now + 0.05);
  peer->Write(BytesToText(bytes.substr(cut1, cut2 - cut1)), now + 0.05 + gap);
  peer->Write(BytesToText(bytes.substr(cut2)), now + 0.05 + 2 * gap);
  if (timing & 0x80) peer->Close(now + 0.05 + 3 * gap);
  h.sim.loop.RunFor(6);
  // Free what a held channel still occupies, so slots do not run out.
  for (int slot = 1; slot <= 2; ++slot) h.server->Proceso_Close(slot);
  h.sim.loop.RunFor(2);
  return 0;
}
