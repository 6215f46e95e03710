// Varnek as the bench's peers are built: the smallest host (as
// examples/consumer, no log) answering the fixed page on every GET. Usage:
// PORT SLOTS. Runs until killed.
#include <cstdlib>

#include "bench/peers/page.h"
#include "varnek/runtime/convert.h"
#include "varnek/server/http_server.h"

int main(int argc, char** argv) {
  using namespace varnek;
  if (argc < 3) return 64;
  HTTPServer server;
  const Text page = Utf8ToText(BENCH_PAGE);
  const Text answer =
      CStr(server.http_Header(e200_OK, eTextHTML, static_cast<int32_t>(page.size()))) + page;
  server.GETReceived = [&](Variant&, Variant&, Variant&, Variant& response, Variant&, Collection&,
                           Collection&) { response = answer; };
  server.ServerPort(std::atoi(argv[1]));
  server.MaxConcurrentConnections(std::atoi(argv[2]));
  server.ServerOpen(true);
  if (!server.ServerOpen()) return 1;
  for (;;) server.loop().Pump(3600);
}
