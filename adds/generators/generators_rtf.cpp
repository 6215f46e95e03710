// Var_RTF2HTML: the Adds face of the pure converter.
#include "varnek/adds/generators/generators.h"
#include "varnek/adds/generators/rtf_to_html.h"
#include "varnek/runtime/convert.h"

namespace varnek {

Variant Generators::Var_RTF2HTML(Variant& strRTF, Variant& strOptions) {
  return Variant(generators::RtfToHtml(CStr(strRTF), CStr(strOptions)));
}

}  // namespace varnek
