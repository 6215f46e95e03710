// Randomised cross-checks with a fixed seed: Like against a plain recursive
// matcher, number text round trips, date text round trips and calendar steps.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "runtime/convert.h"
#include "runtime/date_math.h"
#include "runtime/dates.h"
#include "runtime/like.h"
#include "runtime/number_text.h"

namespace varnek {
namespace {

// Reference: straightforward backtracking over the pattern (binary compare),
// fine for the short inputs used here.
bool NaiveLike(TextView s, TextView p) {
  if (p.empty()) return s.empty();
  if (p[0] == u'*') {
    for (size_t k = 0; k <= s.size(); ++k) {
      if (NaiveLike(s.substr(k), p.substr(1))) return true;
    }
    return false;
  }
  if (s.empty()) return false;
  if (p[0] == u'[') {
    size_t close = p.find(u']', 1);
    bool negate = p[1] == u'!';
    TextView list = p.substr(negate ? 2 : 1, close - (negate ? 2 : 1));
    bool in = false;
    for (size_t i = 0; i < list.size(); ++i) {
      if (i + 2 < list.size() && list[i + 1] == u'-') {
        in = in || (s[0] >= list[i] && s[0] <= list[i + 2]);
        i += 2;
      } else {
        in = in || s[0] == list[i];
      }
    }
    return in != negate && NaiveLike(s.substr(1), p.substr(close + 1));
  }
  bool one = p[0] == u'?' || (p[0] == u'#' ? (s[0] >= u'0' && s[0] <= u'9') : s[0] == p[0]);
  return one && NaiveLike(s.substr(1), p.substr(1));
}

TEST(Properties, LikeAgreesWithBacktrackingReference) {
  std::mt19937 rng(12345);
  const char16_t text_units[] = u"ab1c";
  const TextView pieces[] = {u"a", u"b", u"1", u"?", u"*", u"#", u"[ab]", u"[!a]", u"[a-c]", u"**"};
  int matches = 0;
  for (int round = 0; round < 4000; ++round) {
    Text s, p;
    for (int n = static_cast<int>(rng() % 7); n > 0; --n) s += text_units[rng() % 4];
    for (int n = static_cast<int>(rng() % 5); n > 0; --n) p += pieces[rng() % 10];
    bool expected = NaiveLike(s, p);
    matches += expected;
    ASSERT_EQ(Like(s, p), expected) << TextToUtf8(s) << " like " << TextToUtf8(p);
  }
  EXPECT_GT(matches, 200);  // the sample covers both answers
}

TEST(Properties, CStrOfDoubleReadsBackTo15Digits) {
  std::mt19937_64 rng(777);
  std::uniform_real_distribution<double> mant(1.0, 10.0);
  std::uniform_int_distribution<int> exp(-20, 20);
  for (int round = 0; round < 3000; ++round) {
    double v = mant(rng) * std::pow(10.0, exp(rng)) * (rng() % 2 ? -1 : 1);
    Text t = CStr(Variant(v));
    double back = 0;
    ASSERT_TRUE(ParseNumber(t, back)) << TextToUtf8(t);
    EXPECT_NEAR(back, v, std::fabs(v) * 1e-14) << TextToUtf8(t);
    // and the text is the shortest: no trailing zero after a mark
    size_t mark = t.find(u'.');
    size_t e = t.find(u'E');
    if (mark != Text::npos) {
      EXPECT_NE(t[(e == Text::npos ? t.size() : e) - 1], u'0') << TextToUtf8(t);
    }
  }
}

TEST(Properties, DatesRoundTripAndStepConsistently) {
  std::mt19937 rng(4242);
  std::uniform_int_distribution<int> day(-657434, 2958465);
  std::uniform_int_distribution<int> sec(0, 86399);
  for (int round = 0; round < 3000; ++round) {
    int d = day(rng), s = sec(rng);
    double date = DateFromLinear(d + s / 86400.0);
    int32_t y = Year(date), m = Month(date), dd = Day(date);
    // calendar fields rebuild the same day; the host text reads back
    ASSERT_EQ(DateSerial(y, m, dd), d);
    EXPECT_EQ(Hour(date) * 3600 + Minute(date) * 60 + Second(date), s);
    double back = 0;
    ASSERT_TRUE(ParseDateText(DateToHostText(date), back)) << TextToUtf8(DateToHostText(date));
    EXPECT_EQ(DateToHostText(back), DateToHostText(date));
    // weekday steps by one a day; DateDiff undoes DateAdd for days and seconds
    if (d < 2958465) {
      EXPECT_EQ(Weekday(DateAdd(u"d", 1, date)) % 7, (Weekday(date) + 1) % 7);
      EXPECT_EQ(DateDiff(u"d", date, DateAdd(u"d", 1, date)), 1);
    }
    if (d > -657434 && d < 2958465) {
      EXPECT_EQ(DateDiff(u"s", date, DateAdd(u"s", 3601, date)), 3601);
    }
  }
}

}  // namespace
}  // namespace varnek
