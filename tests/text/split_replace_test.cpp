// Splitting and replacing strings: the kept quirks of the primitives.
#include <string>

#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, GetPartKeepsOneDelimiterUnitAndConsumesInput) {
  {  // default: the piece keeps the delimiter's first unit
    Variant s = u"a,b";
    EXPECT_EQ(kit.Var_GetPart(s, u","), u"a,");
    EXPECT_EQ(CStr(s), u"b");
  }
  {  // two-unit delimiter: the piece ends in CR alone, rest skips CR LF
    Variant s = u"GET /\r\nHost: x";
    EXPECT_EQ(kit.Var_GetPart(s, u"\r\n"), u"GET /\r");
    EXPECT_EQ(CStr(s), u"Host: x");
  }
  {  // clean piece and empty piece: only the rest tells them apart
    Variant kv = u"k=v";
    EXPECT_EQ(kit.Var_GetPart(kv, u"=", true), u"k");
    EXPECT_EQ(CStr(kv), u"v");
    Variant ev = u"=v";
    EXPECT_EQ(kit.Var_GetPart(ev, u"=", true), u"");
    EXPECT_EQ(CStr(ev), u"v");
  }
  {  // missing delimiter: "" and the input untouched
    Variant s = u"abc";
    EXPECT_EQ(kit.Var_GetPart(s, u";", true), u"");
    EXPECT_EQ(CStr(s), u"abc");
  }
  {  // empty delimiter: p stays 1
    Variant s = u"abc";
    EXPECT_EQ(kit.Var_GetPart(s, u""), u"a");
    EXPECT_EQ(CStr(s), u"abc");
    EXPECT_EQ(kit.Var_GetPart(s, u"", true), u"");
    Variant e = u"";
    EXPECT_EQ(kit.Var_GetPart(e, u""), u"");
  }
  {  // the rest is stored back as text whatever it held
    Variant n = 12345;
    EXPECT_EQ(kit.Var_GetPart(n, u"3", true), u"12");
    EXPECT_TRUE(n.IsString());
    EXPECT_EQ(n.RawString(), u"45");
  }
  {  // Null arguments: "" and nothing changed
    Variant s = Variant::Null();
    EXPECT_EQ(kit.Var_GetPart(s, u","), u"");
    EXPECT_TRUE(s.IsNull());
    Variant t = u"a,b";
    EXPECT_EQ(kit.Var_GetPart(t, Variant::Null()), u"");
    EXPECT_EQ(CStr(t), u"a,b");
  }
}

TEST_F(ToolkitTest, GetPartStopsAtThe16BitPositionLimit) {
  Text at_limit = Text(32766, u'x') + u",tail";  // delimiter at 32767
  Variant s = at_limit;
  EXPECT_EQ(kit.Var_GetPart(s, u",", true).size(), 32766u);
  EXPECT_EQ(CStr(s), u"tail");

  Text past = u"x" + Text(40000, u'y') + u",";  // delimiter at 40002
  Variant p = past;
  EXPECT_EQ(kit.Var_GetPart(p, u","), u"");
  EXPECT_EQ(CStr(p), past);
}

TEST_F(ToolkitTest, GetFieldAtWrapsAroundAndCountsOverlaps) {
  struct Row {
    const char16_t* line;
    Variant position;
    const char16_t* sep;
    const char16_t* want;
  };
  const Row rows[] = {
      {u"a,b", 0, u",", u""},       {u"a,b", 1, u",", u"a"},   {u"a,b", 2, u",", u"b"},
      {u"a,b", 3, u",", u""},       {u"a,b", 4, u",", u"b"},   {u"a,b", 5, u",", u""},
      {u"a,b,c", 3, u",", u"c"},    {u"a,b,c", 5, u",", u"b"}, {u"a,b,c", 7, u",", u""}, {u",a", 1, u",", u""},
      {u"abc", 1, u",", u"abc"},    {u"abc", 2, u",", u""},    {u"a::b", 2, u"::", u"b"},
      {u"a:::b", 2, u"::", u""},   // overlapping match: q - p - 2 < 0, resumed as ""
      {u"a:::b", 3, u"::", u"b"},  // the second, overlapping match starts field 3
      {u"a,b", -1, u",", u"a"},     // below 0: p = 0 and step 6
      {u"a,b", 1, u"", u""},        {u"", 1, u",", u""},
      {u"a,b", 1000000000, u",", u"b"},  // the wrap is periodic
  };
  for (const Row& r : rows) {
    EXPECT_EQ(kit.Var_GetFieldAt(r.line, r.position, r.sep), r.want)
        << TextToUtf8(r.line) << " #" << CStr(r.position).size();
  }
  // Failures are resumed: a Null line or a non-numeric position give "".
  EXPECT_EQ(kit.Var_GetFieldAt(Variant::Null(), 1, u","), u"");
  EXPECT_EQ(kit.Var_GetFieldAt(u"a,b", u"x", u","), u"");
}

TEST_F(ToolkitTest, GetFieldAtHonoursThe16BitWorkingVariables) {
  // A separator past 32767 can't be stored: the field start sticks before it.
  Text line = u"a," + Text(40000, u'b') + u",c";
  EXPECT_EQ(kit.Var_GetFieldAt(line, 1, u","), u"a");
  EXPECT_EQ(kit.Var_GetFieldAt(line, 3, u","), u"");  // q was never stored
  // A line of 32767 units or more with no further separator: field is empty.
  Text longline = u"x," + Text(33000, u'y');
  EXPECT_EQ(kit.Var_GetFieldAt(longline, 2, u","), u"");
  EXPECT_EQ(kit.Var_GetFieldValue(Text(33000, u'y'), u"", u","), u"");
  Text shorter = u"x," + Text(100, u'y');
  EXPECT_EQ(kit.Var_GetFieldAt(shorter, 2, u",").size(), 100u);
}

TEST_F(ToolkitTest, GetFieldValueIgnoresTheNameAndGivesTheFirstField) {
  EXPECT_EQ(kit.Var_GetFieldValue(u"a,b", u"anything", u","), u"a");
  EXPECT_EQ(kit.Var_GetFieldValue(u"b,a", u"a", u","), u"b");
  EXPECT_EQ(kit.Var_GetFieldValue(u"abc", u"", u","), u"abc");
  EXPECT_EQ(kit.Var_GetFieldValue(u",abc", u"", u","), u"");
  EXPECT_EQ(kit.Var_GetFieldValue(u"abc", u"", u""), u"");
}

TEST_F(ToolkitTest, TranslateModes) {
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", 6), u"aXb--c");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", 5), u"a--bXc");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", 7), u"aXbXc");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--"), u"a--b--c");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", 3), u"a--b--c");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", 4), u"aXbXc");
  EXPECT_EQ(kit.Var_Translate(u"aXbXc", u"X", u"--", -1), u"aXbXc");
  // One sweep: inserted text is never looked at again.
  EXPECT_EQ(kit.Var_Translate(u"aaa", u"a", u"aa"), u"aaaaaa");
  EXPECT_EQ(kit.Var_Translate(u"abab", u"ab", u"b"), u"bb");
  // Non-overlapping matches, for all and for one.
  EXPECT_EQ(kit.Var_Translate(u"aaaa", u"aa", u"b"), u"bb");
  EXPECT_EQ(kit.Var_Translate(u"aaaa", u"aa", u"b", 6), u"aab");
  EXPECT_EQ(kit.Var_Translate(u"aXb", u"X", u""), u"ab");
  EXPECT_EQ(kit.Var_Translate(u"", u"X", u"y"), u"");
  EXPECT_EQ(kit.Var_Translate(u"abc", u"", u"y"), u"abc");
}

TEST_F(ToolkitTest, SmallStringRoutines) {
  // Reverse: short values come back as they are, numbers as reversed text.
  EXPECT_EQ(CStr(kit.Var_Reverse(u"abc")), u"cba");
  EXPECT_EQ(kit.Var_Reverse(7).Type(), VarType::Integer);
  EXPECT_EQ(CStr(kit.Var_Reverse(123)), u"321");
  EXPECT_EQ(FailureOf([&] { kit.Var_Reverse(Variant::Null()); }), kErrInvalidUseOfNull);
  // CountChar: non-overlapping; an empty needle overflows the 16-bit count.
  EXPECT_EQ(CLng(kit.Var_CountChar(u"aaa", u"aa")), 1);
  EXPECT_EQ(CLng(kit.Var_CountChar(u"a,b,,c", u",")), 3);
  EXPECT_EQ(CLng(kit.Var_CountChar(u"", u"x")), 0);
  EXPECT_EQ(FailureOf([&] { kit.Var_CountChar(u"abc", u""); }), kErrOverflow);
  // TrimNull: only a text without NUL is trimmed.
  EXPECT_EQ(kit.Var_TrimNull(Text(u"  a\0b", 5)), u"  a");
  EXPECT_EQ(kit.Var_TrimNull(u"  a  "), u"a");
  EXPECT_EQ(kit.Var_TrimNull(Text(u"\0x", 2)), u"");
  // StrZToStr: the last unit goes whatever it is; "" fails.
  EXPECT_EQ(kit.Var_StrZToStr(u"abc"), u"ab");
  EXPECT_EQ(FailureOf([&] { kit.Var_StrZToStr(u""); }), kErrInvalidCall);
}

TEST_F(ToolkitTest, NormalizeLengths) {
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"ab", 4)), u"ab  ");
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"abcdef", 3)), u"abc");
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"abc", 0)), u"abc");
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"abc", -2)), u"abc");
  // The flag is the side padded on, and on cutting the side kept.
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"abc", 2, u"0", true)), u"ab");
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"abc", 2, u"0", false)), u"bc");
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"7", 3, u"0", true)), u"007");
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"7", 3, u"0xy")), u"700");
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"7", 3, 42, true)), u"**7");
  EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(u"abc", 3, u"")), u"abc");
  EXPECT_EQ(FailureOf([&] { kit.Var_StringNormalizeLen(u"7", 3, u""); }), kErrInvalidCall);
}

TEST_F(ToolkitTest, PointersReadBackWhatTheyPointAt) {
  Variant s = u"h\u00e9llo";
  int64_t address = kit.Var_StringToPointer(s);
  EXPECT_EQ(address, reinterpret_cast<int64_t>(s.RawString().data()));
  EXPECT_EQ(kit.Var_PointerToStringW(address), u"h\u00e9llo");
  const char bytes[] = "caf\xE9\x80";
  EXPECT_EQ(kit.Var_PointerToStringA(reinterpret_cast<int64_t>(bytes)), u"caf\u00e9\u20ac");
  EXPECT_EQ(kit.Var_PointerToStringA(0), u"");
  EXPECT_EQ(kit.Var_PointerToStringW(0), u"");
  auto object = std::make_shared<Object>();
  EXPECT_EQ(kit.Var_ObjectToPointer(Variant(object)), reinterpret_cast<int64_t>(object.get()));
  EXPECT_EQ(FailureOf([&] { kit.Var_ObjectToPointer(u"x"); }), kErrTypeMismatch);
}

}  // namespace
}  // namespace varnek
