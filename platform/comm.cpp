// The comm control's members by name, and the one reading of a Settings text.
#include "varnek/platform/comm.h"

#include "varnek/platform/settings_store.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

Variant CommCtl::Get(TextView member) {
  const Text name = FoldSettingName(member);
  if (name == u"PORTOPEN") return Variant(PortOpen());
  if (name == u"INBUFFERCOUNT") return Variant::Integer(static_cast<int16_t>(InBufferCount()));
  if (name == u"OUTBUFFERCOUNT") return Variant::Integer(static_cast<int16_t>(OutBufferCount()));
  if (name == u"INPUT") return Variant(Input());
  if (name == u"INPUTDATA") return Variant(InputData());
  Fail(kErrNoSuchMember);
}

void CommCtl::Let(TextView member, const Variant& value) {
  const Text name = FoldSettingName(member);
  if (name == u"PORTOPEN") return SetPortOpen(CBool(value));
  if (name == u"COMMPORT") return SetCommPort(CDbl(value));
  if (name == u"SETTINGS") return SetSettings(CStr(value));
  if (name == u"DTRENABLE") return SetDTREnable(CBool(value));
  if (name == u"HANDSHAKING") return SetHandshaking(value);
  if (name == u"INBUFFERSIZE") return SetInBufferSize(CLng(value));
  if (name == u"OUTBUFFERSIZE") return SetOutBufferSize(CLng(value));
  if (name == u"OUTPUT") return SetOutput(CStr(value));
  Fail(kErrNoSuchMember);
}

CommSettings ParseCommSettings(TextView settings) {
  std::vector<Text> parts = Split(settings, u",");
  if (parts.size() != 4) Fail(kCommErrInvalidValue);
  for (Text& part : parts) part = Trim(part);
  CommSettings out;
  double number = 0;
  if (!ParseNumber(parts[0], number) || number < 50 || number > 4000000) Fail(kCommErrInvalidValue);
  out.baud = static_cast<int32_t>(number);
  const Text parity = UCase(parts[1]);
  if (parity.size() != 1 || Text(u"NEOMS").find(parity[0]) == Text::npos)
    Fail(kCommErrInvalidValue);
  out.parity = parity[0];
  if (!ParseNumber(parts[2], number) || number < 5 || number > 8 ||
      number != static_cast<int>(number)) {
    Fail(kCommErrInvalidValue);
  }
  out.data_bits = static_cast<int32_t>(number);
  if (!ParseNumber(parts[3], number) || (number != 1 && number != 1.5 && number != 2)) {
    Fail(kCommErrInvalidValue);
  }
  out.stop_bits = number;
  return out;
}

}  // namespace varnek
