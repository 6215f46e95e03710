// The cut of App_Arguments, the pick of one piece, and the member on the
// process's own command line.
#include "varnek/adds/system/app_arguments.h"

#include <vector>

#include "varnek/adds/system/system_services.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"
#include "varnek/runtime/strings.h"

namespace varnek {

Variant AppArgumentsOf(const Variant& Position, const Text& Separator, const Text& SourceString) {
  std::vector<Text> pieces{SourceString};  // position 0: the whole text
  Text rest = SourceString;
  for (;;) {
    int16_t p = ToInt16(InStr(rest, Separator));
    if (p == 0) {
      pieces.push_back(rest);
      break;
    }
    pieces.push_back(RTrim(Left(rest, p - 1)));
    rest = LTrim(Mid(rest, p + 1));
  }
  Variant result = Text();
  Resume([&] {
    int32_t at = CLng(Position);
    if (at < 0 || static_cast<size_t>(at) >= pieces.size()) Fail(kErrSubscript);
    result = pieces[static_cast<size_t>(at)];
  });
  return result;
}

Variant SystemServices::App_Arguments(const Variant& Position) {
  Variant separator = Variant::Missing();
  return App_Arguments(Position, separator);
}

Variant SystemServices::App_Arguments(const Variant& Position, Variant& Separator,
                                      const Variant& SourceString) {
  if (Separator.IsMissing() || Separator.IsEmpty()) Separator = Text(u"/");
  Text source = (SourceString.IsMissing() || SourceString.IsEmpty()) ? platform().app->CommandLine()
                                                                     : CStr(SourceString);
  return AppArgumentsOf(Position, CStr(Separator), source);
}

}  // namespace varnek
