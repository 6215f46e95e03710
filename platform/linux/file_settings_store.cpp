// The INI-style per-user settings files: parsing that keeps every line it does
// not change; files are replaced through linux_io::ReplaceFile.
#include "varnek/platform/linux/internal/file_settings_store.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <new>
#include <optional>
#include <sstream>
#include <vector>

#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/safe_replace.h"
#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

constexpr char kFileName[] = "settings.ini";

// One line of a settings file as read; lines we do not change are written
// back as they were.
struct Line {
  enum Kind { kOther, kSection, kEntry } kind = kOther;
  std::string raw;
  Text name;  // section or entry name, unescaped
  Text value;
};

// The position of the first c not escaped by a backslash, or npos.
size_t FindUnescaped(std::string_view text, char c) {
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\') {
      ++i;
    } else if (text[i] == c) {
      return i;
    }
  }
  return std::string_view::npos;
}

// The lines of a file's text.
std::vector<Line> ParseLines(std::string content) {
  std::vector<Line> lines;
  std::istringstream in(std::move(content));
  std::string raw;
  while (std::getline(in, raw)) {
    if (!raw.empty() && raw.back() == '\r') raw.pop_back();  // edited elsewhere
    Line line;
    line.raw = raw;
    if (!raw.empty() && raw[0] == '[') {
      size_t close = FindUnescaped(raw, ']');
      if (close != std::string::npos) {
        line.kind = Line::kSection;
        line.name = FileSettingsStore::Unescape(std::string_view(raw).substr(1, close - 1));
      }
    } else if (!raw.empty() && raw[0] != ';' && raw[0] != '#') {
      size_t eq = FindUnescaped(raw, '=');
      if (eq != std::string::npos) {
        line.kind = Line::kEntry;
        line.name = FileSettingsStore::Unescape(std::string_view(raw).substr(0, eq));
        line.value = FileSettingsStore::Unescape(std::string_view(raw).substr(eq + 1));
      }
    }
    lines.push_back(std::move(line));
  }
  return lines;
}

// The file's lines; a missing file has none. False when the file is there but
// cannot be read. A file too big for memory fails with 7.
bool ReadLines(const std::string& path, std::vector<Line>& lines) {
  lines.clear();
  std::string content;
  if (!linux_io::ReadSavedFile(path, content)) {
    if (errno == ENOMEM) Fail(kErrOutOfMemory);
    return errno == ENOENT;
  }
  lines = ParseLines(std::move(content));
  return true;
}

// Index of the entry `name` in section `family`, and the index after which a
// new entry of that section goes; section_end is npos when there is no section.
struct Lookup {
  std::optional<size_t> entry;
  size_t section_end = std::string::npos;
};

Lookup Find(const std::vector<Line>& lines, TextView family, TextView name) {
  const Text want_family = FoldSettingName(family);
  const Text want_name = FoldSettingName(name);
  Lookup found;
  bool inside = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    const Line& line = lines[i];
    if (line.kind == Line::kSection) {
      inside = FoldSettingName(line.name) == want_family;
      if (inside && found.section_end == std::string::npos) found.section_end = i;
    } else if (inside) {
      if (line.kind == Line::kEntry) found.section_end = i;
      if (line.kind == Line::kEntry && !found.entry && FoldSettingName(line.name) == want_name) {
        found.entry = i;
      }
    }
  }
  return found;
}

// A group as a folder name: "/", "%" and control characters as %XX, and "."
// and ".." spelled out so a group never leaves the root.
std::string FolderName(TextView group) {
  std::string utf8 = TextToUtf8(group);
  if (utf8 == "." || utf8 == "..") return utf8 == "." ? "%2E" : "%2E%2E";
  std::string out;
  static const char kHex[] = "0123456789ABCDEF";
  for (unsigned char c : utf8) {
    if (c == '/' || c == '%' || c < 0x20) {
      out += '%';
      out += kHex[c >> 4];
      out += kHex[c & 15];
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string DefaultRoot() { return linux_io::XdgFolder("XDG_CONFIG_HOME", ".config"); }

// mkdir -p for the group folder; fails with the classic file numbers.
void MakeFolders(const std::string& path) {
  for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
    std::string part = path.substr(0, slash);
    if (mkdir(part.c_str(), 0700) != 0 && errno != EEXIST) linux_io::FailFromErrno(part);
    if (slash == std::string::npos) break;
  }
}

}  // namespace

FileSettingsStore::FileSettingsStore(std::string root)
    : root_(root.empty() ? DefaultRoot() : std::move(root)) {
  while (root_.size() > 1 && root_.back() == '/') root_.pop_back();
}

std::string FileSettingsStore::GroupFile(TextView group) const {
  // An existing folder whose name matches without regard to case wins.
  const std::string exact = FolderName(group);
  std::string folder = exact;
  if (DIR* dir = opendir(root_.c_str())) {
    const Text want = FoldSettingName(Utf8ToText(exact));
    while (dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name == "." || name == "..") continue;
      if (name == exact) {
        folder = name;
        break;
      }
      if (folder == exact && FoldSettingName(Utf8ToText(name)) == want) folder = name;
    }
    closedir(dir);
  }
  return root_ + "/" + folder + "/" + kFileName;
}

Text FileSettingsStore::Get(TextView group, TextView family, TextView name,
                            TextView default_value) {
  return linux_io::WithinMemory([&] {
    std::vector<Line> lines;
    ReadLines(GroupFile(group), lines);
    Lookup found = Find(lines, family, name);
    return found.entry ? lines[*found.entry].value : Text(default_value);
  });
}

void FileSettingsStore::Set(TextView group, TextView family, TextView name, TextView value) {
  const std::string path = GroupFile(group);
  MakeFolders(path.substr(0, path.rfind('/')));
  // Read, change and replace under the file's lock, so that a process writing
  // another family or name at the same time never loses its write.
  const std::string entry =
      linux_io::WithinMemory([&] { return Escape(name) + "=" + Escape(value); });
  bool out_of_memory = false;
  bool saved = linux_io::EditFile(
      path,
      [&](std::string& content, bool) {
        try {
          std::vector<Line> lines = ParseLines(std::move(content));
          Lookup found = Find(lines, family, name);
          if (found.entry) {
            lines[*found.entry].raw = entry;
          } else if (found.section_end != std::string::npos) {
            lines.insert(lines.begin() + static_cast<ptrdiff_t>(found.section_end) + 1,
                         Line{Line::kEntry, entry, {}, {}});
          } else {
            lines.push_back(Line{Line::kSection, "[" + Escape(family) + "]", {}, {}});
            lines.push_back(Line{Line::kEntry, entry, {}, {}});
          }
          content.clear();
          for (const Line& line : lines) content += line.raw + "\n";
          return linux_io::Edit::kWrite;
        } catch (const std::bad_alloc&) {
          out_of_memory = true;
          errno = ENOMEM;
          return linux_io::Edit::kFail;
        }
      },
      0600);
  if (out_of_memory) Fail(kErrOutOfMemory);
  if (!saved) linux_io::FailFromErrno(path);
}

std::string FileSettingsStore::Escape(TextView field) {
  std::string utf8 = TextToUtf8(field);
  std::string out;
  out.reserve(utf8.size());
  for (char c : utf8) {
    switch (c) {
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '=':
      case '[':
      case ']':
      case ';':
      case '#':
        out += '\\';
        out += c;
        break;
      default: out += c;
    }
  }
  return out;
}

Text FileSettingsStore::Unescape(std::string_view field) {
  std::string out;
  out.reserve(field.size());
  for (size_t i = 0; i < field.size(); ++i) {
    char c = field[i];
    if (c == '\\' && i + 1 < field.size()) {
      char next = field[++i];
      out += next == 'n' ? '\n' : next == 'r' ? '\r' : next;
    } else {
      out += c;
    }
  }
  return Utf8ToText(out);
}

}  // namespace varnek
