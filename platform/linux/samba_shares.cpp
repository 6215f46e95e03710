// Reading smb.conf share sections and usershare files.
#include "varnek/platform/linux/internal/samba_shares.h"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <fstream>
#include <system_error>

namespace varnek {

namespace {

std::string Trimmed(const std::string& s) {
  size_t a = s.find_first_not_of(" \t\r");
  if (a == std::string::npos) return {};
  size_t b = s.find_last_not_of(" \t\r");
  return s.substr(a, b - a + 1);
}

std::string Lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

bool IsTrue(const std::string& value) {
  std::string v = Lower(value);
  return v == "yes" || v == "1" || v == "true";
}

// Calls take(key, value) for each "key = value" line and section(name) for
// each "[name]"; keys are lower case, comments and blank lines are skipped.
template <class Section, class Take>
void ReadIni(const std::string& file, Section section, Take take) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);) {
    line = Trimmed(line);
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      section(Trimmed(line.substr(1, line.size() - 2)));
      continue;
    }
    size_t eq = line.find('=');
    if (eq != std::string::npos)
      take(Lower(Trimmed(line.substr(0, eq))), Trimmed(line.substr(eq + 1)));
  }
}

}  // namespace

SambaConfig ReadSambaConfig(const std::string& file) {
  SambaConfig config;
  ShareInfo current;
  std::string section;
  auto flush = [&] {
    std::string lower = Lower(section);
    bool share = !section.empty() && lower != "global" && lower != "homes" && lower != "printers";
    if (share && !current.path.empty()) config.shares.push_back(current);
  };
  ReadIni(
      file,
      [&](const std::string& name) {
        flush();
        section = name;
        current = {Utf8ToText(name), 0, {}, {}};
      },
      [&](const std::string& key, const std::string& value) {
        if (Lower(section) == "global") {
          if (key == "usershare path" && !value.empty()) config.usershare_path = value;
          return;
        }
        if (key == "path") current.path = Utf8ToText(value);
        if (key == "comment") current.comment = Utf8ToText(value);
        if ((key == "printable" || key == "print ok") && IsTrue(value)) current.type = 1;
      });
  flush();
  return config;
}

std::vector<ShareInfo> ReadUserShares(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end;
       it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name[0] != '.' && it->is_regular_file(ec)) files.push_back(name);
  }
  std::sort(files.begin(), files.end());
  std::vector<ShareInfo> shares;
  for (const std::string& name : files) {
    ShareInfo share{Utf8ToText(name), 0, {}, {}};
    ReadIni(
        folder + "/" + name, [](const std::string&) {},
        [&](const std::string& key, const std::string& value) {
          if (key == "sharename" && !value.empty()) share.name = Utf8ToText(value);
          if (key == "path") share.path = Utf8ToText(value);
          if (key == "comment") share.comment = Utf8ToText(value);
        });
    if (!share.path.empty()) shares.push_back(share);
  }
  return shares;
}

}  // namespace varnek
