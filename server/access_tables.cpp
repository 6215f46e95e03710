// The user and secure-path tables behind Basic authentication: append, read,
// delete by position, count, and the two lookups. Resume mode throughout.
#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/like.h"
#include "varnek/runtime/strings.h"
#include "varnek/server/server_core_internal.h"
#include "varnek/server/secure_path_rule.h"

namespace varnek {

namespace {

// The list, made at first use.
Collection& List(CollectionPtr& list) {
  if (!list) list = Collection::New();
  return *list;
}

Variant GetAt(CollectionPtr& list, int16_t index) {
  Variant item;
  Resume([&] {
    if (index >= 1 && index <= List(list).Count()) item = List(list).Item(index);
  });
  return item;
}

void DeleteAt(CollectionPtr& list, int16_t index) {
  Resume([&] {
    if (index >= 1 && index <= List(list).Count()) List(list).Remove(Variant::Long(index));
  });
}

int16_t CountOf(CollectionPtr& list) {
  int16_t count = 0;
  Resume([&] { count = static_cast<int16_t>(List(list).Count()); });
  return count;
}

}  // namespace

Variant ServerCore::UsersAdd(const Variant& UserNameDosPuntosClave) {
  Resume([&] { List(users_).Add(UserNameDosPuntosClave); });
  return Variant();
}

Variant ServerCore::UsersGet(int16_t Index) { return GetAt(users_, Index); }

Variant ServerCore::UsersDelete(int16_t Index) {
  DeleteAt(users_, Index);
  return Variant();
}

int16_t ServerCore::UsersCount() { return CountOf(users_); }

bool ServerCore::UsersFindIfIsIn(const Variant& UserNameDosPuntosClave) {
  bool found = false;
  Text wanted;
  if (!Resume([&] { wanted = UCase(CStr(UserNameDosPuntosClave)); })) return false;
  Collection& users = List(users_);
  for (int32_t k = 1; k <= users.Count() && !found; ++k) {
    Resume([&] { found = UCase(CStr(users.Item(k))) == wanted; });
  }
  return found;
}

Variant ServerCore::SecurePathAdd(const Variant& NewPath) {
  Resume([&] { List(secure_paths_).Add(NewPath); });
  return Variant();
}

Variant ServerCore::SecurePathGet(int16_t Index) { return GetAt(secure_paths_, Index); }

Variant ServerCore::SecurePathDelete(int16_t Index) {
  DeleteAt(secure_paths_, Index);
  return Variant();
}

int16_t ServerCore::SecurePathCount() { return CountOf(secure_paths_); }

bool SecurePathMatches(TextView path, TextView entry) {
  return Like(UCase(path), UCase(entry) + u"*");
}

bool ServerCore::SecurePathFindIfIsIn(const Variant& RequestPath) {
  bool found = false;
  Text path;
  if (!Resume([&] { path = CStr(RequestPath); })) return false;
  Collection& paths = List(secure_paths_);
  for (int32_t k = 1; k <= paths.Count() && !found; ++k) {
    // An entry holding an unclosed "[" fails its own comparison only.
    Resume([&] { found = SecurePathMatches(path, CStr(paths.Item(k))); });
  }
  return found;
}

}  // namespace varnek
