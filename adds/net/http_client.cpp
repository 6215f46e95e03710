// The HTTP client of Adds: NET_HTTPget (kept failing as it always has) and
// the GET behind it, the canned answer of NET_HTTPsend, downloads and opening
// a URL on the desktop.
#include "varnek/adds/net/network.h"
#include "varnek/adds/net/internal/net_waits.h"
#include "varnek/adds/net/outgoing_request_internal.h"
#include "varnek/platform/web_services.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

using net_waits::Control;
using net_waits::NowSeconds;
using net_waits::UntilSecond;

namespace {

// The splitter the GET calls by name: the Adds instance once bound; unbound,
// every call fails as a member call on Nothing does (424).
TextToolkit& Splitter(TextToolkit* bound) {
  if (!bound) Fail(kErrObjectRequired);
  return *bound;
}

bool Given(const Variant& v) { return !v.IsMissing() && !CStr(v).empty(); }

}  // namespace

// The GET, with its splitter as passed.
Variant Network::HttpGetWith(TextToolkit* splitter, SocketCtl* SocketX, const Variant& pHost,
                             const Variant& pPage, const Variant& pPort, int16_t pTimeOut) {
  HostLoop& host = loop();
  Variant result;
  // Copies.
  Variant url_rest = pHost;
  const Variant explicit_port = pPort.IsMissing() ? Variant() : pPort;
  const Variant explicit_page = pPage.IsMissing() ? Variant() : pPage;
  Variant url_scheme, host_name, remote_port, page_path;

  Guarded(
      [&] {
        // The scheme.
        if (InStr(CStr(url_rest), u"://") > 0) {
          url_scheme = Variant(UCase(Splitter(splitter).Var_GetPart(url_rest, u"://", true)));
        } else {
          url_scheme = Variant(Text());
        }
        // Host and port. Without "/" after the port, the port's text
        // stays in url_rest and becomes the page below; kept so.
        if (InStr(CStr(url_rest), u":") > 0) {
          host_name = Variant(Splitter(splitter).Var_GetPart(url_rest, u":", true));
          if (InStr(CStr(url_rest), u"/") > 0) {
            remote_port = Variant(Val(Splitter(splitter).Var_GetPart(url_rest, u"/", true)));
          } else {
            remote_port = Variant(Val(CStr(url_rest)));
          }
          if (remote_port.ToDouble() == 0) remote_port = Variant(80);
        } else {
          host_name = Variant(Splitter(splitter).Var_GetPart(url_rest, u"/", true));
          remote_port = Variant(CStr(url_scheme) == u"FTP" ? 21 : 80);
        }
        // The page.
        if (!CStr(url_rest).empty()) page_path = Variant(u"/" + CStr(url_rest));
        // What the caller gave wins.
        if (Given(explicit_port)) remote_port = explicit_port;
        if (Given(explicit_page)) page_path = explicit_page;

        SocketCtl& s = Control(SocketX);
        OutgoingRequest outgoing(host, s);
        // Anything open before is dropped; then the settings.
        outgoing.DropOpen(true);
        outgoing.ApplySettings();
        // A number is connected to as it is, a name is resolved.
        if (NET_IPNumberIsValid(host_name)) {
          s.SetRemoteNameAddrXlate(false);
          s.SetRemoteName(u"");
          s.SetRemoteAddress(CStr(host_name));
        } else {
          s.SetRemoteNameAddrXlate(true);
          s.SetRemoteAddress(u"");
          s.SetRemoteName(CStr(host_name));
        }
        host.DoEvents();
        // Ports and the socket.
        s.SetRemotePort(remote_port.ToLong());
        s.SetLocalPort(0);
        s.SetLocalAddress(u"0.0.0.0");
        host.DoEvents();
        s.Create(Variant::Missing(), Variant::Missing());
        host.DoEvents();
        // Created, then connected, 10 s each.
        outgoing.ReachState(kSocketCreated, 10);
        host.DoEvents();
        s.Connect(Variant::Missing(), Variant::Missing());
        outgoing.ReachState(kSocketConnected, 10);
        host.DoEvents();
        if (s.State() != kSocketConnected) return;
        // The request.
        Text path = CStr(page_path);
        if (Left(path, 1) != u"/" && Left(path, 1) != u"\\") path = u"/" + path;
        const Text request =
            u"GET " + path + u" HTTP/1.1\r\n" + u"Accept: text/plain\r\n" +
            u"Accept-Language: en-us\r\n" + u"Accept-Encoding: gzip, deflate\r\n" +
            u"User-Agent: Mozilla/4.0 (compatible; MSIE 5.0; Windows 98; DigExt)\r\n" + u"Host: " +
            s.LocalAddress() + u"\r\n" + u"Connection: Keep-Alive\r\n" + u"\r\n";
        // Sent once; its failure is dropped.
        Resume([&] { s.Send(Variant(request)); });
        // Collect until a marker or the limit.
        const int64_t limit = NowSeconds(host) + (pTimeOut == 0 ? 10 : pTimeOut);
        Text response;
        size_t scanned = 0;  // the markers are looked for in what is new
        const auto ended = [&] {
          const size_t from = scanned > 6 ? scanned - 6 : 0;
          const Text upper = UCase(TextView(response).substr(from));
          scanned = response.size();
          return InStr(upper, u"</HTML>") > 0 || InStr(upper, u"\r\n.END.") > 0;
        };
        while (!ended()) {
          outgoing.Drain(response, [&] { host.DoEvents(); });
          host.Pump(s.ReceiveReadyCount() > 0 ? 0 : UntilSecond(host, limit));
          if (NowSeconds(host) >= limit) break;
          host.DoEvents();
        }
        result = Variant(response);
      },
      // A failure ends the GET with its report as the result.
      [&](const RuntimeError& error) { result = Variant(FailureText(error)); });

  // Always, after a failure too: close and wait.
  CloseAndWait(SocketX, false);
  PauseSeconds(1);
  return result;
}

Variant Network::NET_HTTPget(SocketCtl* SocketX, const Variant& pHost, const Variant& pPage,
                             const Variant& pPort, int16_t pTimeOut) {
  return HttpGetWith(nullptr, SocketX, pHost, pPage, pPort, pTimeOut);
}

Variant Network::HttpGetBound(SocketCtl* SocketX, const Variant& pHost, const Variant& pPage,
                              const Variant& pPort, int16_t pTimeOut) {
  return HttpGetWith(this, SocketX, pHost, pPage, pPort, pTimeOut);
}

Text Network::NET_HTTPsend(const Variant& /*tmpURL*/, const Variant& tmpContent) {
  const Text content = CStr(tmpContent);
  if (content.empty()) return Text();
  return u"HTTP/1.1 200 OK\r\n"
         u"Age: 0\r\n"
         u"Server: Lumbro ActiveX (Win32)\r\n"
         u"Vary: Host\r\n"
         u"Last-Modified: Sun, 03 Sep 2000 20:16:08 GMT\r\n"
         u"Content-Length: " +
         CStr(Variant(Len(content))) +
         u"\r\n"
         u"Connection: close\r\n"
         u"Xonnection: open\r\n"
         u"Content-Type: application/octet-stream\r\n"
         u"\r\n" +
         content;
}

bool Network::NET_DownloadFile(const Text& URL, const Text& LocalFilename) {
  return platform().web->DownloadToFile(URL, LocalFilename) == 0;
}

bool Network::INET_OpenURL(const Variant& /*ParentForm*/, const Variant& TheURL, bool Maximized,
                           bool Hide) {
  const int32_t show = Maximized ? 3 : (Hide ? 0 : 1);
  Resume([&] { platform().web->OpenUrl(CStr(TheURL), show); });
  return false;
}

}  // namespace varnek
