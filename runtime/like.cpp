// The Like operator, matched without backtracking blow-up: the pattern is
// compiled to one-unit tokens and stars, then matched with the classic
// last-star restart, which is O(text * pattern) at worst.
#include "varnek/runtime/like.h"

#include <vector>

#include "varnek/runtime/casemap.h"
#include "varnek/runtime/failure.h"

namespace varnek {
namespace {

enum class Kind { Literal, Any, Digit, Set, Star };

struct Range {
  char16_t lo;
  char16_t hi;
};

struct Token {
  Kind kind = Kind::Literal;
  char16_t unit = 0;
  bool negate = false;
  std::vector<Range> ranges;
};

// A range must ascend in the order of the compare mode: [a-Z] is fine under
// text compare and invalid under binary.
bool Descending(char16_t lo, char16_t hi, CompareMode mode) {
  if (mode == CompareMode::Binary) return hi < lo;
  UnitWeight a = TextWeight(lo), b = TextWeight(hi);
  return b.primary < a.primary || (b.primary == a.primary && b.secondary < a.secondary);
}

// Compiles a bracket list starting after '['; returns the index after ']'.
size_t CompileSet(TextView p, size_t i, Token& t, CompareMode mode) {
  t.kind = Kind::Set;
  if (i < p.size() && p[i] == u'!') {
    t.negate = true;
    ++i;
  }
  while (i < p.size() && p[i] != u']') {
    char16_t lo = p[i];
    if (i + 2 < p.size() && p[i + 1] == u'-' && p[i + 2] != u']') {
      char16_t hi = p[i + 2];
      if (Descending(lo, hi, mode)) Fail(kErrInvalidPattern);
      t.ranges.push_back({lo, hi});
      i += 3;
    } else {
      t.ranges.push_back({lo, lo});
      ++i;
    }
  }
  if (i >= p.size()) Fail(kErrInvalidPattern);
  return i + 1;
}

std::vector<Token> Compile(TextView p, CompareMode mode) {
  std::vector<Token> tokens;
  for (size_t i = 0; i < p.size();) {
    Token t;
    char16_t c = p[i];
    if (c == u'*') {
      if (tokens.empty() || tokens.back().kind != Kind::Star) {
        Token star;
        star.kind = Kind::Star;
        tokens.push_back(std::move(star));
      }
      ++i;
      continue;
    }
    if (c == u'?') {
      t.kind = Kind::Any;
      ++i;
    } else if (c == u'#') {
      t.kind = Kind::Digit;
      ++i;
    } else if (c == u'[') {
      i = CompileSet(p, i + 1, t, mode);
      // "[]" matches the empty string: no token.
      if (t.ranges.empty() && !t.negate) continue;
    } else {
      t.unit = c;
      ++i;
    }
    tokens.push_back(std::move(t));
  }
  return tokens;
}

bool InRange(char16_t c, Range r, CompareMode mode) {
  if (mode == CompareMode::Binary) return c >= r.lo && c <= r.hi;
  // Text: by text-compare weight, so [A-E] takes a, À and à but not Ê.
  UnitWeight w = TextWeight(c), lo = TextWeight(r.lo), hi = TextWeight(r.hi);
  auto le = [](UnitWeight x, UnitWeight y) {
    return x.primary < y.primary || (x.primary == y.primary && x.secondary <= y.secondary);
  };
  return le(lo, w) && le(w, hi);
}

bool TokenMatches(const Token& t, char16_t c, CompareMode mode) {
  switch (t.kind) {
    case Kind::Any: return true;
    case Kind::Digit: return c >= u'0' && c <= u'9';
    case Kind::Literal: return mode == CompareMode::Binary ? c == t.unit : TextUnitEqual(c, t.unit);
    case Kind::Set: {
      bool in = false;
      for (const Range& r : t.ranges) {
        if (InRange(c, r, mode)) {
          in = true;
          break;
        }
      }
      return in != t.negate;
    }
    case Kind::Star: return false;
  }
  return false;
}

}  // namespace

bool Like(TextView text, TextView pattern, CompareMode mode) {
  std::vector<Token> tokens = Compile(pattern, mode);
  size_t ti = 0, pi = 0;
  size_t star = SIZE_MAX, star_text = 0;
  while (ti < text.size()) {
    if (pi < tokens.size() && tokens[pi].kind == Kind::Star) {
      star = pi++;
      star_text = ti;
    } else if (pi < tokens.size() && TokenMatches(tokens[pi], text[ti], mode)) {
      ++pi;
      ++ti;
    } else if (star != SIZE_MAX) {
      pi = star + 1;
      ti = ++star_text;
    } else {
      return false;
    }
  }
  while (pi < tokens.size() && tokens[pi].kind == Kind::Star) ++pi;
  return pi == tokens.size();
}

}  // namespace varnek
