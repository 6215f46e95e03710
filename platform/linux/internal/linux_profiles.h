// The private-profile store on Linux files: ProfileText over a file read
// under a shared lock and written back through an atomic replacement.
#pragma once

#include "varnek/platform/profile.h"

namespace varnek {

// Private-profile files on Linux: read with ProfileText, written back through
// an atomic replacement. A name without "/" is taken in the current folder.
class LinuxProfileStore : public ProfileStore {
 public:
  int32_t GetString(OptionalText section, OptionalText key, OptionalText default_value,
                    Text& buffer, TextView file) override;
  // One reading of the file, whatever the value's length.
  Text GetValue(TextView section, TextView key, OptionalText default_value, TextView file) override;
  bool WriteString(OptionalText section, OptionalText key, OptionalText value,
                   TextView file) override;
};

// The process-wide instance.
LinuxProfileStore& LinuxProfiles();

}  // namespace varnek
