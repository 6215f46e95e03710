// Private-profile (INI) files as the logic sees them: the classic read into a
// caller's buffer and the classic write of one key, with their rules kept.
//
//   Text buf(512, u' ');
//   int32_t n = profiles.GetString(u"app", u"key", u"dflt", buf, u"/etc/x.ini");
//   // buf now starts with the value and a NUL; the rest of buf is untouched.
#pragma once

#include <cstdint>
#include <optional>

#include "varnek/runtime/text.h"

namespace varnek {

// A name the caller may leave out (the classic NULL pointer).
using OptionalText = std::optional<TextView>;

class ProfileStore {
 public:
  virtual ~ProfileStore() = default;

  // Reads like the classic GetPrivateProfileString. Every text is cut at its
  // first NUL, as a C string would be. The buffer's size is its capacity: the
  // result and a NUL are written over its first units, the rest is left as it
  // was. Sections and keys match without regard to case; the first of
  // duplicates wins.
  //   found:            the value (quotes '..' or ".." around it dropped),
  //                     cut to size-1 units; returns the units written
  //   missing key, section or file, or key "":
  //                     the default with its trailing blanks cut, same rule
  //   no default:       ""
  //   no key:           the section's key names, each NUL-ended, then a NUL;
  //                     cut to fit, returning size-2
  //   no section:       the section names in the same way
  //   size 0:           returns 0, buffer untouched
  virtual int32_t GetString(OptionalText section, OptionalText key, OptionalText default_value,
                            Text& buffer, TextView file) = 0;

  // What GetString writes for a section and key into a buffer big enough for
  // it, before its NUL: the value, else the default with its trailing blanks
  // cut, whatever the length. This version grows a buffer until the answer
  // fits; stores that can answer in one reading of the file override it.
  virtual Text GetValue(TextView section, TextView key, OptionalText default_value, TextView file) {
    Text buffer;
    for (;;) {
      buffer.assign(buffer.size() * 2 + 512, u' ');
      int32_t count = GetString(section, key, default_value, buffer, file);
      if (static_cast<size_t>(count) + 1 < buffer.size())
        return buffer.substr(0, static_cast<size_t>(count));
    }
  }

  // Writes like the classic WritePrivateProfileString: an existing key's line
  // is rewritten in place as "key=value", a new key goes after the section's
  // last line, a new section at the end of the file; every other byte stays.
  // No value deletes the key, no key deletes the section (true even when it
  // was not there). No section, a file that is there but cannot be read, or
  // one that cannot be written (a missing folder, no permission), gives false
  // and leaves the file as it was. The file is replaced as
  // FileSystem::WriteAll replaces one, read and replaced as one step that no
  // other writer can come between (FileSystem::EditAll), so two processes
  // never undo each other's writes. A file too big for memory: GetString and
  // GetValue fail with 7, WriteString gives false.
  virtual bool WriteString(OptionalText section, OptionalText key, OptionalText value,
                           TextView file) = 0;
};

}  // namespace varnek
