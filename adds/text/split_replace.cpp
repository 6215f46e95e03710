// The string primitives of the toolkit: cutting a piece off the front, picking
// a field, replacing, counting, trimming and forcing a length.
#include <algorithm>
#include <cmath>

#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace text {

int32_t Find(int32_t start, TextView text, TextView needle) {
  if (start < 1) Fail(kErrInvalidCall);
  if (text.empty()) return 0;
  if (static_cast<size_t>(start) > text.size()) return 0;
  if (needle.empty()) return start;
  size_t at = text.find(needle, static_cast<size_t>(start - 1));
  return at == TextView::npos ? 0 : static_cast<int32_t>(at + 1);
}

Text CutBefore(const Text& text, size_t& offset, TextView separator) {
  if (offset >= text.size()) return Text();
  TextView rest = TextView(text).substr(offset);
  // A separator starting at position kMaxInt16 + 1 or later can't be stored.
  TextView window = rest.substr(0, static_cast<size_t>(kMaxInt16) - 1 + separator.size());
  size_t at = window.find(separator);
  if (at == TextView::npos) return Text();
  Text piece(rest.substr(0, at));
  offset = std::min(text.size(), offset + at + separator.size());
  return piece;
}

bool ReplaceAll(Text& text, TextView from, TextView to) {
  size_t at = text.find(from);
  if (at == Text::npos) return false;
  Text out;
  out.reserve(to.size() > from.size()
                  ? text.size() + text.size() / from.size() * (to.size() - from.size())
                  : text.size());
  size_t done = 0;
  while (at != Text::npos) {
    out.append(text, done, at - done);
    out.append(to);
    done = at + from.size();
    at = text.find(from, done);
  }
  out.append(text, done, Text::npos);
  text.swap(out);
  return true;
}

Text HexDigits(uint32_t value) {
  static constexpr char16_t kDigits[] = u"0123456789ABCDEF";
  char16_t buffer[8];
  int n = 0;
  do {
    buffer[n++] = kDigits[value & 15];
    value >>= 4;
  } while (value != 0);
  Text out;
  while (n > 0) out.push_back(buffer[--n]);
  return out;
}

}  // namespace text

namespace {

// The text of a 16-bit search result: an occurrence past 32767 can't be held.
bool FitsInt16(int32_t position) { return position <= text::kMaxInt16; }

// Field 1 of a line: the text before the first separator, with the 16-bit
// limits of the working variables (Var_GetFieldAt's end search and cut with
// the start at 0).
Text FirstField(const Text& line, const Text& sep) {
  int32_t q = 0;
  int32_t found = text::Find(1, line, sep);
  if (FitsInt16(found)) q = found;
  if (q == 0) {
    int32_t end = static_cast<int32_t>(line.size()) + 1;
    if (FitsInt16(end)) q = end;
  }
  if (q - 1 < 0) return Text();  // Mid with a negative length: skipped
  return line.substr(0, static_cast<size_t>(q - 1));
}

}  // namespace

Text TextToolkit::Var_GetPart(Variant& StartStrg, const Variant& Delimiter,
                              bool ResultWithOutDelimiter) {
  Text piece;
  Guarded([&] {
    Text delimiter = CStr(Delimiter);
    Text source = CStr(StartStrg);
    if (source.empty()) return;
    // The walk of the 16-bit position overflows before reaching a delimiter
    // that starts past 32767, which the guarded mode turns into "" with the
    // text untouched, as when there is none: so the search stops there.
    size_t window = static_cast<size_t>(text::kMaxInt16) - 1 + delimiter.size();
    size_t at = TextView(source).substr(0, window).find(delimiter);
    if (at == TextView::npos) return;
    size_t p = at + 1;
    piece = source.substr(0, p);
    size_t after = p - 1 + delimiter.size();
    StartStrg = Variant(after < source.size() ? source.substr(after) : Text());
    if (ResultWithOutDelimiter && !piece.empty()) piece.pop_back();
  });
  return piece;
}

Text TextToolkit::Var_GetFieldAt(const Variant& pLineText, const Variant& pPosition,
                                 const Variant& pSeparator) {
  Text result;
  Resume([&] {
    Text line = CStr(pLineText);
    Text sep = CStr(pSeparator);
    double position = CDbl(pPosition);
    if (position == 0) return;
    if (position == 1) {
      result = FirstField(line, sep);
      return;
    }
    // Step p = find(p + 1) position - 1 times. p walks 0 -> o1 -> o2 ... and
    // wraps to 0 when a search fails; an occurrence past 32767 (or p + 1
    // overflowing at 32767) can't be stored, so p sticks where it is.
    double rounds = position - 1 >= 1 ? std::floor(position - 1) : 0;
    std::vector<int32_t> states{0};
    bool wrapped = false;
    while (static_cast<double>(states.size() - 1) < rounds) {
      int32_t p = states.back();
      if (p == text::kMaxInt16) break;  // p + 1 overflows: p sticks
      int32_t next = text::Find(p + 1, line, sep);
      if (next == 0) {
        wrapped = true;  // back to 0: the walk repeats states from here on
        break;
      }
      if (!FitsInt16(next)) break;  // can't be stored: p sticks
      states.push_back(next);
    }
    int32_t p =
        wrapped ? states[static_cast<size_t>(std::fmod(rounds, static_cast<double>(states.size())))]
                : states.back();
    int32_t q = 0;
    if (p < text::kMaxInt16) {
      int32_t found = text::Find(p + 1, line, sep);
      if (FitsInt16(found)) q = found;
    }
    if (q == 0) {
      int32_t end = static_cast<int32_t>(line.size()) + 1;
      if (FitsInt16(end)) q = end;
    }
    if (position > 1 && p == 0) return;
    int32_t sep_len = static_cast<int32_t>(sep.size());
    result = Mid(line, p + sep_len, q - p - sep_len);
  });
  return result;
}

Text TextToolkit::Var_GetFieldValue(const Variant& pLineText, const Variant& /*pFieldName*/,
                                    const Variant& pSeparator) {
  Text result;
  Resume([&] { result = FirstField(CStr(pLineText), CStr(pSeparator)); });
  return result;
}

Text TextToolkit::Var_Translate(Text sSource, Text sFrom, Text sTo, int32_t vType) {
  if (sSource.empty() || sFrom.empty()) return sSource;
  if (vType < 0 || vType == 4) return sSource;
  if (vType <= 3) {
    text::ReplaceAll(sSource, sFrom, sTo);
    return sSource;
  }
  // Only occurrence number vType - 4; matches don't overlap.
  int64_t wanted = static_cast<int64_t>(vType) - 4;
  size_t at = sSource.find(sFrom);
  for (int64_t count = 1; at != Text::npos; ++count) {
    if (count == wanted) {
      sSource.replace(at, sFrom.size(), sTo);
      break;
    }
    at = sSource.find(sFrom, at + sFrom.size());
  }
  return sSource;
}

Variant TextToolkit::Var_Reverse(const Variant& sSource) {
  if (sSource.IsNull()) Fail(kErrInvalidUseOfNull);
  Text s = CStr(sSource);
  if (s.size() < 2) return sSource;
  std::reverse(s.begin(), s.end());
  return Variant(std::move(s));
}

Variant TextToolkit::Var_CountChar(const Variant& TmpCadena, const Variant& tmpStrToFind) {
  Text hay = CStr(TmpCadena);
  Text needle = CStr(tmpStrToFind);
  if (needle.empty()) {
    // The classic loop never advances past an empty needle and its count
    // grows without end; it fails here instead of hanging the host.
    if (hay.empty()) return Variant::Integer(0);
    Fail(kErrOverflow);
  }
  // Non-overlapping matches, walked over the whole text. The count is a
  // Variant: Integer while it fits 16 bits, Long above, as its + 1 would give.
  int64_t count = 0;
  for (size_t at = hay.find(needle); at != Text::npos; at = hay.find(needle, at + needle.size()))
    ++count;
  if (count <= text::kMaxInt16) return Variant::Integer(static_cast<int16_t>(count));
  return Variant::Long(static_cast<int32_t>(count));
}

Text TextToolkit::Var_TrimNull(Text StrIn) {
  size_t nul = StrIn.find(u'\0');
  if (nul == Text::npos) return Trim(StrIn);
  StrIn.resize(nul);
  return StrIn;
}

Text TextToolkit::Var_StrZToStr(const Text& s) {
  return Left(s, static_cast<int32_t>(s.size()) - 1);
}

Variant TextToolkit::Var_StringNormalizedWithSpaces(const Variant& InputString,
                                                    const Variant& LenString) {
  int32_t wanted = CLng(LenString);
  Text s = CStr(InputString);
  int32_t have = static_cast<int32_t>(s.size());
  if (wanted <= 0 || wanted == have) return InputString;
  if (have < wanted) return Variant(s + Space(wanted - have));
  return Variant(Left(s, wanted));
}

Variant TextToolkit::Var_StringNormalizeLen(const Variant& InputString, const Variant& LenString,
                                            const Variant& CharToFill,
                                            bool LeftSideIsTrue_RightSideIsFalse) {
  int32_t wanted = CLng(LenString);
  Text s = CStr(InputString);
  int32_t have = static_cast<int32_t>(s.size());
  if (wanted <= 0 || wanted == have) return InputString;
  if (have > wanted) {
    return Variant(LeftSideIsTrue_RightSideIsFalse ? Left(s, wanted) : Right(s, wanted));
  }
  char16_t fill;
  if (CharToFill.IsNumberType()) {
    fill = ChrW(CLng(CharToFill)).front();
  } else {
    Text f = CStr(CharToFill);
    if (f.empty()) Fail(kErrInvalidCall);
    fill = f.front();
  }
  Text pad(static_cast<size_t>(wanted - have), fill);
  return Variant(LeftSideIsTrue_RightSideIsFalse ? pad + s : s + pad);
}

}  // namespace varnek
