// Message blocks with their running letters, page-printer blocks with their
// escapes, ids and checksums, and the history files.
#include <cstdio>
#include <filesystem>
#include <tuple>

#include "varnek/runtime/dates.h"
#include "varnek/runtime/strings.h"
#include "tests/paging/paging_fixture.h"

namespace varnek {
namespace {

TEST_F(PagingTest, TextBlocksCarryIdNumberAndTotal) {
  Variant id = u"C";
  EXPECT_EQ(ItemTexts(*adds.Mensajes_GenerarBloques(u"hello", 2, id)),
            (std::vector<Text>{u"#C#13#he#", u"#C#23#ll#", u"#C#33#o#"}));
  EXPECT_EQ(ItemTexts(*adds.Mensajes_GenerarBloques(u"abcd", u"2", id, false)),
            (std::vector<Text>{u"ab", u"cd"}));
  EXPECT_EQ(adds.Mensajes_GenerarBloques(u"abcd", 4, id, false)->Count(), 1);  // exactly one size
  EXPECT_EQ(adds.Mensajes_GenerarBloques(u"", 4, id)->Count(), 0);
  {  // the 11th block of 12
    auto blocks = adds.Mensajes_GenerarBloques(Text(12, u'x'), 1, id = u"A");
    EXPECT_EQ(blocks->Item(11).ToText(), u"#A#1112#x#");
  }
  // The placeholder in the text is replaced too, also without headers.
  EXPECT_EQ(ItemTexts(*adds.Mensajes_GenerarBloques(u"aMxBloques#", 20, id, false)),
            (std::vector<Text>{u"a1#"}));
  EXPECT_THROW(adds.Mensajes_GenerarBloques(u"abc", -1, id), RuntimeError);
}

TEST_F(PagingTest, TextBlockLettersRunFromAToZAndWrap) {
  auto letter = [&](const char16_t* message = u"x") {  // the id a message without one gets
    Variant id;
    adds.Mensajes_GenerarBloques(message, 5, id);
    return id.ToText();
  };
  auto last = [&] { return adds.Var_VariableGet(u"Last msg ID", Variant(u"SMSserver")).ToText(); };
  auto set_last = [&](Variant v) {
    adds.Var_VariableSet(u"Last msg ID", v, Variant(u"SMSserver"));
  };
  EXPECT_EQ(letter(u""), u"A");  // an empty message still takes a letter
  EXPECT_EQ(letter(), u"B");
  EXPECT_EQ(last(), u"66");
  set_last(89);
  EXPECT_EQ(letter(), u"Z");
  EXPECT_EQ(letter(), u"A");
  set_last(u"junk");
  EXPECT_EQ(letter(), u"A");
  Variant given = u"Q";  // a caller's id touches no variable
  adds.Mensajes_GenerarBloques(u"x", 5, given);
  EXPECT_EQ(last(), u"65");
}

// The checksum of a page-printer block as the receiver checks it.
Text WithChecksum(const Text& header, const Text& payload) {
  uint32_t sum = 0;
  for (char16_t u : header + payload) sum += UnitToByte(u);
  char hex[3];
  std::snprintf(hex, sizeof hex, "%02X", sum % 256);
  return header + Utf8ToText(hex) + payload;
}

TEST_F(PagingTest, PagePrinterBlocksEscapeCutAndNumber) {
  auto blocks = [&](Variant text, const Text& printer = u"P") {
    adds.PagePrinter_GenerarBloques(text, printer);
    return ItemTexts(*adds.PagePrinter_Bloques);
  };
  using V = std::vector<Text>;
  {  // escapes: "&" doubled, 1..31 and 128..255 as hex, 0 and 127 kept
    Variant text = Text(u"a&b") + u'\r' + u'\xE9' + u'\x7F' + Text(1, u'\0');
    adds.PagePrinter_GenerarBloques(text, u"P");
    const Text escaped = Text(u"a&&b&0D&E9\x7F") + Text(1, u'\0');
    EXPECT_EQ(text.ToText(), escaped);
    EXPECT_EQ(ItemTexts(*adds.PagePrinter_Bloques), V{WithChecksum(u"&[PB00", escaped + u"&]")});
  }
  // exactly 128 escaped characters: the full block and one of just "&]"; 127: one block of 129
  EXPECT_EQ(blocks(Text(128, u'x')),
            (V{WithChecksum(u"&[PC00", Text(128, u'x')), WithChecksum(u"&[PC01", u"&]")}));
  const V short_one = blocks(Text(127, u'x'));
  ASSERT_EQ(short_one.size(), 1u);
  EXPECT_EQ(short_one[0].size(), 6u + 2 + 129);
  // "&" at 128 starts the next payload; an escape at 127 gives back 2
  for (auto [text, end, next] :
       {std::tuple{Text(127, u'x') + u"&&yz", Text(u"x "), Text(u"&&&&yz&]")},
        {Text(126, u'x') + u"\rtail", Text(u"x  "), Text(u"&0Dtail&]")}}) {
    const V cut = blocks(text);
    ASSERT_EQ(cut.size(), 2u);
    EXPECT_EQ(cut[0].substr(cut[0].size() - end.size()), end);
    EXPECT_EQ(cut[1].substr(8), next);
  }
  // ids: B C D E F A B from nothing; a digit counts to 9 then A; an empty text
  // uses an id and makes no block
  auto last_id = [&] { return adds.Var_VariableGet(u"PagePrinter - Ultimo ID Mensaje").ToText(); };
  adds.Var_VariableSet(u"PagePrinter - Ultimo ID Mensaje", u"");
  Text ids;
  for (const char16_t* digit : {u"", u"", u"", u"", u"", u"", u"", u"8", u""}) {
    if (*digit) adds.Var_VariableSet(u"PagePrinter - Ultimo ID Mensaje", digit);
    EXPECT_TRUE(blocks(u"").empty());
    ids += last_id();
  }
  EXPECT_EQ(ids, u"BCDEFAB9A");
  // more than 256 blocks: three hex digits from block 256 on
  const V many = blocks(Text(128 * 257, u'x'), u"");
  EXPECT_EQ(many.at(256).substr(3, 3) + u"|" + many.at(15).substr(3, 2), u"100|0F");
}

TEST_F(PagingTest, HistoryGoesToTheDaysFolderOneFilePerCode) {
  const std::string app = TextToUtf8(sim.app.path_);
  adds.Mensajes_GuardaHistorico(u"1234", u"first");
  adds.Mensajes_GuardaHistorico(u"1234", u"second");
  const std::string file = app + "/DB/2026-01/01/1234.dbs";
  ASSERT_TRUE(std::filesystem::exists(file));
  Variant table = adds.ARRAY_Load(Variant(Utf8ToText(file)));
  auto& rows = *table.RawArray();
  EXPECT_EQ(rows.At({0, 1}).ToText(), u"first");
  EXPECT_EQ(rows.At({1, 1}).ToText(), u"second");
  EXPECT_EQ(rows.At({0, 0}).ToText(), DateToHostText(sim.loop.Now()));
  // A given folder is used as it stands: it must end in "/".
  const Text own = sim.app.path_ + u"/own/";
  adds.Mensajes_GuardaHistorico(u"77", u"x", Variant(own));
  EXPECT_TRUE(std::filesystem::exists(app + "/own/77.dbs"));
}

}  // namespace
}  // namespace varnek
