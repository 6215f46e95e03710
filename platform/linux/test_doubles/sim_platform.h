// A whole platform for tests: the simulated loop on virtual time, settings in
// memory and a fixed application "VarnekTest".
//
// Test doubles, not a simulation of everything: the loop, sockets, comm
// ports, network clock and shares, settings and host services come from
// platform/sim/ (which stands on the interfaces alone), while files,
// profiles, the date locale and the network tables are the real Linux ones,
// as tests work in temporary folders. Hence its place under platform/linux/.
//
//   SimPlatform sim;                       // 2026-01-01 12:00:00
//   Adds adds(sim.platform);
//   sim.loop.After(1.0, [&]{ ... });
#pragma once

#include "varnek/platform/platform.h"
#include "varnek/platform/message_box.h"
#include "varnek/platform/sim/fake_network_shares.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/sim/fixed_system_readings.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "varnek/platform/sim/recording_clipboard.h"
#include "varnek/platform/sim/recording_midi_output.h"
#include "varnek/platform/sim/recording_surface.h"
#include "varnek/platform/sim/recording_web_services.h"
#include "varnek/platform/sim/sim_comm.h"
#include "varnek/platform/sim/sim_loop.h"
#include "varnek/platform/sim/sim_network_clock.h"
#include "varnek/platform/sim/sim_socket.h"
#include "varnek/platform/linux/internal/linux_net_tables.h"

namespace varnek {

struct SimPlatform {
  // 2026-01-01 12:00:00 as a classic date.
  static constexpr double kDefaultStart = 46023.5;

  // path: the application's folder; empty makes a fresh temporary folder that
  // is removed with the platform. mode: how the loop runs handlers.
  explicit SimPlatform(double start_date = kDefaultStart, Text command_line = {}, Text path = {},
                       LoopMode mode = LoopMode::kStrands);
  ~SimPlatform();
  SimPlatform(const SimPlatform&) = delete;
  SimPlatform& operator=(const SimPlatform&) = delete;

  SimLoop loop;
  MemorySettingsStore settings;
  FixedApplication app;
  FixedSystemReadings readings;
  SimNetworkClock network_clock{loop};
  RecordedMessages messages;
  FakeNetworkShares shares;
  RecordingSurfaceFactory surfaces;
  RecordingClipboard clipboard;
  RecordingMidiOutput midi;
  SimCommFactory comms{loop};  // serial ports: attach scripted peers to port numbers
  SimNetwork net{loop};        // sockets: connect simulated peers to its ports
  RecordingWebServices web;
  LinuxNetTables net_tables;  // this machine's tables, read only when a test asks
  // Points at the members above; files, profiles and dates are the real ones,
  // as tests work in temporary folders.
  Platform platform;

 private:
  bool owns_path_ = false;
};

}  // namespace varnek
