// Storage and files of Adds: binary files and the log, the INI store, record
// files and directory scans.
#pragma once

#include "adds/adds_core.h"
#include "adds/text/text_toolkit.h"

namespace varnek {

class Storage : public virtual TextToolkit {
 public:
  explicit Storage(Platform& platform) : AddsCore(platform), TextToolkit(platform) {}
};

}  // namespace varnek
