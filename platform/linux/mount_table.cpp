// Reading mountinfo lines.
#include "varnek/platform/linux/internal/mount_table.h"

#include <cctype>
#include <fstream>
#include <sstream>

namespace varnek {

namespace {

// mountinfo writes blanks, tabs, newlines and backslashes as \ooo.
std::string Unescape(const std::string& field) {
  std::string out;
  for (size_t i = 0; i < field.size(); ++i) {
    if (field[i] == '\\' && i + 3 < field.size() &&
        std::isdigit(static_cast<unsigned char>(field[i + 1]))) {
      out += static_cast<char>(std::stoi(field.substr(i + 1, 3), nullptr, 8));
      i += 3;
    } else {
      out += field[i];
    }
  }
  return out;
}

}  // namespace

std::vector<Mount> ReadMounts(const std::string& mountinfo) {
  std::vector<Mount> mounts;
  std::ifstream in(mountinfo);
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string w; fields >> w;) f.push_back(w);
    size_t dash = 0;
    while (dash < f.size() && f[dash] != "-") ++dash;
    if (f.size() < 5 || dash + 2 >= f.size()) continue;
    mounts.push_back({Unescape(f[4]), f[dash + 1], Unescape(f[dash + 2])});
  }
  return mounts;
}

bool MountHolding(const std::vector<Mount>& mounts, const std::string& path, Mount& found) {
  size_t best = 0;
  bool any = false;
  for (const Mount& m : mounts) {
    const std::string& point = m.point;
    bool inside =
        point == "/" || path == point ||
        (path.rfind(point, 0) == 0 && path.size() > point.size() && path[point.size()] == '/');
    if (inside && (!any || point.size() >= best)) {
      found = m;
      best = point.size();
      any = true;
    }
  }
  return any;
}

}  // namespace varnek
