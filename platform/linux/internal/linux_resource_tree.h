// The browse tree of network resources on Linux, built without a word on the
// network from what this machine knows: its own Samba shares, the network
// file systems it has mounted, and servers named in its settings.
//
//   top                       "SMB Network" (provider), "NFS Network" (provider)
//   "SMB Network"             "\\HOST" (this machine), "\\srv" (mounted or named)
//   "\\HOST"                  "\\HOST\Public" (disk), "\\HOST\laser" (printer)
//   "\\srv"                   "\\srv\pub" (disk, local name its mount point)
//   "NFS Network"             "nas:" (server)
//   "nas:"                    "nas:/export" (disk, local name its mount point)
//
// Providers and servers are containers (usage 2); shares are connectable
// (usage 1). A provider or server with nothing below it is not listed, apart
// from named servers, which stand empty. Server names compare ignoring case.
#pragma once

#include <vector>

#include "varnek/platform/linux/internal/mount_table.h"
#include "varnek/platform/network_shares.h"

namespace varnek {

inline constexpr char16_t kSmbProvider[] = u"SMB Network";
inline constexpr char16_t kNfsProvider[] = u"NFS Network";

struct ResourceSources {
  Text machine;                     // this machine's name
  std::vector<ShareInfo> shares;    // its own shares, in order
  std::vector<Mount> mounts;        // mountinfo; cifs, smb3, nfs and nfs4 count
  std::vector<Text> named_servers;  // "srv" or "\\srv"
};

// The entries below `start` (its remote name, or its provider when the
// remote name is empty), the top for null; false when start names no node.
bool ResourceChildren(const ResourceSources& sources, const NetResource* start,
                      std::vector<NetResource>& children);

// The server names of a settings value: parted by ";", "," or blanks, with
// leading backslashes or slashes taken off.
std::vector<Text> ParseServerList(const Text& value);

}  // namespace varnek
