// A minimal cpp-httplib server for the bench: the fixed page on every GET,
// cpp-httplib's thread pool. Usage: PORT. Runs until killed.
#include <httplib.h>

#include <cstdlib>

#include "bench/peers/page.h"

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  httplib::Server server;
  server.Get(".*", [](const httplib::Request&, httplib::Response& response) {
    response.set_content(BENCH_PAGE, BENCH_PAGE_SIZE, "text/html");
  });
  return server.listen("127.0.0.1", std::atoi(argv[1])) ? 0 : 1;
}
