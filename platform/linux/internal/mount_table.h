// The mounts of a process as /proc/self/mountinfo lists them: mount point,
// file system type and source, with the kernel's \ooo escapes undone.
//
//   for (const Mount& m : ReadMounts("/proc/self/mountinfo")) if (m.type == "nfs4") ...
#pragma once

#include <string>
#include <vector>

namespace varnek {

struct Mount {
  std::string point, type, source;
};

// The mounts in the file's order; lines that are not mountinfo lines are
// passed over, and a missing file lists none.
std::vector<Mount> ReadMounts(const std::string& mountinfo);

// The mount whose point is the longest folder prefix of the absolute `path`
// (the last such line wins a tie). False when no mount holds it.
bool MountHolding(const std::vector<Mount>& mounts, const std::string& path, Mount& found);

}  // namespace varnek
