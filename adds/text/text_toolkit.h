// Text toolkit of Adds: splitting and replacing strings, the script sequence
// store, the URL and Base64 codecs, control-character aliases, conversions and
// scrambling. Every routine works on 16-bit units; the codecs read a unit as
// the byte it stands for in the cp1252 mapping (runtime/text.h). No
// routine here pumps the host loop, so none can be re-entered.
//
//   Variant rest = u"k=v";
//   adds.Var_GetPart(rest, u"=", true);        // "k", rest is now "v"
//   adds.Script_SecuenciaProcesa(u"a=1\r\nb=2", u"\r\n");   // 2 records
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "varnek/adds/adds_core.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

// One record of the sequence store: a name and its content.
struct ScriptRecord {
  Variant Variable;
  Variant Contenido;
};

class TextToolkit : public virtual AddsCore {
 public:
  explicit TextToolkit(Platform& platform) { Attach(platform); }

  // ---- Splitting and replacing (split_replace.cpp) -------------------------

  // Takes the piece before the first Delimiter off the front of StartStrg and
  // stores the rest (after the whole delimiter) back into StartStrg as text.
  // The piece keeps the delimiter's first unit unless ResultWithOutDelimiter
  // is true. A delimiter starting past position 32767, a missing delimiter or
  // a Null argument give "" and leave StartStrg as it was. Guarded.
  //   "a,b" at "," -> "a," (rest "b");  with true -> "a"
  Text Var_GetPart(Variant& StartStrg, const Variant& Delimiter,
                   bool ResultWithOutDelimiter = false);

  // Field pPosition (1-based) of pLineText cut at pSeparator. The search for
  // the field's start wraps to the line's start instead of stopping:
  // ("a,b", 3) is "" and ("a,b", 4) is "b". Positions are 16-bit: a separator
  // past 32767 is not seen. Resume: a failure gives "".
  Text Var_GetFieldAt(const Variant& pLineText, const Variant& pPosition,
                      const Variant& pSeparator);

  // Always the first field of pLineText: pFieldName is never read. Resume.
  Text Var_GetFieldValue(const Variant& pLineText, const Variant& pFieldName,
                         const Variant& pSeparator);

  // Replaces sFrom by sTo in sSource. vType < 0 or 4: nothing; 0..3: every
  // occurrence in one sweep (inserted text is not looked at again); 5 and
  // above: only occurrence vType - 4. Open. Linear in the input.
  Text Var_Translate(Text sSource, Text sFrom, Text sTo, int32_t vType = 0);

  // The units in reverse order. Open (Null fails with 94).
  Variant Var_Reverse(const Variant& sSource);

  // Non-overlapping occurrences of tmpStrToFind in the whole of TmpCadena,
  // whatever its length: an Integer while the count fits 16 bits, a Long
  // above, as the Variant count's + 1 gives. An empty needle in a non-empty
  // text, whose classic loop never ends, fails with 6 (Overflow). Open.
  Variant Var_CountChar(const Variant& TmpCadena, const Variant& tmpStrToFind);

  // Cuts at the first NUL; only a text without NUL is trimmed of spaces. Open.
  Text Var_TrimNull(Text StrIn);

  // Drops the last unit, whatever it is; "" fails with 5. Open.
  Text Var_StrZToStr(const Text& s);

  // Pads with spaces or cuts (keeping the left part) to LenString units; a
  // LenString of 0 or less leaves the input as it is. Open.
  Variant Var_StringNormalizedWithSpaces(const Variant& InputString, const Variant& LenString);

  // Pads with CharToFill on the flagged side (true: left) or cuts: true keeps
  // the left part, false the right part. An empty fill fails with 5 when
  // padding is needed. Open.
  Variant Var_StringNormalizeLen(const Variant& InputString, const Variant& LenString,
                                 const Variant& CharToFill,
                                 bool LeftSideIsTrue_RightSideIsFalse = false);

  // Raw addresses. A 64-bit process's address does not fit the 32-bit Long,
  // so these take and give the address as int64_t. Nothing is kept alive:
  // for a value that is not a String, Var_StringToPointer gives the address
  // of a temporary that is gone on return. Open.
  int64_t Var_ObjectToPointer(const Variant& Object);
  int64_t Var_StringToPointer(const Variant& sString);
  // A NUL-terminated 8-bit string at an address, read through the code page;
  // 0 gives "". The 16-bit form copies the units as they are. Open.
  Text Var_PointerToStringA(int64_t lpStringA);
  Text Var_PointerToStringW(int64_t lpStringW);

  // ---- Script sequence store (sequence_store.cpp) --------------------------

  // Cuts slContenido into records at slSeparadorRecord and each record into
  // name and content at slSeparadorField. A missing or empty field separator
  // is detected from the first record ("=", TAB or " ", whichever comes
  // first, " " when none) and stored back into slSeparadorField. An empty
  // record ends the structure: all after it is one last record. The result
  // (a Long) is the record count N; the store is replaced only at the end.
  // Open: a Null fails towards the caller and leaves the store as it was.
  Variant Script_SecuenciaProcesa(const Variant& slContenido, const Variant& slSeparadorRecord,
                                  Variant& slSeparadorField);
  Variant Script_SecuenciaProcesa(const Variant& slContenido, const Variant& slSeparadorRecord);

  // Content or name of record Index (0..N, 0 is an Empty placeholder); Empty
  // out of bounds. Before the first processing they fail with 9.
  Variant Script_RetornaContenidoIndex(const Variant& Index);
  Variant Script_RetornaVariableIndex(const Variant& Index);
  // Content of the first record whose name matches without regard to case;
  // Empty when there is none. Fails with 9 before the first processing.
  Variant Script_RetornaContenidoVariable(const Variant& NombreVariable);

  // The last processed list, records 1..N behind the placeholder at 0; no
  // value before the first processing.
  const std::optional<std::vector<ScriptRecord>>& ScriptSecuencia() const {
    return script_secuencia_;
  }

  // ---- URL and Base64 codecs (url_codec.cpp, base64_codec.cpp) -------------

  // Keeps letters and digits, writes a space as "+" and every other unit as
  // "%" and the unpadded upper-case hex of its byte ("%9" for TAB). Open.
  Variant URL_Encode(const Variant& sInput);
  // "+" to space, then "%hh" (upper-case, two digits) for 1..255 in ascending
  // passes; bad escapes stay. "%2541" gives "A", "%2510" gives "%10". Open.
  Variant URL_Decode(const Variant& sInput);
  // Standard alphabet with "=" padding, no line breaks. Open.
  Text Base64_Encode(const Text& sInput);
  // Every unit counts: an invalid one reads as "A" and a line break shifts
  // what follows; a short last group is dropped; "=" in the last places
  // drops one unit each. Never reports bad input. Open.
  Text Base64_Decode(const Text& sEncoded);

  // ---- Control-character aliases (control_aliases.cpp) ---------------------

  // Codes 0..31 to "«NUL»".."«US»" (17 and 19 are "«XON»" and "«XOFF»"). Open.
  Text Var_ConvierteCharControlToText(const Variant& TmpCadenaWithCharsBelowSpace);
  // The aliases, and "«TAB»", back to their codes; exact matching. Open.
  Text Var_ConvierteTextToCharControl(const Variant& TmpCadenaWithAliasOfCharsBelowSpace);

  // ---- Number, colour, date and filter conversions (conversions.cpp) -------

  // Number in LenBytes bytes, most significant first, as units or (true) as
  // unpadded upper-case hex pieces: (258, 2) is units 1, 2; with true "12".
  Variant Var_IntToChar(const Variant& Number, const Variant& LenBytes,
                        bool TrueIsHex_FalseIsAscii = false);
  // "&H" + the unpadded hex of each unit (or sString as hex text, true), read
  // as a number by the runtime: units 1, 2 give 18; up to 4 digits wrap to
  // 16 bits ("FFFF" is -1), up to 8 to 32 bits. A literal that does not read
  // as a number (no digits, more than 8) comes back as that text. Open.
  Variant Var_CharToInt(const Variant& sString, bool TrueIsHex_FalseIsAscii = false);
  // Roman numeral; a row of "M" for thousands. X is left holding its units
  // digit. 0 gives "". Open.
  Text Var_ToRoman(int16_t& X);
  // 100 - 100 * smaller / larger; 100 when anything fails (0 and 0, text).
  Variant Var_PercentDiference(const Variant& Value1, const Variant& Value2);
  // red, green, blue at positions 1..3 of a new Collection. Open.
  CollectionPtr Var_ColorLongToRGB(const Variant& Color);
  // red + 256 * green + 65536 * blue, components as 16-bit, above 255 as 255.
  // Resume: a component that fails counts as 0.
  int32_t Var_ColorRGBToLong(const Variant& Red, const Variant& Green, const Variant& Blue);
  // "yyyymmddhhnnss"; a value that is not a date gives "". Resume.
  Text Var_DateToString(const Variant& NewDate);
  // 14 units: read back as written by Var_DateToString (each field a 16-bit
  // integer, failing with 13 or 6). Another valid date text gives the current
  // moment (its value is not used); anything else the zero date. Open.
  Date Var_StringToDate(const Variant& NewString);
  Variant Var_CurrencyToString(const Variant& NewCurrency);
  // Puts the locale's decimal mark into NewString ("." to "," or "," to ".")
  // and stores the changed text back; a text that does not convert gives 0.
  Currency Var_StringToCurrency(Variant& NewString);
  // Reduces to plain 7-bit printable: ñ and the acute vowels lose the accent,
  // CR LF and CR become spaces, units of bytes 128..255 and 0..31 go. Open.
  Variant Var_FiltraCaracteres(const Variant& InputText);
  // The locale's decimal mark, one unit (the runtime's locale source: the
  // process's numeric locale on the Linux platform).
  virtual Text Win_LocaleDecimalSeparator() const;

  // ---- Scrambling and compression (scrambling.cpp) -------------------------

  // Repeating-key XOR on the byte values of the units; its own inverse. An
  // empty key gives the data as text. Open.
  Text Var_EnCrypt(const Variant& TempData, const Variant& PasswKey);
  // Placeholders of a compressor: the argument as text, unchanged. Open.
  Text Var_Compress(const Variant& sCompData);
  Text Var_Decompress(const Variant& sDecompData);

 protected:
  // For a class that joins this one with others (see adds_core.h).
  TextToolkit() = default;
  // The 32-bit value stored at an address.
  int32_t Var_PointerToLong(int64_t Address);

 private:
  Variant RecordField(const Variant& Index, bool content) const;
  std::optional<std::vector<ScriptRecord>> script_secuencia_;
};

namespace text {

// find(start, text, needle) of the toolkit: the 1-based position of needle at
// or after start, 0 when absent; an empty text gives 0, an empty needle gives
// start while start lies within the text. start < 1 fails with 5.
int32_t Find(int32_t start, TextView text, TextView needle);

}  // namespace text

}  // namespace varnek
