// Network resources as the logic sees them: a browse tree to enumerate,
// drive letters mapped onto shares, universal names of paths, and the shares
// this machine offers.
//
// Rules every implementation keeps:
// - Results are the classic status numbers: 0 done, kNotConnected (2250) for
//   a path that is on no network share, anything else a failure.
// - An enumeration ends with a non-zero Next, whether the entries ran out or
//   it failed; OpenEnum gives null when it cannot start.
// - Nothing here pumps the host loop; a mount may take as long as the
//   helper program does.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "varnek/runtime/text.h"

namespace varnek {

// One entry of the browse tree, in the classic field order.
struct NetResource {
  int32_t scope = 0;
  int32_t type = 0;          // 1 disk, 2 printer
  int32_t display_type = 0;  // 0 generic, 1 domain, 2 server, 3 share, 6 network
  int32_t usage = 0;         // 2 (or 10) a container
  Text local_name;
  Text remote_name;
  Text comment;
  Text provider;
};

// One share this machine offers: name, type (0 disk, 1 print queue), path
// and the comment it is offered with.
struct ShareInfo {
  Text name;
  int32_t type = 0;
  Text path;
  Text comment;
};

class ResourceEnumeration {
 public:
  virtual ~ResourceEnumeration() = default;
  // 0 and the next entry, or non-zero at the end or on a failure.
  virtual int32_t Next(NetResource& entry) = 0;
};

class NetworkShares {
 public:
  static constexpr int32_t kNotConnected = 2250;
  static constexpr int32_t kNoMoreItems = 259;

  virtual ~NetworkShares() = default;
  // The entries below `start` (its remote name or, for a network, its
  // provider), or the top of the tree when start is null.
  virtual std::unique_ptr<ResourceEnumeration> OpenEnum(const NetResource* start) = 0;
  // Maps `local` ("Z:") onto the share `remote` ("\\server\share").
  virtual int32_t AddConnection(const Text& remote, const Text& password, const Text& local) = 0;
  // Unmaps `local`; a non-zero force drops it even while files are open.
  virtual int32_t CancelConnection(const Text& local, int32_t force) = 0;
  // The universal name ("\\server\share\dir\file") of a path on a share.
  virtual int32_t GetUniversalName(const Text& path, Text& universal) = 0;
  // The disk and print shares this machine offers, in their configured order.
  virtual std::vector<ShareInfo> LocalShares() = 0;
  // This machine's name as the network knows it.
  virtual Text MachineName() = 0;
};

}  // namespace varnek
