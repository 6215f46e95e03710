// The demo's "/send" page: a form whose message goes out through
// POST_SendMensaje to the gateway of --gateway (by default this host's own
// /echo), then the result code and the gateway's answer. The post waits by
// pumping the loop, so the host's own server answers it meanwhile; posting to
// itself needs a second free slot.
#include <memory>

#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_pages.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/convert.h"

namespace varnek::demo {

namespace {

// A blank field stands for a missing argument, which takes the routine's
// default: a time limit of 45 s, a success mark of "200".
Variant OrMissing(const Text& value) { return value.empty() ? Variant::Missing() : Variant(value); }

Text ResultMeaning(int32_t code) {
  switch (code) {
    case -1: return u"delivered";
    case -5: return u"accepted for later";
    case -2: return u"failure";
    default: return u"not delivered";
  }
}

Text SendForm(const Text& gateway) {
  return u"<p>Gateway: <code>" + HtmlEscape(gateway) +
         u"</code></p>\r\n"
         u"<form method=\"post\" action=\"/send\" accept-charset=\"UTF-8\">\r\n"
         u"Pager code <input type=\"text\" name=\"code\" value=\"1234\"><br>\r\n"
         u"Message <input type=\"text\" name=\"message\" value=\"\"><br>\r\n"
         u"Success mark <input type=\"text\" name=\"ok\" value=\"\" placeholder=\"200\"><br>\r\n"
         u"Failure mark <input type=\"text\" name=\"fail\" value=\"\"><br>\r\n"
         u"Time limit (s) <input type=\"text\" name=\"timeout\" value=\"\" placeholder=\"45\"><br>\r\n"
         u"<input type=\"submit\" value=\"Send\">\r\n"
         u"</form>\r\n";
}

void Serve(PageRequest& r) {
  HTTPServer& server = r.host.server();
  const Text gateway = r.options.gateway.empty()
                           ? u"http://127.0.0.1:" + CStr(Variant(r.options.port)) + u"/echo"
                           : Utf8ToText(r.options.gateway);
  Text body = CStr(server.html_GenericStart(u"Send through a web gateway")) + SendForm(gateway);
  if (r.param_names) {
    Adds& adds = server.adds();
    std::unique_ptr<SocketCtl> socket = adds.platform().sockets->Create();
    const Text limit = FormValue(r, u"timeout");
    Variant url = gateway, code_field = u"code", code = FormValue(r, u"code"),
            message_field = u"message", message = FormValue(r, u"message"),
            ok = OrMissing(FormValue(r, u"ok")), fail = FormValue(r, u"fail"),
            timeout = limit.empty() ? Variant::Missing() : Variant(Val(limit));
    const int32_t result = adds.POST_SendMensaje(socket.get(), url, code_field, code, message_field,
                                                 message, {}, {}, ok, fail, {}, {}, {}, {}, {}, {},
                                                 {}, {}, {}, {}, {}, {}, {}, timeout);
    body += u"<p>Result: <b id=\"result\">" + CStr(Variant(result)) + u"</b> (" +
            ResultMeaning(result) + u"), message sent: " + HtmlEscape(message.ToText()) +
            u"</p>\r\n";
    body += u"<pre id=\"answer\">" + HtmlEscape(adds.POST_SendMensaje_Response.ToText()) +
            u"</pre>\r\n";
  }
  r.response = r.host.Framed(200, body + CStr(server.html_GenericEnd()));
}

const bool registered = RegisterPage({u"/send", u"Send a message through a web gateway", Serve});

}  // namespace

}  // namespace varnek::demo
