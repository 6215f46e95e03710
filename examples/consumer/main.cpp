// The smallest host: one page and a secured path, served until killed.
// Usage: host [PORT] (8080 when not given).
#include <cstdlib>

#include <varnek/runtime/convert.h>
#include <varnek/runtime/strings.h>
#include <varnek/server/http_server.h>

int main(int argc, char** argv) {
  using namespace varnek;
  HTTPServer server;  // on the Linux platform and its event loop
  server.GETReceived = [&](Variant& url, Variant& ip, Variant&, Variant& response, Variant&,
                           Collection&, Collection&) {
    if (url.ToText() != u"/") return;  // Response left empty: the 404 page goes out
    Text body = u"<p>Hello, " + ip.ToText() + u"</p>";
    response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
  };
  server.UsersAdd("admin:secret");  // Basic credentials, NAME:PASS
  server.SecurePathAdd("/admin");   // a path prefix that needs them
  server.ServerPort(argc > 1 ? std::atoi(argv[1]) : 8080);
  server.ServerOpen(true);
  if (!server.ServerOpen()) return 1;  // port in use, or above 32767
  for (;;) server.loop().Pump(3600);   // the host's event loop
}
