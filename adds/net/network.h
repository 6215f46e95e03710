// Network tools of Adds: the web gateway post, the HTTP client, the TCP
// connection table and the adapters. The posts and the client speak through a
// socket control the host passes in and wait by pumping the host loop; the
// table and the adapters read the machine through the platform's NetTables,
// downloads and opened URLs go through its WebServices.
//
//   auto sock = platform.sockets->Create();
//   Variant url = u"http://127.0.0.1:8080/echo", code = u"code", pager = u"123",
//           field = u"msg", message = u"Hello";
//   int32_t r = adds.POST_SendMensaje(sock.get(), url, code, pager, field, message);
//   // r: -1 delivered, 0 not, -5 delayed, -2 failure; the answer in
//   // adds.POST_SendMensaje_Response
#pragma once

#include <cstdint>

#include "varnek/adds/text/text_toolkit.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/optional_arg.h"

namespace varnek {

class Network : public virtual TextToolkit {
 public:
  explicit Network(Platform& platform) { Attach(platform); }

  // ---- Web gateway post (gateway_post.cpp) ---------------------------------

  // Result codes of POST_SendMensaje.
  static constexpr int32_t kPostDelivered = -1, kPostNotDelivered = 0, kPostFailure = -2,
                           kPostDelayed = -5;

  // Posts VarCodigo=ValueCodigo&VarMensaje=<message>[&VarFirma=...][&VarAdicN=...]
  // as an HTTP/1.0 form to URLCGI over SocketX, and waits (pumping) for an
  // answer holding StrResponseOK (-1), StrResponseFAIL (0) or
  // StrResponseDELAYED (-5), each stage within pTimeOut seconds (45). A
  // limit that runs out, or a close with nothing waiting, gives 0; a close
  // with StrResponseOK blank gives -1. ValueMensaje is filtered
  // (Var_FiltraCaracteres) and stored back; optional arguments that are
  // missing or Empty take their defaults, stored back too, but StrResponseOK
  // takes "200" only when missing. Quirks kept: the Host header carries the
  // local address; the URL is cut at the first occurrence of the host text;
  // a URL without a path gives a request line with two blanks; each read
  // follows a 1 s pause. Any failure (a null SocketX, a port of 70000, a URL
  // without a host) gives -2. Closes the socket at the end, waiting up to
  // 10 s. Never raises. Pumps throughout.
  int32_t POST_SendMensaje(SocketCtl* SocketX, Variant& URLCGI, Variant& VarCodigo,
                           Variant& ValueCodigo, Variant& VarMensaje, Variant& ValueMensaje,
                           OptionalArg VarFirma = {}, OptionalArg ValueFirma = {},
                           OptionalArg StrResponseOK = {}, OptionalArg StrResponseFAIL = {},
                           OptionalArg VarAdic1 = {}, OptionalArg ValueAdic1 = {},
                           OptionalArg VarAdic2 = {}, OptionalArg ValueAdic2 = {},
                           OptionalArg VarAdic3 = {}, OptionalArg ValueAdic3 = {},
                           OptionalArg VarAdic4 = {}, OptionalArg ValueAdic4 = {},
                           OptionalArg VarAdic5 = {}, OptionalArg ValueAdic5 = {},
                           OptionalArg VarAdic6 = {}, OptionalArg ValueAdic6 = {},
                           OptionalArg StrResponseDELAYED = {}, OptionalArg pTimeOut = {});

  // The raw answer of the last POST_SendMensaje, headers included: "" when
  // the request went out and nothing came, Empty when the call ended before.
  Variant POST_SendMensaje_Response;

  // ---- HTTP client (http_client.cpp) ---------------------------------------

  // Kept as it stands: its URL splitting calls through a reference that is
  // never bound, so every call ends with "Error: (424) Object required",
  // makes no connection, closes SocketX if it was open, and returns after
  // the tail's 1 s pause. HttpGetBound is what it would run. Pumps.
  Variant NET_HTTPget(SocketCtl* SocketX, const Variant& pHost,
                      const Variant& pPage = Variant::Missing(),
                      const Variant& pPort = Variant::Missing(), int16_t pTimeOut = 0);

  // NET_HTTPget with its splitting bound: GET of the path of pHost
  // ("[scheme://]host[:port][/path]", port 80, 21 for FTP, 0 reads as 80;
  // pPort, pPage win when given) over SocketX as HTTP/1.1, "Host:" the local
  // address. Collects until "</HTML>" (any case) or CR LF ".END." appear or
  // pTimeOut seconds (0: 10) pass, and returns all of it unparsed; Empty when
  // no connection was made within 10 s; "Error: (n) text" after a failure.
  // Closes SocketX and pauses 1 s at the end. Pumps throughout.
  Variant HttpGetBound(SocketCtl* SocketX, const Variant& pHost,
                       const Variant& pPage = Variant::Missing(),
                       const Variant& pPort = Variant::Missing(), int16_t pTimeOut = 0);

  // A canned "HTTP/1.1 200 OK" answer around tmpContent (fixed headers, a
  // fixed date, both "Connection: close" and "Xonnection: open"); "" for an
  // empty content. tmpURL is not used. Sends nothing. Open. Does not pump.
  Text NET_HTTPsend(const Variant& tmpURL, const Variant& tmpContent);

  // Fetches URL into LocalFilename through the platform (libcurl on Linux:
  // http, https, ftp, file; redirects followed; an answer of 400 and above
  // fails). True on success; any failure only as false, and a file already
  // there is then left as it was. Pumps while the transfer runs.
  bool NET_DownloadFile(const Text& URL, const Text& LocalFilename);

  // Hands TheURL to the desktop (xdg-open on Linux) with the show value 3
  // when Maximized, else 0 when Hide, else 1. ParentForm is not used on
  // Linux. Always false: the routine never sets its result. Does not pump.
  bool INET_OpenURL(const Variant& ParentForm, const Variant& TheURL, bool Maximized, bool Hide);

  // ---- TCP connection table (tcp_table.cpp) --------------------------------

  // Fills Net_Stat_Lista with one record per TCP connection that passes the
  // filters: ten tab-ended fields (local address, local port, remote address,
  // remote port, state name, then the raw words of local address, local
  // port, remote address, remote port and state as signed decimals). Ports
  // shown and filtered go through the classic arithmetic swap, one too high
  // from 32768 up in most cases. Result: records kept; -1 when the machine
  // has no table (/proc/net/tcp missing), 0 when it cannot be read. Pumps
  // while emptying the old list.
  Variant NET_Stat(bool ExcluirLocalhost = false, int32_t FiltrarSoloEstado = 0,
                   const Variant& FiltrarSoloPuertoLocal = Variant(0),
                   const Variant& FiltrarSoloPuertoRemoto = Variant(0));
  // Resets the connection at IndexFromStat (1-based) of Net_Stat_Lista by its
  // four raw keys (the kernel's socket destroy; needs CAP_NET_ADMIN). False
  // for an index out of range or any failure. Does not pump.
  bool Net_Stat_CloseConnection(const Variant& IndexFromStat);
  // The last snapshot; made at first use.
  CollectionPtr Net_Stat_Lista;

  // ---- Adapters and addresses (adapters.cpp) -------------------------------

  // "description:gateway" per default gateway of each adapter, each followed
  // by sDelim, the last delimiter's first unit cut off ("" for none).
  Text NET_GatewayList(const Text& sDelim);
  // The same for DHCP servers of adapters with a lease.
  Text NET_DHCPServerList(const Text& sDelim);
  // Each adapter's first IPv4 address ("" when it has none), each followed by
  // sDelim, the last unit cut off.
  Text NET_LocalIPList(const Text& sDelim);
  // Trims the text in place; true for a dotted IPv4 number of at least 8
  // units, three dots, each piece 0..255. Quirks kept: "1.2.3.4" is too short,
  // empty pieces pass ("100..1.1"), a trailing dot fails. Never raises.
  bool NET_IPNumberIsValid(Variant& IPNumber);
  // The machine's name, "" when it does not fit 15 units.
  Text NET_CurrentMachineName();
  // True when pState is one of 1, 2, 4, 8, 16, 32, 64 and that bit of the
  // connected state is set (see NetTables::ConnectedState).
  bool NET_CheckState(int32_t pState);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  Network() = default;
  // tcpAddressText, tcpPortNumber and tcpStateName of the table.
  static Text tcpAddressText(uint32_t word);
  static int32_t tcpPortNumber(uint32_t word);
  static Text tcpStateName(uint32_t word);

 private:
  // Waits, pumping, as DateTime_PausaTimer does.
  void PauseSeconds(double seconds);
  // Pump, Close, pump; if the control is not closed then, Close again with a
  // 1 s pause before (pause_first) or after it, and pump up to 10 s until
  // State is 1. Failures (a null control) are ignored.
  void CloseAndWait(SocketCtl* SocketX, bool pause_first);
  Text AdapterList(int which, const Text& sDelim);
  Variant HttpGetWith(TextToolkit* splitter, SocketCtl* SocketX, const Variant& pHost,
                      const Variant& pPage, const Variant& pPort, int16_t pTimeOut);
};

}  // namespace varnek
