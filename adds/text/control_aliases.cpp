// Readable tags for the control characters 0..31 ("«CR»", "«LF»", ...) and
// back, as the serial traces show them.
#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"

namespace varnek {

namespace {

// Alias names of codes 0..31; 17 and 19 carry their flow-control names.
constexpr const char16_t* kAliasNames[32] = {
    u"NUL", u"SOH", u"STX", u"ETX", u"EOT", u"ENQ", u"ACK", u"BEL", u"BS",   u"HT",  u"LF",
    u"VT",  u"FF",  u"CR",  u"SO",  u"SI",  u"DLE", u"XON", u"DC2", u"XOFF", u"DC4", u"NAK",
    u"SYN", u"ETB", u"CAN", u"EM",  u"SUB", u"ESC", u"FS",  u"GS",  u"RS",   u"US"};

constexpr char16_t kOpen = u'\u00AB';
constexpr char16_t kClose = u'\u00BB';

// The code an alias name stands for, or -1; "TAB" is an extra name of 9.
int CodeOfName(TextView name) {
  if (name == u"TAB") return 9;
  for (int code = 0; code < 32; ++code) {
    if (name == kAliasNames[code]) return code;
  }
  return -1;
}

}  // namespace

// The classic routine replaces code by code in ascending order. An alias holds
// no control character, so no replacement can feed a later one, and one sweep
// over the text gives the same result.
Text TextToolkit::Var_ConvierteCharControlToText(const Variant& TmpCadenaWithCharsBelowSpace) {
  const Text input = CStr(TmpCadenaWithCharsBelowSpace);
  Text out;
  out.reserve(input.size());
  for (char16_t unit : input) {
    if (unit < 32) {
      out.push_back(kOpen);
      out.append(kAliasNames[unit]);
      out.push_back(kClose);
    } else {
      out.push_back(unit);
    }
  }
  return out;
}

// The classic routine replaces alias by alias ("«TAB»" right after "«HT»").
// Aliases can't overlap (each ends at its first "»") and a control character
// put in can't take part in another alias, so one sweep is the same.
Text TextToolkit::Var_ConvierteTextToCharControl(
    const Variant& TmpCadenaWithAliasOfCharsBelowSpace) {
  const Text input = CStr(TmpCadenaWithAliasOfCharsBelowSpace);
  Text out;
  out.reserve(input.size());
  size_t i = 0;
  while (i < input.size()) {
    if (input[i] == kOpen) {
      // The longest name is 4 units: look no further for the closing mark.
      size_t end = i + 1;
      while (end < input.size() && end <= i + 5 && input[end] != kClose) ++end;
      if (end < input.size() && input[end] == kClose) {
        int code = CodeOfName(TextView(input).substr(i + 1, end - i - 1));
        if (code >= 0) {
          out.push_back(static_cast<char16_t>(code));
          i = end + 1;
          continue;
        }
      }
    }
    out.push_back(input[i]);
    ++i;
  }
  return out;
}

}  // namespace varnek
