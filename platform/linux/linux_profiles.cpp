// Private-profile files on Linux: read whole, edited with ProfileText, and
// replaced atomically so that a crash never leaves a truncated file.
#include <errno.h>

#include <string>

#include "varnek/platform/linux/file_io.h"
#include "varnek/platform/linux/profile_file.h"
#include "varnek/platform/linux/safe_replace.h"

namespace varnek {

namespace {

// A C string's view of a text: up to its first NUL.
TextView CString(TextView s) {
  size_t nul = s.find(u'\0');
  return nul == TextView::npos ? s : s.substr(0, nul);
}

std::optional<TextView> CString(OptionalText s) {
  if (!s) return std::nullopt;
  return CString(*s);
}

// The file's text; false when it cannot be read (missing, a folder, ...).
bool LoadText(TextView file, Text& text) {
  std::string bytes;
  if (file.empty() || !linux_io::ReadFile(linux_io::PathBytes(file), bytes)) return false;
  text = BytesToText(bytes);
  return true;
}

// The key's value, else the default cut at its NUL and its trailing blanks.
Text ValueOrDefault(const ProfileText& ini, TextView section, TextView key, OptionalText default_value) {
  if (std::optional<Text> value = ini.Find(section, key)) return std::move(*value);
  TextView fallback = default_value ? CString(*default_value) : TextView();
  while (!fallback.empty() && fallback.back() == u' ') fallback.remove_suffix(1);
  return Text(fallback);
}

}  // namespace

int32_t LinuxProfileStore::GetString(OptionalText section, OptionalText key,
                                     OptionalText default_value, Text& buffer, TextView file) {
  if (buffer.empty()) return 0;
  section = CString(section);
  key = CString(key);
  Text text;
  bool loaded = LoadText(CString(file), text);
  ProfileText ini(loaded ? std::move(text) : Text());
  if (!section) return FillProfileList(ini.Sections(), buffer);
  if (!key) return FillProfileList(ini.Keys(*section), buffer);
  return FillProfileBuffer(ValueOrDefault(ini, *section, *key, default_value), buffer);
}

Text LinuxProfileStore::GetValue(TextView section, TextView key, OptionalText default_value, TextView file) {
  Text text;
  bool loaded = LoadText(CString(file), text);
  ProfileText ini(loaded ? std::move(text) : Text());
  return ValueOrDefault(ini, CString(section), CString(key), default_value);
}

bool LinuxProfileStore::WriteString(OptionalText section, OptionalText key, OptionalText value,
                                    TextView file) {
  section = CString(section);
  TextView path = CString(file);
  if (!section || path.empty()) return false;
  Text text;
  if (!LoadText(path, text) && errno != ENOENT) return false;
  ProfileText ini(std::move(text));
  bool changed;
  if (!key) {
    changed = ini.DeleteSection(*section);
  } else if (!value) {
    changed = ini.DeleteKey(*section, CString(*key));
  } else {
    changed = ini.Set(*section, CString(*key), CString(*value));
  }
  if (!changed) return true;
  return linux_io::ReplaceFile(linux_io::PathBytes(path), TextToBytes(ini.text()));
}

LinuxProfileStore& LinuxProfiles() {
  static LinuxProfileStore profiles;
  return profiles;
}

}  // namespace varnek
