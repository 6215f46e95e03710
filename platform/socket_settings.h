// The settings of a socket control that the logic writes and the control
// keeps: a base for the controls, so each one only applies what has a meaning
// on its platform (in SettingsChanged).
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
  void SetRemoteNameAddrXlate(bool resolve) override { Change(settings_.remote_name_xlate, resolve); }
  bool RemoteNameAddrXlate() const override { return settings_.remote_name_xlate; }
  void SetLocalAddress(TextView address) override { Change(settings_.local_address, Text(address)); }

 protected:
  // Called after every setting is written; the default applies nothing.
  virtual void SettingsChanged() {}
  const SocketSettings& settings() const { return settings_; }

 private:
  template <class T>
  void Change(T& field, T value) {
    field = std::move(value);
    SettingsChanged();
  }
  SocketSettings settings_;
};

}  // namespace varnek
