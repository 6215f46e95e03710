// What the post and the GET share: their pause and their closing tail.
#include "varnek/adds/net/internal/net_waits.h"
#include "varnek/adds/net/network.h"

namespace varnek {

void Network::PauseSeconds(double seconds) { loop().PauseTimer(seconds); }

void Network::CloseAndWait(SocketCtl* SocketX, bool pause_first) {
  HostLoop& host = loop();
  host.DoEvents();
  Resume([&] { net_waits::Control(SocketX).Close(); });
  host.DoEvents();
  Resume([&] {
    SocketCtl& s = net_waits::Control(SocketX);
    if (s.State() == kSocketClosed) return;
    if (pause_first) PauseSeconds(1);
    s.Close();
    if (!pause_first) PauseSeconds(1);
    host.DoEvents();
    net_waits::PumpWhileBefore(host, net_waits::NowSeconds(host) + 10,
                               [&] { return s.State() != kSocketClosed; });
  });
}

}  // namespace varnek
