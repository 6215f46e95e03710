// NET_Stat and Net_Stat_CloseConnection: a filtered snapshot of the TCP
// table as tab-ended records, and the reset of one listed connection.
#include <cmath>
#include <vector>

#include "varnek/adds/net/network.h"
#include "varnek/platform/net_tables.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek {

Text Network::tcpAddressText(uint32_t word) {
  // The four bytes in memory order: the word holds them in network order.
  Text text;
  for (int i = 0; i < 4; ++i) {
    if (i) text += u".";
    text += CStr(Variant(static_cast<int>((word >> (8 * i)) & 0xFF)));
  }
  return text;
}

int32_t Network::tcpPortNumber(uint32_t word) {
  // Swapped by arithmetic, the division in floating point, the sum rounded
  // half to even: from 32768 up the shown port is often one too high. Kept.
  const double x = static_cast<double>(static_cast<int32_t>(word));
  const double low = std::fmod(x, 256.0);
  return static_cast<int32_t>(RoundHalfEven(low * 256.0 + x / 256.0));
}

Text Network::tcpStateName(uint32_t word) {
  static constexpr const char16_t* kNames[] = {
      u"CLOSED",    u"LISTEN",     u"SYN_SENT", u"SYN_RCVD", u"ESTAB",     u"FIN_WAIT1",
      u"FIN_WAIT2", u"CLOSE_WAIT", u"CLOSING",  u"LAST_ACK", u"TIME_WAIT", u"DELETE_TCB"};
  return word >= 1 && word <= 12 ? Text(kNames[word - 1]) : Text();
}

Variant Network::NET_Stat(bool ExcluirLocalhost, int32_t FiltrarSoloEstado,
                          const Variant& FiltrarSoloPuertoLocal,
                          const Variant& FiltrarSoloPuertoRemoto) {
  int32_t kept = 0;
  if (!Net_Stat_Lista) Net_Stat_Lista = std::make_shared<Collection>();
  while (Net_Stat_Lista->Count() > 0) {
    Net_Stat_Lista->Remove(Variant(1));
    loop().DoEvents();
  }
  std::vector<TcpRow> rows;
  const TcpTableStatus status = platform().net_tables->TcpTable(rows);
  if (status == TcpTableStatus::kUnsupported) return Variant::Long(-1);
  if (status != TcpTableStatus::kOk) return Variant::Long(kept);
  const auto signed_text = [](uint32_t w) { return CStr(Variant::Long(static_cast<int32_t>(w))); };
  for (const TcpRow& row : rows) {
    const Text local = tcpAddressText(row.local_addr);
    if (ExcluirLocalhost && (local == u"127.0.0.1" || local == u"0.0.0.0")) continue;
    if (FiltrarSoloEstado != 0 && static_cast<uint32_t>(FiltrarSoloEstado) != row.state) continue;
    const int32_t local_port = tcpPortNumber(row.local_port);
    const int32_t remote_port = tcpPortNumber(row.remote_port);
    // The port filters compare as Variants do: 0 keeps every row.
    if (FiltrarSoloPuertoLocal.ToDouble() != 0 && FiltrarSoloPuertoLocal.ToDouble() != local_port)
      continue;
    if (FiltrarSoloPuertoRemoto.ToDouble() != 0 &&
        FiltrarSoloPuertoRemoto.ToDouble() != remote_port)
      continue;
    Text record;
    for (const Text& field :
         {local, CStr(Variant::Long(local_port)), tcpAddressText(row.remote_addr),
          CStr(Variant::Long(remote_port)), tcpStateName(row.state), signed_text(row.local_addr),
          signed_text(row.local_port), signed_text(row.remote_addr), signed_text(row.remote_port),
          signed_text(row.state)}) {
      record += field + u"\t";
    }
    Net_Stat_Lista->Add(Variant(record));
    ++kept;
  }
  return Variant::Long(kept);
}

bool Network::Net_Stat_CloseConnection(const Variant& IndexFromStat) {
  bool closed = false;
  Guarded([&] {
    const double n = Val(CStr(IndexFromStat));
    if (!Net_Stat_Lista || n <= 0 || n > Net_Stat_Lista->Count()) return;
    const Variant record = Net_Stat_Lista->Item(Variant(n));
    TcpRow row;
    row.local_addr = static_cast<uint32_t>(Variant(Var_GetFieldAt(record, 6, u"\t")).ToLong());
    row.local_port = static_cast<uint32_t>(Variant(Var_GetFieldAt(record, 7, u"\t")).ToLong());
    row.remote_addr = static_cast<uint32_t>(Variant(Var_GetFieldAt(record, 8, u"\t")).ToLong());
    row.remote_port = static_cast<uint32_t>(Variant(Var_GetFieldAt(record, 9, u"\t")).ToLong());
    row.state = 12;  // delete the entry
    row.listed_state = static_cast<uint32_t>(Variant(Var_GetFieldAt(record, 10, u"\t")).ToLong());
    closed = platform().net_tables->CloseTcp(row);
  });
  return closed;
}

}  // namespace varnek
