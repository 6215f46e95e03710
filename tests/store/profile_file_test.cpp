// Our private-profile reader and writer: the classic buffer rules and the
// in-place edits.
#include "platform/linux/profile_file.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

const char kSample[] =
    "[section1]\r\nname1=val1\r\nname2=\"val2\"\r\nname3\r\nname4=a\r\n[section2]\r\n";

class ProfileTest : public ::testing::Test {
 protected:
  void SetUp() override { WriteBytes(tmp.path() + "/t.ini", kSample); }
  int32_t Get(OptionalText section, OptionalText key, OptionalText def, size_t size) {
    buffer = Text(size, u'#');
    return store.GetString(section, key, def, buffer, file());
  }
  Text file() const { return tmp / "t.ini"; }
  std::string bytes() const { return ReadBytes(tmp.path() + "/t.ini"); }

  TempFolder tmp;
  LinuxProfileStore store;
  Text buffer;
};

TEST_F(ProfileTest, ReadsIntoTheCallersBuffer) {
  // found, exact fit and too small
  EXPECT_EQ(Get(u"section1", u"name1", u"default", 260), 4);
  EXPECT_EQ(buffer.substr(0, 6), Text(u"val1\0#", 6));  // the rest stays as it was
  EXPECT_EQ(Get(u"section1", u"name1", u"default", 5), 4);
  EXPECT_EQ(buffer, Text(u"val1\0", 5));
  EXPECT_EQ(Get(u"section1", u"name1", u"default", 4), 3);
  EXPECT_EQ(buffer, Text(u"val\0", 4));
  EXPECT_EQ(Get(u"section1", u"name4", u"default", 1), 0);
  EXPECT_EQ(buffer, Text(u"\0", 1));
  EXPECT_EQ(Get(u"section1", u"name1", u"default", 0), 0);

  // defaults: missing key, section or file, empty key, no default, blanks
  EXPECT_EQ(Get(u"section1", u"nokey", u"default", 260), 7);
  EXPECT_EQ(Get(u"nosection", u"name1", u"default", 260), 7);
  EXPECT_EQ(Get(u"section1", u"", u"default", 260), 7);
  EXPECT_EQ(Get(u"section1", u"name3", u"default", 260), 7);  // a line without "="
  EXPECT_EQ(Get(u"section1", u"nokey", std::nullopt, 260), 0);
  EXPECT_EQ(buffer[0], u'\0');
  EXPECT_EQ(Get(u"section1", u"nokey", u"default  ", 260), 7);
  EXPECT_EQ(buffer.substr(0, 8), Text(u"default\0", 8));
  buffer = Text(20, u' ');
  EXPECT_EQ(store.GetString(u"a", u"b", u"dflt", buffer, tmp / "nofile.ini"), 4);

  // quotes, case, names cut at their NUL as C strings are
  EXPECT_EQ(Get(u"section1", u"name2", u"default", 260), 4);
  EXPECT_EQ(buffer.substr(0, 4), u"val2");
  EXPECT_EQ(Get(u"SECTION1", u"NaMe1", u"default", 260), 4);
  EXPECT_EQ(Get(Text(u"section1\0junk", 13), Text(u"name1\0", 6), u"d", 260), 4);
}

TEST_F(ProfileTest, EnumeratesNames) {
  EXPECT_EQ(Get(u"section1", std::nullopt, u"d", 260), 18);
  EXPECT_EQ(buffer.substr(0, 19), Text(u"name1\0name2\0name4\0\0", 19));
  EXPECT_EQ(Get(u"section1", std::nullopt, u"d", 16), 14);
  EXPECT_EQ(buffer, Text(u"name1\0name2\0na\0\0", 16));
  EXPECT_EQ(Get(std::nullopt, std::nullopt, u"d", 260), 18);
  EXPECT_EQ(buffer.substr(0, 19), Text(u"section1\0section2\0\0", 19));
}

TEST_F(ProfileTest, ParsesLooseText) {
  ProfileText ini(u"junk=1\r[ Sec ]\nk = v \r\nK=second\r\n;c=comment\r\n[sec]\r\nk=third");
  EXPECT_EQ(ini.Find(u"sec", u"k"), Text(u"v"));       // bare CR and LF lines, first wins
  EXPECT_FALSE(ini.Find(u"", u"junk"));                // before any section: never found
  EXPECT_EQ(ini.Find(u"sec", u";c"), Text(u"comment"));
  EXPECT_EQ(ini.Keys(u"sec"), (std::vector<Text>{u"k", u"K"}));
  EXPECT_EQ(ini.Sections(), (std::vector<Text>{u"Sec", u"sec"}));
  ProfileText inline_comment(u"[a]\nk=value ; note\n");
  EXPECT_EQ(inline_comment.Find(u"a", u"k"), Text(u"value ; note"));
}

TEST_F(ProfileTest, WritesInPlace) {
  // a new file
  ASSERT_TRUE(store.WriteString(u"App", u"key", u"string", tmp / "new.ini"));
  EXPECT_EQ(ReadBytes(tmp.path() + "/new.ini"), "[App]\r\nkey=string\r\n");

  // unrelated bytes stay: leading text, blank lines, odd spacing
  WriteBytes(tmp.path() + "/t.ini", "; head\r\n[s1]\r\n a = 1 \r\nb=2\r\n\r\n[s2]\r\nc=3");
  ASSERT_TRUE(store.WriteString(u"S1", u"A", u"9", file()));
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nb=2\r\n\r\n[s2]\r\nc=3");
  ASSERT_TRUE(store.WriteString(u"s1", u"new", u"x", file()));  // after the last key
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3");
  ASSERT_TRUE(store.WriteString(u"s2", u"d", u"4", file()));  // file without a final line end
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3\r\nd=4\r\n");
  ASSERT_TRUE(store.WriteString(u"s3", u"e", u"5", file()));  // a new section at the end
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nb=2\r\nnew=x\r\n\r\n[s2]\r\nc=3\r\nd=4\r\n[s3]\r\ne=5\r\n");

  // deletions
  ASSERT_TRUE(store.WriteString(u"s1", u"b", std::nullopt, file()));
  ASSERT_TRUE(store.WriteString(u"s2", std::nullopt, std::nullopt, file()));
  ASSERT_TRUE(store.WriteString(u"s9", u"zz", std::nullopt, file()));  // missing: still true
  EXPECT_EQ(bytes(), "; head\r\n[s1]\r\na=9\r\nnew=x\r\n\r\n[s3]\r\ne=5\r\n");

  // refusals
  EXPECT_FALSE(store.WriteString(std::nullopt, u"k", u"v", file()));
  EXPECT_FALSE(store.WriteString(u"s", u"k", u"v", tmp / "no/such/dir.ini"));
  EXPECT_FALSE(store.WriteString(u"s", u"k", u"v", tmp.text()));  // a folder
}

TEST_F(ProfileTest, BinaryFileNeverBreaksTheReader) {
  std::string junk;
  for (int i = 0; i < 4096; ++i) junk += static_cast<char>((i * 7919 + 13) % 256);
  junk += "\n[x]\nk=v\n";
  WriteBytes(tmp.path() + "/t.ini", junk);
  EXPECT_EQ(Get(u"x", u"k", u"d", 64), 1);
  EXPECT_EQ(buffer[0], u'v');
  ASSERT_TRUE(store.WriteString(u"x", u"k", u"w", file()));
  std::string after = bytes();
  EXPECT_EQ(after.substr(0, 4096), junk.substr(0, 4096));  // the bytes before stay
  EXPECT_EQ(after.size(), junk.size());
}

}  // namespace
}  // namespace varnek
