// A minimal civetweb server for the bench: the fixed page on every request,
// civetweb's worker threads (50, its default). Usage: PORT. Runs until killed.
#include <civetweb.h>
#include <unistd.h>

#include <string>

#include "bench/peers/page.h"

namespace {

int Answer(mg_connection* connection, void*) {
  mg_printf(connection,
            "HTTP/1.1 200 OK\r\nContent-Type: text/html\r\nContent-Length: %zu\r\n"
            "Connection: close\r\n\r\n",
            BENCH_PAGE_SIZE);
  mg_write(connection, BENCH_PAGE, BENCH_PAGE_SIZE);
  return 200;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  const std::string port = argv[1];
  const char* options[] = {"listening_ports", port.c_str(), "listen_backlog", "4096", nullptr};
  mg_init_library(0);
  mg_context* context = mg_start(nullptr, nullptr, options);
  if (!context) return 1;
  mg_set_request_handler(context, "/", &Answer, nullptr);
  for (;;) pause();
}
