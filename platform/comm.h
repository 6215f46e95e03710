// The serial comm control: one port driven from the host loop, with the
// members the serial routines of Adds use. The routines reach every member at
// run time: a control that lacks one fails there with 438, as a late-bound
// call on an object without that member would, so a host may pass any control
// that offers these members. Get/Let give the same members by name.
//
// Rules every implementation keeps (Linux and simulated alike):
// - Nothing blocks: Output queues and returns; Input takes what has arrived.
// - Opening a port that does not exist fails with kCommErrBadPort, one that
//   another control holds open with kCommErrPortOpen; either leaves the
//   control closed. Setting CommPort or Settings while open re-applies
//   nothing for CommPort (kCommErrPortOpen) and applies Settings at once.
// - Input, InputData, Output and the buffer counts on a closed port fail with
//   kCommErrNotOpen. Input gives "" when nothing waits, never waits itself.
// - Arriving text wakes a Pump of the host loop and lands in the control's
//   buffer there (or when InBufferCount is read), so a routine that pumps
//   until InBufferCount is above 0 sees it without delay, and Input never
//   gives text that a count just before did not see.
// - A line that is gone (device unplugged, far end of a pty closed) reads as
//   "" with counts of 0; only closing the port clears that state.
// - Text travels one unit a byte through the code page (runtime/text.h).
//
//   auto comm = platform.comms->Create();
//   comm->SetCommPort(1); comm->SetSettings(u"1200,E,7,1"); comm->SetPortOpen(true);
//   comm->SetOutput(u"ATZ\r");  ...  Text reply = comm->Input();
#pragma once

#include <cstdint>
#include <memory>

#include "varnek/runtime/failure.h"
#include "varnek/runtime/variant.h"

namespace varnek {

// Failure numbers of the comm control (RuntimeError), classic comm numbers.
enum CommError : int {
  kCommErrInvalidValue = 380,  // a Settings text that cannot be read
  kCommErrPortOpen = 8005,     // CommPort changed while the port is open
  kCommErrBadPort = 8002,      // the port number has no device, or it cannot be opened
  kCommErrNotOpen = 8012,      // the port is not open
  kCommErrDevice = 8015,       // the device refused an operation (settings, write)
};

// The type name of the comm variant that is read through InputData.
inline constexpr const char16_t* kXMCommTypeName = u"XMComm";

class CommCtl {
 public:
  virtual ~CommCtl() = default;

  // Run-time type name; the serial routines read InputData when it is
  // "XMComm" and Input otherwise.
  virtual Text TypeName() const { return u"CommCtl"; }

  // Every member fails with 438 unless the control offers it.
  virtual bool PortOpen() const { Missing(); }
  virtual void SetPortOpen(bool /*open*/) { Missing(); }
  // The port number (a floating-point number as given; read as CLng).
  virtual void SetCommPort(double /*port*/) { Missing(); }
  // "baud,parity,data,stop": parity N, E, O, M or S; data 5..8; stop 1, 1.5, 2.
  virtual void SetSettings(TextView /*settings*/) { Missing(); }
  virtual void SetDTREnable(bool /*enable*/) { Missing(); }
  // Empty or 0: no handshake; 1 XON/XOFF; 2 RTS/CTS; 3 both.
  virtual void SetHandshaking(const Variant& /*mode*/) { Missing(); }
  virtual void SetInBufferSize(int32_t /*size*/) { Missing(); }
  virtual void SetOutBufferSize(int32_t /*size*/) { Missing(); }
  virtual int32_t InBufferCount() const { Missing(); }
  virtual int32_t OutBufferCount() const { Missing(); }
  // Takes all waiting text out of the receive buffer; "" when none.
  virtual Text Input() { Missing(); }
  virtual Text InputData() { Missing(); }
  // Queues text for transmission.
  virtual void SetOutput(TextView /*text*/) { Missing(); }

  // The members by name, case-insensitive, as a late-bound caller reaches
  // them ("PortOpen", "InBufferCount", "Input", ...). An unknown name fails
  // with 438; a value of the wrong kind fails as its conversion does.
  Variant Get(TextView member);
  void Let(TextView member, const Variant& value);

 protected:
  [[noreturn]] static void Missing() { Fail(kErrNoSuchMember); }
};

class CommFactory {
 public:
  virtual ~CommFactory() = default;
  // A closed control; `xm` makes the "XMComm" variant, which offers InputData
  // in place of Input.
  virtual std::unique_ptr<CommCtl> Create(bool xm = false) = 0;
};

}  // namespace varnek

namespace varnek {

// A Settings text read into its parts; both implementations share the reading.
struct CommSettings {
  int32_t baud = 9600;
  char16_t parity = u'N';  // N, E, O, M, S
  int32_t data_bits = 8;
  double stop_bits = 1;
};

// Reads "baud,parity,data,stop" (blanks around the parts allowed, parity in
// either case). Fails with kCommErrInvalidValue on anything else.
CommSettings ParseCommSettings(TextView settings);

}  // namespace varnek
