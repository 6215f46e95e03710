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
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "varnek/platform/platform.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"
#include "varnek/server/http_constants.h"

namespace varnek {

class Adds;
class LoopTimer;

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
  std::function<void(Variant& RemoteIP, Variant& VarString, Variant& Response,
                     Variant& IdxProceso)>
      GENERICReceived;
  // The control's log: State is always "", the text is in StateString.
  std::function<void(Variant& State, Variant& StateString)> InternalState;

  // ---- Lifecycle (server_lifecycle.cpp).
  // True while the listener listens (State 5).
  bool ServerOpen() const;
  // True runs Init (a restart on a running server), False runs Stop. Failures
  // are swallowed and show only as InternalState reports. Pumps.
  void ServerOpen(bool open);
  int32_t ServerPort() const { return server_port_; }
  // Not checked here; 0 becomes 80 at the next Init, above 32767 makes it fail.
  void ServerPort(int32_t port) { server_port_ = port; }
  Variant MaxConcurrentConnections() const { return Variant::Long(max_connections_); }
  // Converted to 32 bits; a value that does not convert leaves the member.
  void MaxConcurrentConnections(const Variant& count);
  // Slots 1..upper bound whose socket is not closed.
  int16_t CurrentConnections() const;
  // Seconds of silence before the watchdog closes a slot; Empty/0 becomes 300
  // at Init, while a 0 or negative set on a running server is used as it is.
  int16_t WatchdogTimeout() const;
  void WatchdogTimeout(int16_t seconds);
  Variant ServerWelcomeString() const { return welcome_; }
  void ServerWelcomeString(const Variant& text) { welcome_ = text; }
  // Stored only: the control never sends it.
  Variant ServerBusyString() const { return busy_; }
  void ServerBusyString(const Variant& text) { busy_ = text; }
  // Copied to every slot at the next Init; the listener gets neither.
  bool ServerSecure() const { return server_secure_; }
  void ServerSecure(bool secure) { server_secure_ = secure; }
  bool ClientSecure() const { return client_secure_; }
  void ClientSecure(bool secure) { client_secure_ = secure; }
  // Beyond the contract, for hosts on open networks: at most this many slots
  // for one peer address; a further connection from it is left unanswered,
  // as one that finds no free slot. 0 (the default): no limit.
  int32_t MaxConnectionsPerAddress() const { return max_per_address_; }
  void MaxConnectionsPerAddress(int32_t count) { max_per_address_ = count; }
  // A value the host keeps here; the control does not use it.
  Variant SocketControl() const { return socket_control_; }
  void SocketControl(const Variant& control) { socket_control_ = control; }
  // "Not active" while stopped, the server's URL while running.
  const Text& HintText() const { return hint_text_; }
  // The control's size is fixed by its 16x16 icon, whatever the host asks.
  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  // The host asks for a size; the resize handler puts the icon's size back.
  void Resize(int32_t width, int32_t height) {
    width_ = width;
    height_ = height;
    UserControl_Resize();
  }
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
  int32_t ProcesoStatus_Code(const Variant& Index);      // the slot's State, 0 out of range
  Variant ProcesoStatus_String(const Variant& Index);    // its StateText
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
  HostLoop& loop() const { return *platform_->loop; }
  // The Adds instance the server uses, created at first use.
  Adds& adds();

 private:
  struct Slot {
    std::unique_ptr<SocketCtl> socket;
    Text motor_stamp;  // host text form of a date, or ""
    uint64_t connection = 0;  // the connection it carries, numbered by the server; 0: none yet
  };
  // The connection a handler serves: its slot, the slot's connection number
  // when the handler took it up, and the pump depth the handler runs at
  // (what runs nested in its waits is not the handler itself).
  struct ServedConnection {
    int32_t slot;
    uint64_t connection;
    int depth;
  };
  // Marks the running handler as serving slot `slot`'s current connection,
  // for as long as the scope lasts.
  class ServingScope {
   public:
    ServingScope(HTTPServer* server, int32_t slot);
    ~ServingScope();
    ServingScope(const ServingScope&) = delete;
    ServingScope& operator=(const ServingScope&) = delete;

   private:
    HTTPServer* server_;
    std::shared_ptr<bool> alive_;
    StrandRef strand_;  // kept alive: its address is the key
    const void* key_;
  };
  // Counts our handlers on the stack, so removed sockets are freed only when
  // none of them can still be inside one.
  struct HandlerScope {
    explicit HandlerScope(HTTPServer* server) : server_(server), alive_(server->alive_) {
      ++server_->handler_depth_;
    }
    ~HandlerScope() {
      if (*alive_) --server_->handler_depth_;
    }
    HTTPServer* server_;
    std::shared_ptr<bool> alive_;
  };
  // Thrown when the server was destroyed while one of its routines waited
  // (a host callback nested in the wait on one stack): the routine's frames
  // unwind without touching the freed object, and the outermost one of ours
  // (an event handler, a public call that pumps) swallows it.
  struct ServerGone {};
  static void Outlived(const std::shared_ptr<bool>& alive) {
    if (!*alive) throw ServerGone();
  }
  template <class Body>
  static void UnlessGone(Body&& body) {
    try {
      body();
    } catch (const ServerGone&) {
    }
  }

  // server_lifecycle.cpp
  void Init();
  void Stop();
  void Motores_Unload();
  void Pagina404_Clear() { cached_404_.clear(); }
  void UserControl_Initialize();
  void LoadSlot(int32_t index);
  void UnloadSlot(int32_t index);
  void CollectGraveyard();
  static Text Var_CutAtNull(const Text& text, int32_t position);
  static Text Path_EnsureBackslash(const Text& path);

  // connection_events.cpp
  void SocketXListen_Accept(int32_t handle);
  void SocketX_ReceiveReady(int16_t index);
  void SocketX_Done(int16_t index, int32_t code);
  void CloseAfterAnswer(int16_t index);
  bool AddressHasItsShare(int32_t handle);

  // request_processing.cpp
  void Procesar_Recibido(int16_t& IdxProceso, const Variant& text);

  // watchdog.cpp
  void TimerWatchdog_Tick();

  // stale_sweep.cpp
  void SweepStaleSlots();                           // the accept handler's sweep; pumps
  void SetStamp(int32_t index, const Text& stamp);  // every write of a slot's stamp but its clearing

  // Shared helpers (slot_helpers.cpp).
  void Report(const Text& text);
  // The same, the text built only when a handler listens.
  template <class Build>
    requires std::is_invocable_r_v<Text, Build>
  void Report(Build&& build) {
    if (InternalState) Report(Text(build()));
  }
  SocketCtl& Sock(int32_t index) const;   // fails with 9 when no such slot
  Slot& SlotAt(int32_t index);            // same
  int32_t UpperBound() const;             // highest loaded slot index
  Variant& TextOf(int32_t index);         // ProcesoTexto(index), fails with 9
  Variant& ExtraOf(int32_t index);
  std::vector<bool>::reference KeepOpenOf(int32_t index);
  // Makes a per-slot text "" and gives its memory back: an assignment of ""
  // would keep the capacity of the largest text the slot ever carried.
  static void ForgetText(Variant& text);
  void Pause(double seconds);             // DateTime_PausaTimer; pumps
  void DoEvents();
  void WaitClosed(SocketCtl* listener, int32_t index);  // up to 10 s for State 1; pumps
  // Pause 1 s, Close slot `index`, wait up to 10 s for State 1. `resume`:
  // each step swallows its failure; otherwise the first failure leaves.
  // With connections side by side the slot may take another connection
  // during the pause: that one is left alone. Pumps.
  void PauseCloseAndWait(int32_t index, bool resume = true);
  double StampOrNow(int32_t index);
  // True when the caller is a handler of a connection that slot `index`
  // carried and has since passed on (served_connection.cpp).
  bool LeftBehind(int32_t index);
  const void* StrandKey(StrandRef& holder);
  Text NowText();

  Platform* platform_;
  std::unique_ptr<Adds> adds_;
  std::unique_ptr<SocketCtl> listener_;                // SocketXListen
  std::unique_ptr<LoopTimer> watchdog_;                // TimerWatchdog
  std::vector<std::unique_ptr<Slot>> slots_;           // SocketX, element 0 never connected
  std::vector<std::unique_ptr<Slot>> graveyard_;       // removed slots, freed when safe
  int handler_depth_ = 0;                              // our handlers on the stack
  // False once the destructor ran; shared with the routines still waiting.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  // Connections taken over the server's whole life: slots made anew by a
  // restart never hand out a number an old run's handler still holds.
  uint64_t connections_taken_ = 0;
  std::optional<double> oldest_busy_stamp_;            // at or before every stamp of a slot not free
  // Per strand (one key for the single stack): the connections its handlers
  // serve, innermost last.
  std::unordered_map<const void*, std::vector<ServedConnection>> serving_;

  std::vector<Variant> proceso_texto_;
  std::vector<Variant> proceso_extra_;
  std::vector<bool> proceso_keep_open_;
  bool arrays_created_ = false;

  int32_t server_port_ = 0;
  int32_t max_connections_ = 0;
  int32_t max_per_address_ = 0;
  Variant watchdog_timeout_;
  Variant welcome_;
  Variant busy_;
  bool server_secure_ = false;
  bool client_secure_ = false;
  Variant socket_control_;
  CollectionPtr users_;
  CollectionPtr secure_paths_;
  Text hint_text_;
  int32_t width_ = 16;
  int32_t height_ = 16;

  // Kept by Init and never read.
  Text default_document_;
  Text cached_404_;
  Text cached_start_;
  Text cached_end_;
};

}  // namespace varnek
