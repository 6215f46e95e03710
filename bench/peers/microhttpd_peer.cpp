// A minimal libmicrohttpd server for the bench: the fixed page on every
// request, an epoll loop on one internal thread. Usage: PORT. Runs until
// killed.
#include <microhttpd.h>
#include <unistd.h>

#include <cstdlib>

#include "bench/peers/page.h"

namespace {

MHD_Response* page = nullptr;

MHD_Result Answer(void*, MHD_Connection* connection, const char*, const char*, const char*,
                  const char*, size_t*, void**) {
  return MHD_queue_response(connection, MHD_HTTP_OK, page);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 64;
  const auto port = static_cast<uint16_t>(std::atoi(argv[1]));
  page = MHD_create_response_from_buffer(BENCH_PAGE_SIZE, const_cast<char*>(BENCH_PAGE),
                                         MHD_RESPMEM_PERSISTENT);
  MHD_add_response_header(page, "Content-Type", "text/html");
  MHD_Daemon* daemon = MHD_start_daemon(MHD_USE_EPOLL_INTERNAL_THREAD, port, nullptr, nullptr,
                                        &Answer, nullptr, MHD_OPTION_CONNECTION_LIMIT, 20000u,
                                        MHD_OPTION_LISTEN_BACKLOG_SIZE, 4096u, MHD_OPTION_END);
  if (!daemon) return 1;
  for (;;) pause();
}
