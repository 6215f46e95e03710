// The bundle of platform services that Adds and HTTPServer reach the machine
// through, one member per interface header. Hosts use LinuxPlatform() (or
// LinuxPlatformOn with a loop of their own), which sets every member; tests
// build one from simulated parts and set the members their routines reach.
#pragma once

#include "varnek/platform/application.h"
#include "varnek/platform/host_loop.h"
#include "varnek/platform/settings_store.h"

namespace varnek {

class SocketFactory;  // platform/socket.h
class FileSystem;     // platform/files.h
class ProfileStore;   // platform/profile.h
class DateLocale;     // platform/date_locale.h
class SystemReadings; // platform/system_readings.h
class NetworkClock;   // platform/network_clock.h
class MessageBox;     // platform/message_box.h
class NetworkShares;  // platform/network_shares.h
class SurfaceFactory; // platform/drawing_surface.h
class Clipboard;      // platform/clipboard.h
class MidiOutput;     // platform/midi_output.h
class NetTables;      // platform/net_tables.h
class WebServices;    // platform/web_services.h
class CommFactory;    // platform/comm.h

struct Platform {
  HostLoop* loop = nullptr;
  Application* app = nullptr;
  SettingsStore* settings = nullptr;
  SocketFactory* sockets = nullptr;
  FileSystem* files = nullptr;
  ProfileStore* profiles = nullptr;
  DateLocale* dates = nullptr;
  SystemReadings* readings = nullptr;
  NetworkClock* network_clock = nullptr;
  MessageBox* messages = nullptr;
  NetworkShares* shares = nullptr;
  SurfaceFactory* surfaces = nullptr;
  Clipboard* clipboard = nullptr;
  MidiOutput* midi = nullptr;
  NetTables* net_tables = nullptr;
  WebServices* web = nullptr;
  CommFactory* comms = nullptr;  // serial ports
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
