// The per-user settings store on Linux: one INI-style UTF-8 text file per
// group, <root>/<group>/settings.ini, with a [family] section per family and
// name=value lines.
//
//   [VarnekTest]
//   NumMsg=17
//
// Escapes, in section, name and value alike: "\\" for a backslash, "\n" and
// "\r" for line breaks, "\=", "\[", "\]", "\;" and "\#" for the characters the
// layout uses. Nothing is trimmed. Lines starting with ";" or "#" are comments.
// Group, family and name match without regard to case; a group folder is
// found by the same rule. Every write reads, changes and replaces the whole
// file under its lock through linux_io::EditFile (platform/linux/internal/safe_replace.h),
// so two processes never undo each other's writes: atomic where that is safe,
// mode, owner and links kept; a new file gets mode 0600. A file that is
// there but cannot be read is never written over.
#pragma once

#include <string>

#include "varnek/platform/settings_store.h"

namespace varnek {

class FileSettingsStore : public SettingsStore {
 public:
  // root: the folder holding the group folders; "" means $XDG_CONFIG_HOME,
  // else ~/.config.
  explicit FileSettingsStore(std::string root = {});

  // Reads the file afresh each time; a missing or unreadable file gives the
  // default.
  Text Get(TextView group, TextView family, TextView name, TextView default_value) override;
  // Fails with the classic file numbers of linux_io::ClassicFileError (70
  // permission denied, 76 path not found, 61 disk full, 75 path/file access
  // error, ...) when the folder or file cannot be read or written.
  void Set(TextView group, TextView family, TextView name, TextView value) override;

  // The file that holds a group (made or not), for tests and tools.
  std::string GroupFile(TextView group) const;

  // The text form of one field, and back.
  static std::string Escape(TextView field);
  static Text Unescape(std::string_view field);

 private:
  std::string root_;
};

}  // namespace varnek
