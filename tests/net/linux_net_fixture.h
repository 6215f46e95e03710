// Adds on a Linux platform for one test, and a gateway post on it: its own loop and sockets, names
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
#include "varnek/platform/linux/internal/linux_net_tables.h"
#include "varnek/platform/linux/linux_socket.h"
#include "varnek/platform/linux/internal/linux_web_services.h"
#include "varnek/platform/platform.h"
#include "varnek/platform/sim/fixed_application.h"
#include "varnek/platform/sim/memory_settings_store.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"

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

// POST_SendMensaje of a fixed code and message to a gateway on loopback.
struct LinuxGatewayPost : LinuxNetFixture {
  static inline const Variant kNo = Variant::Missing();
  int32_t Post(const std::string& url, Variant ok = kNo, Variant fail = kNo, Variant delayed = kNo,
               Variant timeout = Variant(10)) {
    Variant u = Variant(BytesToText(url)), code_field = u"pin", code = u"77", msg_field = u"msg",
            msg = u"hi there";
    return adds.POST_SendMensaje(sock.get(), u, code_field, code, msg_field, msg, {}, {}, ok, fail,
                                 {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, {}, delayed, timeout);
  }
  std::string Answer() { return TextToBytes(adds.POST_SendMensaje_Response.ToText()); }
  // What a failed expectation shows: the answer so far and the socket's last error.
  std::string Seen() {
    return "answer: [" + Answer() + "] socket error: " + TextToBytes(sock->ErrorText());
  }
};

}  // namespace varnek
