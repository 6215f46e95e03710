// ServerCore: everything HTTPServer is inside, kept out of the public header
// so a host is not rebuilt for every change of the server's state. HTTPServer
// owns one and forwards each call; the routines are the ones http_server.h
// documents, under the same names. The host's events stay on HTTPServer and
// are reached here through references of the same names.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "varnek/platform/host_loop.h"
#include "varnek/platform/platform.h"
#include "varnek/platform/socket.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"
#include "varnek/server/http_constants.h"
#include "varnek/server/http_server.h"

namespace varnek {

class Adds;
class LoopTimer;

class ServerCore {
 public:
  // `face` is the HTTPServer that owns this core: its events are raised here.
  ServerCore(Platform& platform, HTTPServer& face);
  // Runs Stop (pumps) while the face and its events are still whole.
  ~ServerCore();
  ServerCore(const ServerCore&) = delete;
  ServerCore& operator=(const ServerCore&) = delete;

  // Lifecycle and properties (server_lifecycle.cpp).
  bool ServerOpen() const;
  void ServerOpen(bool open);
  int32_t ServerPort() const { return server_port_; }
  void ServerPort(int32_t port) { server_port_ = port; }
  Variant MaxConcurrentConnections() const { return Variant::Long(max_connections_); }
  void MaxConcurrentConnections(const Variant& count);
  int16_t CurrentConnections() const;
  int16_t WatchdogTimeout() const;
  void WatchdogTimeout(int16_t seconds);
  Variant ServerWelcomeString() const { return welcome_; }
  void ServerWelcomeString(const Variant& text) { welcome_ = text; }
  Variant ServerBusyString() const { return busy_; }
  void ServerBusyString(const Variant& text) { busy_ = text; }
  bool ServerSecure() const { return server_secure_; }
  void ServerSecure(bool secure) { server_secure_ = secure; }
  bool ClientSecure() const { return client_secure_; }
  void ClientSecure(bool secure) { client_secure_ = secure; }
  int32_t MaxConnectionsPerAddress() const { return max_per_address_; }
  void MaxConnectionsPerAddress(int32_t count) { max_per_address_ = count; }
  Variant SocketControl() const { return socket_control_; }
  void SocketControl(const Variant& control) { socket_control_ = control; }
  const Text& HintText() const { return hint_text_; }
  int32_t Width() const { return width_; }
  int32_t Height() const { return height_; }
  void Resize(int32_t width, int32_t height) {
    width_ = width;
    height_ = height;
    UserControl_Resize();
  }
  void UserControl_Resize();

  // Builders (builders.cpp).
  Variant http_Header(int32_t pNumCode, int32_t ContentType,
                      const Variant& ContentLength = Variant::Missing(),
                      const Variant& AuthenticateRealm = Variant::Missing());
  Variant http_ErrorResponse(int32_t pNumError);
  CollectionPtr http_DecodeHeader(const Variant& VarHeader);
  Variant html_404error();
  Variant html_GenericStart(const Variant& pTitulo, const Variant& FontColor = Variant::Missing(),
                            const Variant& BackColor = Variant::Missing(),
                            const Variant& LinkColor = Variant::Missing());
  Variant html_GenericEnd();
  Variant html_retrieveHeader(const Text& tPage);

  // Access tables (access_tables.cpp).
  Variant UsersAdd(const Variant& UserNameDosPuntosClave);
  Variant UsersGet(int16_t Index);
  Variant UsersDelete(int16_t Index);
  int16_t UsersCount();
  bool UsersFindIfIsIn(const Variant& UserNameDosPuntosClave);
  Variant SecurePathAdd(const Variant& NewPath);
  Variant SecurePathGet(int16_t Index);
  Variant SecurePathDelete(int16_t Index);
  int16_t SecurePathCount();
  bool SecurePathFindIfIsIn(const Variant& RequestPath);

  // Per-connection operations (proceso_ops.cpp).
  int32_t ProcesoStatus_Code(const Variant& Index);
  Variant ProcesoStatus_String(const Variant& Index);
  void Proceso_Send(const Variant& Index, const Variant& value);
  Variant Proceso_Receive(const Variant& Index);
  void Proceso_Close(const Variant& Index);
  bool Proceso_KeepOpen(const Variant& Index);
  void Proceso_KeepOpen(const Variant& Index, bool keep);

  HostLoop& loop() const { return *platform_->loop; }
  Adds& adds();

 private:
  struct Slot {
    std::unique_ptr<SocketCtl> socket;
    Text motor_stamp;         // host text form of a date, or ""
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
    ServingScope(ServerCore* server, int32_t slot);
    ~ServingScope();
    ServingScope(const ServingScope&) = delete;
    ServingScope& operator=(const ServingScope&) = delete;

   private:
    ServerCore* server_;
    std::shared_ptr<bool> alive_;
    StrandRef strand_;  // kept alive: its address is the key
    const void* key_;
  };
  // Counts our handlers on the stack, so removed sockets are freed only when
  // none of them can still be inside one.
  struct HandlerScope {
    explicit HandlerScope(ServerCore* server) : server_(server), alive_(server->alive_) {
      ++server_->handler_depth_;
    }
    ~HandlerScope() {
      if (*alive_) --server_->handler_depth_;
    }
    ServerCore* server_;
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
  void SweepStaleSlots();  // the accept handler's sweep; pumps
  // Every write of a slot's stamp but its clearing.
  void SetStamp(int32_t index, const Text& stamp);

  // Shared helpers (slot_helpers.cpp).
  void Report(const Text& text);
  // The same, the text built only when a handler listens.
  template <class Build>
  requires std::is_invocable_r_v<Text, Build>
  void Report(Build&& build) {
    if (InternalState) Report(Text(build()));
  }
  SocketCtl& Sock(int32_t index) const;  // fails with 9 when no such slot
  Slot& SlotAt(int32_t index);           // same
  int32_t UpperBound() const;            // highest loaded slot index
  int32_t LowestFreeSlot() const;        // lowest loaded slot reading State 0; 0 if none
  Variant& TextOf(int32_t index);        // ProcesoTexto(index), fails with 9
  Variant& ExtraOf(int32_t index);
  std::vector<bool>::reference KeepOpenOf(int32_t index);
  // Makes a per-slot text "" and gives its memory back: an assignment of ""
  // would keep the capacity of the largest text the slot ever carried.
  static void ForgetText(Variant& text);
  // Leaves the sequence store of the server's Adds with no records, so the
  // last request's headers and form fields (a large POST body among them)
  // are not kept once its processing is over: the instance is the server's
  // own, and nothing of the server reads the list after the host's event.
  void ForgetRequestRecords();
  void Pause(double seconds);  // DateTime_PausaTimer; pumps
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

  // The host's events, members of the face; set or changed at any time.
  decltype(HTTPServer::GETReceived)& GETReceived;
  decltype(HTTPServer::POSTReceived)& POSTReceived;
  decltype(HTTPServer::GENERICReceived)& GENERICReceived;
  decltype(HTTPServer::InternalState)& InternalState;

  Platform* platform_;
  std::unique_ptr<Adds> adds_;
  std::unique_ptr<SocketCtl> listener_;           // SocketXListen
  std::unique_ptr<LoopTimer> watchdog_;           // TimerWatchdog
  std::vector<std::unique_ptr<Slot>> slots_;      // SocketX, element 0 never connected
  std::vector<std::unique_ptr<Slot>> graveyard_;  // removed slots, freed when safe
  int handler_depth_ = 0;                         // our handlers on the stack
  // False once the destructor ran; shared with the routines still waiting.
  std::shared_ptr<bool> alive_ = std::make_shared<bool>(true);
  // Connections taken over the server's whole life: slots made anew by a
  // restart never hand out a number an old run's handler still holds.
  uint64_t connections_taken_ = 0;
  std::optional<double> oldest_busy_stamp_;  // at or before every stamp of a slot not free
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
