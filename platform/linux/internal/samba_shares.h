// The shares this machine offers through Samba: the share sections of its
// configuration (smb.conf) and the user shares of `net usershare`, which
// Samba keeps one file each in its usershare folder.
//
//   SambaConfig config = ReadSambaConfig("/etc/samba/smb.conf");
//   config.shares;            // {"Public", 0, "/srv/public", "all"}, ...
//   ReadUserShares(config.usershare_path);
#pragma once

#include <string>
#include <vector>

#include "varnek/platform/network_shares.h"

namespace varnek {

struct SambaConfig {
  // Sections with a "path", in the file's order, except [global], [homes]
  // and [printers]; "printable" or "print ok" set makes a print queue (1).
  std::vector<ShareInfo> shares;
  // The "usershare path" of [global], or Samba's default folder.
  std::string usershare_path = "/var/lib/samba/usershares";
};

// A missing file gives no shares and the default usershare folder.
SambaConfig ReadSambaConfig(const std::string& file);

// The user shares in the folder, by file name: each file's "sharename" (else
// its file name), "path" and "comment". Disk shares only; a missing folder
// gives none.
std::vector<ShareInfo> ReadUserShares(const std::string& folder);

}  // namespace varnek
