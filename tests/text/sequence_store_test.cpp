// The script sequence store: cutting blocks into records and reading them back.
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

class SequenceTest : public ToolkitTest {
 protected:
  // The records 1..N as (name, content) pairs.
  std::vector<std::pair<Text, Text>> Records() {
    std::vector<std::pair<Text, Text>> out;
    const auto& list = *kit.ScriptSecuencia();
    for (size_t i = 1; i < list.size(); ++i) {
      out.emplace_back(CStr(list[i].Variable), CStr(list[i].Contenido));
    }
    return out;
  }
  using Pairs = std::vector<std::pair<Text, Text>>;
};

TEST_F(SequenceTest, CutsRecordsAndStopsAtTheFirstBlankRecord) {
  {  // a blank line ends the structure: the rest is one record
    Variant sep = u"=";
    EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"a=1\r\n\r\nb=2\r\nc", u"\r\n", sep)), 2);
    EXPECT_EQ(Records(), (Pairs{{u"a", u"1"}, {u"b", u"2\r\nc"}}));
  }
  {  // a trailing record separator adds no record
    EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"a=1\r\n", u"\r\n")), 1);
    EXPECT_EQ(Records(), (Pairs{{u"a", u"1"}}));
  }
  {  // a leading separator is a blank record too
    Variant sep = u"=";
    EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(u"\r\na=1\r\nb=2", u"\r\n", sep)), 1);
    EXPECT_EQ(Records(), (Pairs{{u"a", u"1\r\nb=2"}}));
    // Detection would see the empty first record and settle on " ".
    Variant detected = Variant::Missing();
    kit.Script_SecuenciaProcesa(u"\r\na=1\r\nb=2", u"\r\n", detected);
    EXPECT_EQ(CStr(detected), u" ");
    EXPECT_EQ(Records(), (Pairs{{u"a=1\r\nb=2", u"a=1\r\nb=2"}}));
  }
  {  // empty block: count 0 and the placeholder alone
    Variant n = kit.Script_SecuenciaProcesa(u"", u"\r\n");
    EXPECT_EQ(n.Type(), VarType::Long);
    EXPECT_EQ(CLng(n), 0);
    EXPECT_EQ(kit.ScriptSecuencia()->size(), 1u);
    EXPECT_TRUE(kit.Script_RetornaContenidoIndex(0).IsEmpty());
  }
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
}

TEST_F(SequenceTest, DetectsTheFieldSeparatorFromTheFirstRecord) {
  struct Row {
    const char16_t* block;
    const char16_t* want;
  };
  const Row rows[] = {
      {u"a=b c\nx", u"="},   {u"a b=c\nx", u" "},  {u"a\tb=c\nx", u"\t"},
      {u"a=b\tc\nx", u"="},  {u"abc\nx", u" "},
      {u"a=b c", u" "},  // no record separator: the first cut is "", so " "
  };
  for (const Row& r : rows) {
    Variant field = Variant::Missing();
    kit.Script_SecuenciaProcesa(r.block, u"\n", field);
    EXPECT_EQ(CStr(field), r.want) << TextToUtf8(r.block);
  }
  Variant empty = u"";
  kit.Script_SecuenciaProcesa(u"a=b c", u"\n", empty);
  EXPECT_EQ(Records(), (Pairs{{u"a=b", u"c"}}));
  EXPECT_EQ(CStr(empty), u" ");
}

TEST_F(SequenceTest, HttpHeaderBlock) {
  Variant field = u": ";
  Text block = u"GET / HTTP/1.0\r\nHost: example\r\nAuthorization: Basic YQ==\r\n\r\n";
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(block, u"\r\n", field)), 3);
  EXPECT_EQ(CStr(kit.Script_RetornaVariableIndex(1)), u"GET");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(1)), u"/ HTTP/1.0");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoVariable(u"HOST")), u"example");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoVariable(u"authorization")), u"Basic YQ==");
}

TEST_F(SequenceTest, AccessorsReadTheLastListByIndexAndName) {
  EXPECT_EQ(FailureOf([&] { kit.Script_RetornaContenidoIndex(1); }), kErrSubscript);
  EXPECT_EQ(FailureOf([&] { kit.Script_RetornaVariableIndex(1); }), kErrSubscript);
  EXPECT_EQ(FailureOf([&] { kit.Script_RetornaContenidoVariable(u"a"); }), kErrSubscript);

  kit.Script_SecuenciaProcesa(u"Host=1;host=2;x=3", u";");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoVariable(u"HOST")), u"1");  // first wins
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(2)), u"2");
  EXPECT_EQ(CStr(kit.Script_RetornaVariableIndex(u"3")), u"x");
  EXPECT_TRUE(kit.Script_RetornaContenidoVariable(u"nope").IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaContenidoIndex(0).IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaVariableIndex(0).IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaContenidoIndex(4).IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaContenidoIndex(-1).IsEmpty());
  EXPECT_TRUE(kit.Script_RetornaContenidoIndex(Variant::Null()).IsEmpty());

  // A failing processing leaves the old list standing.
  EXPECT_EQ(FailureOf([&] { kit.Script_SecuenciaProcesa(Variant::Null(), u";"); }),
            kErrInvalidUseOfNull);
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(3)), u"3");
  // The caller's block is not changed.
  Variant block = u"a=1;b=2";
  kit.Script_SecuenciaProcesa(block, u";");
  EXPECT_EQ(CStr(block), u"a=1;b=2");
}

TEST_F(SequenceTest, RecordsPastThe16BitLimitStayInTheTail) {
  // A record separator more than 32767 units into the rest isn't found: the
  // rest is one record.
  Text big = u"a=" + Text(40000, u'z') + u";b=2";
  Variant eq = u"=";
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(big, u";", eq)), 1);
  EXPECT_EQ(CStr(kit.Script_RetornaVariableIndex(1)), u"a");
  EXPECT_EQ(CStr(kit.Script_RetornaContenidoIndex(1)).size(), 40004u);
  // Detection sees no first record there either, and settles on " ".
  Variant detected = Variant::Missing();
  kit.Script_SecuenciaProcesa(big, u";", detected);
  EXPECT_EQ(CStr(detected), u" ");
  // Positions count from the front of what is left, so many short records
  // past unit 32767 are all cut.
  Text many;
  for (int i = 0; i < 5000; ++i) many += u"k=vvvvvvvvvv;";
  EXPECT_EQ(CLng(kit.Script_SecuenciaProcesa(many, u";")), 5000);
}

}  // namespace
}  // namespace varnek
