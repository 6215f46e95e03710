// Network resources on Linux.
//
// - Browse tree: nothing is asked of the network (a walk of the SMB browse
//   list would broadcast on it). The tree (linux_resource_tree.h) holds this
//   machine's Samba shares (smb.conf sections, then the user shares of
//   `net usershare`, read from the files of its usershare folder), the cifs,
//   smb3, nfs and nfs4 mounts of mountinfo, and the servers named in the
//   setting VarnekGlobal / Network / Servers ("srv1; srv2"). Each source is
//   read afresh at every OpenEnum.
// - Drive letters: "Z:" is the folder <drive root>/Z, mounted with
//   `mount.cifs //server/share <folder> -o guest` (the folder is made
//   first, and removed again with any level made for it when the mount
//   fails) and released with `umount [-f] <folder>`. Both need the right to
//   mount; without it the helper fails and so does the call.
// - Universal names: the mount holding the path (from mountinfo); a CIFS or
//   SMB mount gives "\\server\share\rest", any other kNotConnected. A path
//   "Z:\rest" reads as <drive root>/Z/rest.
// - Local shares: the sections of the Samba configuration with a "path";
//   "printable = yes" makes a print queue.
#pragma once

#include <string>

#include "varnek/platform/command_runner.h"
#include "varnek/platform/network_shares.h"

namespace varnek {

class SettingsStore;

// Where the servers to list are named: a text of names parted by ";".
inline constexpr char16_t kServersGroup[] = u"VarnekGlobal";
inline constexpr char16_t kServersFamily[] = u"Network";
inline constexpr char16_t kServersName[] = u"Servers";

struct LinuxSharesPaths {
  std::string drive_root = "/mnt/varnek";
  std::string samba_config = "/etc/samba/smb.conf";
  std::string mountinfo = "/proc/self/mountinfo";
};

class LinuxNetworkShares : public NetworkShares {
 public:
  // settings: where the named servers are read; null lists none.
  LinuxNetworkShares(CommandRunner& runner, LinuxSharesPaths paths = {},
                     SettingsStore* settings = nullptr)
      : runner_(runner), paths_(std::move(paths)), settings_(settings) {}

  // The level below start in the machine's own tree; null when start names
  // no node of it.
  std::unique_ptr<ResourceEnumeration> OpenEnum(const NetResource* start) override;
  // 67 for a remote name that is not "\\server\share", 1200 for a local
  // name that is not a letter and ":", else the helper's status.
  int32_t AddConnection(const Text& remote, const Text& password, const Text& local) override;
  int32_t CancelConnection(const Text& local, int32_t force) override;
  // 1200 for a path that is neither absolute nor on a drive letter.
  int32_t GetUniversalName(const Text& path, Text& universal) override;
  std::vector<ShareInfo> LocalShares() override;
  // gethostname, up to the first ".".
  Text MachineName() override;

 private:
  // The folder of a drive "Z:", or "" when `local` names none.
  std::string DriveFolder(const Text& local) const;

  CommandRunner& runner_;
  LinuxSharesPaths paths_;
  SettingsStore* settings_;
};

}  // namespace varnek
