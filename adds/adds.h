// Adds: the one flat utility class the host sees. It joins the subsystem
// classes, each in its own folder, so every routine stands under its own name.
//
//   varnek::Adds adds;                       // on the Linux platform
//   varnek::Variant text = u"a;b;c";
//   adds.Var_GetPart(text, u";");            // "a", text is now "b;c"
#pragma once

#include "varnek/adds/adds_core.h"
#include "varnek/adds/generators/generators.h"
#include "varnek/adds/net/network.h"
#include "varnek/adds/net/network_time_shares.h"
#include "varnek/adds/paging/paging.h"
#include "varnek/adds/store/storage.h"
#include "varnek/adds/store/variable_store.h"
#include "varnek/adds/system/system_services.h"
#include "varnek/adds/text/text_toolkit.h"

namespace varnek {

class Adds : public virtual TextToolkit,
             public virtual VariableStore,
             public virtual Storage,
             public SystemServices,
             public Generators,
             public Network,
             public NetworkTimeShares,
             public Paging {
 public:
  explicit Adds(Platform& platform = LinuxPlatform()) { Attach(platform); }
};

}  // namespace varnek
