// URL and Base64 codecs and the control-character aliases, with cross-checks against the literal
// passes.
#include <random>

#include "fuzz/toolkit_input.h"
#include "varnek/runtime/strings.h"
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

struct TextRow {
  Text in, want;
};

TEST_F(ToolkitTest, UrlEncodesInShortFormsAndDecodesInAscendingLiteralPasses) {
  // clang-format off
  for (const TextRow& r : {TextRow{u"a b-c", u"a+b%2Dc"}, {u"\r\n\t", u"%D%A%9"},
                           {u"x_y.z~", u"x%5Fy%2Ez%7E"}, {u"\u00f1\u20ac", u"%F1%80"},
                           {Text(1, u'\0'), u"%0"}, {u"\u4e2d", u"%3F"}, {u"", u""}}) {
    // by cp1252 byte; no byte reads as "?"
    EXPECT_EQ(CStr(kit.URL_Encode(r.in)), r.want) << TextToUtf8(r.in);
  }
  // clang-format on
  EXPECT_EQ(CStr(kit.URL_Encode(42)), u"42");
  EXPECT_EQ(FailureOf([&] { kit.URL_Encode(Variant::Null()); }), kErrInvalidUseOfNull);
  const TextRow rows[] = {
      {u"a+b%2Dc", u"a b-c"},
      {u"%2d", u"%2d"},
      {u"100%", u"100%"},
      {u"%", u"%"},
      {u"%4", u"%4"},
      {u"%A", u"%A"},  // lower-case digits and the encoder's one-digit form stay
      {u"%0A%0D", u"\n\r"},
      {u"%00", u"%00"},
      {u"%2B", u"+"},      // no pass for 0; a decoded "+" stays
      {u"%2541", u"A"},    // 37 frees "%41", decoded at 65
      {u"%2510", u"%10"},  // pass 16 was already over
      {u"%2525", u"%25"},  // the freed "%25" is behind the scan of pass 37
      {u"%%2541", u"%A"},
      {u"%4%41", u"J"},    // pass 65 frees "%4A", decoded at 74
      {u"%3%33", u"%33"},  // "3" freed at 51 forms "%33" behind the scan
      {u"%F1%80%FF", u"\u00f1\u20ac\u00ff"}};
  for (const TextRow& r : rows) EXPECT_EQ(CStr(kit.URL_Decode(r.in)), r.want) << TextToUtf8(r.in);
  Text all;  // units of 16 and above survive a round trip
  for (int b = 16; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  EXPECT_EQ(CStr(kit.URL_Decode(kit.URL_Encode(all))), all);
}

TEST_F(ToolkitTest, Base64GoldenValuesAndLenientDecoding) {
  // clang-format off
  for (const TextRow& r : {TextRow{u"", u""}, {u"a", u"YQ=="}, {u"ab", u"YWI="}, {u"abc", u"YWJj"},
                           {u"user:pass", u"dXNlcjpwYXNz"},
                           {u"\u00ff\u00fe\u20ac", u"//6A"}}) {  // bytes FF FE 80
    EXPECT_EQ(kit.Base64_Encode(r.in), r.want) << TextToUtf8(r.in);
    EXPECT_EQ(kit.Base64_Decode(r.want), r.in) << TextToUtf8(r.want);
  }
  // clang-format on
  // a unit with no byte reads as "?"
  EXPECT_EQ(kit.Base64_Encode(u"\u4e2d"), kit.Base64_Encode(u"?"));
  // lenient decoding: a short group is dropped; "=" third with a real fourth removes one unit; "="
  // reads as 64, shifted out of the first two units so that one NUL stays; a line break shifts all;
  // a space reads as "A"
  for (const TextRow& r : {TextRow{u"YQ", u""},
                           {u"YWJjYQ", u"abc"},
                           {u"YQ=x", Text(u"a\0", 2)},
                           {u"====", Text(1, u'\0')},
                           {u"YQ==\r\nYQ==", Text(u"a\0\x06\x10", 4)},
                           {u"YW Jj", kit.Base64_Decode(u"YWAJ")}}) {
    EXPECT_EQ(kit.Base64_Decode(r.in), r.want) << TextToUtf8(r.in);
  }
  EXPECT_EQ(kit.Base64_Decode(u"YWAJ").size(), 3u);
  Text all;  // every byte's unit is read back as that byte, in each position of a group
  for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  for (size_t cut = 0; cut < 3; ++cut) {
    EXPECT_EQ(kit.Base64_Decode(kit.Base64_Encode(all.substr(cut))), all.substr(cut)) << cut;
  }
}

TEST_F(ToolkitTest, ControlCharactersAndTheirAliases) {
  const TextRow to_text[] = {
      {u"a\r\nb", u"a\u00abCR\u00bb\u00abLF\u00bbb"},
      {u"\t", u"\u00abHT\u00bb"},  // never «TAB»
      {u"\x11\x13", u"\u00abXON\u00bb\u00abXOFF\u00bb"},
      {Text(u"a\0b", 3), u"a\u00abNUL\u00bbb"},
      {u"\x1f \x7f\u0080\u00ff", u"\u00abUS\u00bb \x7f\u0080\u00ff"},  // 127 and above pass
      {u"\u00abCR\u00bb", u"\u00abCR\u00bb"},
      {u"", u""}};  // a literal alias is not escaped
  for (const TextRow& r : to_text)
    EXPECT_EQ(kit.Var_ConvierteCharControlToText(r.in), r.want) << TextToUtf8(r.want);
  const TextRow to_chars[] = {
      {u"\u00abHT\u00bb\u00abTAB\u00bb", u"\t\t"},
      {u"a\u00abNUL\u00bbb", Text(u"a\0b", 3)},
      {u"\u00abXOFF\u00bb\u00abDC1\u00bb", u"\x13\u00abDC1\u00bb"},  // DC1 is no name here
      // exact matching: lower case, unknown names and open marks stay
      {u"\u00abcr\u00bb \u00abCR \u00ab\u00abLF\u00bb", u"\u00abcr\u00bb \u00abCR \u00ab\n"},
      {u"\u00abSO\u00bb\u00abSOH\u00bb", u"\x0e\x01"}};
  for (const TextRow& r : to_chars)
    EXPECT_EQ(kit.Var_ConvierteTextToCharControl(r.in), r.want) << TextToUtf8(r.in);
  EXPECT_EQ(FailureOf([&] { kit.Var_ConvierteCharControlToText(Variant::Null()); }),
            kErrInvalidUseOfNull);
}

// Random texts of pieces dense in escapes and alias names (so that decoded
// units form new ones) against the classic pass-by-pass forms.
TEST_F(ToolkitTest, SweepsAgreeWithTheLiteralPasses) {
  const Text url = u"%%%0123456789ABCDEFa+";
  const Text alias[] = {u"\u00ab", u"\u00bb", u"CR", u"LF", u"TAB",  u"HT",         u"SO",
                        u"H",      u"\r",     u"x",  u"US", u"\x1f", Text(1, u'\0')};
  std::mt19937 rng(12345);
  auto draw = [&](const auto& pieces, size_t most) {
    Text s;
    for (size_t i = rng() % most; i > 0; --i) s += pieces[rng() % std::size(pieces)];
    return s;
  };
  for (int round = 0; round < 3000; ++round) {
    const Text s = draw(url, 24), a = draw(alias, 12);
    ASSERT_EQ(CStr(kit.URL_Decode(s)), LiteralUrlDecode(kit, s)) << TextToUtf8(s);
    ASSERT_EQ(kit.Var_ConvierteCharControlToText(a), LiteralControlAliases(kit, a, false))
        << TextToUtf8(a);
    ASSERT_EQ(kit.Var_ConvierteTextToCharControl(a), LiteralControlAliases(kit, a, true))
        << TextToUtf8(a);
  }
}

}  // namespace
}  // namespace varnek
