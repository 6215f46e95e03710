// The machine's network tables as the network tools read them: the TCP
// connection table in the classic row form, the adapters with their
// addresses, gateways and DHCP servers, the machine's name and its connected
// state. Sources on Linux: /proc/net/tcp and tcp6, getifaddrs,
// /proc/net/route and the DHCP clients' lease files (see linux_net_tables.h).
//
// Rules every implementation keeps:
// - TCP rows carry the classic words: addresses and ports in network byte
//   order as they lie in memory (port 80 is the word 0x5000), states by the
//   classic numbers (1 CLOSED .. 12 DELETE_TCB).
// - Nothing raises: a source that is missing or unreadable gives the status
//   or the empty result documented below.
#pragma once

#include <cstdint>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

// One row of the classic TCP table.
struct TcpRow {
  uint32_t state = 0, local_addr = 0, local_port = 0, remote_addr = 0, remote_port = 0;
  // For a close: the state the snapshot listed (state itself holds 12,
  // "delete the entry").
  uint32_t listed_state = 0;
};

enum class TcpTableStatus {
  kOk,
  kUnsupported,  // the machine has no such table
  kFailed,       // the table exists but could not be read
};

// One adapter (a network interface other than loopback).
struct AdapterInfo {
  Text description;                                     // the interface's name
  bool dhcp_enabled = false;                            // a DHCP lease for it was found
  std::vector<Text> addresses, gateways, dhcp_servers;  // dotted IPv4
};

// The classic connected-state bits.
enum ConnectedStateBit : uint32_t {
  kConnModem = 1,
  kConnLan = 2,
  kConnProxy = 4,
  kConnModemBusy = 8,
  kConnRasInstalled = 16,
  kConnOffline = 32,
  kConnConfigured = 64,
};

class NetTables {
 public:
  virtual ~NetTables() = default;
  // The whole TCP table, unsorted.
  virtual TcpTableStatus TcpTable(std::vector<TcpRow>& rows) = 0;
  // Resets exactly the connection with the row's four keys in its listed
  // state, never a listener. False when it has gone (or is no longer in that
  // state), or the system refuses.
  virtual bool CloseTcp(const TcpRow& row) = 0;
  // The adapters in the system's order; false when they cannot be listed.
  virtual bool Adapters(std::vector<AdapterInfo>& adapters) = 0;
  // The machine's name; false when it cannot be read.
  virtual bool MachineName(Text& name) = 0;
  // ConnectedStateBit flags.
  virtual uint32_t ConnectedState() = 0;
};

}  // namespace varnek
