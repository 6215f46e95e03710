// POST_SendMensaje: one message to a web gateway as an HTTP/1.0 form post,
// told apart by the answer's success, failure and delay marks.
#include "varnek/adds/net/network.h"
#include "varnek/adds/net/internal/net_waits.h"
#include "varnek/adds/net/outgoing_request_internal.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

using net_waits::Control;
using net_waits::NowSeconds;
using net_waits::UntilSecond;

namespace {

// A missing or Empty optional argument takes its default, in the caller's
// variable too.
Text Defaulted(OptionalArg& arg, const Text& fallback) {
  if (arg.IsMissingOrEmpty()) arg.Get() = Variant(fallback);
  return CStr(arg.Get());
}

}  // namespace

int32_t Network::POST_SendMensaje(
    SocketCtl* SocketX, Variant& URLCGI, Variant& VarCodigo, Variant& ValueCodigo,
    Variant& VarMensaje, Variant& ValueMensaje, OptionalArg VarFirma, OptionalArg ValueFirma,
    OptionalArg StrResponseOK, OptionalArg StrResponseFAIL, OptionalArg VarAdic1,
    OptionalArg ValueAdic1, OptionalArg VarAdic2, OptionalArg ValueAdic2, OptionalArg VarAdic3,
    OptionalArg ValueAdic3, OptionalArg VarAdic4, OptionalArg ValueAdic4, OptionalArg VarAdic5,
    OptionalArg ValueAdic5, OptionalArg VarAdic6, OptionalArg ValueAdic6,
    OptionalArg StrResponseDELAYED, OptionalArg pTimeOut) {
  HostLoop& host = loop();
  int32_t result = kPostNotDelivered;
  Variant response;  // Empty until the request has gone out
  Text ok_mark, fail_mark, delayed_mark;

  const bool ran = Guarded([&] {
    // Defaults, and the socket's settings.
    OptionalArg* extra[] = {&VarFirma,   &ValueFirma, &VarAdic1,   &ValueAdic1, &VarAdic2,
                            &ValueAdic2, &VarAdic3,   &ValueAdic3, &VarAdic4,   &ValueAdic4,
                            &VarAdic5,   &ValueAdic5, &VarAdic6,   &ValueAdic6};
    for (OptionalArg* arg : extra) Defaulted(*arg, u"");
    if (StrResponseOK.IsMissing()) StrResponseOK.Get() = Variant(u"200");
    ok_mark = CStr(StrResponseOK.Get());
    fail_mark = Defaulted(StrResponseFAIL, u"");
    delayed_mark = Defaulted(StrResponseDELAYED, u"");
    if (pTimeOut.IsMissingOrEmpty()) pTimeOut.Get() = Variant(45);
    SocketCtl& s = Control(SocketX);
    OutgoingRequest outgoing(host, s);
    outgoing.ApplySettings();

    // Host and port from the URL's third "/" field.
    Variant url = URLCGI;
    const Text authority = Var_GetFieldAt(url, 3, u"/");
    Text host_name = authority;
    int32_t port = 0;
    const int32_t colon = InStr(authority, u":");
    if (colon > 0) {
      host_name = Left(authority, colon - 1);
      port = Variant(Val(Mid(authority, colon + 1))).ToLong();
    }
    if (port == 0) port = 80;

    // What follows the host (and ":port") is the request's path.
    Var_GetPart(url, Variant(host_name), true);
    Var_GetPart(url, Variant(u":" + CStr(Variant(port))), true);
    const Text path = CStr(url);

    // Anything open before is dropped.
    outgoing.DropOpen(false);

    // The body.
    ValueMensaje = Var_FiltraCaracteres(ValueMensaje);
    Text body = CStr(VarCodigo) + u"=" + CStr(ValueCodigo) + u"&" + CStr(VarMensaje) + u"=" +
                CStr(URL_Encode(ValueMensaje));
    const std::pair<OptionalArg*, OptionalArg*> fields[] = {
        {&VarFirma, &ValueFirma}, {&VarAdic1, &ValueAdic1}, {&VarAdic2, &ValueAdic2},
        {&VarAdic3, &ValueAdic3}, {&VarAdic4, &ValueAdic4}, {&VarAdic5, &ValueAdic5},
        {&VarAdic6, &ValueAdic6}};
    for (const auto& [name, value] : fields) {
      const Text field = CStr(name->Get());
      if (!field.empty()) body += u"&" + field + u"=" + CStr(URL_Encode(value->Get()));
    }

    // The request: the Host line holds this machine's address, and the
    // body's own CR LF is not counted. Both stay so.
    const Text request = u"POST " + path + u" HTTP/1.0\r\n" +
                         u"Content-type: application/x-www-form-urlencoded\r\n" + u"Host: " +
                         s.LocalAddress() + u"\r\n" + u"Content-length: " +
                         CStr(Variant(Len(body))) + u"\r\n" + u"\r\n" + body + u"\r\n";

    // Open the connection, each stage within pTimeOut.
    const int64_t timeout = Variant(pTimeOut.Get()).ToLong();
    if (s.State() != kSocketClosed) s.Close();
    host.DoEvents();
    if (s.ReceiveReadyCount() > 0) s.ReceiveText();
    host.DoEvents();
    s.Create(Variant::Missing(), Variant::Missing());
    if (!outgoing.ReachState(kSocketCreated, timeout)) return;
    host.DoEvents();
    s.Connect(Variant(host_name), Variant::Long(port));
    if (!outgoing.ReachState(kSocketConnected, timeout)) return;

    // Send; one limit for the whole answer.
    s.Send(Variant(request));
    host.DoEvents();
    response = Variant(Text());
    const int64_t limit = NowSeconds(host) + timeout;

    // Collect until a mark, the peer's close or the limit.
    for (;;) {
      // Blocks until an event or the limit, unless there is news already.
      const bool news = s.State() != kSocketConnected || s.ReceiveReadyCount() > 0;
      host.Pump(news ? 0 : UntilSecond(host, limit + 1));
      if (NowSeconds(host) > limit) {
        result = kPostNotDelivered;
        return;
      }
      if (s.State() != kSocketConnected) {
        if (Trim(ok_mark).empty()) {
          result = kPostDelivered;
          return;
        }
        if (s.ReceiveReadyCount() == 0) {
          result = kPostNotDelivered;
          return;
        }
      }
      if (s.ReceiveReadyCount() > 0) {
        outgoing.Drain(response, [&] { PauseSeconds(1); });
        const Text got = CStr(response);
        if (!ok_mark.empty() && InStr(got, ok_mark) > 0) {
          outgoing.TakeWaiting(response);
          result = kPostDelivered;
          return;
        }
        if (!fail_mark.empty() && InStr(got, fail_mark) > 0) {
          outgoing.TakeWaiting(response);
          result = kPostNotDelivered;
          return;
        }
        if (!delayed_mark.empty() && InStr(got, delayed_mark) > 0) {
          outgoing.TakeWaiting(response);
          result = kPostDelayed;
          return;
        }
      }
      host.DoEvents();
    }
  });

  // Wrap up; failures from here on are ignored.
  if (!ran) result = kPostFailure;
  host.DoEvents();
  Resume([&] { OutgoingRequest(host, Control(SocketX)).TakeWaiting(response); });
  host.DoEvents();
  POST_SendMensaje_Response = response;
  // Close, and wait for it at most 10 s.
  CloseAndWait(SocketX, true);
  return result;
}

}  // namespace varnek
