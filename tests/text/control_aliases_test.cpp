// Control-character aliases: the table, the one-way "«TAB»", exact matching.
#include <random>

#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, ControlCharactersBecomeTheirAliases) {
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u"a\r\nb"), u"a\u00abCR\u00bb\u00abLF\u00bbb");
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u"\t"), u"\u00abHT\u00bb");  // never «TAB»
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u"\x11\x13"), u"\u00abXON\u00bb\u00abXOFF\u00bb");
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(Text(u"a\0b", 3)), u"a\u00abNUL\u00bbb");
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u"\x1f \x7f\u0080\u00ff"),
            u"\u00abUS\u00bb \x7f\u0080\u00ff");  // 127 and above pass
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u""), u"");
  // A literal alias already in the text is not escaped.
  EXPECT_EQ(kit.Var_ConvierteCharControlToText(u"\u00abCR\u00bb"), u"\u00abCR\u00bb");
  EXPECT_EQ(FailureOf([&] { kit.Var_ConvierteCharControlToText(Variant::Null()); }),
            kErrInvalidUseOfNull);
}

TEST_F(ToolkitTest, AliasesBecomeControlCharacters) {
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"\u00abCR\u00bb"), u"\r");
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"\u00abHT\u00bb\u00abTAB\u00bb"), u"\t\t");
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"a\u00abNUL\u00bbb"), Text(u"a\0b", 3));
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"\u00abXOFF\u00bb\u00abDC1\u00bb"),
            u"\x13\u00abDC1\u00bb");  // DC1 is no name here
  // Exact matching: lower case, unknown names and open marks stay.
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"\u00abcr\u00bb \u00abCR \u00ab\u00abLF\u00bb"),
            u"\u00abcr\u00bb \u00abCR \u00ab\n");
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u"\u00abSO\u00bb\u00abSOH\u00bb"), u"\x0e\x01");
  EXPECT_EQ(kit.Var_ConvierteTextToCharControl(u""), u"");
}

// Both directions as the classic code runs them: Var_Translate per alias.
Text LiteralToText(TextToolkit& kit, Text s, const std::vector<Text>& aliases) {
  for (int code = 0; code < 32; ++code) s = kit.Var_Translate(s, Text(1, char16_t(code)), aliases[code]);
  return s;
}
Text LiteralToChars(TextToolkit& kit, Text s, const std::vector<Text>& aliases) {
  for (int code = 0; code < 32; ++code) {
    s = kit.Var_Translate(s, aliases[code], Text(1, char16_t(code)));
    if (code == 9) s = kit.Var_Translate(s, u"\u00abTAB\u00bb", u"\t");
  }
  return s;
}

TEST_F(ToolkitTest, AliasSweepsAgreeWithPassByPassReplacing) {
  std::vector<Text> aliases;
  for (int code = 0; code < 32; ++code) {
    aliases.push_back(kit.Var_ConvierteCharControlToText(Text(1, char16_t(code))));
  }
  EXPECT_EQ(aliases[17], u"\u00abXON\u00bb");
  const std::vector<Text> pieces = {u"\u00ab", u"\u00bb", u"CR", u"LF", u"TAB", u"HT", u"SO",
                                    u"H",      u"\r",     u"\0", u"x",  u"US",  u"\x1f"};
  std::mt19937 rng(7);
  for (int round = 0; round < 2000; ++round) {
    Text s;
    for (int i = rng() % 12; i > 0; --i) s += pieces[rng() % pieces.size()];
    ASSERT_EQ(kit.Var_ConvierteCharControlToText(s), LiteralToText(kit, s, aliases));
    ASSERT_EQ(kit.Var_ConvierteTextToCharControl(s), LiteralToChars(kit, s, aliases));
  }
}

}  // namespace
}  // namespace varnek
