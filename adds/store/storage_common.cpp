// Helpers shared by the storage routines: the platform services, the classic
// path split and the sub-second pause.
#include "varnek/adds/store/storage.h"
#include "varnek/platform/files.h"
#include "varnek/platform/profile.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/strings.h"

namespace varnek {

FileSystem& Storage::files() const { return *platform().files; }

ProfileStore& Storage::profiles() const { return *platform().profiles; }

bool Storage::SplitPath(const Text& filename, Text& folder, Text& name) {
  if (InStr(filename, u"/") == 0) return false;
  Variant reversed = Var_Reverse(Variant(filename));
  name = StrReverse(Var_GetPart(reversed, u"/", true));
  folder = StrReverse(CStr(reversed));
  // A file right under the root keeps "/" as its folder, as "C:\a" keeps "C:".
  if (folder.empty() && !filename.empty() && filename[0] == u'/' && !name.empty())
    folder.assign(1, u'/');
  return true;
}

void Storage::PauseSeconds(double seconds) { loop().PauseTimer(seconds); }

}  // namespace varnek
