// The classic string functions on 16-bit texts.
#include "varnek/runtime/strings.h"

#include "varnek/runtime/casemap.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

bool UnitsEqual(char16_t a, char16_t b, CompareMode mode) {
  return mode == CompareMode::Binary ? a == b : TextUnitEqual(a, b);
}

// True when s2 occurs in s1 at the 0-based offset at.
bool MatchAt(TextView s1, TextView s2, size_t at, CompareMode mode) {
  if (at + s2.size() > s1.size()) return false;
  for (size_t i = 0; i < s2.size(); ++i) {
    if (!UnitsEqual(s1[at + i], s2[i], mode)) return false;
  }
  return true;
}

// 0-based offset of the first s2 in s1 at or after from, or npos.
size_t FindFrom(TextView s1, TextView s2, size_t from, CompareMode mode) {
  if (mode == CompareMode::Binary) return s1.find(s2, from);
  for (size_t at = from; at + s2.size() <= s1.size(); ++at) {
    if (MatchAt(s1, s2, at, mode)) return at;
  }
  return TextView::npos;
}

void CheckMode(CompareMode mode) {
  if (mode != CompareMode::Binary && mode != CompareMode::TextCompare) Fail(kErrInvalidCall);
}

}  // namespace

int32_t Len(TextView s) { return static_cast<int32_t>(s.size()); }

Text Left(TextView s, int32_t length) {
  if (length < 0) Fail(kErrInvalidCall);
  return Text(s.substr(0, static_cast<size_t>(length)));
}

Text Right(TextView s, int32_t length) {
  if (length < 0) Fail(kErrInvalidCall);
  size_t n = std::min(s.size(), static_cast<size_t>(length));
  return Text(s.substr(s.size() - n));
}

Text Mid(TextView s, int32_t start) {
  if (start < 1) Fail(kErrInvalidCall);
  if (static_cast<size_t>(start) > s.size()) return Text();
  return Text(s.substr(static_cast<size_t>(start - 1)));
}

Text Mid(TextView s, int32_t start, int32_t length) {
  if (start < 1 || length < 0) Fail(kErrInvalidCall);
  if (static_cast<size_t>(start) > s.size()) return Text();
  return Text(s.substr(static_cast<size_t>(start - 1), static_cast<size_t>(length)));
}

// length < 0 means "as many units of repl as fit".
void MidAssign(Text& s, int32_t start, int32_t length, TextView repl) {
  if (start < 1 || static_cast<size_t>(start) > s.size()) Fail(kErrInvalidCall);
  size_t at = static_cast<size_t>(start - 1);
  size_t n = std::min(repl.size(), s.size() - at);
  if (length >= 0) n = std::min(n, static_cast<size_t>(length));
  for (size_t i = 0; i < n; ++i) s[at + i] = repl[i];
}

int32_t InStr(int32_t start, TextView s1, TextView s2, CompareMode mode) {
  if (start < 1) Fail(kErrInvalidCall);
  CheckMode(mode);
  if (s1.empty() || static_cast<size_t>(start) > s1.size()) return 0;
  if (s2.empty()) return start;
  size_t at = FindFrom(s1, s2, static_cast<size_t>(start - 1), mode);
  return at == TextView::npos ? 0 : static_cast<int32_t>(at + 1);
}

int32_t InStrRev(TextView s1, TextView s2, int32_t start, CompareMode mode) {
  if (start == 0 || start < -1) Fail(kErrInvalidCall);
  CheckMode(mode);
  if (s1.empty()) return 0;
  if (start == -1) start = Len(s1);
  if (static_cast<size_t>(start) > s1.size()) return 0;
  if (s2.empty()) return start;
  // The match must end at or before start.
  if (s2.size() > static_cast<size_t>(start)) return 0;
  for (size_t at = static_cast<size_t>(start) - s2.size() + 1; at-- > 0;) {
    if (MatchAt(s1, s2, at, mode)) return static_cast<int32_t>(at + 1);
  }
  return 0;
}

Text UCase(TextView s) {
  Text out(s);
  for (char16_t& u : out) u = UpperUnit(u);
  return out;
}

Text LCase(TextView s) {
  Text out(s);
  for (char16_t& u : out) u = LowerUnit(u);
  return out;
}

Text LTrim(TextView s) {
  size_t b = s.find_first_not_of(u' ');
  return b == TextView::npos ? Text() : Text(s.substr(b));
}

Text RTrim(TextView s) {
  size_t e = s.find_last_not_of(u' ');
  return e == TextView::npos ? Text() : Text(s.substr(0, e + 1));
}

Text Trim(TextView s) { return LTrim(RTrim(s)); }

Text Space(int32_t count) { return String(count, u' '); }

Text String(int32_t count, char16_t unit) {
  if (count < 0) Fail(kErrInvalidCall);
  return Text(static_cast<size_t>(count), unit);
}

Text StrReverse(TextView s) { return Text(s.rbegin(), s.rend()); }

Text Replace(TextView expression, TextView find, TextView replacement, int32_t start, int32_t count,
             CompareMode mode) {
  if (start < 1 || count < -1) Fail(kErrInvalidCall);
  CheckMode(mode);
  if (static_cast<size_t>(start) > expression.size()) return Text();
  TextView rest = expression.substr(static_cast<size_t>(start - 1));
  if (find.empty() || count == 0) return Text(rest);
  Text out;
  size_t pos = 0;
  int32_t done = 0;
  while (count == -1 || done < count) {
    size_t at = FindFrom(rest, find, pos, mode);
    if (at == TextView::npos) break;
    out.append(rest.substr(pos, at - pos));
    out.append(replacement);
    pos = at + find.size();
    ++done;
  }
  out.append(rest.substr(pos));
  return out;
}

std::vector<Text> Split(TextView expression, TextView delimiter, int32_t count, CompareMode mode) {
  if (count < -1) Fail(kErrInvalidCall);
  CheckMode(mode);
  std::vector<Text> items;
  if (expression.empty() || count == 0) return items;
  if (delimiter.empty()) {
    items.emplace_back(expression);
    return items;
  }
  size_t pos = 0;
  while (count == -1 || static_cast<int32_t>(items.size()) < count - 1) {
    size_t at = FindFrom(expression, delimiter, pos, mode);
    if (at == TextView::npos) break;
    items.emplace_back(expression.substr(pos, at - pos));
    pos = at + delimiter.size();
  }
  items.emplace_back(expression.substr(pos));
  return items;
}

Text Join(const std::vector<Text>& items, TextView delimiter) {
  Text out;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i) out.append(delimiter);
    out.append(items[i]);
  }
  return out;
}

int32_t Asc(TextView s) {
  if (s.empty()) Fail(kErrInvalidCall);
  return UnitToByte(s[0]);
}

int32_t AscW(TextView s) {
  if (s.empty()) Fail(kErrInvalidCall);
  return static_cast<int16_t>(s[0]);
}

Text Chr(int32_t byte) {
  if (byte < 0 || byte > 255) Fail(kErrInvalidCall);
  return Text(1, ByteToUnit(static_cast<uint8_t>(byte)));
}

Text ChrW(int32_t code) {
  if (code < -32768 || code > 65535) Fail(kErrInvalidCall);
  return Text(1, static_cast<char16_t>(code < 0 ? code + 65536 : code));
}

}  // namespace varnek
