// Procesar_Recibido: one complete request text in, one answer out. Cuts the
// text into records, finds method and path, applies Basic authentication,
// raises the host's event and falls back on the 404 page, a 401 or one NUL.
#include "varnek/adds/adds.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {

constexpr char16_t kCrLf[] = u"\r\n";
constexpr char16_t kTwoMiddleDots[] = u"\u00B7\u00B7";

// Len of a Variant as the classic If Len(x) = 0 reads it: Null is never 0.
bool IsEmptyText(const Variant& v) { return !v.IsNull() && CStr(v).empty(); }

// Every step below swallows its failures statement by statement (resume).

// Cuts the request into "name: value" records, kept in the sequence store
// for the later look-ups and copied into the two header collections.
void ReadHeaderRecords(Adds& a, const Variant& text, Collection& names, Collection& values) {
  int32_t records = 0;
  Resume([&] {
    Variant field_separator = u": ";
    records = CLng(a.Script_SecuenciaProcesa(text, Variant(kCrLf), field_separator));
  });
  for (int32_t k = 1; k <= records; ++k) {
    Resume([&] { names.Add(a.Script_RetornaVariableIndex(Variant::Long(k))); });
    Resume([&] { values.Add(a.Script_RetornaContenidoIndex(Variant::Long(k))); });
  }
}

// The method of the first record ("GET", "POST" or "" for anything else) and
// its decoded path: "/" when there is none, and a last segment without a dot
// is taken for a directory and gets its "/".
void ReadRequestLine(Adds& a, Text& kind, Variant& url) {
  Resume([&] {
    const Text method = CStr(a.Script_RetornaVariableIndex(Variant::Long(1)));
    if (method == u"GET" || method == u"POST") {
      kind = method;
      Variant rest = a.Script_RetornaContenidoVariable(Variant(method));
      url = a.Var_GetPart(rest, Variant(u" "), true);
      url = a.URL_Decode(url);
    }
  });
  Resume([&] {
    if (CStr(url).empty()) url = u"/";
  });
  Resume([&] {
    const Text path = CStr(url);
    if (Right(path, 1) != u"/") {
      Variant reversed = a.Var_Reverse(url);
      const Text tail = a.Var_GetPart(reversed, Variant(u"/"), true);
      if (InStr(tail, u".") == 0) url = path + u"/";
    }
  });
}

// The Basic credentials of the Authorization record, decoded ("NAME:PASS");
// the scheme word is cut off and not compared.
Variant ReadCredentials(Adds& a) {
  Variant auth = a.Script_RetornaContenidoVariable(Variant(u"Authorization"));
  Resume([&] { a.Var_GetPart(auth, Variant(u" "), true); });
  Resume([&] { auth = a.Base64_Decode(CStr(auth)); });
  return auth;
}

// The fields of a POST body (after the blank line), parted by "&" and "=",
// values URL-decoded. A doubled ampersand stands for itself and does not
// part two fields.
void ReadPostFields(Adds& a, const Text& raw, Collection& names, Collection& values) {
  Text body;
  Resume([&] {
    const int32_t blank = InStr(raw, u"\r\n\r\n");
    if (blank > 0) body = Mid(raw, blank);
  });
  Resume([&] { body = a.Var_Translate(body, kCrLf, u""); });
  Resume([&] { body = a.Var_Translate(body, u"&&", kTwoMiddleDots); });
  Resume([&] { body = a.Var_Translate(body, u"&", kCrLf); });
  Resume([&] { body = a.Var_Translate(body, kTwoMiddleDots, u"&&"); });
  int32_t fields = 0;
  Resume([&] {
    Variant equals = u"=";
    fields = CLng(a.Script_SecuenciaProcesa(Variant(body), Variant(kCrLf), equals));
  });
  for (int32_t k = 1; k <= fields; ++k) {
    Resume([&] { names.Add(a.Script_RetornaVariableIndex(Variant::Long(k))); });
    Resume([&] { values.Add(a.URL_Decode(a.Script_RetornaContenidoIndex(Variant::Long(k)))); });
  }
}

}  // namespace

// Reports and pumps, reads the records and the request line, checks the
// credentials of a secured path, raises the host's event (or builds the 401),
// then sends the answer. Failures are swallowed statement by statement except
// in the final send, whose failure reaches SocketX_Done. Pumps at the start,
// inside the host's event if the host pumps, and in the close path.
void ServerCore::Procesar_Recibido(int16_t& IdxProceso, const Variant& text) {
  Adds& a = adds();
  Resume([&] {
    Report([&] {
      return u"Internal (" + CStr(Variant::Integer(IdxProceso)) +
             u") - Procesando string recibido: " + a.Var_ConvierteCharControlToText(text);
    });
  });
  DoEvents();

  Text raw;
  Resume([&] { raw = CStr(text); });
  auto header_variables = Collection::New();
  auto header_values = Collection::New();
  auto param_variables = Collection::New();
  auto param_values = Collection::New();
  ReadHeaderRecords(a, text, *header_variables, *header_values);

  Text kind;
  Variant url = u"";
  ReadRequestLine(a, kind, url);
  Resume([&] {
    if (SecurePathFindIfIsIn(url) && !UsersFindIfIsIn(ReadCredentials(a))) kind = u"AUTH10";
  });

  Variant remote_ip;
  Variant response = u"";
  Variant var_string = raw;
  Variant idx = Variant::Integer(IdxProceso);
  const auto alive = alive_;  // a host event may destroy the server
  Resume([&] { remote_ip = Sock(IdxProceso).RemoteAddress(); });

  if (kind == u"GET") {
    Resume([&] {
      if (GETReceived) {
        GETReceived(url, remote_ip, var_string, response, idx, *header_variables, *header_values);
        Outlived(alive);
      }
    });
    Resume([&] {
      if (IsEmptyText(response)) response = html_404error();
    });
  } else if (kind == u"POST") {
    ReadPostFields(a, raw, *param_variables, *param_values);
    Resume([&] {
      if (POSTReceived) {
        POSTReceived(url, remote_ip, *param_variables, *param_values, var_string, response, idx,
                     *header_variables, *header_values);
        Outlived(alive);
      }
    });
    Resume([&] {
      if (IsEmptyText(response)) response = html_404error();
    });
  } else if (kind == u"AUTH10") {
    Resume([&] { response = http_ErrorResponse(e401_Unauthorized); });
    Resume([&] {
      const int32_t length = Len(CStr(response));
      response = CStr(http_Header(e401_Unauthorized, eTextHTML, Variant::Long(length), url)) +
                 CStr(response);
    });
  } else {
    Resume([&] {
      if (GENERICReceived) {
        GENERICReceived(remote_ip, var_string, response, idx);
        Outlived(alive);
      }
    });
  }
  // The host may name another slot for the answer.
  Resume([&] { IdxProceso = CInt(idx); });
  Resume([&] {
    if (IsEmptyText(response)) response = Text(1, u'\0');
  });

  // A client that left while the host worked gets nothing, nor does the
  // one that took its slot meanwhile.
  if (LeftBehind(IdxProceso)) return;
  if (Sock(IdxProceso).State() == kSocketConnected) {
    Sock(IdxProceso).Send(response);
  } else {
    PauseCloseAndWait(IdxProceso, false);
  }
}

}  // namespace varnek
