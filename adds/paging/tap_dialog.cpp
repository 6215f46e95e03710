// The TAP dialog: dial and log in, one block per page with its checksum, and
// log out; all through the serial session.
#include "varnek/adds/paging/paging.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {
const Text kStx = u"\x02", kEtx = u"\x03", kEot = u"\x04", kAck = u"\x06", kCr = u"\r",
           kEsc = u"\x1b", kNak = u"\x15";
}  // namespace

Text Paging::TAP_CheckSum(const Variant& SLxBloque) {
  int64_t sum = 0;
  for (char16_t unit : CStr(SLxBloque)) sum += UnitToByte(unit);
  Text digits(3, u'0');
  for (int i = 2; i >= 0; --i) {  // repeated division by 16, lowest group last
    digits[i] = static_cast<char16_t>(48 + sum % 16);
    sum /= 16;
  }
  return digits;
}

bool Paging::TAP_InitDialog(CommCtl& SerialControl, const Variant& pSerialPort,
                            const Variant& pBaudRate, const Variant& pDataBits,
                            bool pParityNtrue_Efalse, const Variant& pStopBit,
                            const Variant& CurrModemInit, const Variant& CurrTelefono,
                            const Variant& CurrClave) {
  const auto steps = [&] {
    if (!DialThreeTimes(SerialControl, pSerialPort, pBaudRate, pDataBits, pParityNtrue_Efalse,
                        pStopBit, CurrModemInit, CurrTelefono))
      return false;
    Collect(SerialControl, 0);
    if (!TryThreeTimes(SerialControl, kCr, 3, u"ID")) return false;
    Collect(SerialControl, 0);
    return TryThreeTimes(SerialControl, kEsc + u"PG1" + CStr(CurrClave) + kCr, 10, u"[p");
  };
  if (steps()) return true;
  SERIAL_Disconnect(SerialControl);
  return false;
}

bool Paging::TAP_SendMsg(CommCtl& SerialControl, const Variant& CurrCodigo, Variant& CurrMensaje,
                         bool FiltraCaracteres) {
  if (FiltraCaracteres) CurrMensaje = Var_FiltraCaracteres(CurrMensaje);
  const Text message = CStr(CurrMensaje);
  const Text body = kStx + CStr(CurrCodigo) + kCr + message + kCr + kEtx;
  if (!SendLine(SerialControl, body + TAP_CheckSum(Variant(body)) + kCr)) return false;
  const int32_t wait = std::max<int32_t>(Len(message) / 50, 10);
  Text reply =
      SERIAL_Receive(SerialControl, Variant::Long(wait), false, true, Variant(kAck), Variant(kNak));
  reply += Collect(SerialControl, 0);  // the CR behind a single ACK, and the rest
  loop().DoEvents();
  if (InStr(reply, kAck + kCr) > 0) return true;
  // NAK CR and RS (30) CR both mean a refusal, as does no answer at all.
  return false;
}

bool Paging::TAP_CloseDialog(CommCtl& SerialControl) {
  bool result = false;
  bool sent = false;
  Resume([&] { sent = SendLine(SerialControl, kEot + kCr); });
  if (!sent) return false;
  Text reply;
  Resume([&] { reply = Collect(SerialControl, 5); });
  if (InStr(reply, kEsc + kEot + kCr) > 0) result = true;
  Resume([&] { SerialControl.SetPortOpen(false); });
  return result;
}

}  // namespace varnek
