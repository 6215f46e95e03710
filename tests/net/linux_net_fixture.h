// Adds on a Linux platform for one test: its own loop and sockets, names
// from a hosts file of the test's own ("gateway.test" is 127.0.0.1) and
// never from DNS; the services a network test does not reach simulated.
#pragma once

#include <gtest/gtest.h>

#include <memory>

#include "tests/support/commands.h"
#include "tests/support/loopback.h"
#include "tests/support/scripted_server.h"
#include "varnek/adds/adds.h"
#include "varnek/platform/linux/linux_loop.h"
#include "varnek/platform/linux/linux_net_tables.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/linux_web_services.h"
#include "varnek/platform/platform.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "varnek/platform/sim/sim_platform.h"

namespace varnek {

struct LinuxNetPlatform {
  LinuxNetPlatform() {
    sockets.SetResolverConfig({"", "f", 500, 1});
    platform.loop = loop;
    platform.app = app;
    platform.settings = settings;
    platform.sockets = sockets;
    platform.net_tables = tables;
    platform.web = web;
  }
  HostsFile hosts{"127.0.0.1 gateway.test\n"};
  LinuxLoop loop;
  FixedApplication app{u"VarnekNetTest", u"/tmp", {}};
  MemorySettingsStore settings;
  LinuxSocketFactory sockets{loop};
  LinuxNetTables tables;
  LinuxWebServices web{loop};
  SimPlatform sim;
  Platform platform = sim.platform;
};

// Adds on that platform, with a socket control of its own.
struct LinuxNetFixture : ::testing::Test {
  LinuxNetPlatform env;
  Adds adds{env.platform};
  std::unique_ptr<SocketCtl> sock = env.sockets.Create();
};

}  // namespace varnek
