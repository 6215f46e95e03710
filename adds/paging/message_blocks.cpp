// Message blocks: numbered text blocks with a small header, page-printer
// blocks with their escape code and checksum, both with running ids in the
// variable store; and the history of what was sent to each pager code.
#include "varnek/adds/paging/paging.h"
#include "varnek/platform/files.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

const Text kPlaceholder = u"MxBloques#";

// Upper-case hex of a value, a single digit padded with "0".
Text HexPadded(int32_t value) {
  Text hex = CStr(Hex(Variant::Long(value)));
  return hex.size() == 1 ? u"0" + hex : hex;
}

// The page-printer id after `stored`: "" counts as "A"; a number moves on by
// one with 10 as "A"; otherwise the character after the first, "G" as "A".
Text NextPrinterId(const Text& stored) {
  const Text current = stored.empty() ? Text(u"A") : stored;
  if (IsNumeric(Variant(current))) {
    const double next = Val(current) + 1;
    return next == 10 ? Text(u"A") : CStr(Variant(next));
  }
  const Text next = Chr(Asc(current) + 1);
  return next == u"G" ? Text(u"A") : next;
}

}  // namespace

CollectionPtr Paging::Mensajes_GenerarBloques(const Variant& MensajeCompleto,
                                              const Variant& pLargoBloque, Variant& IDColeccion,
                                              bool DataHeaders) {
  Text remaining = CStr(MensajeCompleto);
  int32_t count = 0;
  const double size = Val(CStr(pLargoBloque));
  if (CStr(IDColeccion).empty()) {
    const double last = Val(CStr(Var_VariableGet(u"Last msg ID", Variant(u"SMSserver"))));
    const int32_t next = (last < 65 || last >= 90) ? 65 : static_cast<int32_t>(last) + 1;
    Var_VariableSet(u"Last msg ID", Variant::Long(next), Variant(u"SMSserver"));
    IDColeccion = Variant(Chr(next));
  }
  const Text id = CStr(IDColeccion);
  std::vector<Text> work;
  auto add = [&](const Text& slice) {
    ++count;
    work.push_back(DataHeaders
                       ? u"#" + id + u"#" + CStr(Variant::Long(count)) + kPlaceholder + slice + u"#"
                       : slice);
  };
  const int32_t cut = CLng(Variant(size));
  while (Len(remaining) > size) {
    Text slice = Left(remaining, cut);  // a negative size fails here with 5
    remaining = Mid(remaining, cut + 1);
    add(slice);
  }
  if (!remaining.empty()) add(remaining);
  auto blocks = Collection::New();
  const Text total = CStr(Variant::Long(count)) + u"#";
  for (const Text& block : work) blocks->Add(Variant(Var_Translate(block, kPlaceholder, total)));
  return blocks;
}

Variant Paging::PagePrinter_GenerarBloques(Variant& StringCompleto, const Variant& IDPagePrinter) {
  while (PagePrinter_Bloques->Count() > 0) PagePrinter_Bloques->Remove(Variant::Long(1));

  Text text = Var_Translate(CStr(StringCompleto), u"&", u"&&");
  for (int32_t code = 128; code <= 255; ++code)
    text = Var_Translate(text, Chr(code), u"&" + HexPadded(code));
  for (int32_t code = 1; code <= 31; ++code)
    text = Var_Translate(text, Chr(code), u"&" + HexPadded(code));
  StringCompleto = Variant(text);

  const Text message_id = NextPrinterId(CStr(Var_VariableGet(u"PagePrinter - Ultimo ID Mensaje")));
  Var_VariableSet(u"PagePrinter - Ultimo ID Mensaje", Variant(message_id));

  const Text printer = CStr(IDPagePrinter);
  int32_t counter = 0;
  auto add_block = [&](const Text& payload) {
    const Text header = u"&[" + printer + message_id + HexPadded(counter);
    uint32_t sum = 0;
    for (char16_t unit : header) sum += UnitToByte(unit);
    for (char16_t unit : payload) sum += UnitToByte(unit);
    PagePrinter_Bloques->Add(
        Variant(header + HexPadded(static_cast<int32_t>(sum % 256)) + payload));
  };

  Text remaining = text;
  bool last = false;
  while (remaining.size() >= 128) {
    Text slice = remaining.substr(0, 128);
    int32_t giveback = 0;
    if (slice[126] == u'&' && slice[127] != u'&') {
      giveback = 2;  // an escape would be cut: its start goes to the next block
      slice = slice.substr(0, 126) + u"  ";
    } else if (slice[126] != u'&' && slice[127] == u'&') {
      giveback = 1;
      slice = slice.substr(0, 127) + u" ";
    }
    remaining = remaining.substr(128 - giveback);
    if (remaining.empty()) last = true;
    add_block(slice);
    ++counter;
  }
  if (!remaining.empty() || last) add_block(remaining + u"&]");
  return Variant();
}

Variant Paging::Mensajes_GuardaHistorico(const Variant& slCodigo, const Variant& slMensaje,
                                         const Variant& PathHistorico) {
  const double now = loop().Now();
  Text folder;
  if (PathHistorico.IsMissing()) {
    folder = platform().app->Path() + u"/DB/" + Format(Variant(Date{now}), u"yyyy-mm") + u"/" +
             Format(Variant(Date{now}), u"dd") + u"/";
  } else {
    folder = CStr(PathHistorico);
  }
  FileEntry entry;
  if (!platform().files->Stat(folder, entry) || !entry.directory) Disk_CrearRutaDirectorios(folder);
  ARRAY_Append(Variant(folder + CStr(slCodigo) + u".dbs"), Variant(Date{now}), slMensaje);
  return Variant();
}

}  // namespace varnek
