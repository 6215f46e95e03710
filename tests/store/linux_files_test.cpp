// The Linux file system service: masks, enumeration and whole-file failures.
#include "varnek/platform/linux/internal/file_io.h"
#include "tests/store/store_fixture.h"

namespace varnek {
namespace {

TEST(LinuxFilesTest, ClassicMaskRules) {
  // clang-format off
  const std::tuple<const char16_t*, const char16_t*, bool> rows[] = {
      {u"*.*", u"README", true}, {u"*.*", u".profile", true}, {u"*", u".", true},
      {u"*.", u"README", true}, {u"*.", u"a.txt", false}, {u"*.txt", u"b.c.txt", true},
      {u"*.txt", u"a.tx", false}, {u"*.TXT", u"a.txt", true}, {u"*.txt", u"a.txtold", false},
      {u"a?.txt", u"ab.txt", true}, {u"a?.txt", u"a.txt", true}, {u"a?.txt", u"abc.txt", false},
      {u"????????.???", u"README", true}, {u"b.txt", u"B.TXT", true},
      {u"????????.???", u"verylongname.txt", false}, {u"b.txt", u"b.txt2", false},
      {u"a*b", u"axxc", false},
  };
  // clang-format on
  for (auto [mask, name, match] : rows)
    EXPECT_EQ(MaskMatches(mask, name), match) << TextToUtf8(mask) << " vs " << TextToUtf8(name);
}

TEST(LinuxFilesTest, EnumerateAndWholeFileFailures) {
  TestFolder tmp;
  LinuxFileSystem& fs = LinuxFiles();
  WriteBytes(tmp.path() + "/a.txt", "abc");
  // a plain name is exact; a pattern ending in "/" finds nothing
  std::vector<FileEntry> found{FileEntry{}};
  EXPECT_FALSE(fs.Enumerate(tmp / "A.TXT", found) || fs.Enumerate(tmp / "", found) ||
               !found.empty());
  EXPECT_RUNTIME_ERROR(fs.ReadAll(tmp / "missing", true), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Length(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp / "missing"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.Copy(tmp / "missing", tmp / "x"), kErrFileNotFound);
  EXPECT_RUNTIME_ERROR(fs.WriteAll(tmp / "no/such/folder.txt", "x"), kErrPathNotFound);
  EXPECT_RUNTIME_ERROR(fs.Delete(tmp.text()), kErrPathFileAccess);
  EXPECT_EQ(tmp.Names(), std::vector<std::string>{"a.txt"});  // no "x", no temp
}

TEST(LinuxFilesTest, OneMapOfSystemErrorsWithTheirDescriptions) {
  TestFolder tmp;
  // clang-format off
  const std::pair<int, int> rows[] = {
      {ENOTDIR, kErrPathNotFound}, {ELOOP, kErrPathNotFound}, {EACCES, kErrPermissionDenied},
      {EROFS, kErrPermissionDenied}, {ETXTBSY, kErrFileAlreadyOpen}, {ENOSPC, kErrDiskFull},
      {EDQUOT, kErrDiskFull}, {ENAMETOOLONG, kErrBadFileNameOrNumber}, {EMFILE, kErrTooManyFiles},
      {EIO, kErrDeviceIO}, {ENOMEM, kErrOutOfMemory}, {EISDIR, kErrPathFileAccess},
  };
  // clang-format on
  for (auto [error, number] : rows) EXPECT_EQ(linux_io::ClassicFileError(error), number) << error;
  // a missing file is 53 where its folder exists, 76 where that is missing too
  EXPECT_EQ(linux_io::ClassicFileError(ENOENT, tmp.path() + "/none"), kErrFileNotFound);
  EXPECT_EQ(linux_io::ClassicFileError(ENOENT, tmp.path() + "/no/none"), kErrPathNotFound);
  EXPECT_EQ(linux_io::ClassicFileError(ENOENT), kErrFileNotFound);
  for (auto [number, text] : {std::pair{52, "Bad file name or number"},
                              {53, "File not found"},
                              {55, "File already open"},
                              {61, "Disk full"},
                              {62, "Input past end of file"}})
    EXPECT_EQ(TextToUtf8(FailureText(RuntimeError(number))),
              "Error: (" + std::to_string(number) + ") " + text);
  // a folder that is a file: the number the settings store gives too
  std::ofstream(tmp.path() + "/plain") << "x";
  EXPECT_RUNTIME_ERROR(LinuxFiles().WriteAll(tmp / "plain/sub/x", "v"), kErrPathNotFound);
}

}  // namespace
}  // namespace varnek
