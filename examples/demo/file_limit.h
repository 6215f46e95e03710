// The demo host's open-file limit: every connection is a descriptor, and a
// burst of clients needs more than the usual soft limit of 1,024.
#pragma once

#include <string>

namespace varnek::demo {

// Raises the soft RLIMIT_NOFILE to the hard limit. Returns a note for the
// user when the hard limit is below twice `slots` (each slot's connection,
// and as many again for connections being accepted or refused), else "".
std::string RaiseOpenFileLimit(int slots);

}  // namespace varnek::demo
