// Our private-profile reader and writer: the classic buffer rules and the
// in-place edits.
#include "varnek/platform/internal/profile_text.h"
#include "varnek/platform/linux/internal/linux_profiles.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

struct ProfileTest : ::testing::Test {
  void SetUp() override {
    WriteBytes(tmp.path() + "/t.ini",
               "[section1]\r\nname1=val1\r\nname2=\"val2\"\r\nname3\r\nname4=a\r\n[section2]\r\n");
  }
  // The count returned and the buffer of `size` units, first filled with "#".
  std::pair<int32_t, Text> Get(OptionalText section, OptionalText key, OptionalText def,
                               size_t size) {
    Text buffer(size, u'#');
    return {store.GetString(section, key, def, buffer, file()), buffer};
  }
  Text file() const { return tmp / "t.ini"; }
  std::string bytes() const { return ReadBytes(tmp.path() + "/t.ini"); }

  TestFolder tmp;
  LinuxProfileStore store;
};

TEST_F(ProfileTest, ReadsIntoTheCallersBuffer) {
  using R = std::pair<int32_t, Text>;
  EXPECT_EQ(Get(u"section1", u"name1", u"d", 6), R(4, Text(u"val1\0#", 6)));  // the rest stays
  EXPECT_EQ(Get(u"section1", u"name1", u"d", 5), R(4, Text(u"val1\0", 5)));   // exact fit
  EXPECT_EQ(Get(u"section1", u"name1", u"d", 4), R(3, Text(u"val\0", 4)));    // too small
  EXPECT_EQ(Get(u"section1", u"name4", u"d", 1), R(0, Text(u"\0", 1)));
  EXPECT_EQ(Get(u"section1", u"name1", u"d", 0).first, 0);
  // the default for a missing key, section or file, an empty key, a line
  // without "="; none at all; trailing blanks cut
  for (auto [s, k] : {std::pair{u"section1", u"nokey"},
                      {u"nosection", u"name1"},
                      {u"section1", u""},
                      {u"section1", u"name3"}})
    EXPECT_EQ(Get(s, k, u"default  ", 9), R(7, Text(u"default\0#", 9)))
        << TextToUtf8(s) << TextToUtf8(k);
  EXPECT_EQ(Get(u"section1", u"nokey", std::nullopt, 2), R(0, Text(u"\0#", 2)));
  Text buffer(20, u' ');
  EXPECT_EQ(store.GetString(u"a", u"b", u"dflt", buffer, tmp / "nofile.ini"), 4);
  // quotes stripped, case ignored, names cut at their NUL as C strings are
  EXPECT_EQ(Get(u"section1", u"name2", u"d", 5), R(4, Text(u"val2\0", 5)));
  EXPECT_EQ(Get(u"SECTION1", u"NaMe1", u"d", 5).first, 4);
  EXPECT_EQ(Get(Text(u"section1\0junk", 13), Text(u"name1\0", 6), u"d", 5).first, 4);
  // names of a section, or sections, each ended by NUL and the list by another
  EXPECT_EQ(Get(u"section1", std::nullopt, u"d", 19), R(18, Text(u"name1\0name2\0name4\0\0", 19)));
  EXPECT_EQ(Get(u"section1", std::nullopt, u"d", 16), R(14, Text(u"name1\0name2\0na\0\0", 16)));
  EXPECT_EQ(Get(std::nullopt, std::nullopt, u"d", 19), R(18, Text(u"section1\0section2\0\0", 19)));
}

TEST_F(ProfileTest, WritesInPlace) {
  ASSERT_TRUE(store.WriteString(u"App", u"key", u"string", tmp / "new.ini"));
  EXPECT_EQ(ReadBytes(tmp.path() + "/new.ini"), "[App]\r\nkey=string\r\n");
  // unrelated bytes stay: leading text, blank lines, odd spacing
  WriteBytes(tmp.path() + "/t.ini", "; head\r\n[s1]\r\n a = 1 \r\nb=2\r\n\r\n[s2]\r\nc=3");
  const char* steps[][4] = {
      {"S1", "A", "9", "; head\r\n[s1]\r\na=9\r\nb=2\r\n\r\n[s2]\r\nc=3"},
      {"s1", "new", "x",
       "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3"},  // after the last key
      {"s2", "d", "4",
       "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3\r\nd=4\r\n"},  // no final line end
      {"s3", "e", "5",
       "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3\r\nd=4\r\n[s3]\r\ne=5\r\n"},
  };
  for (auto [s, k, v, after] : steps) {
    ASSERT_TRUE(store.WriteString(Utf8ToText(s), Utf8ToText(k), Utf8ToText(v), file()));
    EXPECT_EQ(bytes(), after) << s << "." << k;
  }
  // deletions of a key and a section; a missing one is still true
  for (auto [s, k] :
       {std::pair<Text, OptionalText>{u"s1", u"b"}, {u"s2", std::nullopt}, {u"s9", u"zz"}})
    ASSERT_TRUE(store.WriteString(s, k, std::nullopt, file()));
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nnew=x\r\n\r\n[s3]\r\ne=5\r\n");
  EXPECT_FALSE(store.WriteString(std::nullopt, u"k", u"v", file()));
  EXPECT_FALSE(store.WriteString(u"s", u"k", u"v", tmp / "no/such/dir.ini"));
  EXPECT_FALSE(store.WriteString(u"s", u"k", u"v", tmp.text()));  // a folder
}

}  // namespace
}  // namespace varnek
