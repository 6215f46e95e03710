// The bundle of platform services that Adds and HTTPServer reach the machine
// through, one member per interface header. Every member is a Service: bound
// to an object when the bundle is made and never null, so a bundle that leaves
// one out does not compile. Hosts use LinuxPlatform() (or LinuxPlatformOn with
// a loop of their own); tests use SimPlatform and re-point the services a test
// replaces:
//
//   SimPlatform sim;
//   sim.platform.sockets = net;   // a simulated network instead of the default
#pragma once

#include "varnek/platform/application.h"
#include "varnek/platform/host_loop.h"
#include "varnek/platform/settings_store.h"

namespace varnek {

class SocketFactory;   // platform/socket.h
class FileSystem;      // platform/files.h
class ProfileStore;    // platform/profile.h
class DateLocale;      // platform/date_locale.h
class SystemReadings;  // platform/system_readings.h
class NetworkClock;    // platform/network_clock.h
class MessageBox;      // platform/message_box.h
class NetworkShares;   // platform/network_shares.h
class SurfaceFactory;  // platform/drawing_surface.h
class Clipboard;       // platform/clipboard.h
class MidiOutput;      // platform/midi_output.h
class NetTables;       // platform/net_tables.h
class WebServices;     // platform/web_services.h
class CommFactory;     // platform/comm.h

// A platform service: a reference that can be re-pointed but never be null.
template <class T>
class Service {
 public:
  Service(T& service) : service_(&service) {}  // implicit: Platform{.loop = loop, ...}
  Service& operator=(T& service) {
    service_ = &service;
    return *this;
  }
  T* operator->() const { return service_; }
  T& operator*() const { return *service_; }
  T* get() const { return service_; }

 private:
  T* service_;
};

// Made with designated initializers in this order, naming every member.
struct Platform {
  Service<HostLoop> loop;
  Service<Application> app;
  Service<SettingsStore> settings;
  Service<SocketFactory> sockets;
  Service<FileSystem> files;
  Service<ProfileStore> profiles;
  Service<DateLocale> dates;
  Service<SystemReadings> readings;
  Service<NetworkClock> network_clock;
  Service<MessageBox> messages;
  Service<NetworkShares> shares;
  Service<SurfaceFactory> surfaces;
  Service<Clipboard> clipboard;
  Service<MidiOutput> midi;
  Service<NetTables> net_tables;
  Service<WebServices> web;
  Service<CommFactory> comms;  // serial ports
};

// The process-wide Linux platform, made at first use.
Platform& LinuxPlatform();

class LinuxLoop;  // platform/linux/linux_loop.h
// A Linux platform around a loop the host made itself (say, one-stack, or
// one it watches its own descriptors on): the services that need a loop use
// `loop`, which must outlive every use of the bundle. Made anew per call and
// never destroyed, like LinuxPlatform().
Platform& LinuxPlatformOn(LinuxLoop& loop);

}  // namespace varnek
