// The demo host's pages and the chat channel poller.
#include "examples/demo/demo_host.h"

#include "examples/demo/demo_pages.h"

#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/secure_path_rule.h"

namespace varnek::demo {

namespace {

bool StartsWith(const Text& text, const Text& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

// One line of the echo block: fields parted by TAB.
Text EchoLine(std::initializer_list<Text> fields) {
  Text line;
  for (const Text& f : fields) {
    if (!line.empty()) line += u'\t';
    line += f;
  }
  return line + u"\n";
}

}  // namespace

Text HtmlEscape(const Text& text) {
  Text out;
  for (char16_t c : text) {
    switch (c) {
      case u'&': out += u"&amp;"; break;
      case u'<': out += u"&lt;"; break;
      case u'>': out += u"&gt;"; break;
      case u'"': out += u"&quot;"; break;
      default: out += c;
    }
  }
  return out;
}

DemoHost::DemoHost(HTTPServer& server, std::function<void(const std::string&)> log, Options options)
    : server_(server), options_(std::move(options)), chats_(server) {
  server_.InternalState = [this, log](Variant&, Variant& text) {
    chats_.NoteReport(text.ToText());
    log(text.ToUtf8());
  };
  server_.GETReceived = [this](Variant& url, Variant& ip, Variant&, Variant& response, Variant& idx,
                               Collection& names, Collection& values) {
    OnGet(url, ip, response, idx, names, values);
  };
  server_.POSTReceived = [this](Variant& url, Variant& ip, Collection& pnames, Collection& pvalues,
                                Variant&, Variant& response, Variant& idx, Collection& names,
                                Collection& values) {
    OnPost(url, ip, pnames, pvalues, response, idx, names, values);
  };
  server_.GENERICReceived = [this](Variant&, Variant& raw, Variant& response, Variant&) {
    OnGeneric(raw, response);
  };
}

Text DemoHost::Framed(int32_t code, const Text& body) {
  const Text page = WithCharset(body);  // the server's header bytes stay as they are
  return CStr(server_.http_Header(code, eTextHTML, Variant::Long(Len(page)))) + page;
}

Text DemoHost::IndexPage() {
  Text page = CStr(server_.html_GenericStart(u"Varnek demo"));
  page +=
      u"<form method=\"post\" action=\"/echo\">\r\n"
      u"<input type=\"text\" name=\"name\" value=\"\">\r\n"
      u"<input type=\"text\" name=\"note\" value=\"\">\r\n"
      u"<input type=\"submit\" value=\"Send\">\r\n"
      u"</form>\r\n"
      u"<ul>\r\n"
      u"<li><a href=\"/echo?x=1\">Echo of a GET</a></li>\r\n"
      u"<li><a href=\"/admin/\">Secured page</a></li>\r\n"
      u"<li><a href=\"/chat\">Raw chat channel</a></li>\r\n";
  for (const Page& p : RegisteredPages()) {
    page +=
        u"<li><a href=\"" + HtmlEscape(p.path) + u"\">" + HtmlEscape(p.title) + u"</a></li>\r\n";
  }
  page += u"</ul>\r\n";
  return page + CStr(server_.html_GenericEnd());
}

Text DemoHost::EchoPage(const Variant& url, const Variant& ip, const Variant& idx,
                        const Collection& header_names, const Collection& header_values,
                        const Collection* param_names, const Collection* param_values) {
  Text block;
  block += EchoLine({u"URL", HtmlEscape(url.ToText())});
  block += EchoLine({u"RemoteIP", HtmlEscape(ip.ToText())});
  block += EchoLine({u"IdxProceso", HtmlEscape(idx.ToText())});
  for (int32_t k = 1; k <= header_names.Count(); ++k) {
    block += EchoLine({u"Header", HtmlEscape(header_names.Item(k).ToText()),
                       HtmlEscape(header_values.Item(k).ToText())});
  }
  for (int32_t k = 1; param_names && k <= param_names->Count(); ++k) {
    block += EchoLine({u"Param", HtmlEscape(param_names->Item(k).ToText()),
                       HtmlEscape(param_values->Item(k).ToText())});
  }
  return CStr(server_.html_GenericStart(u"Echo")) + u"<pre>\n" + block + u"</pre>\r\n" +
         CStr(server_.html_GenericEnd());
}

Text DemoHost::AdminPage() {
  return CStr(server_.html_GenericStart(u"Admin")) +
         u"<p>You passed the authentication: welcome to the secured area.</p>\r\n" +
         CStr(server_.html_GenericEnd());
}

void DemoHost::OnGet(Variant& url, Variant& ip, Variant& response, Variant& idx, Collection& names,
                     Collection& values) {
  const Text path = url.ToText();
  if (path == u"/") {
    response = Framed(e200_OK, IndexPage());
  } else if (StartsWith(path, u"/echo")) {
    response = Framed(e200_OK, EchoPage(url, ip, idx, names, values, nullptr, nullptr));
  } else if (SecurePathMatches(path, u"/admin") && server_.SecurePathFindIfIsIn(url)) {
    // Only where the server asked for credentials: "/ADMIN/" too, and never
    // when --secure left /admin public.
    response = Framed(e200_OK, AdminPage());
  } else if (path == u"/chat/") {
    response = chats_.Open(idx.ToInteger());  // the slot stays open as a raw channel
  } else {
    ServeRegisteredPage(url, ip, response, idx, names, values, nullptr, nullptr);
  }
  // Anything else: Response stays empty and the 404 page goes out.
}

void DemoHost::OnPost(Variant& url, Variant& ip, Collection& pnames, Collection& pvalues,
                      Variant& response, Variant& idx, Collection& names, Collection& values) {
  if (StartsWith(url.ToText(), u"/echo")) {
    response = Framed(e200_OK, EchoPage(url, ip, idx, names, values, &pnames, &pvalues));
  } else {
    ServeRegisteredPage(url, ip, response, idx, names, values, &pnames, &pvalues);
  }
}

bool DemoHost::ServeRegisteredPage(const Variant& url, const Variant& ip, Variant& response,
                                   const Variant& idx, const Collection& names,
                                   const Collection& values, const Collection* pnames,
                                   const Collection* pvalues) {
  const Page* page = FindPage(url.ToText());
  if (!page) return false;
  PageRequest request{*this, options_, url, ip, idx, names, values, pnames, pvalues, response};
  page->handler(request);
  return true;
}

void DemoHost::OnGeneric(Variant& raw, Variant& response) {
  if (StartsWith(raw.ToText(), u"PING")) response = u"PONG\r\n";
}

}  // namespace varnek::demo
