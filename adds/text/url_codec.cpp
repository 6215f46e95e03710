// URL_Encode and URL_Decode: the form and query-string codec, with its short
// one-digit escapes and its literal, pass-by-pass decoding.
#include <algorithm>
#include <vector>

#include "varnek/adds/text/text_internal.h"
#include "varnek/adds/text/text_toolkit.h"
#include "varnek/runtime/convert.h"

namespace varnek {

namespace {

bool KeptAsIs(char16_t unit) {
  return (unit >= u'a' && unit <= u'z') || (unit >= u'A' && unit <= u'Z') ||
         (unit >= u'0' && unit <= u'9');
}

// Value of an upper-case hex digit, -1 for anything else ("a".."f" included:
// the decoder matches its escapes literally).
int UpperHexValue(char16_t unit) {
  if (unit >= u'0' && unit <= u'9') return unit - u'0';
  if (unit >= u'A' && unit <= u'F') return unit - u'A' + 10;
  return -1;
}

// The decoder's escapes are replaced in 255 global passes, pass i replacing
// every "%hh" of i (two upper-case digits) left to right, never looking back
// at a unit it has just put in. Running the passes literally costs 255 scans,
// so the text is held as a linked list of units whose ids keep text order
// (units are only rewritten in place or unlinked), with one bucket of
// candidate "%" ids per pass. A replacement can only form new escapes with the
// two units before it or with itself (when it puts in a "%"); those whose pass
// is still ahead go to their bucket, the others are past saving, as in the
// literal passes.
class EscapeDecoder {
 public:
  explicit EscapeDecoder(Text units) : units_(std::move(units)) {
    size_t n = units_.size();
    next_.resize(n);
    prev_.resize(n);
    alive_.assign(n, 1);
    for (size_t i = 0; i < n; ++i) {
      next_[i] = static_cast<int32_t>(i + 1 < n ? i + 1 : kNone);
      prev_[i] = static_cast<int32_t>(i == 0 ? kNone : static_cast<int64_t>(i) - 1);
    }
    for (size_t i = 0; i < n; ++i) {
      int v = EscapeAt(static_cast<int32_t>(i));
      if (v > 0) buckets_[v].push_back(static_cast<int32_t>(i));
    }
  }

  Text Run() {
    for (int pass = 1; pass <= 255; ++pass) {
      auto& bucket = buckets_[pass];
      if (bucket.empty()) continue;
      std::sort(bucket.begin(), bucket.end());
      bucket.erase(std::unique(bucket.begin(), bucket.end()), bucket.end());
      for (int32_t id : bucket) {
        if (EscapeAt(id) == pass) Replace(id, pass);
      }
      bucket.clear();
      bucket.shrink_to_fit();
    }
    Text out;
    out.reserve(units_.size());
    for (size_t i = 0; i < units_.size(); ++i) {
      if (alive_[i]) out.push_back(units_[i]);
    }
    return out;
  }

 private:
  static constexpr int32_t kNone = -1;

  // The pass value of an escape starting at id, or -1.
  int EscapeAt(int32_t id) const {
    if (id == kNone || !alive_[id] || units_[id] != u'%') return -1;
    int32_t a = next_[id];
    if (a == kNone) return -1;
    int32_t b = next_[a];
    if (b == kNone) return -1;
    int hi = UpperHexValue(units_[a]);
    int lo = UpperHexValue(units_[b]);
    if (hi < 0 || lo < 0) return -1;
    return hi * 16 + lo;
  }

  void Unlink(int32_t id) {
    alive_[id] = 0;
    if (prev_[id] != kNone) next_[prev_[id]] = next_[id];
    if (next_[id] != kNone) prev_[next_[id]] = prev_[id];
  }

  void Replace(int32_t id, int pass) {
    int32_t a = next_[id];
    int32_t b = next_[a];
    Unlink(b);
    Unlink(a);
    units_[id] = text::ByteUnit(static_cast<uint8_t>(pass));
    int32_t before = prev_[id];
    int32_t before2 = before == kNone ? kNone : prev_[before];
    for (int32_t start : {before2, before, id}) {
      int v = EscapeAt(start);
      if (v > pass) buckets_[v].push_back(start);
    }
  }

  Text units_;
  std::vector<int32_t> next_;
  std::vector<int32_t> prev_;
  std::vector<uint8_t> alive_;
  std::vector<int32_t> buckets_[256];
};

}  // namespace

Variant TextToolkit::URL_Encode(const Variant& sInput) {
  // URL_EncodeText: the work on a copy of the value.
  const Text input = CStr(sInput);
  Text out;
  out.reserve(input.size() * 2);
  for (char16_t unit : input) {
    if (KeptAsIs(unit)) {
      out.push_back(unit);
    } else if (unit == u' ') {
      out.push_back(u'+');
    } else {
      // Unpadded upper-case hex of the byte. The double-byte form ("%hh%hh"
      // for four digits) never arises: every unit maps to one cp1252 byte.
      static constexpr char16_t kHex[] = u"0123456789ABCDEF";
      uint8_t byte = text::UnitByte(unit);
      out += u'%';
      if (byte >= 16) out += kHex[byte >> 4];
      out += kHex[byte & 15];
    }
  }
  return Variant(std::move(out));
}

Variant TextToolkit::URL_Decode(const Variant& sInput) {
  Text work = CStr(sInput);
  std::replace(work.begin(), work.end(), u'+', u' ');
  if (work.find(u'%') == Text::npos) return Variant(std::move(work));
  return Variant(EscapeDecoder(std::move(work)).Run());
}

}  // namespace varnek
