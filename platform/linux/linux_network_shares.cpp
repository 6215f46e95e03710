// The browse tree from the machine's own sources, drive letters over
// mount.cifs, universal names from mountinfo and local shares from the Samba
// configuration.
#include "varnek/platform/linux/internal/linux_network_shares.h"

#include "varnek/platform/linux/internal/linux_resource_tree.h"
#include "varnek/platform/linux/internal/mount_table.h"
#include "varnek/platform/linux/internal/samba_shares.h"
#include "varnek/platform/settings_store.h"

#include <unistd.h>

#include <cctype>
#include <filesystem>
#include <system_error>

namespace varnek {

namespace {

constexpr int32_t kBadNetName = 67;
constexpr int32_t kBadDevice = 1200;

// The entries of one level of the browse tree, handed out one by one.
class ListEnumeration : public ResourceEnumeration {
 public:
  explicit ListEnumeration(std::vector<NetResource> items) : items_(std::move(items)) {}
  int32_t Next(NetResource& entry) override {
    if (next_ >= items_.size()) return NetworkShares::kNoMoreItems;
    entry = items_[next_++];
    return 0;
  }

 private:
  std::vector<NetResource> items_;
  size_t next_ = 0;
};

// The folders from `folder` up to the first that exists, deepest first: what
// create_directories is about to make.
std::vector<std::string> MissingLevels(std::filesystem::path folder) {
  std::vector<std::string> missing;
  std::error_code ec;
  for (; !folder.empty() && !std::filesystem::exists(folder, ec); folder = folder.parent_path()) {
    missing.push_back(folder.string());
    if (folder == folder.parent_path()) break;
  }
  return missing;
}

}  // namespace

std::unique_ptr<ResourceEnumeration> LinuxNetworkShares::OpenEnum(const NetResource* start) {
  ResourceSources sources;
  SambaConfig samba = ReadSambaConfig(paths_.samba_config);
  sources.shares = samba.shares;
  for (ShareInfo& share : ReadUserShares(samba.usershare_path))
    sources.shares.push_back(std::move(share));
  if (!sources.shares.empty()) sources.machine = MachineName();
  sources.mounts = ReadMounts(paths_.mountinfo);
  if (settings_)
    sources.named_servers =
        ParseServerList(settings_->Get(kServersGroup, kServersFamily, kServersName, u""));
  std::vector<NetResource> children;
  if (!ResourceChildren(sources, start, children)) return nullptr;
  return std::make_unique<ListEnumeration>(std::move(children));
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
  std::vector<std::string> made = MissingLevels(folder);
  std::error_code ec;
  std::filesystem::create_directories(folder, ec);
  std::string options = password.empty() ? "guest" : "password=" + TextToUtf8(password);
  int32_t status = runner_.Run({"mount.cifs", unc, folder, "-o", options});
  // A failed mount leaves no folder behind that this call made; rmdir takes
  // only empty ones, so nothing else can go.
  if (status != 0)
    for (const std::string& level : made) rmdir(level.c_str());
  return status;
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
  if (!MountHolding(ReadMounts(paths_.mountinfo), p, m)) return kNotConnected;
  if (m.type != "cifs" && m.type != "smb3" && m.type != "smbfs") return kNotConnected;
  std::string unc = m.source + (m.point == "/" ? p : p.substr(m.point.size()));
  for (char& c : unc)
    if (c == '/') c = '\\';
  universal = Utf8ToText(unc);
  return 0;
}

std::vector<ShareInfo> LinuxNetworkShares::LocalShares() {
  return ReadSambaConfig(paths_.samba_config).shares;
}

Text LinuxNetworkShares::MachineName() {
  char name[256] = {};
  if (gethostname(name, sizeof name - 1) != 0) return {};
  std::string host(name);
  return Utf8ToText(host.substr(0, host.find('.')));
}

}  // namespace varnek
