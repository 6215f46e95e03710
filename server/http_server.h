// HTTPServer: the embeddable HTTP 1.0 server control. The host sets a port and
// its tables, writes True to ServerOpen, and answers requests in its events.
//
//   varnek::HTTPServer server;                       // Linux platform
//   server.GETReceived = [&](Variant& url, Variant&, Variant&, Variant& response,
//                            Variant&, Collection&, Collection&) {
//     Text body = u"<p>hello</p>";
//     response = CStr(server.http_Header(e200_OK, eTextHTML, Len(body))) + body;
//   };
//   server.ServerPort(8080);
//   server.ServerOpen(true);
//
// Everything runs on the host loop's thread. Waits pump that loop, so events,
// timer ticks and host calls may run inside any routine marked "pumps": with
// strands, those of the same connection nest there and those of other
// connections run beside it. Destroying the server lets its waiting handlers
// end first (pumps, at most 15 s after Stop); on one stack those below the
// destroying call return as their waits end, acting on nothing.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "varnek/platform/platform.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"
#include "varnek/server/http_constants.h"

namespace varnek {

class Adds;
class ServerCore;

class HTTPServer {
 public:
  // The server reaches the machine through `platform` (loop, sockets, ...),
  // which must outlive it. Creates the listener, slot 0 and the watchdog timer.
  explicit HTTPServer(Platform& platform = LinuxPlatform());
  // The end of the control: runs Stop (pumps for up to 10 s).
  ~HTTPServer();
  HTTPServer(const HTTPServer&) = delete;
  HTTPServer& operator=(const HTTPServer&) = delete;

  // ---- Events. Every argument by reference; only Response and IdxProceso
  // are read back after the event, so a host may redirect the answer to the
  // slot it names; the receive handler then goes on with that slot (keep-open
  // test, close, report) and leaves the asking slot as it is.
  std::function<void(Variant& URL, Variant& RemoteIP, Variant& VarString, Variant& Response,
                     Variant& IdxProceso, Collection& HeaderVariables, Collection& HeaderValues)>
      GETReceived;
  std::function<void(Variant& URL, Variant& RemoteIP, Collection& ParamVariables,
                     Collection& ParamValues, Variant& VarString, Variant& Response,
                     Variant& IdxProceso, Collection& HeaderVariables, Collection& HeaderValues)>
      POSTReceived;
  std::function<void(Variant& RemoteIP, Variant& VarString, Variant& Response, Variant& IdxProceso)>
      GENERICReceived;
  // The control's log: State is always "", the text is in StateString.
  std::function<void(Variant& State, Variant& StateString)> InternalState;

  // ---- Lifecycle (server_lifecycle.cpp).
  // True while the listener listens (State 5).
  bool ServerOpen() const;
  // True runs Init (a restart on a running server), False runs Stop. Failures
  // are swallowed and show only as InternalState reports. Pumps.
  void ServerOpen(bool open);
  int32_t ServerPort() const;
  // Not checked here; 0 becomes 80 at the next Init, above 32767 makes it fail.
  void ServerPort(int32_t port);
  Variant MaxConcurrentConnections() const;
  // Converted to 32 bits; a value that does not convert leaves the member.
  void MaxConcurrentConnections(const Variant& count);
  // Slots 1..upper bound whose socket is not closed.
  int16_t CurrentConnections() const;
  // Seconds of silence before the watchdog closes a slot; Empty/0 becomes 300
  // at Init, while a 0 or negative set on a running server is used as it is.
  int16_t WatchdogTimeout() const;
  void WatchdogTimeout(int16_t seconds);
  Variant ServerWelcomeString() const;
  void ServerWelcomeString(const Variant& text);
  // Stored only: the control never sends it.
  Variant ServerBusyString() const;
  void ServerBusyString(const Variant& text);
  // Copied to every slot at the next Init; the listener gets neither.
  bool ServerSecure() const;
  void ServerSecure(bool secure);
  bool ClientSecure() const;
  void ClientSecure(bool secure);
  // Beyond the contract, for hosts on open networks: at most this many slots
  // for one peer address; a further connection from it is left unanswered,
  // as one that finds no free slot. 0 (the default): no limit.
  int32_t MaxConnectionsPerAddress() const;
  void MaxConnectionsPerAddress(int32_t count);
  // A value the host keeps here; the control does not use it.
  Variant SocketControl() const;
  void SocketControl(const Variant& control);
  // "Not active" while stopped, the server's URL while running.
  const Text& HintText() const;
  // The control's size is fixed by its 16x16 icon, whatever the host asks.
  int32_t Width() const;
  int32_t Height() const;
  // The host asks for a size; the resize handler puts the icon's size back.
  void Resize(int32_t width, int32_t height);
  void UserControl_Resize();

  // ---- Builders (builders.cpp). Pure text; they touch no connection.
  // "HTTP/1.0 <code>", optional realm line, "Server: Varnek", optional
  // Content-Length, the type line for 0/1 only, blank line. Pass
  // Variant::Missing() for an absent optional argument. A CR or LF in the
  // realm or length (a decoded path may hold them) is written as a blank, so
  // no request can end a header line. Open: failures reach the caller.
  Variant http_Header(int32_t pNumCode, int32_t ContentType,
                      const Variant& ContentLength = Variant::Missing(),
                      const Variant& AuthenticateRealm = Variant::Missing());
  // The generic page titled "HTTP " Str(n) " Error" (two blanks): no head. Open.
  Variant http_ErrorResponse(int32_t pNumError);
  // Ignores its argument: always a new, empty Collection.
  CollectionPtr http_DecodeHeader(const Variant& VarHeader);
  // The complete 404 answer, head with Content-Length of the page. Resume.
  Variant html_404error();
  // Top of a page; Missing colours take "black", "white", "red". Resume: a
  // colour or title with no text form leaves its rows out.
  Variant html_GenericStart(const Variant& pTitulo, const Variant& FontColor = Variant::Missing(),
                            const Variant& BackColor = Variant::Missing(),
                            const Variant& LinkColor = Variant::Missing());
  Variant html_GenericEnd();
  // A browser-like GET of tPage, Host the listener's local address; CR and LF
  // in tPage are written as blanks. Resume.
  Variant html_retrieveHeader(const Text& tPage);

  // ---- Access tables (access_tables.cpp). Resume mode.
  Variant UsersAdd(const Variant& UserNameDosPuntosClave);
  Variant UsersGet(int16_t Index);
  Variant UsersDelete(int16_t Index);
  int16_t UsersCount();
  // True when an entry equals the argument, both upper-cased (one text: the
  // colon is not split out).
  bool UsersFindIfIsIn(const Variant& UserNameDosPuntosClave);
  Variant SecurePathAdd(const Variant& NewPath);
  Variant SecurePathGet(int16_t Index);
  Variant SecurePathDelete(int16_t Index);
  int16_t SecurePathCount();
  // True when the upper-cased path is Like the upper-cased entry + "*": a
  // prefix with no regard to case, and *?#[ ] in an entry are patterns.
  bool SecurePathFindIfIsIn(const Variant& RequestPath);

  // ---- Per-connection operations (proceso_ops.cpp). An Index outside the
  // bounds 0..upper of the slot array does nothing. Called from a handler of
  // a connection whose slot has since taken another connection, Send,
  // Receive, Close and KeepOpen on that slot act on nothing (no failure, no
  // stamp): a host that waited never answers the next client. Calls from
  // outside the connection's handlers (a host timer) address the slot by
  // number.
  int32_t ProcesoStatus_Code(const Variant& Index);    // the slot's State, 0 out of range
  Variant ProcesoStatus_String(const Variant& Index);  // its StateText
  // Sends at once, no State check; refreshes the stamp. Open: a failed Send
  // (a closed slot) reaches the caller.
  void Proceso_Send(const Variant& Index, const Variant& value);
  // What arrived since the last call, then "" until more comes; refreshes the
  // stamp. Open: before the first Init it fails with 9.
  Variant Proceso_Receive(const Variant& Index);
  // Pause 1 s, Close, wait up to 10 s; nothing at all on a free slot. Pumps.
  void Proceso_Close(const Variant& Index);
  bool Proceso_KeepOpen(const Variant& Index);  // open: fails with 9 before Init
  void Proceso_KeepOpen(const Variant& Index, bool keep);

  // The loop the server pumps (hosts drive it with Pump).
  HostLoop& loop() const;
  // The Adds instance the server uses, created at first use. The server
  // parses each request with its sequence store: a host's event may read the
  // request's records there (before it pumps: a request served in its waits
  // replaces them), and once a request's event has returned the store holds
  // no records, so a large POST leaves no copy behind.
  Adds& adds();

 private:
  // The server's state and routines (server_core_internal.h). Declared after
  // the events, so it is destroyed (running Stop) while they are still whole.
  std::unique_ptr<ServerCore> core_;
};

}  // namespace varnek
