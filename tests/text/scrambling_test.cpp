// The repeating-key scrambler and the compressor placeholders.
#include "tests/text/toolkit_fixture.h"

namespace varnek {
namespace {

TEST_F(ToolkitTest, EnCryptIsItsOwnInverse) {
  Text all;
  for (int b = 0; b < 256; ++b) all += ByteToUnit(static_cast<uint8_t>(b));
  for (const Text key : {u"k", u"secret", u"\u20ac\u00ff\x01"}) {
    Text once = kit.Var_EnCrypt(all, key);
    EXPECT_EQ(once.size(), all.size());
    EXPECT_NE(once, all);
    EXPECT_EQ(kit.Var_EnCrypt(once, key), all);
  }
  EXPECT_EQ(kit.Var_EnCrypt(u"A", u"A"), Text(1, u'\0'));
  EXPECT_EQ(kit.Var_EnCrypt(u"ab", u"\x01\x02\x03\x04"), u"`\u0060");
  EXPECT_EQ(kit.Var_EnCrypt(u"abc", u"\x01\x02"), u"``b");  // the key repeats
  EXPECT_EQ(kit.Var_EnCrypt(u"", u"key"), u"");
  EXPECT_EQ(kit.Var_EnCrypt(u"", u""), u"");
  EXPECT_EQ(kit.Var_EnCrypt(123, u""), u"123");
  EXPECT_EQ(FailureOf([&] { kit.Var_EnCrypt(u"x", Variant::Null()); }), kErrInvalidUseOfNull);
}

TEST_F(ToolkitTest, CompressorPlaceholdersPassTextThrough) {
  EXPECT_EQ(kit.Var_Compress(u"abc"), u"abc");
  EXPECT_EQ(kit.Var_Decompress(u"abc"), u"abc");
  EXPECT_EQ(kit.Var_Compress(12), u"12");
  EXPECT_EQ(FailureOf([&] { kit.Var_Compress(Variant::Null()); }), kErrInvalidUseOfNull);
}

}  // namespace
}  // namespace varnek
