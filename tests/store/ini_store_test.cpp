// The INI store of Storage: the current file, the cache and its kept quirks,
// and the text-level listing and deletion of sections.
#include "varnek/platform/linux/internal/linux_profiles.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

struct IniStoreTest : StoreTest {
  void Use(const char* name, const std::string& content) {
    WriteBytes(P(name), content);
    store.INI_SetFileName(T(name));
  }
  Text Get(const char16_t* section, const Text& key, const char16_t* def = u"d") {
    return store.INI_GetString(section, key, def);
  }
};

TEST_F(IniStoreTest, CacheKeepsItsQuirks) {
  EXPECT_EQ(Get(u"a", u"b", u" x "), u"x");  // no file set: the trimmed default, no caching
  EXPECT_EQ(store.INI_PutString(u"a", u"b", u"c"), 0);
  EXPECT_EQ(store.IniBufferCount(), 0);
  std::string base(40, 'k');
  Use("c.ini", "[Sec]\r\nKey=value\r\nEmpty=\r\n" + base + "A=one\r\n" + base + "B=two\r\n");
  EXPECT_EQ(Get(u"sec", u"key"), u"value");
  EXPECT_EQ(Get(u"SEC", u"KEY"), u"value");  // case shares one entry
  EXPECT_EQ(store.IniBufferCount(), 1);
  EXPECT_EQ(Get(u"sec", Utf8ToText(base + "A")), u"one");
  EXPECT_EQ(Get(u"sec", Utf8ToText(base + "B")), u"one");  // 40 units agree: a hit
  // a missing key caches its default: the next call gets the first default
  EXPECT_EQ(Get(u"sec", u"missing", u"first"), u"first");
  EXPECT_EQ(Get(u"sec", u"missing", u"second"), u"first");
  EXPECT_EQ(store.IniBufferCount(), 3);
  // an empty value is never a hit: each read goes to the file and adds one
  EXPECT_EQ(Get(u"sec", u"empty"), u"");
  EXPECT_EQ(Get(u"sec", u"empty"), u"");
  EXPECT_EQ(store.IniBufferCount(), 5);
  // a write leaves the cache answering the old value until a purge
  EXPECT_EQ(store.INI_PutString(u"sec", u"key", u"new"), 1);
  EXPECT_EQ(Get(u"sec", u"key"), u"value");
  store.INI_PurgeBuffer();
  EXPECT_EQ(Get(u"sec", u"key"), u"new");
  // blank names
  EXPECT_EQ(store.INI_PutString(u"  ", u"k", u"v") + store.INI_PutString(u"s", u"", u"v"), 0);
  for (size_t length : {511u, 512u, 513u, 1500u}) {  // long values come back whole
    Use("long.ini", "[s]\r\nk=" + std::string(length - 1, 'v') + " \r\n");
    EXPECT_EQ(Get(u"s", u"k"), Text(length - 1, u'v')) << length;
  }
  Use("e.ini", "[s]\r\nk=\r\n");  // the count is 16-bit
  store.INI_PurgeBuffer();
  for (int i = 0; i < 32767; ++i) Get(u"s", u"k");
  EXPECT_RUNTIME_ERROR(Get(u"s", u"k"), kErrOverflow);
}

// The profile store of the tests: the Linux one, counting how it is asked;
// with `grow` it answers GetValue with the interface's growing-buffer loop.
struct CountingProfiles : ProfileStore {
  int32_t GetString(OptionalText s, OptionalText k, OptionalText d, Text& b, TextView f) override {
    ++buffers;
    return LinuxProfiles().GetString(s, k, d, b, f);
  }
  Text GetValue(TextView s, TextView k, OptionalText d, TextView f) override {
    ++values;
    return grow ? ProfileStore::GetValue(s, k, d, f) : LinuxProfiles().GetValue(s, k, d, f);
  }
  bool WriteString(OptionalText s, OptionalText k, OptionalText v, TextView f) override {
    return LinuxProfiles().WriteString(s, k, v, f);
  }
  bool grow = false;
  int buffers = 0, values = 0;
};

TEST_F(IniStoreTest, ALongValueIsReadOnce) {
  CountingProfiles counting;
  sim.platform.profiles = counting;
  Text value(100000, u'v');
  value[50000] = u'\0';  // cut at its NUL, as the buffer's reading does
  Use("long.ini", "[s]\r\nk= " + TextToBytes(value) + " \r\n");
  EXPECT_EQ(Get(u"s", u"k"), Text(50000, u'v'));
  EXPECT_EQ(counting.values + counting.buffers, 1);
  counting.grow = true;  // the growing loop gives the same, in many reads
  store.INI_PurgeBuffer();
  EXPECT_EQ(Get(u"s", u"k"), Text(50000, u'v'));
  EXPECT_EQ(Get(u"s", u"missing", u"  dflt  "), u"dflt");
  EXPECT_GT(counting.buffers, 5);
}

TEST_F(IniStoreTest, ListsAndDeletesSectionsOnTheText) {
  Use("l.ini", "x=[v]\r\n[a]\r\n[]\r\n[c]\r\n");  // brackets in values count; "[]" ends
  EXPECT_EQ(CStr(store.INI_ListAppName()), u"v\ta\t");
  const char* rows[][3] = {
      {"[a]\r\nk=1\r\n[b]\r\nm=2\r\n", "b", "[a]\r\nk=1\r\n"},
      {"[a]\r\nk=1\r\n[b]\r\nm=2\r\n", "a", "[b]\r\nm=2\r\n"},
      {"[a]\r\nk=1\r\n", "A", ""},     // case counts: not found, and the file began with "["
      {"[a][b]\r\nk=1\r\n", "a", ""},  // a section followed straight by "[" takes the rest
  };
  for (auto [before, section, after] : rows) {
    Use("d.ini", before);
    EXPECT_TRUE(CBool(store.INI_DeleteAppName(Utf8ToText(section))));
    EXPECT_EQ(ReadBytes(P("d.ini")), after) << before << " - " << section;
  }
  // past unit 32767 nothing is cut: a header there, or the "[" after the
  // section's body there, leaves the file as it was and the result False
  const std::string far = "[a]\r\nk=1\r\n" + std::string(37000, 'x') + "\r\n[b]\r\nm=2\r\n";
  for (const char* section : {"b", "a"}) {
    Use("far.ini", far);
    EXPECT_FALSE(CBool(store.INI_DeleteAppName(Utf8ToText(section)))) << section;
    EXPECT_EQ(ReadBytes(P("far.ini")), far) << section;
  }
  // a "[" or "]" that starts past unit 32767 of what is left is not found (at
  // 32767 it is)
  Use("far.ini", "[a]" + std::string(32767, 'x') + "[b]\r\n");
  EXPECT_EQ(CStr(store.INI_ListAppName()), u"a\t");
  Use("near.ini", "[a]" + std::string(32766, 'x') + "[b]\r\n");
  EXPECT_EQ(CStr(store.INI_ListAppName()), u"a\tb\t");
  store.INI_SetFileName(T("sub/none.ini"));  // a missing file lists nothing, makes no folder
  EXPECT_EQ(CStr(store.INI_ListAppName()), u"");
  EXPECT_FALSE(PathExists(P("sub")));
  store.INI_SetFileName(T("none.ini"));
  EXPECT_TRUE(CBool(store.INI_DeleteAppName(u"x")));  // and is saved empty by a deletion
  EXPECT_EQ(ReadBytes(P("none.ini")), "");
}

TEST_F(IniStoreTest, SetLastFileNameStepsBackOnce) {
  {  // no file before: nothing changes, the cache stays
    Use("a.ini", "[s]\r\nk=from a\r\n");
    EXPECT_EQ(Get(u"s", u"k"), u"from a");
    store.INI_SetLastFileName();
    EXPECT_EQ(store.INI_FileName.ToText(), T("a.ini"));
    EXPECT_EQ(store.IniBufferCount(), 1);
  }
  {  // back to the previous file, with the cache purged
    Use("b.ini", "[s]\r\nk=from b\r\n");
    EXPECT_EQ(Get(u"s", u"k"), u"from b");
    store.INI_SetLastFileName();
    EXPECT_EQ(store.INI_FileName.ToText(), T("a.ini"));
    EXPECT_EQ(store.IniBufferCount(), 0);
    EXPECT_EQ(Get(u"s", u"k"), u"from a");
    EXPECT_EQ(store.INI_PutString(u"s", u"k", u"again a"), 1);  // writes go there too
    EXPECT_NE(ReadBytes(P("a.ini")).find("k=again a"), std::string::npos);
    EXPECT_EQ(ReadBytes(P("b.ini")), "[s]\r\nk=from b\r\n");
  }
  {  // a second step stays where the first went
    store.INI_SetLastFileName();
    EXPECT_EQ(store.INI_FileName.ToText(), T("a.ini"));
  }
  {  // a short previous name comes back as the current file, INI_FileName ""
    store.INI_SetFileName(u"ab");
    store.INI_SetFileName(T("b.ini"));
    store.INI_SetLastFileName();
    EXPECT_EQ(store.INI_FileName.ToText(), u"");
  }
}

TEST_F(IniStoreTest, BinaryFileIsHarmless) {
  std::string junk;
  for (int i = 0; i < 3000; ++i) junk += static_cast<char>((i * 31 + 7) % 256);
  Use("bin.ini", junk + "\n[x]\nk=v\n");
  EXPECT_EQ(Get(u"s", u"k"), u"d");
  EXPECT_EQ(Get(u"x", u"k"), u"v");
  store.INI_ListAppName();
  EXPECT_EQ(store.INI_PutString(u"s", u"k", u"v"), 1);
  EXPECT_EQ(ReadBytes(P("bin.ini")).substr(0, junk.size()), junk);
}

}  // namespace
}  // namespace varnek
