// Network resources on Linux.
//
// - Browse tree: no browse source is linked (a walk of the SMB browse list
//   would broadcast on the local network), so the enumeration opens empty
//   and NET_UpdateRecursos lists nothing. A host with a source of its own
//   gives it through the NetworkShares interface.
// - Drive letters: "Z:" is the folder <drive root>/Z, mounted with
//   `mount.cifs //server/share <folder> -o guest` (the folder is made
//   first) and released with `umount [-f] <folder>`. Both need the right to
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

struct LinuxSharesPaths {
  std::string drive_root = "/mnt/varnek";
  std::string samba_config = "/etc/samba/smb.conf";
  std::string mountinfo = "/proc/self/mountinfo";
};

class LinuxNetworkShares : public NetworkShares {
 public:
  LinuxNetworkShares(CommandRunner& runner, LinuxSharesPaths paths = {})
      : runner_(runner), paths_(std::move(paths)) {}

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
};

}  // namespace varnek
