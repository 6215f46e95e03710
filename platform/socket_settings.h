// The settings of a socket control that the logic writes and the control
// keeps, and the plain state every control reports (state, ports, remote
// address, last error): a base for the controls, so each one only applies
// what has a meaning on its platform (in SettingsChanged).
#pragma once

#include <cstdint>

#include "varnek/platform/socket.h"

namespace varnek {

struct SocketSettings {
  int32_t event_mask = 0, linger_mode = 0, linger_time = 0;
  int32_t receive_buffer = 0, send_buffer = 0, socket_mode = 0;
  bool blocking = true, linger_enabled = false, secure_server = false;
  bool secure_client = false, reuse_address = false;
  Text certificate;
  Text remote_name, local_address;  // outgoing target and bind address
  bool remote_name_xlate = false;
};

class SocketWithSettings : public SocketCtl {
 public:
  void SetEventMask(int32_t mask) override { Change(settings_.event_mask, mask); }
  void SetBlocking(bool blocking) override { Change(settings_.blocking, blocking); }
  void SetLingerEnabled(bool enabled) override { Change(settings_.linger_enabled, enabled); }
  void SetLingerMode(int32_t mode) override { Change(settings_.linger_mode, mode); }
  void SetLingerTime(int32_t seconds) override { Change(settings_.linger_time, seconds); }
  void SetReceiveBufferSize(int32_t size) override { Change(settings_.receive_buffer, size); }
  void SetSendBufferSize(int32_t size) override { Change(settings_.send_buffer, size); }
  void SetSocketMode(int32_t mode) override { Change(settings_.socket_mode, mode); }
  void SetSecureServer(bool secure) override { Change(settings_.secure_server, secure); }
  void SetSecureClient(bool secure) override { Change(settings_.secure_client, secure); }
  void SetCertificateName(TextView name) override { Change(settings_.certificate, Text(name)); }
  void SetReuseAddressEnabled(bool enabled) override { Change(settings_.reuse_address, enabled); }
  void SetRemoteName(TextView name) override { Change(settings_.remote_name, Text(name)); }
  Text RemoteName() const override { return settings_.remote_name; }
  void SetRemoteNameAddrXlate(bool resolve) override {
    Change(settings_.remote_name_xlate, resolve);
  }
  bool RemoteNameAddrXlate() const override { return settings_.remote_name_xlate; }
  void SetLocalAddress(TextView address) override {
    Change(settings_.local_address, Text(address));
  }

  int32_t State() const override { return state_; }
  int32_t LocalPort() const override { return local_port_; }
  void SetLocalPort(int32_t port) override { local_port_ = port; }
  Text RemoteAddress() const override { return remote_address_; }
  int32_t RemotePort() const override { return remote_port_; }
  void SetRemoteAddress(TextView address) override { remote_address_ = Text(address); }
  void SetRemotePort(int32_t port) override { remote_port_ = port; }
  bool Listening() const override { return state_ == kSocketListening; }
  Text StateText() const override { return SocketStateText(state_); }
  Text ErrorText() const override { return error_text_; }

 protected:
  // Called after every setting is written; the default applies nothing.
  virtual void SettingsChanged() {}
  const SocketSettings& settings() const { return settings_; }

  int32_t state_ = kSocketClosed;
  int32_t local_port_ = 0;
  int32_t remote_port_ = 0;
  Text remote_address_;
  Text error_text_;  // the last failure's text, "" when none

 private:
  template <class T>
  void Change(T& field, T value) {
    field = std::move(value);
    SettingsChanged();
  }
  SocketSettings settings_;
};

}  // namespace varnek
