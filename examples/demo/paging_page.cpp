// The demo's /page: a form (pager code, message, protocol) that sends one
// page through the chosen dialog and shows the line traffic, control
// characters spelled out. With --pager-port or --pager-device it uses that
// serial line (and --pager-phone to dial); otherwise a simulated terminal of
// the protocol answers on a pty pair inside the demo.
#include <memory>
#include <string>

#include "varnek/adds/adds.h"
#include "examples/demo/demo_host.h"
#include "examples/demo/demo_options.h"
#include "examples/demo/demo_pages.h"
#include "examples/page/page_job.h"
#include "varnek/platform/comm_tracer.h"
#include "varnek/platform/linux/linux_comm.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/test_doubles/pty_line.h"

namespace varnek::demo {

namespace {

Text Param(const PageRequest& r, const char16_t* name) {
  if (!r.param_names) return {};
  for (int32_t i = 1; i <= r.param_names->Count(); ++i) {
    if (r.param_names->Item(i).ToText() == name) return r.param_values->Item(i).ToText();
  }
  return {};
}

Text Form(const Text& pager, const Text& message) {
  return u"<form method=\"post\" action=\"/page\">\r\n"
         u"<p>Pager code <input name=\"pager\" value=\"" +
         HtmlEscape(pager) +
         u"\"></p>\r\n"
         u"<p>Message <input name=\"message\" size=\"60\" value=\"" +
         HtmlEscape(message) +
         u"\"></p>\r\n"
         u"<p>Protocol <select name=\"protocol\"><option>tap</option><option>skytel</option>"
         u"<option>zetron</option></select></p>\r\n"
         u"<p><input type=\"submit\" value=\"Send\"></p>\r\n</form>\r\n";
}

// Control characters as their aliases, as HTML: "«CR»" becomes "&laquo;CR&raquo;",
// so the page reads the same whatever code page the browser assumes.
Text TrafficHtml(Adds& adds, const Text& text) {
  Text out;
  for (char16_t unit : HtmlEscape(adds.Var_ConvierteCharControlToText(Variant(text)))) {
    if (unit == u'\xAB') {
      out += u"&laquo;";
    } else if (unit == u'\xBB') {
      out += u"&raquo;";
    } else {
      out += unit;
    }
  }
  return out;
}

Text LineDescription(const Options& o) {
  if (!o.pager_device.empty()) return u"device " + HtmlEscape(Utf8ToText(o.pager_device));
  if (o.pager_port > 0) return u"port " + Utf8ToText(std::to_string(o.pager_port));
  return u"a simulated terminal on a pty pair (start the demo with --pager-port N or --pager-device PATH "
         u"and --pager-phone NUMBER for a real line)";
}

void Serve(PageRequest& r) {
  Adds& adds = r.host.server().adds();
  // The line and the simulated terminal watch their descriptors on the host's loop.
  auto* loop = dynamic_cast<LinuxLoop*>(adds.platform().loop.get());
  if (!loop) {
    r.response =
        r.host.Framed(500, u"<h1>Send a page</h1>\r\n<p>This page needs the Linux loop.</p>\r\n");
    return;
  }
  Text body = u"<h1>Send a page</h1>\r\n<p>Line: " + LineDescription(r.options) + u"</p>\r\n";
  if (!r.param_names) {
    r.response = r.host.Framed(200, body + Form(u"1234", u"Hello from Varnek"));
    return;
  }
  page::PageJob job;
  job.pager = TextToUtf8(Param(r, u"pager"));
  job.message = TextToUtf8(Param(r, u"message"));
  job.protocol = TextToUtf8(Param(r, u"protocol"));
  if (job.protocol.empty()) job.protocol = "tap";

  LinuxComm port(*loop, adds.platform().settings.get(), false);
  std::unique_ptr<PtyLine> line;
  const Options& o = r.options;
  if (o.pager_device.empty() && o.pager_port <= 0) {
    auto peer = page::SimulatedPeer(job.protocol);
    if (peer) {
      line = std::make_unique<PtyLine>(*loop, peer);
      port.SetDevicePath(line->SlavePath());
    }
  } else {
    port.SetDevicePath(o.pager_device);
    job.port = o.pager_port > 0 ? o.pager_port : 1;
    job.phone = o.pager_phone;
    job.init = o.pager_phone.empty() ? "" : "ATZ";
  }
  Text traffic, report;
  CommTracer traced(port, [&](bool written, const Text& text) {
    traffic += (written ? u"&gt;&gt; " : u"&lt;&lt; ") + TrafficHtml(adds, text) + u"\r\n";
  });
  const int status = page::SendPage(adds, traced, job, [&](const std::string& text) {
    report += HtmlEscape(Utf8ToText(text)) + u"\r\n";
  });
  body += Text(u"<p>Result: <b id=\"result\">") +
          (status == page::kPageSent ? u"sent" : u"not sent") + u"</b> (status " +
          Utf8ToText(std::to_string(status)) + u")</p>\r\n<pre id=\"report\">" + report +
          u"</pre>\r\n<h2>Line traffic</h2>\r\n<pre id=\"traffic\">" + traffic + u"</pre>\r\n" +
          Form(Utf8ToText(job.pager), Utf8ToText(job.message));
  r.response = r.host.Framed(200, body);
}

const bool registered = RegisterPage({u"/page", u"Send a page (TAP, Skytel, Zetron)", Serve});

}  // namespace

}  // namespace varnek::demo
