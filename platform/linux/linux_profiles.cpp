// Private-profile files on Linux: read whole, edited with ProfileText under
// the file's lock, and replaced so that a crash never leaves a torn file.
#include <errno.h>

#include <new>
#include <string>

#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/internal/profile_text.h"
#include "varnek/platform/linux/internal/linux_profiles.h"
#include "varnek/platform/linux/internal/safe_replace.h"
#include "varnek/runtime/failure.h"

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
// A file too big for memory fails with 7.
bool LoadText(TextView file, Text& text) {
  std::string bytes;
  if (file.empty()) return false;
  if (!linux_io::ReadSavedFile(linux_io::PathBytes(file), bytes)) {
    if (errno == ENOMEM) Fail(kErrOutOfMemory);
    return false;
  }
  text = BytesToText(bytes);
  return true;
}

// The key's value, else the default cut at its NUL and its trailing blanks.
Text ValueOrDefault(const ProfileText& ini, TextView section, TextView key,
                    OptionalText default_value) {
  if (std::optional<Text> value = ini.Find(section, key)) return std::move(*value);
  TextView fallback = default_value ? CString(*default_value) : TextView();
  while (!fallback.empty() && fallback.back() == u' ') fallback.remove_suffix(1);
  return Text(fallback);
}

}  // namespace

int32_t LinuxProfileStore::GetString(OptionalText section, OptionalText key,
                                     OptionalText default_value, Text& buffer, TextView file) {
  if (buffer.empty()) return 0;
  return linux_io::WithinMemory([&] {
    section = CString(section);
    key = CString(key);
    Text text;
    bool loaded = LoadText(CString(file), text);
    ProfileText ini(loaded ? std::move(text) : Text());
    if (!section) return FillProfileList(ini.Sections(), buffer);
    if (!key) return FillProfileList(ini.Keys(*section), buffer);
    return FillProfileBuffer(ValueOrDefault(ini, *section, *key, default_value), buffer);
  });
}

Text LinuxProfileStore::GetValue(TextView section, TextView key, OptionalText default_value,
                                 TextView file) {
  return linux_io::WithinMemory([&] {
    Text text;
    bool loaded = LoadText(CString(file), text);
    ProfileText ini(loaded ? std::move(text) : Text());
    return ValueOrDefault(ini, CString(section), CString(key), default_value);
  });
}

bool LinuxProfileStore::WriteString(OptionalText section, OptionalText key, OptionalText value,
                                    TextView file) {
  section = CString(section);
  TextView path = CString(file);
  if (!section || path.empty()) return false;
  // Read, change and replace under the file's lock: a write of another
  // process in between is never undone. Running out of memory fails the
  // write, as an unreadable file does.
  return linux_io::EditFile(linux_io::PathBytes(path), [&](std::string& bytes, bool) {
    try {
      ProfileText ini(BytesToText(bytes));
      bool changed;
      if (!key) {
        changed = ini.DeleteSection(*section);
      } else if (!value) {
        changed = ini.DeleteKey(*section, CString(*key));
      } else {
        changed = ini.Set(*section, CString(*key), CString(*value));
      }
      if (!changed) return linux_io::Edit::kLeave;
      bytes = TextToBytes(ini.text());
      return linux_io::Edit::kWrite;
    } catch (const std::bad_alloc&) {
      errno = ENOMEM;
      return linux_io::Edit::kFail;
    }
  });
}

LinuxProfileStore& LinuxProfiles() {
  static LinuxProfileStore profiles;
  return profiles;
}

}  // namespace varnek
