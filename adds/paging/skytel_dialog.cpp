// The Skytel dialog: the service's text menus answered as a person at a
// terminal would, through the serial session.
#include "varnek/adds/paging/paging.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

const Text kCrLf = u"\r\n";
const Text kPagerPrompt = u"\rPAGER ID: ";
const Text kMenuPrompt = u"\rFUNCTION: ";
const Text kMessagePrompt = u"\rENTER ALPHA MESSAGE: ";

bool Holds(const Text& text, const Text& part) { return InStr(text, part) > 0; }

}  // namespace

bool Paging::SKYTEL_InitDialog(CommCtl& SerialControl, int16_t pSerialPort, int16_t pBaudRate,
                               int16_t pDataBits, bool pParityNtrue_Efalse, int16_t pStopBit,
                               const Variant& CurrModemInit, const Variant& CurrTelefono,
                               const Variant& CurrPager, bool DebugCom) {
  const auto steps = [&] {
    if (!DialThreeTimes(SerialControl, Variant::Integer(pSerialPort), Variant::Integer(pBaudRate),
                        Variant::Integer(pDataBits), pParityNtrue_Efalse,
                        Variant::Integer(pStopBit), CurrModemInit, CurrTelefono, DebugCom))
      return false;
    Collect(SerialControl, 0, DebugCom);
    if (!TryThreeTimes(SerialControl, kCrLf, 10, kPagerPrompt, DebugCom)) return false;
    Collect(SerialControl, 0, DebugCom);
    return TryThreeTimes(SerialControl, CStr(CurrPager) + kCrLf, 10, kMenuPrompt, DebugCom);
  };
  if (steps()) return true;
  SERIAL_Disconnect(SerialControl, false);
  return false;
}

bool Paging::SKYTEL_SendMsg(CommCtl& SerialControl, const Variant& CurrPager, Variant& CurrMensaje,
                            bool DebugCom) {
  CurrMensaje = Var_FiltraCaracteres(CurrMensaje);
  const Text message = CStr(CurrMensaje);
  auto send = [&](const Text& line) { return SendLine(SerialControl, line + kCrLf, DebugCom); };
  auto collect = [&](int32_t seconds) { return Collect(SerialControl, seconds, DebugCom); };
  for (int retries = 0; retries <= 3; ++retries) {
    collect(0);
    send(u"1");
    Text reply = collect(10);
    if (Holds(reply, kMessagePrompt)) {
      collect(0);
      send(message);
      reply = collect(std::max<int32_t>(Len(message) / 20, 10));
      if (Holds(reply, u"SEND ?: ")) {  // no CR needed here
        collect(0);
        send(u"Y");
        collect(10);
        return true;
      }
      if (Holds(reply, kMenuPrompt)) continue;
      return false;
    }
    if (Holds(reply, kPagerPrompt)) {  // the service dropped the pager: back into the menu
      send(CStr(CurrPager));
      if (Holds(collect(10), kMenuPrompt)) continue;
      return false;
    }
    if (Holds(reply, kMenuPrompt)) continue;
    if (Holds(reply, u"\rSEND ?: ")) {  // a stale confirmation: refuse it
      send(u"N");
      if (Holds(collect(5), kMenuPrompt)) continue;
    }
    return false;
  }
  return false;
}

bool Paging::SKYTEL_CloseDialog(CommCtl& SerialControl, bool DebugCom) {
  bool result = false;
  bool sent = false;
  Resume([&] { sent = SendLine(SerialControl, u"99" + kCrLf, DebugCom); });
  if (!sent) return false;
  Text reply;
  Resume([&] { reply = Collect(SerialControl, 10, DebugCom); });
  if (Holds(reply, u"Disconnecting\r")) result = true;
  Resume([&] { SerialControl.SetPortOpen(false); });
  return result;
}

}  // namespace varnek
