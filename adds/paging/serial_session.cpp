// The serial session: open and dial, write, and collect what comes back until
// a time limit, a quiet spell or an awaited string. Every wait is a pump of
// the host loop that blocks until text arrives or the limit's second begins.
#include <cmath>

#include "varnek/adds/paging/paging.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

const Text kCr = u"\r";
const Text kCrLf = u"\r\n";

bool Holds(const Text& text, const Text& part) { return !part.empty() && InStr(text, part) > 0; }

bool StartsWith(const Text& text, const Text& head) {
  return text.size() >= head.size() && text.compare(0, head.size(), head) == 0;
}

bool EndsWith(const Text& text, const Text& tail) {
  return text.size() >= tail.size() &&
         text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

Text Paging::SerialRead(CommCtl& comm) {
  return comm.TypeName() == kXMCommTypeName ? comm.InputData() : comm.Input();
}

Text Paging::CommandRead(CommCtl& comm) {
  try {
    return comm.Input();
  } catch (const RuntimeError& e) {
    if (e.number() != kErrNoSuchMember) throw;
  }
  return comm.InputData();  // a control offering InputData in place of Input
}

int64_t Paging::NowSeconds() { return loop().NowSeconds(); }

void Paging::PumpTowards(int64_t limit) { loop().Pump(loop().UntilSecond(limit)); }

Text Paging::Collect(CommCtl& comm, int32_t seconds, bool debug) {
  return SERIAL_Receive(comm, Variant::Long(seconds), debug, true, u"", u"");
}

bool Paging::SendLine(CommCtl& comm, const Text& text, bool debug) {
  return SERIAL_Send(comm, Variant(text), debug);
}

bool Paging::DialThreeTimes(CommCtl& comm, const Variant& port, const Variant& baud,
                            const Variant& data, bool parity_n, const Variant& stop,
                            const Variant& init, const Variant& phone, bool debug) {
  for (int i = 0; i < 3; ++i) {
    if (SERIAL_Connect(comm, port, baud, data, parity_n, stop, init, phone, 45, debug)) return true;
  }
  return false;
}

bool Paging::TryThreeTimes(CommCtl& comm, const Text& text, int32_t seconds, const Text& awaited,
                           bool debug) {
  for (int i = 0; i < 3; ++i) {
    SendLine(comm, text, debug);
    if (InStr(Collect(comm, seconds, debug), awaited) > 0) return true;
  }
  return false;
}

bool Paging::SERIAL_IsOpen(CommCtl& SerialControl) { return SerialControl.PortOpen(); }

bool Paging::SERIAL_Connect(CommCtl& SerialControl, const Variant& pSerialPort,
                            const Variant& pBaudRate, const Variant& pDataBits,
                            bool pParityNtrue_Efalse, const Variant& pStopBit,
                            const Variant& ModemInit, const Variant& slTelefono, int16_t slTOut,
                            bool /*DebugComm: ignored, False is passed on*/) {
  serial_operation_open_ = true;
  if (SerialControl.PortOpen()) {
    SerialControl.SetPortOpen(false);
    loop().DoEvents();
  }
  bool result = false;
  Guarded([&] {
    SerialControl.SetCommPort(Val(CStr(pSerialPort)));
    SerialControl.SetSettings(CStr(pBaudRate) + u"," + (pParityNtrue_Efalse ? u"N" : u"E") + u"," +
                              CStr(pDataBits) + u"," + CStr(pStopBit));
    SerialControl.SetDTREnable(true);
    SerialControl.SetHandshaking(Variant());  // empty: no handshake
    SerialControl.SetInBufferSize(2048);
    SerialControl.SetOutBufferSize(2048);
    loop().DoEvents();
    if (!SerialControl.PortOpen()) {
      SerialControl.SetPortOpen(true);
      loop().DoEvents();
    }
    if (Trim(CStr(ModemInit)) != u"") {
      Collect(SerialControl, 0);
      SendLine(SerialControl, CStr(ModemInit) + kCr);  // its result is not looked at
      Collect(SerialControl, 3);
    }
    const Text number = CStr(slTelefono);
    if (number.empty()) {
      result = true;
      return;
    }
    const bool sent = SendLine(SerialControl, u"ATDT" + number + kCr);
    Collect(SerialControl, 10);  // the echo and anything early are thrown away
    if (!sent) return;
    if (Holds(Collect(SerialControl, slTOut), u"ONNECT")) {
      result = true;
    } else {
      SERIAL_Disconnect(SerialControl);
    }
  });
  return result;
}

bool Paging::SERIAL_Disconnect(CommCtl& SerialControl, bool /*DebugComm*/) {
  bool result = false;
  if (SerialControl.PortOpen()) {
    SerialControl.SetPortOpen(false);
    result = true;
  }
  serial_operation_open_ = false;
  serial_cancel_requested_ = false;
  return result;
}

Text Paging::SERIAL_Receive(CommCtl& SerialControl, const Variant& slTOut, bool DebugComm,
                            bool ExtendedTimeoutIfReceive, const Variant& StopIfReceiveString1,
                            const Variant& StopIfReceiveString2) {
  if (serial_cancel_requested_ || !SerialControl.PortOpen()) return {};
  int64_t t = 0;
  Text stop1, stop2, collected;
  Resume([&] { t = CLng(slTOut); });
  Resume([&] { stop1 = CStr(StopIfReceiveString1); });
  Resume([&] { stop2 = CStr(StopIfReceiveString2); });
  int64_t limit = NowSeconds() + t;
  auto waiting = [&] {
    int32_t count = 0;
    Resume([&] { count = SerialControl.InBufferCount(); });
    return count;
  };
  for (;;) {
    if (ExtendedTimeoutIfReceive) limit = NowSeconds() + t;
    while (waiting() == 0 && NowSeconds() < limit && !serial_cancel_requested_) {
      Resume([&] { collected += SerialRead(SerialControl); });
      // A pump cannot change the collected text: with a stop string already
      // in it, one pass that does not block keeps the classic order.
      const bool stop = Holds(collected, stop1) || Holds(collected, stop2);
      if (stop) {
        loop().DoEvents();
      } else {
        PumpTowards(limit);
      }
      if (stop) {
        if (DebugComm) Var_ConvierteCharControlToText(Variant(collected));  // dropped
        return collected;
      }
    }
    Text got;
    Resume([&] { got = SerialRead(SerialControl); });
    collected += got;
    loop().DoEvents();
    t = 2;
    if (got.empty()) break;
  }
  if (DebugComm) Var_ConvierteCharControlToText(Variant(collected));  // dropped: nothing is shown
  return collected;
}

Text Paging::SERIAL_WaitFor(CommCtl& SerialControl, const Variant& WaitString1,
                            const Variant& WaitString2, const Variant& WaitString3,
                            const Variant& slTOut, bool DebugComm, bool ExtendedTimeoutIfReceive) {
  if (serial_cancel_requested_ || !SerialControl.PortOpen()) return {};
  int64_t t = 0;
  Text wait1, wait2, wait3, collected;
  Resume([&] { t = CLng(slTOut); });
  Resume([&] { wait1 = CStr(WaitString1); });
  Resume([&] { wait2 = CStr(WaitString2); });
  Resume([&] { wait3 = CStr(WaitString3); });
  int64_t limit = NowSeconds() + t;
  for (;;) {
    if (ExtendedTimeoutIfReceive) limit = NowSeconds() + t;
    for (;;) {
      int32_t count = 0;
      Resume([&] { count = SerialControl.InBufferCount(); });
      if (count != 0 || NowSeconds() >= limit || serial_cancel_requested_) break;
      PumpTowards(limit);
    }
    Text got;
    Resume([&] { got = SerialRead(SerialControl); });
    collected += got;
    loop().DoEvents();
    t = 2;
    const bool all_empty = wait1.empty() && wait2.empty() && wait3.empty();
    if (Holds(collected, wait1) || Holds(collected, wait2) || Holds(collected, wait3) ||
        (all_empty && got.empty()) || NowSeconds() > limit || serial_cancel_requested_) {
      break;
    }
  }
  if (DebugComm) Var_ConvierteCharControlToText(Variant(collected));  // dropped
  return collected;
}

bool Paging::SERIAL_Send(CommCtl& SerialControl, const Variant& StrToSend, bool DebugComm) {
  if (serial_cancel_requested_) return false;
  if (!SerialControl.PortOpen()) return false;
  const Text text = CStr(StrToSend);
  SerialControl.SetOutput(text);
  if (DebugComm) Var_ConvierteCharControlToText(Variant(text));  // dropped
  const float start = loop().Timer();
  const int32_t wait = std::max<int32_t>(Len(text) / 50, 5);
  // Entered only when the wait has already run out: kept as it is.
  while (SerialControl.OutBufferCount() > 0 && loop().Timer() > start + static_cast<float>(wait) &&
         !serial_cancel_requested_) {
    loop().Pump(0.05);
  }
  return true;
}

Variant Paging::SERIAL_SendCommand(CommCtl& Comm, const Variant& NewCommand,
                                   const Variant& FiltrarParteRespuesta) {
  bool open = false;
  Resume([&] { open = Comm.PortOpen(); });
  if (!open) return Variant();
  Text command, reply;
  Resume([&] { command = CStr(NewCommand); });
  Resume([&] { CommandRead(Comm); });
  Resume([&] { Comm.SetOutput(command + kCrLf); });
  loop().DoEvents();
  loop().DoEvents();
  Resume([&] { reply = CommandRead(Comm); });
  const int64_t start = NowSeconds();
  while (NowSeconds() - start < 5 && InStr(reply, u"OK\r\n") == 0 &&
         InStr(reply, u"ERROR\r\n") == 0) {
    // Block only on an empty buffer: text taken in by the last pump wakes nobody.
    int32_t waiting = 0;
    Resume([&] { waiting = Comm.InBufferCount(); });
    if (waiting > 0) {
      loop().DoEvents();
    } else {
      PumpTowards(start + 5);
    }
    Resume([&] { reply += CommandRead(Comm); });
    loop().DoEvents();
  }
  loop().DoEvents();
  Resume([&] { reply += CommandRead(Comm); });
  loop().DoEvents();
  const Text echo = command + kCrLf;
  if (StartsWith(reply, echo)) reply.erase(0, echo.size());
  if (EndsWith(reply, u"OK\r\n")) reply.erase(reply.size() - 4);
  // The "ERROR" line's last 7 characters are compared with "OK" CR LF, which
  // never matches: the line stays for the host to see.
  for (int i = 0; i < 2; ++i) {
    if (EndsWith(reply, kCrLf)) reply.erase(reply.size() - 2);
  }
  if (StartsWith(reply, kCrLf)) reply.erase(0, 2);
  if (!FiltrarParteRespuesta.IsMissing()) {
    Text filter;
    Resume([&] { filter = CStr(FiltrarParteRespuesta); });
    if (StartsWith(reply, filter)) reply.erase(0, filter.size());
  }
  return Variant(reply);
}

void Paging::SetSERIAL_CancelOperation(bool cancel) {
  if (cancel && serial_operation_open_) serial_cancel_requested_ = true;
}

}  // namespace varnek
