// The rule by which a request path falls under one secured-path entry. The
// server's SecurePathFindIfIsIn applies it to every entry; a host that routes
// by the same entries applies it too, so both agree on a path such as
// "/ADMIN/" under "/admin".
#pragma once

#include "varnek/runtime/text.h"

namespace varnek {

// True when the upper-cased path is Like the upper-cased entry followed by
// "*": the entry is a prefix, case ignored, and *?#[ ] in it are patterns.
// Open: an entry holding an unclosed "[" fails as Like does.
bool SecurePathMatches(TextView path, TextView entry);

}  // namespace varnek
