// Mask matching of the classic find-first: the DOS mask is rewritten to the
// file system's wildcards, then matched without regard to case.
#include <vector>

#include "varnek/platform/files.h"
#include "varnek/runtime/casemap.h"

namespace varnek {

namespace {

// The rewritten wildcards: '*' any run, '<' any run that does not pass the
// name's last '.', '>' one unit (or nothing at a '.' or the end), '"' a '.'
// (or nothing at the end).
enum : char16_t { kStar = 1, kDosStar = 2, kDosQm = 3, kDosDot = 4 };

Text Rewrite(TextView mask) {
  if (mask == u"*.*") return Text(1, kStar);
  Text out;
  out.reserve(mask.size());
  for (size_t i = 0; i < mask.size(); ++i) {
    char16_t c = mask[i];
    char16_t next = i + 1 < mask.size() ? mask[i + 1] : 0;
    if (c == u'?') {
      out += kDosQm;
    } else if (c == u'.' && (next == u'?' || next == u'*' || next == 0)) {
      out += kDosDot;
    } else if (c == u'*') {
      out += next == u'.' ? kDosStar : kStar;
    } else {
      out += c;
    }
  }
  return out;
}

class Matcher {
 public:
  Matcher(TextView pattern, TextView name)
      : p_(pattern), n_(name), memo_((p_.size() + 1) * (n_.size() + 1), -1) {
    last_dot_ = name.rfind(u'.');
  }
  bool Run() { return Match(0, 0); }

 private:
  bool Match(size_t pi, size_t ni) {
    int8_t& slot = memo_[pi * (n_.size() + 1) + ni];
    if (slot < 0) slot = Compute(pi, ni) ? 1 : 0;
    return slot == 1;
  }

  bool Compute(size_t pi, size_t ni) {
    if (pi == p_.size()) return ni == n_.size();
    char16_t c = p_[pi];
    switch (c) {
      case kStar:
        for (size_t k = ni; k <= n_.size(); ++k)
          if (Match(pi + 1, k)) return true;
        return false;
      case kDosStar:
        for (size_t k = ni; k <= n_.size(); ++k) {
          // The run [ni, k) may not swallow the last '.'.
          if (last_dot_ != TextView::npos && last_dot_ >= ni && last_dot_ < k) break;
          if (Match(pi + 1, k)) return true;
        }
        return false;
      case kDosQm:
        if (ni == n_.size() || n_[ni] == u'.') return Match(pi + 1, ni);
        return Match(pi + 1, ni + 1);
      case kDosDot:
        if (ni == n_.size()) return Match(pi + 1, ni);
        return n_[ni] == u'.' && Match(pi + 1, ni + 1);
      default: return ni < n_.size() && UpperUnit(c) == UpperUnit(n_[ni]) && Match(pi + 1, ni + 1);
    }
  }

  TextView p_;
  TextView n_;
  size_t last_dot_;
  std::vector<int8_t> memo_;
};

}  // namespace

bool MaskMatches(TextView mask, TextView name) {
  Text pattern = Rewrite(mask);
  return Matcher(pattern, name).Run();
}

}  // namespace varnek
