// Drive letters over mount.cifs, universal names from mountinfo and local
// shares from the Samba configuration.
#include "varnek/platform/linux/linux_network_shares.h"

#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

namespace varnek {

namespace {

constexpr int32_t kBadNetName = 67;
constexpr int32_t kBadDevice = 1200;

class EmptyEnumeration : public ResourceEnumeration {
 public:
  int32_t Next(NetResource&) override { return NetworkShares::kNoMoreItems; }
};

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

struct Mount {
  std::string point, type, source;
};

// The mount whose point is the longest folder prefix of `path`.
bool MountOf(const std::string& mountinfo, const std::string& path, Mount& found) {
  std::ifstream in(mountinfo);
  std::string line;
  size_t best = 0;
  bool any = false;
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::vector<std::string> f;
    for (std::string w; fields >> w;) f.push_back(w);
    size_t dash = 0;
    while (dash < f.size() && f[dash] != "-") ++dash;
    if (f.size() < 5 || dash + 2 >= f.size()) continue;
    std::string point = Unescape(f[4]);
    bool inside =
        point == "/" || path == point ||
        (path.rfind(point, 0) == 0 && path.size() > point.size() && path[point.size()] == '/');
    if (inside && (!any || point.size() >= best)) {
      found = {point, f[dash + 1], Unescape(f[dash + 2])};
      best = point.size();
      any = true;
    }
  }
  return any;
}

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

}  // namespace

std::unique_ptr<ResourceEnumeration> LinuxNetworkShares::OpenEnum(const NetResource*) {
  return std::make_unique<EmptyEnumeration>();
}

std::string LinuxNetworkShares::DriveFolder(const Text& local) const {
  if (local.size() != 2 || local[1] != u':' || local[0] > 0x7f ||
      !std::isalpha(static_cast<unsigned char>(local[0]))) {
    return {};
  }
  return paths_.drive_root + "/" +
         static_cast<char>(std::toupper(static_cast<unsigned char>(local[0])));
}

int32_t LinuxNetworkShares::AddConnection(const Text& remote, const Text& password,
                                          const Text& local) {
  std::string unc = TextToUtf8(remote);
  for (char& c : unc)
    if (c == '\\') c = '/';
  if (unc.size() < 5 || unc.rfind("//", 0) != 0 || unc.find('/', 2) == std::string::npos)
    return kBadNetName;
  std::string folder = DriveFolder(local);
  if (folder.empty()) return kBadDevice;
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  std::string options = password.empty() ? "guest" : "password=" + TextToUtf8(password);
  return runner_.Run({"mount.cifs", unc, folder, "-o", options});
}

int32_t LinuxNetworkShares::CancelConnection(const Text& local, int32_t force) {
  std::string folder = DriveFolder(local);
  if (folder.empty()) return kBadDevice;
  if (force != 0) return runner_.Run({"umount", "-f", folder});
  return runner_.Run({"umount", folder});
}

int32_t LinuxNetworkShares::GetUniversalName(const Text& path, Text& universal) {
  std::string p = TextToUtf8(path);
  if (p.size() >= 2 && p[1] == ':') {
    std::string folder = DriveFolder(path.substr(0, 2));
    if (folder.empty()) return kBadDevice;
    std::string rest = p.substr(2);
    for (char& c : rest)
      if (c == '\\') c = '/';
    p = folder + (rest.empty() || rest[0] == '/' ? rest : "/" + rest);
  }
  if (p.empty() || p[0] != '/') return kBadDevice;
  Mount m;
  if (!MountOf(paths_.mountinfo, p, m)) return kNotConnected;
  if (m.type != "cifs" && m.type != "smb3" && m.type != "smbfs") return kNotConnected;
  std::string unc = m.source + (m.point == "/" ? p : p.substr(m.point.size()));
  for (char& c : unc)
    if (c == '/') c = '\\';
  universal = Utf8ToText(unc);
  return 0;
}

std::vector<ShareInfo> LinuxNetworkShares::LocalShares() {
  std::vector<ShareInfo> shares;
  std::ifstream in(paths_.samba_config);
  std::string line, section;
  ShareInfo current;
  bool open = false;
  auto flush = [&] {
    if (open && !current.path.empty()) shares.push_back(current);
    open = false;
  };
  while (std::getline(in, line)) {
    line = Trimmed(line);
    if (line.empty() || line[0] == '#' || line[0] == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      flush();
      section = Trimmed(line.substr(1, line.size() - 2));
      std::string lower = Lower(section);
      open = lower != "global" && lower != "homes" && lower != "printers";
      current = {Utf8ToText(section), 0, {}};
      continue;
    }
    size_t eq = line.find('=');
    if (!open || eq == std::string::npos) continue;
    std::string key = Lower(Trimmed(line.substr(0, eq)));
    std::string value = Trimmed(line.substr(eq + 1));
    if (key == "path") current.path = Utf8ToText(value);
    if ((key == "printable" || key == "print ok") &&
        (Lower(value) == "yes" || value == "1" || Lower(value) == "true")) {
      current.type = 1;
    }
  }
  flush();
  return shares;
}

Text LinuxNetworkShares::MachineName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  std::string host(name);
  return Utf8ToText(host.substr(0, host.find('.')));
}

}  // namespace varnek
