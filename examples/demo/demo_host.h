// The demo host's answers: an index page, an echo of the request, a secured
// admin page, a raw chat channel and a PING line protocol.
#pragma once

#include <memory>

#include "examples/demo/chat_channels.h"
#include "examples/demo/demo_options.h"
#include "varnek/platform/host_loop.h"
#include "varnek/server/http_server.h"

namespace varnek::demo {

class DemoHost {
 public:
  // Wires the server's events; `log` gets every InternalState text. Pages
  // registered in demo_pages.h are served after the built-in ones.
  DemoHost(HTTPServer& server, std::function<void(const std::string&)> log, Options options = {});

  HTTPServer& server() { return server_; }
  const Options& options() const { return options_; }
  // A whole answer: the server's header for `code` as text/html, then `body`.
  Text Framed(int32_t code, const Text& body);

  // Pages, public for tests of their text.
  Text IndexPage();
  Text EchoPage(const Variant& url, const Variant& ip, const Variant& idx,
                const Collection& header_names, const Collection& header_values,
                const Collection* param_names, const Collection* param_values);
  Text AdminPage();

 private:
  void OnGet(Variant& url, Variant& ip, Variant& response, Variant& idx, Collection& names,
             Collection& values);
  void OnPost(Variant& url, Variant& ip, Collection& pnames, Collection& pvalues, Variant& response,
              Variant& idx, Collection& names, Collection& values);
  void OnGeneric(Variant& raw, Variant& response);
  // Hands the request to a registered page; false if none has the path.
  bool ServeRegisteredPage(const Variant& url, const Variant& ip, Variant& response,
                           const Variant& idx, const Collection& names, const Collection& values,
                           const Collection* pnames, const Collection* pvalues);

  HTTPServer& server_;
  Options options_;
  ChatChannels chats_;
};

// Escapes &, <, >, and " for HTML text.
Text HtmlEscape(const Text& text);

}  // namespace varnek::demo
