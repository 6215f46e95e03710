// HTTPServer, the host's face of the server: each call goes to the core that
// holds the state (server_core_internal.h); the events stay here.
#include "varnek/server/http_server.h"

#include "varnek/server/server_core_internal.h"

namespace varnek {

HTTPServer::HTTPServer(Platform& platform) : core_(std::make_unique<ServerCore>(platform, *this)) {}

// The core goes first (it is the last member) and runs Stop with the events whole.
HTTPServer::~HTTPServer() = default;

bool HTTPServer::ServerOpen() const { return core_->ServerOpen(); }
void HTTPServer::ServerOpen(bool open) { core_->ServerOpen(open); }
int32_t HTTPServer::ServerPort() const { return core_->ServerPort(); }
void HTTPServer::ServerPort(int32_t port) { core_->ServerPort(port); }
Variant HTTPServer::MaxConcurrentConnections() const { return core_->MaxConcurrentConnections(); }
void HTTPServer::MaxConcurrentConnections(const Variant& count) {
  core_->MaxConcurrentConnections(count);
}
int16_t HTTPServer::CurrentConnections() const { return core_->CurrentConnections(); }
int16_t HTTPServer::WatchdogTimeout() const { return core_->WatchdogTimeout(); }
void HTTPServer::WatchdogTimeout(int16_t seconds) { core_->WatchdogTimeout(seconds); }
Variant HTTPServer::ServerWelcomeString() const { return core_->ServerWelcomeString(); }
void HTTPServer::ServerWelcomeString(const Variant& text) { core_->ServerWelcomeString(text); }
Variant HTTPServer::ServerBusyString() const { return core_->ServerBusyString(); }
void HTTPServer::ServerBusyString(const Variant& text) { core_->ServerBusyString(text); }
bool HTTPServer::ServerSecure() const { return core_->ServerSecure(); }
void HTTPServer::ServerSecure(bool secure) { core_->ServerSecure(secure); }
bool HTTPServer::ClientSecure() const { return core_->ClientSecure(); }
void HTTPServer::ClientSecure(bool secure) { core_->ClientSecure(secure); }
int32_t HTTPServer::MaxConnectionsPerAddress() const { return core_->MaxConnectionsPerAddress(); }
void HTTPServer::MaxConnectionsPerAddress(int32_t count) { core_->MaxConnectionsPerAddress(count); }
Variant HTTPServer::SocketControl() const { return core_->SocketControl(); }
void HTTPServer::SocketControl(const Variant& control) { core_->SocketControl(control); }
const Text& HTTPServer::HintText() const { return core_->HintText(); }
int32_t HTTPServer::Width() const { return core_->Width(); }
int32_t HTTPServer::Height() const { return core_->Height(); }
void HTTPServer::Resize(int32_t width, int32_t height) { core_->Resize(width, height); }
void HTTPServer::UserControl_Resize() { core_->UserControl_Resize(); }

Variant HTTPServer::http_Header(int32_t pNumCode, int32_t ContentType, const Variant& ContentLength,
                                const Variant& AuthenticateRealm) {
  return core_->http_Header(pNumCode, ContentType, ContentLength, AuthenticateRealm);
}
Variant HTTPServer::http_ErrorResponse(int32_t pNumError) {
  return core_->http_ErrorResponse(pNumError);
}
CollectionPtr HTTPServer::http_DecodeHeader(const Variant& VarHeader) {
  return core_->http_DecodeHeader(VarHeader);
}
Variant HTTPServer::html_404error() { return core_->html_404error(); }
Variant HTTPServer::html_GenericStart(const Variant& pTitulo, const Variant& FontColor,
                                      const Variant& BackColor, const Variant& LinkColor) {
  return core_->html_GenericStart(pTitulo, FontColor, BackColor, LinkColor);
}
Variant HTTPServer::html_GenericEnd() { return core_->html_GenericEnd(); }
Variant HTTPServer::html_retrieveHeader(const Text& tPage) {
  return core_->html_retrieveHeader(tPage);
}

Variant HTTPServer::UsersAdd(const Variant& UserNameDosPuntosClave) {
  return core_->UsersAdd(UserNameDosPuntosClave);
}
Variant HTTPServer::UsersGet(int16_t Index) { return core_->UsersGet(Index); }
Variant HTTPServer::UsersDelete(int16_t Index) { return core_->UsersDelete(Index); }
int16_t HTTPServer::UsersCount() { return core_->UsersCount(); }
bool HTTPServer::UsersFindIfIsIn(const Variant& UserNameDosPuntosClave) {
  return core_->UsersFindIfIsIn(UserNameDosPuntosClave);
}
Variant HTTPServer::SecurePathAdd(const Variant& NewPath) { return core_->SecurePathAdd(NewPath); }
Variant HTTPServer::SecurePathGet(int16_t Index) { return core_->SecurePathGet(Index); }
Variant HTTPServer::SecurePathDelete(int16_t Index) { return core_->SecurePathDelete(Index); }
int16_t HTTPServer::SecurePathCount() { return core_->SecurePathCount(); }
bool HTTPServer::SecurePathFindIfIsIn(const Variant& RequestPath) {
  return core_->SecurePathFindIfIsIn(RequestPath);
}

int32_t HTTPServer::ProcesoStatus_Code(const Variant& Index) {
  return core_->ProcesoStatus_Code(Index);
}
Variant HTTPServer::ProcesoStatus_String(const Variant& Index) {
  return core_->ProcesoStatus_String(Index);
}
void HTTPServer::Proceso_Send(const Variant& Index, const Variant& value) {
  core_->Proceso_Send(Index, value);
}
Variant HTTPServer::Proceso_Receive(const Variant& Index) { return core_->Proceso_Receive(Index); }
void HTTPServer::Proceso_Close(const Variant& Index) { core_->Proceso_Close(Index); }
bool HTTPServer::Proceso_KeepOpen(const Variant& Index) { return core_->Proceso_KeepOpen(Index); }
void HTTPServer::Proceso_KeepOpen(const Variant& Index, bool keep) {
  core_->Proceso_KeepOpen(Index, keep);
}

HostLoop& HTTPServer::loop() const { return core_->loop(); }
Adds& HTTPServer::adds() { return core_->adds(); }

}  // namespace varnek
