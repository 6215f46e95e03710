// Start and stop of the server: the constructor's children, Init with its one
// failure handler, Stop, the slot pool, and the plain properties with rules.
#include "varnek/adds/adds.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/server_core_internal.h"

namespace varnek {

namespace {
constexpr int32_t kEventMaskAll = 63;
constexpr int32_t kBufferSize = 16384;
constexpr int32_t kWatchdogIntervalMs = 10000;
constexpr char16_t kCertificateName[] = u"VRNEK";
constexpr size_t kStampUnits = 19;
}  // namespace

ServerCore::ServerCore(Platform& platform, HTTPServer& face)
    : GETReceived(face.GETReceived),
      POSTReceived(face.POSTReceived),
      GENERICReceived(face.GENERICReceived),
      InternalState(face.InternalState),
      platform_(&platform) {
  listener_ = platform_->sockets->Create();
  listener_->on_connection_request = [this](int32_t handle) {
    UnlessGone([&] { SocketXListen_Accept(handle); });
  };
  watchdog_ = platform_->loop->CreateTimer();
  watchdog_->SetInterval(kWatchdogIntervalMs);
  watchdog_->SetEnabled(false);
  watchdog_->on_tick = [this] { UnlessGone([&] { TimerWatchdog_Tick(); }); };
  // Element 0 of the pool exists from the start and never takes a connection.
  slots_.resize(1);
  slots_[0] = std::make_unique<Slot>();
  slots_[0]->socket = platform_->sockets->Create();
  UserControl_Initialize();
}

ServerCore::~ServerCore() {
  Stop();
  // Handlers of ours may still wait on strands of their own: with the slots
  // gone they end at their next step, so let them, at most 15 s (a handler
  // that destroys its own server would never see the count reach zero). On
  // one stack they all lie below us and can end only after we return.
  if (handler_depth_ > 0 && loop().Mode() == LoopMode::kStrands) {
    HostLoop& host = loop();
    const double deadline = DateAdd(u"s", 15, host.Now());  // across midnight too
    host.PumpUntil([&] { return handler_depth_ == 0 || !(host.Now() < deadline); },
                   [&] { return (deadline - host.Now()) * 86400.0; });
  }
  // Nothing of ours may call back into a half-destroyed object.
  listener_->on_connection_request = nullptr;
  watchdog_->on_tick = nullptr;
  watchdog_->SetEnabled(false);
  for (auto& slot : slots_) {
    if (slot && slot->socket) {
      slot->socket->on_done = nullptr;
      slot->socket->on_receive_ready = nullptr;
    }
  }
  // Whatever of ours still waits below returns at once when its wait ends.
  *alive_ = false;
}

void ServerCore::UserControl_Initialize() {
  hint_text_ = u"Not active";
  UserControl_Resize();
}

void ServerCore::UserControl_Resize() {
  width_ = 16;
  height_ = 16;
}

bool ServerCore::ServerOpen() const { return listener_->State() == kSocketListening; }

void ServerCore::ServerOpen(bool open) {
  UnlessGone([&] {
    {
      HandlerScope scope(this);
      Resume([&] { open ? Init() : Stop(); });
    }
    CollectGraveyard();
  });
}

void ServerCore::MaxConcurrentConnections(const Variant& count) {
  Resume([&] { max_connections_ = CLng(count); });
}

int16_t ServerCore::CurrentConnections() const {
  int16_t busy = 0;
  const int32_t upper = UpperBound();
  for (int32_t i = 1; i <= upper; ++i) {
    Resume([&] {
      if (Sock(i).State() != kSocketClosed) busy = AddInt16(busy, 1);
    });
  }
  return busy;
}

int16_t ServerCore::WatchdogTimeout() const {
  int16_t seconds = 0;
  Resume([&] { seconds = CInt(watchdog_timeout_); });
  return seconds;
}

void ServerCore::WatchdogTimeout(int16_t seconds) { watchdog_timeout_ = Variant::Integer(seconds); }

// Init: one failure handler for the whole routine. Pumps only inside Stop.
void ServerCore::Init() {
  try {
    Report(u"Init - Deteniendo server");
    Stop();
    if (CDbl(watchdog_timeout_) == 0) watchdog_timeout_ = Variant::Integer(300);
    if (server_port_ == 0) server_port_ = 80;
    const int16_t port = ToInt16(server_port_);  // above 32767 fails with 6
    default_document_ = u"index.html";
    cached_404_ = CStr(html_404error());
    cached_start_ = CStr(html_GenericStart(u"Respuesta", u"black", u"white", u"red"));
    cached_end_ = CStr(html_GenericEnd());
    if (max_connections_ == 0) max_connections_ = 5;
    Report(u"Init - Creando motores (" + CStr(Variant::Long(max_connections_)) + u")");
    for (int32_t i = 1; i <= max_connections_; ++i) {
      const int16_t index = ToInt16(i);
      LoadSlot(index);
      // The three arrays are recreated with bounds 0..i, empty. Nothing
      // writes them between two rounds, so after the first round growing by
      // one empty element gives the same arrays without refilling them all.
      if (i == 1) {
        proceso_texto_.assign(index + 1, Variant());
        proceso_extra_.assign(index + 1, Variant());
        proceso_keep_open_.assign(index + 1, false);
      } else {
        proceso_texto_.resize(index + 1);
        proceso_extra_.resize(index + 1);
        proceso_keep_open_.resize(index + 1, false);
      }
      arrays_created_ = true;
      SocketCtl& s = Sock(index);
      s.Close();
      s.SetBlocking(false);
      s.SetSocketMode(1);
      s.SetEventMask(kEventMaskAll);
      s.SetSecureServer(server_secure_);
      s.SetCertificateName(kCertificateName);
      s.SetSecureClient(client_secure_);
      s.SetSendBufferSize(kBufferSize);
      s.SetReceiveBufferSize(kBufferSize);
      s.SetLingerEnabled(true);
      s.SetLingerMode(1);
      s.SetLingerTime(1);
    }
    Report(u"Init - Creando socket de entrada");
    const Variant no_address = Variant::Missing();
    const Variant port_value = Variant::Integer(port);
    listener_->Close();
    listener_->Create(no_address, port_value);
    listener_->SetLocalPort(port);
    listener_->SetEventMask(kEventMaskAll);
    listener_->SetBlocking(false);
    listener_->Bind(no_address, port_value);
    listener_->Listen();
    Text hint = u"http://" + listener_->LocalAddress();
    if (port != 80) hint += u":" + CStr(Variant::Integer(port));
    hint_text_ = hint + u"/";
    watchdog_->SetEnabled(true);
  } catch (const RuntimeError& failure) {
    Resume([&] { Report(u"Init - Error cargando motores"); });
    Resume([&] { Report(u"Init - Deteniendo server"); });
    Resume([&] { Stop(); });
    Resume([&] { Report(u"Init - Cerrando socket de escucha"); });
    Resume([&] {
      if (listener_->State() != kSocketClosed) listener_->Close();
    });
    // A secure channel that cannot start says why, after the usual reports.
    if (failure.number() == kSockErrCertificate) {
      Resume([&] { Report(u"Init - Error de certificado: " + Utf8ToText(failure.description())); });
    }
  }
}

// Stop: every statement swallows its failure. Pumps up to 10 s waiting for the
// listener to close. Leaves the arrays and the access tables alone.
void ServerCore::Stop() {
  Resume([&] { hint_text_ = u"Not active"; });
  Resume([&] { listener_->Close(); });
  Resume([&] { WaitClosed(listener_.get(), 0); });
  Resume([&] { Motores_Unload(); });
  Resume([&] { Pagina404_Clear(); });
  Resume([&] { watchdog_->SetEnabled(false); });
}

// Removes slots 1..MaxConcurrentConnections as it reads now; a slot that is
// not there fails quietly. Sockets are not closed first: removal ends them.
void ServerCore::Motores_Unload() {
  const int32_t count = max_connections_;
  for (int32_t i = 1; i <= count; ++i) {
    Resume([&] { UnloadSlot(ToInt16(i)); });
  }
}

void ServerCore::LoadSlot(int32_t index) {
  if (index < static_cast<int32_t>(slots_.size()) && slots_[index]) {
    Fail(360, "Object already loaded");
  }
  auto slot = std::make_unique<Slot>();
  // Room for a stamp ("yyyy-mm-dd hh:nn:ss"), so accepts allocate none.
  slot->motor_stamp.reserve(kStampUnits);
  slot->socket = platform_->sockets->Create();
  const int16_t number = static_cast<int16_t>(index);
  slot->socket->on_receive_ready = [this, number] {
    UnlessGone([&] { SocketX_ReceiveReady(number); });
  };
  slot->socket->on_done = [this, number](int32_t code) {
    UnlessGone([&] { SocketX_Done(number, code); });
  };
  if (index >= static_cast<int32_t>(slots_.size())) slots_.resize(index + 1);
  slots_[index] = std::move(slot);
}

void ServerCore::UnloadSlot(int32_t index) {
  if (index <= 0 || index >= static_cast<int32_t>(slots_.size()) || !slots_[index]) {
    Fail(340, "Control array element does not exist");
  }
  std::unique_ptr<Slot> slot = std::move(slots_[index]);
  slot->socket->on_done = nullptr;
  slot->socket->on_receive_ready = nullptr;
  // A handler of this very socket may be on the stack below us (a host that
  // stops the server inside an event); the object is freed once that is over.
  SocketCtl* socket = slot->socket.get();
  graveyard_.push_back(std::move(slot));
  while (slots_.size() > 1 && !slots_.back()) slots_.pop_back();
  CollectGraveyard();
  // Until it can be freed, a kept socket is at least ended now.
  if (!graveyard_.empty()) Resume([&] { socket->Close(); });
}

void ServerCore::CollectGraveyard() {
  if (handler_depth_ == 0 && loop().PumpDepth() == 0) graveyard_.clear();
}

Text ServerCore::Var_CutAtNull(const Text& text, int32_t position) {
  Text upto = Left(text, position);
  if (!upto.empty() && static_cast<int32_t>(upto.size()) == position && upto.back() == u'\0') {
    upto.pop_back();
  }
  return upto;
}

Text ServerCore::Path_EnsureBackslash(const Text& path) {
  if (Right(path, 1) == u"\\") return path;
  return path + u"\\";
}

}  // namespace varnek
