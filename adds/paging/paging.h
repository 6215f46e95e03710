// Paging and message delivery of Adds: the serial session over a comm control
// (platform/comm.h), message blocks with their running ids and the history
// files, and the TAP, Skytel and Zetron dialogs built on the serial session.
// Every wait pumps the host loop, so a handler (a Cancel button setting
// SERIAL_CancelOperation) runs inside it.
//
//   auto comm = platform.comms->Create();
//   Variant page = u"Hello";
//   if (adds.TAP_InitDialog(*comm, 1, 1200, 7, false, 1, u"ATZ", u"5550100", u"pw")) {
//     adds.TAP_SendMsg(*comm, u"1234", page);
//     adds.TAP_CloseDialog(*comm);
//   }
#pragma once

#include <cstdint>

#include "varnek/adds/adds_core.h"
#include "varnek/adds/store/storage.h"
#include "varnek/adds/store/variable_store.h"
#include "varnek/platform/comm.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class Paging : public virtual VariableStore, public virtual Storage {
 public:
  explicit Paging(Platform& platform) { Attach(platform); }

  // ---- Serial session (serial_session.cpp) ----------------------------------
  // Reading is by one rule: a control whose TypeName is "XMComm" is read
  // through InputData, any other through Input. Times are whole seconds on
  // the calendar clock (Now), so a wait of t lasts between t - 1 and t.

  // The control's PortOpen. Open: a failing control reaches the caller.
  bool SERIAL_IsOpen(CommCtl& SerialControl);

  // Opens port pSerialPort (its text's numeric value) with "baud,E|N,data,
  // stop", DTR up, no handshake, 2048-byte buffers; sends ModemInit + CR when
  // it is not blank; with a number dials "ATDT" number CR, throws away what
  // the next 10 s bring, and is True when the next slTOut s bring "ONNECT"
  // (case-sensitive), else hangs up and is False. An empty slTelefono is True
  // after the set-up. Guarded after the first PortOpen: a failing control
  // (a port that does not exist) gives False and leaves the port as it was.
  // DebugComm changes nothing. Pumps.
  bool SERIAL_Connect(CommCtl& SerialControl, const Variant& pSerialPort, const Variant& pBaudRate,
                      const Variant& pDataBits, bool pParityNtrue_Efalse, const Variant& pStopBit,
                      const Variant& ModemInit, const Variant& slTelefono, int16_t slTOut,
                      bool DebugComm = false);

  // Closes an open port (True) or finds it closed (False); clears both
  // session flags either way. Open. Does not pump.
  bool SERIAL_Disconnect(CommCtl& SerialControl, bool DebugComm = false);

  // Collects until one of the non-empty wait strings is in the text, or (all
  // three empty) a read brings nothing, or Now is strictly past the limit,
  // or a cancel. With the extension the limit moves on by 2 s after each
  // read, so a wait string that never comes makes it wait until the clock
  // ticks between the two tests, or a cancel: kept so. "" when cancelled or
  // closed. Failures of the control after the start are ignored. Pumps.
  Text SERIAL_WaitFor(CommCtl& SerialControl, const Variant& WaitString1,
                      const Variant& WaitString2, const Variant& WaitString3, const Variant& slTOut,
                      bool DebugComm = false, bool ExtendedTimeoutIfReceive = true);

  // Waits up to slTOut s for the first text, then reads on until 2 quiet
  // seconds (with the extension; without it until the first empty read past
  // the limit). A stop string found once the buffer has run empty ends it at
  // once. 0 empties the line: "" at once on a quiet line; a line that never
  // pauses 2 s never lets it return. "" when cancelled or closed. Failures of
  // the control after the start are ignored (a failing count reads as 0).
  // Pumps.
  Text SERIAL_Receive(CommCtl& SerialControl, const Variant& slTOut, bool DebugComm = false,
                      bool ExtendedTimeoutIfReceive = true,
                      const Variant& StopIfReceiveString1 = u"",
                      const Variant& StopIfReceiveString2 = u"");

  // Writes the text: True when the port is open, False when it is closed or
  // a cancel was asked for (nothing written). Does not wait for the buffer to
  // drain (its time test is a greater-than that holds only when the wait has
  // already run out: kept). Open: PortOpen and Output failures reach the
  // caller. Pumps only in that drain loop.
  bool SERIAL_Send(CommCtl& SerialControl, const Variant& StrToSend, bool DebugComm = false);

  // Sends NewCommand CR LF to a modem and gives its answer without the echo,
  // the final "OK" CR LF, trailing CR LFs (twice), a leading CR LF (once) and
  // a leading FiltrarParteRespuesta when given. Waits up to 5 s for "OK" or
  // "ERROR" lines; an "ERROR" line stays in the answer. Empty when the port is
  // closed. Reads Input, whatever the type name; a control that offers
  // InputData in place of Input (the XMComm variant) is read through that.
  // Resume. Pumps.
  Variant SERIAL_SendCommand(CommCtl& Comm, const Variant& NewCommand,
                             const Variant& FiltrarParteRespuesta = Variant::Missing());

  // Setting True while a session is open asks a cancel; nothing else
  // changes it (only SERIAL_Disconnect clears it). Reads the request.
  void SetSERIAL_CancelOperation(bool cancel);
  bool SERIAL_CancelOperation() const { return serial_cancel_requested_; }
  bool SerialOperationOpen() const { return serial_operation_open_; }

  // ---- Message blocks and history (message_blocks.cpp) -----------------------

  // The blocks of the last PagePrinter_GenerarBloques.
  CollectionPtr PagePrinter_Bloques = Collection::New();

  // Cuts the message into slices of pLargoBloque characters, each as
  // "#" id "#" number total "#" slice "#" (DataHeaders) or bare. An empty
  // IDColeccion takes the next letter A..Z from "Last msg ID" of "SMSserver"
  // and receives it. Open. A pLargoBloque of 0 or not numeric never ends
  // (adds empty blocks until memory gives out); a negative one fails with 5.
  // Example: ("hello", 2, "C") gives "#C#13#he#", "#C#23#ll#", "#C#33#o#".
  CollectionPtr Mensajes_GenerarBloques(const Variant& MensajeCompleto, const Variant& pLargoBloque,
                                        Variant& IDColeccion, bool DataHeaders = true);

  // Escapes StringCompleto ("&&", "&" + two hex digits for 1..31 and
  // 128..255), stores it back, and fills PagePrinter_Bloques with
  // "&[" id msgid block(hex) checksum(hex) payload blocks of 128 characters,
  // the last ending in "&]". The message id moves on in
  // "PagePrinter - Ultimo ID Mensaje" (B..F, A, ...; a digit up to 9, then A),
  // even for an empty text, which gives no block. Always Empty. Open.
  Variant PagePrinter_GenerarBloques(Variant& StringCompleto, const Variant& IDPagePrinter);

  // Appends (now, slMensaje) to <PathHistorico><slCodigo>.dbs; without a
  // path, <application folder>/DB/yyyy-mm/dd/, created when missing. A given
  // path must end in "/". Always Empty. Open.
  Variant Mensajes_GuardaHistorico(const Variant& slCodigo, const Variant& slMensaje,
                                   const Variant& PathHistorico = Variant::Missing());

  // ---- TAP dialog (tap_dialog.cpp) ---------------------------------------------

  // Three characters "0".."?" holding bits 8-11, 4-7 and 0-3 of the sum of
  // the byte values; higher bits dropped. "" gives "000". Open.
  Text TAP_CheckSum(const Variant& SLxBloque);

  // Dials (3 tries, 45 s each), wakes the terminal with CR until "ID" (3
  // tries of 3 s), logs in with ESC "PG1" password CR until "[p" (3 tries of
  // 10 s). False after hanging up when a step fails. Pumps.
  bool TAP_InitDialog(CommCtl& SerialControl, const Variant& pSerialPort, const Variant& pBaudRate,
                      const Variant& pDataBits, bool pParityNtrue_Efalse, const Variant& pStopBit,
                      const Variant& CurrModemInit, const Variant& CurrTelefono,
                      const Variant& CurrClave);

  // Sends STX code CR message CR ETX checksum CR and is True on ACK CR in the
  // answer (looked for before NAK CR and RS CR). FiltraCaracteres filters the
  // caller's message first, also when the send then fails. No retry. Pumps.
  bool TAP_SendMsg(CommCtl& SerialControl, const Variant& CurrCodigo, Variant& CurrMensaje,
                   bool FiltraCaracteres = false);

  // Sends EOT CR; True when ESC EOT CR comes back within 5 s. Closes the port
  // unless the send failed (closed port: False, no change); the session flags
  // stay. Failures of the control are ignored. Pumps.
  bool TAP_CloseDialog(CommCtl& SerialControl);

  // ---- Skytel dialog (skytel_dialog.cpp) ---------------------------------------

  // Dials, wakes the service with CR LF until CR "PAGER ID: ", gives the
  // pager until CR "FUNCTION: " (3 tries each). False after hanging up. Pumps.
  bool SKYTEL_InitDialog(CommCtl& SerialControl, int16_t pSerialPort, int16_t pBaudRate,
                         int16_t pDataBits, bool pParityNtrue_Efalse, int16_t pStopBit,
                         const Variant& CurrModemInit, const Variant& CurrTelefono,
                         const Variant& CurrPager, bool DebugCom = false);

  // "1", the message, "Y" through the menu prompts, at most four attempts;
  // True once "Y" went out. Filters the caller's message always. Pumps.
  bool SKYTEL_SendMsg(CommCtl& SerialControl, const Variant& CurrPager, Variant& CurrMensaje,
                      bool DebugCom = false);

  // "99"; True when "Disconnecting" and a CR come back in 10 s. Closes the
  // port unless the send failed; the flags stay. Pumps.
  bool SKYTEL_CloseDialog(CommCtl& SerialControl, bool DebugCom = false);

  // ---- Zetron dialog (zetron_dialog.cpp) -----------------------------------------

  // Dials, wakes the terminal with CR until "ID", asks "C" until "Format ?"
  // (3 tries each). CurrClave is not used. False after hanging up. Pumps.
  bool ZETRON_InitDialog(CommCtl& SerialControl, int16_t pSerialPort, int16_t pBaudRate,
                         int16_t pDataBits, bool pParityNtrue_Efalse, int16_t pStopBit,
                         const Variant& CurrModemInit, const Variant& CurrTelefono,
                         const Variant& CurrClave);

  // Answers the terminal's questions from CurrCodigo (format = 1st
  // character, capcode = 2..L-1, function = character L-1; the last one is
  // not used) and the filtered message, following whatever question comes,
  // for at most 60 s counted at each state's entry. True when the closing
  // check's reply holds "* Message Accepted *" and no prompt; the "Message"
  // inside that acceptance text is never read as the "Message" question.
  // A good page sends "C" CR twice: once to ask, once after the acceptance.
  // Open: a code under 2 characters fails with 5. Pumps.
  bool ZETRON_SendMsg(CommCtl& SerialControl, const Variant& CurrCodigo, Variant& CurrMensaje);

  // Sends a bare CR; False if that failed (the port stays), else closes the
  // port and is True. The flags stay. Pumps only as SERIAL_Send does.
  bool ZETRON_CloseDialog(CommCtl& SerialControl);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  Paging() = default;

 private:
  // The one read of a control: InputData on "XMComm", Input otherwise.
  Text SerialRead(CommCtl& comm);
  // SERIAL_SendCommand's read: Input, or InputData where the control offers
  // that in place of Input.
  Text CommandRead(CommCtl& comm);
  // Now in whole seconds.
  int64_t NowSeconds();
  // One pump that blocks until the calendar second `limit` at most.
  void PumpTowards(int64_t limit);
  // A dialog's collection: SERIAL_Receive with the extension, no stop strings.
  Text Collect(CommCtl& comm, int32_t seconds, bool debug = false);
  bool SendLine(CommCtl& comm, const Text& text, bool debug = false);
  // The dialogs' dial: SERIAL_Connect with slTOut 45, up to three times.
  bool DialThreeTimes(CommCtl& comm, const Variant& port, const Variant& baud, const Variant& data,
                      bool parity_n, const Variant& stop, const Variant& init, const Variant& phone,
                      bool debug = false);
  // Up to three tries of: send `text`, collect (seconds); true at the first
  // reply holding `awaited`. The sends' results are not looked at.
  bool TryThreeTimes(CommCtl& comm, const Text& text, int32_t seconds, const Text& awaited,
                     bool debug = false);

  bool serial_operation_open_ = false;
  bool serial_cancel_requested_ = false;
};

}  // namespace varnek
