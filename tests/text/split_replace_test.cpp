// The kept quirks of the split and replace primitives; the script sequence store's records.
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, GetPartKeepsOneDelimiterUnitConsumesInputAndStopsAt32767) {
  struct Row {
    Variant in;
    Variant delimiter;
    bool clean;
    Text piece;
    Text rest;
  };
  const Row rows[] = {
      {u"a,b", u",", false, u"a,", u"b"},  // the piece keeps the delimiter's first unit
      {u"GET /\r\nHost: x", u"\r\n", false, u"GET /\r", u"Host: x"},  // the rest skips CR LF
      {u"k=v", u"=", true, u"k", u"v"},
      {u"=v", u"=", true, u"", u"v"},     // only the rest tells these apart
      {u"abc", u";", true, u"", u"abc"},  // missing delimiter: untouched
      {u"abc", u"", false, u"a", u"abc"},
      {u"abc", u"", true, u"", u"abc"},  // empty delimiter: p stays 1
      {u"", u"", false, u"", u""},
      {u"a,b", Variant::Null(), false, u"", u"a,b"}};
  for (const Row& r : rows) {
    Variant s = r.in;
    EXPECT_EQ(kit.Var_GetPart(s, r.delimiter, r.clean), r.piece) << "row " << &r - rows;
    EXPECT_EQ(CStr(s), r.rest) << "row " << &r - rows;
  }
  Variant n = 12345;  // the rest is stored back as text whatever it held
  EXPECT_EQ(kit.Var_GetPart(n, u"3", true), u"12");
  EXPECT_EQ(n.Type(), VarType::String);
  EXPECT_EQ(n.RawString(), u"45");
  Variant null = Variant::Null();
  EXPECT_TRUE(kit.Var_GetPart(null, u",").empty() && null.IsNull());
  // a delimiter that starts at 32767 is found whole; at 32768 or later not, and the input stays
  struct Long {
    Text in;
    const char16_t* delimiter;
    bool clean;
    size_t piece;
    Text rest;
  };
  const Text over = Text(32767, u'x') + u",", past = u"x" + Text(40000, u'y') + u",";
  const Long longs[] = {{Text(32766, u'x') + u",tail", u",", true, 32766, u"tail"},
                        {Text(32766, u'x') + u"ab", u"ab", false, 32767, u""},
                        {over, u",", false, 0, over},
                        {past, u",", false, 0, past}};
  for (const Long& r : longs) {
    Variant s = r.in;
    EXPECT_EQ(kit.Var_GetPart(s, r.delimiter, r.clean).size(), r.piece) << "row " << &r - longs;
    EXPECT_EQ(CStr(s), r.rest) << "row " << &r - longs;
  }
}

TEST_F(ToolkitTest, GetFieldAtWrapsAroundCountsOverlapsAndHonours16BitPositions) {
  // clang-format off
  struct Row { const char16_t* line; Variant position; const char16_t *sep, *want; };
  const Row rows[] = {
      {u"a,b", 0, u",", u""},     {u"a,b", 1, u",", u"a"},     {u"a,b", 2, u",", u"b"},
      {u"a,b", 3, u",", u""},     {u"a,b", 4, u",", u"b"},     {u"a,b", 5, u",", u""},
      {u"a,b,c", 3, u",", u"c"},  {u"a,b,c", 5, u",", u"b"},   {u"a,b,c", 7, u",", u""},
      {u",a", 1, u",", u""},      {u"abc", 1, u",", u"abc"},   {u"abc", 2, u",", u""},
      {u"a::b", 2, u"::", u"b"},
      {u"a:::b", 2, u"::", u""},   // overlapping match: q - p - 2 < 0, resumed as ""
      {u"a:::b", 3, u"::", u"b"},  // the second, overlapping match starts field 3
      {u"a,b", -1, u",", u"a"},    // below 0: the walk stays at 0 and the first field is cut
      {u"a,b", 1, u"", u""},      {u"", 1, u",", u""},
      {u"a,b", 1000000000, u",", u"b"},  // periodic
      {u"a,b", u"x", u",", u""}};  // failures are resumed as ""
  // clang-format on
  for (const Row& r : rows)
    EXPECT_EQ(kit.Var_GetFieldAt(r.line, r.position, r.sep), r.want) << "row " << &r - rows;
  EXPECT_EQ(kit.Var_GetFieldAt(Variant::Null(), 1, u","), u"");
  EXPECT_EQ(kit.Var_GetFieldValue(u"b,a", u"a", u","), u"b");  // the first field whatever the name
  EXPECT_EQ(kit.Var_GetFieldValue(u",abc", u"", u","), u"");
  EXPECT_EQ(kit.Var_GetFieldValue(u"abc", u"", u""), u"");
  // a separator past 32767 can't be stored: the field start sticks before it
  Text line = u"a," + Text(40000, u'b') + u",c";
  EXPECT_EQ(kit.Var_GetFieldAt(line, 1, u","), u"a");
  EXPECT_EQ(kit.Var_GetFieldAt(line, 3, u","), u"");  // q was never stored
  // a line of 32767 units or more with no further separator: the field is empty
  EXPECT_EQ(kit.Var_GetFieldAt(u"x," + Text(33000, u'y'), 2, u","), u"");
  EXPECT_EQ(kit.Var_GetFieldValue(Text(33000, u'y'), u"", u","), u"");
  EXPECT_EQ(kit.Var_GetFieldAt(u"x," + Text(100, u'y'), 2, u",").size(), 100u);
}

TEST_F(ToolkitTest, TranslateModesInOneSweep) {
  // clang-format off
  struct Row { const char16_t *in, *from, *to; int32_t type; const char16_t* want; };
  const Row rows[] = {
      {u"aXbXc", u"X", u"--", 6, u"aXb--c"},  {u"aXbXc", u"X", u"--", 5, u"a--bXc"},
      {u"aXbXc", u"X", u"--", 7, u"aXbXc"},   {u"aXbXc", u"X", u"--", 0, u"a--b--c"},
      {u"aXbXc", u"X", u"--", 3, u"a--b--c"}, {u"aXbXc", u"X", u"--", 4, u"aXbXc"},
      {u"aXbXc", u"X", u"--", -1, u"aXbXc"},
      // inserted text is not looked at again
      {u"aaa", u"a", u"aa", 0, u"aaaaaa"}, {u"abab", u"ab", u"b", 0, u"bb"},
      // non-overlapping matches
      {u"aaaa", u"aa", u"b", 0, u"bb"}, {u"aaaa", u"aa", u"b", 6, u"aab"},
      {u"aXb", u"X", u"", 0, u"ab"}, {u"", u"X", u"y", 0, u""}, {u"abc", u"", u"y", 0, u"abc"}};
  // clang-format on
  for (const Row& r : rows)
    EXPECT_EQ(kit.Var_Translate(r.in, r.from, r.to, r.type), r.want) << "row " << &r - rows;
}

TEST_F(ToolkitTest, SmallStringRoutinesAndPointers) {
  EXPECT_EQ(CStr(kit.Var_Reverse(u"abc")), u"cba");
  EXPECT_EQ(kit.Var_Reverse(7).Type(), VarType::Integer);  // short values come back as they are
  EXPECT_EQ(CStr(kit.Var_Reverse(123)), u"321");
  EXPECT_EQ(CLng(kit.Var_CountChar(u"aaa", u"aa")), 1);  // non-overlapping
  EXPECT_EQ(CLng(kit.Var_CountChar(u"a,b,,c", u",")), 3);
  EXPECT_EQ(kit.Var_CountChar(u"", u"").Type(), VarType::Integer);
  {  // long texts: counted to the end, an Integer up to 32767 and a Long above
    Text ab;
    for (int i = 0; i < 40000; ++i) ab += u"ab";
    Variant count = kit.Var_CountChar(ab, u"ba");
    EXPECT_EQ(count.Type(), VarType::Long);
    EXPECT_EQ(CLng(count), 39999);
    EXPECT_EQ(CLng(kit.Var_CountChar(ab + u"X", u"X")), 1);  // a match past unit 32767 is found
    Text exact(32767, u'x');
    EXPECT_EQ(kit.Var_CountChar(exact, u"x").Type(), VarType::Integer);
    EXPECT_EQ(kit.Var_CountChar(exact + u"x", u"x").Type(), VarType::Long);
    EXPECT_EQ(CLng(kit.Var_CountChar(exact + u"x", u"x")), 32768);
  }
  EXPECT_EQ(kit.Var_TrimNull(Text(u"  a\0b", 5)), u"  a");  // only a text without NUL is trimmed
  EXPECT_EQ(kit.Var_TrimNull(u"  a  "), u"a");
  EXPECT_EQ(kit.Var_StrZToStr(u"abc"), u"ab");  // the last unit goes whatever it is
  ExpectFailures(
      {{kErrInvalidUseOfNull, [&] { kit.Var_Reverse(Variant::Null()); }},
       {kErrOverflow, [&] { kit.Var_CountChar(u"abc", u""); }},  // an empty needle would never end
       {kErrInvalidCall, [&] { kit.Var_StrZToStr(u""); }},
       {kErrInvalidCall, [&] { kit.Var_StringNormalizeLen(u"7", 3, u""); }}});
  // normalising lengths: the flag is the side padded on, and on cutting the side kept
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"ab", 4)), u"ab  ");
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"abcdef", 3)), u"abc");
  EXPECT_EQ(CStr(kit.Var_StringNormalizedWithSpaces(u"abc", -2)), u"abc");
  // clang-format off
  struct Row { Variant in; int len; Variant fill; bool left; const char16_t* want; };
  const Row rows[] = {{u"abc", 2, u"0", true, u"ab"}, {u"abc", 2, u"0", false, u"bc"},
                      {u"7", 3, u"0", true, u"007"}, {u"7", 3, u"0xy", false, u"700"},
                      {u"7", 3, 42, true, u"**7"}, {u"abc", 3, u"", false, u"abc"}};
  // clang-format on
  for (const Row& r : rows) {
    EXPECT_EQ(CStr(kit.Var_StringNormalizeLen(r.in, r.len, r.fill, r.left)), r.want)
        << "row " << &r - rows;
  }
  Variant s = u"h\u00e9llo";
  EXPECT_EQ(kit.Var_PointerToStringW(kit.Var_StringToPointer(s)), u"h\u00e9llo");
  EXPECT_EQ(kit.Var_PointerToStringA(reinterpret_cast<int64_t>("caf\xE9\x80")), u"caf\u00e9\u20ac");
  EXPECT_EQ(kit.Var_PointerToStringA(0) + kit.Var_PointerToStringW(0), u"");  // 0 reads as ""
  EXPECT_EQ(FailureOf([&] { kit.Var_ObjectToPointer(u"x"); }), kErrTypeMismatch);
}

using Pairs = std::vector<std::pair<Text, Text>>;

class SequenceTest : public ToolkitTest {
 protected:
  Pairs Records() {  // the records 1..N as (name, content) pairs
    Pairs out;
    const auto& list = *kit.ScriptSecuencia();
    for (size_t i = 1; i < list.size(); ++i)
      out.emplace_back(CStr(list[i].Variable), CStr(list[i].Contenido));
    return out;
  }
};

TEST_F(SequenceTest, CutsRecordsAndStopsAtTheFirstBlankRecord) {
  Variant sep = u"=";  // a blank line ends the structure: the rest is one record
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"a=1\r\n\r\nb=2\r\nc", u"\r\n", sep)), 2);
  EXPECT_EQ(Records(), (Pairs{{u"a", u"1"}, {u"b", u"2\r\nc"}}));
  // a trailing separator adds none
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"a=1\r\n", u"\r\n")), 1);
  EXPECT_EQ(Records(), (Pairs{{u"a", u"1"}}));
  // a leading separator is a blank record too; detection sees the empty first record and settles on
  // " "
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"\r\na=1\r\nb=2", u"\r\n", sep)), 1);
  EXPECT_EQ(Records(), (Pairs{{u"a", u"1\r\nb=2"}}));
  Variant detected = Variant::Missing();
  kit.Script_SecuenciaProcesa(u"\r\na=1\r\nb=2", u"\r\n", detected);
  EXPECT_EQ(CStr(detected), u" ");
  EXPECT_EQ(Records(), (Pairs{{u"a=1\r\nb=2", u"a=1\r\nb=2"}}));
  // empty block: count 0 and the placeholder alone
  Variant n = kit.Script_SecuenciaProcesa(u"", u"\r\n");
  EXPECT_TRUE(n.Type() == VarType::Long && CLng(n) == 0);
  EXPECT_EQ(kit.ScriptSecuencia()->size(), 1u);
}

TEST_F(SequenceTest, SplitsNamesFromContents) {
  Variant eq = u"=";
  kit.Script_SecuenciaProcesa(u"k=;a=b=c;solo;=x;a b", u";", eq);
  EXPECT_EQ(Records(), (Pairs{{u"k", u""},
                              {u"a", u"b=c"},
                              {u"solo", u"solo"},  // no separator: both hold it
                              {u"x", u"x"},        // empty name, " " retry fails
                              {u"a", u"b"}}));     // falls back on " "
  EXPECT_EQ(CStr(eq), u"=");
  Variant colon = u": ";  // a two-unit field separator, as in a header block
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"GET / HTTP/1.0\r\nAuth: Basic YQ==\r\n\r\n", u"\r\n",
                                             colon)),
            2);
  EXPECT_EQ(Records(), (Pairs{{u"GET", u"/ HTTP/1.0"}, {u"Auth", u"Basic YQ=="}}));
}

TEST_F(SequenceTest, DetectsTheFieldSeparatorAndStoresItBack) {
  // clang-format off
  const char16_t* rows[][2] = {{u"a=b c\nx", u"="}, {u"a b=c\nx", u" "}, {u"a\tb=c\nx", u"\t"},
                               {u"a=b\tc\nx", u"="}, {u"abc\nx", u" "},
                               // no record separator: the first cut is "", so " "
                               {u"a=b c", u" "}};
  // clang-format on
  for (const auto& r : rows) {
    Variant field = Variant::Missing();
    kit.Script_SecuenciaProcesa(r[0], u"\n", field);
    EXPECT_EQ(CStr(field), r[1]) << TextToUtf8(r[0]);
  }
  Variant empty = u"";
  kit.Script_SecuenciaProcesa(u"a=b c", u"\n", empty);
  EXPECT_EQ(Records(), (Pairs{{u"a=b", u"c"}}));
  EXPECT_EQ(CStr(empty), u" ");
}

TEST_F(SequenceTest, AccessorsReadTheLastListAndAFailureLeavesItStanding) {
  ExpectFailures({{kErrSubscript, [&] { kit.Script_RetornaContenidoIndex(1); }},
                  {kErrSubscript, [&] { kit.Script_RetornaVariableIndex(1); }},
                  {kErrSubscript, [&] { kit.Script_RetornaContenidoVariable(u"a"); }}});
  Variant block = u"Host=1;host=2;x=3";
  kit.Script_SecuenciaProcesa(block, u";");
  EXPECT_EQ(CStr(block), u"Host=1;host=2;x=3");  // the caller's block is not changed
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoVariable(u"HOST")), u"1");  // first wins, any case
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(2)), u"2");
  EXPECT_EQ(CStr(kit.Script_RetornaVariableIndex(u"3")), u"x");
  EXPECT_TRUE(kit.Script_RetornaContenidoVariable(u"nope").IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaVariableIndex(0).IsEmpty());
  for (Variant index : {Variant(0), Variant(4), Variant(-1), Variant::Null()}) {
    EXPECT_TRUE(kit.Script_RetornaContenidoIndex(index).IsEmpty()) << index.ToUtf8();
  }
  // the state is replaced only at the end: a failing processing leaves the old list standing
  EXPECT_EQ(FailureOf([&] { kit.Script_SecuenciaProcesa(Variant::Null(), u";"); }),
            kErrInvalidUseOfNull);
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(3)), u"3");
}

TEST_F(SequenceTest, RecordsPastThe16BitLimitStayInTheTail) {
  // a record separator more than 32767 units into the rest isn't found: the rest is one record
  Text big = u"a=" + Text(40000, u'z') + u";b=2";
  Variant eq = u"=", detected = Variant::Missing();
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(big, u";", eq)), 1);
  EXPECT_EQ(CStr(kit.Script_RetornaVariableIndex(1)), u"a");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(1)).size(), 40004u);
  kit.Script_SecuenciaProcesa(big, u";", detected);  // detection sees no first record either
  EXPECT_EQ(CStr(detected), u" ");
  // positions count from the front of what is left, so many short records past unit 32767 are all
  // cut
  Text many;
  for (int i = 0; i < 5000; ++i) many += u"k=vvvvvvvvvv;";
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(many, u";")), 5000);
}

}  // namespace
}  // namespace varnek
