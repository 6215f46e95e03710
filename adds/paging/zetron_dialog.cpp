// The Zetron dialog: the terminal's questions answered one by one, following
// whatever question comes back, within one minute for the whole message. A
// good page ends at the closing check: "C" CR brings "* Message Accepted *",
// a last "C" CR returns the terminal to its format question, and the result
// is True. The acceptance text holds the word "Message", so the prompt
// searches skip that occurrence; read as the "Message" question, it would
// keep every good page answering "C" until the minute ran out.
#include "varnek/adds/paging/paging.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

const Text kCr = u"\r";

bool Holds(const Text& text, const Text& part) { return InStr(text, part) > 0; }

const Text kAccepted = u"* Message Accepted *";

// The "Message" question: an occurrence of "Message" that is not the one
// inside the acceptance text "* Message Accepted *".
bool AsksMessage(const Text& reply) {
  const Text word = u"Message";
  for (size_t at = reply.find(word); at != Text::npos; at = reply.find(word, at + 1)) {
    const bool accepted = at >= 2 && reply.compare(at - 2, kAccepted.size(), kAccepted) == 0;
    if (!accepted) return true;
  }
  return false;
}

enum class ZState { Format, Capcode, Function, Message, Alpha, PageNow, Skip1, Skip2, Check };

// The next state after an answering state's reply: the first prompt found in
// the order Format, Capcode, Function, Message, Alpha, Page Now decides.
ZState NextAfter(ZState state, const Text& reply) {
  using enum ZState;
  // clang-format off
  struct Row { ZState on_format, on_capcode, on_function, on_message, on_alpha, on_page_now; };
  static const Row kTable[] = {
      /* Format   */ {Format, Capcode, Skip1,    Skip1,   Skip2, Skip2},
      /* Capcode  */ {Format, Capcode, Function, Skip1,   Skip2, Skip2},
      /* Function */ {Format, Capcode, Function, Message, Skip2, Skip2},
      /* Message  */ {Format, Capcode, Function, Message, Alpha, Skip2},
      // A "Capcode" after the Alpha answer leads back to Format: meant so.
      /* Alpha    */ {Format, Format,  Function, Message, Alpha, PageNow},
      /* Page Now */ {Format, Capcode, Function, Message, Alpha, PageNow},
  };
  // clang-format on
  const Row& row = kTable[static_cast<int>(state)];
  if (Holds(reply, u"Format")) return row.on_format;
  if (Holds(reply, u"Capcode")) return row.on_capcode;
  if (Holds(reply, u"Function")) return row.on_function;
  if (AsksMessage(reply)) return row.on_message;
  if (Holds(reply, u"Alpha (Y/N)")) return row.on_alpha;
  if (Holds(reply, u"Page Now (Y/N)")) return row.on_page_now;
  return Check;
}

}  // namespace

bool Paging::ZETRON_InitDialog(CommCtl& SerialControl, int16_t pSerialPort, int16_t pBaudRate,
                               int16_t pDataBits, bool pParityNtrue_Efalse, int16_t pStopBit,
                               const Variant& CurrModemInit, const Variant& CurrTelefono,
                               const Variant& /*CurrClave: not used*/) {
  const auto steps = [&] {
    if (!DialThreeTimes(SerialControl, Variant::Integer(pSerialPort), Variant::Integer(pBaudRate),
                        Variant::Integer(pDataBits), pParityNtrue_Efalse,
                        Variant::Integer(pStopBit), CurrModemInit, CurrTelefono))
      return false;
    Collect(SerialControl, 0);
    if (!TryThreeTimes(SerialControl, kCr, 3, u"ID")) return false;
    Collect(SerialControl, 0);
    return TryThreeTimes(SerialControl, u"C" + kCr, 10, u"Format ?");
  };
  if (steps()) return true;
  SERIAL_Disconnect(SerialControl);
  return false;
}

bool Paging::ZETRON_SendMsg(CommCtl& SerialControl, const Variant& CurrCodigo,
                            Variant& CurrMensaje) {
  CurrMensaje = Var_FiltraCaracteres(CurrMensaje);
  const Text message = CStr(CurrMensaje);
  const Text code = CStr(CurrCodigo);
  const int32_t length = Len(code);
  // The answers of the states Format, Capcode, Function, Message, Alpha, Page Now.
  const Text answers[] = {Mid(code, 1, 1),
                          Mid(code, 2, length - 2),  // fails with 5 under 2 characters
                          Mid(code, length - 1, 1),  // the capcode's last character: kept
                          message,
                          u"Y",
                          u"Y"};
  const int32_t message_wait = std::max<int32_t>(Len(message) / 50, 10);
  const int64_t limit = NowSeconds() + 60;

  ZState state = ZState::Format;
  // Bounded by the one-minute limit, which every answering state and Check test.
  for (;;) {
    if (state == ZState::Skip1 || state == ZState::Skip2) {
      SendLine(SerialControl, state == ZState::Skip1 ? kCr : u"N" + kCr);
      state = ZState::Check;
      continue;
    }
    if (NowSeconds() >= limit) return false;
    if (state != ZState::Check) {
      if (state == ZState::Format) Collect(SerialControl, 0);  // only this state empties the line
      SendLine(SerialControl, answers[static_cast<int>(state)] + kCr);
      state = NextAfter(state, Collect(SerialControl, state == ZState::Message ? message_wait : 3));
      continue;
    }
    SendLine(SerialControl, u"C" + kCr);
    const Text reply = Collect(SerialControl, 3);
    if (Holds(reply, u"Format") || Holds(reply, u"Capcode") || Holds(reply, u"Function") ||
        AsksMessage(reply)) {
      state = ZState::Skip1;
    } else if (Holds(reply, u"Alpha (Y/N)") || Holds(reply, u"Page Now (Y/N)")) {
      state = ZState::Skip2;
    } else if (Holds(reply, kAccepted)) {
      SendLine(SerialControl, u"C" + kCr);
      Collect(SerialControl, 3);
      return true;
    } else {
      return false;
    }
  }
}

bool Paging::ZETRON_CloseDialog(CommCtl& SerialControl) {
  bool sent = false;
  Resume([&] { sent = SendLine(SerialControl, kCr); });
  if (!sent) return false;
  Resume([&] { SerialControl.SetPortOpen(false); });
  return true;
}

}  // namespace varnek
