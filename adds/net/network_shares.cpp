// The browse walk into NET_Recursos, drive mappings, universal names and the
// broadcast message that is never sent.
#include <memory>

#include "varnek/adds/net/network_time_shares.h"
#include "varnek/platform/network_shares.h"
#include "varnek/runtime/compare.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/strings.h"

namespace varnek {

namespace {

constexpr int kMaxWalkDepth = 32;
constexpr const char16_t* kHeader = u"Type\tProvider\tRemoteName\tLocalName\tComment";

// The class of an entry, or nullptr when it has none.
const char16_t* ClassOf(const NetResource& e) {
  switch (e.display_type) {
    case 0: return u"Generic";
    case 1: return u"Domain";
    case 2: return u"Server";
    case 3: return e.type == 1 ? u"Disk" : e.type == 2 ? u"Printer" : nullptr;
    case 6: return u"Provider";
    default: return nullptr;
  }
}

// A classic string handed to the platform ends at its first NUL.
Text UpToNul(const Text& text) { return text.substr(0, text.find(u'\0')); }

}  // namespace

bool NetworkTimeShares::NET_UpdateRecursos(const Text& Raiz, int32_t Uso) {
  if (!NET_Recursos) NET_Recursos = std::make_shared<Collection>();
  while (NET_Recursos->Count() > 0) {
    NET_Recursos->Remove(1);
    loop().DoEvents();
  }
  netResourceWalk(Raiz, Uso, 1);
  if (NET_Recursos->Count() == 0) return false;
  NET_Recursos->Add(Text(kHeader), Variant::Missing(), 1);
  return true;
}

void NetworkTimeShares::netResourceWalk(const Text& Raiz, int32_t Uso, int depth) {
  if (depth > kMaxWalkDepth) return;
  NetResource start;
  if (!Raiz.empty()) (Uso == 6 ? start.provider : start.remote_name) = UpToNul(Raiz);
  std::unique_ptr<ResourceEnumeration> entries =
      platform().shares->OpenEnum(Raiz.empty() ? nullptr : &start);
  if (!entries) return;
  Text record, name;  // both keep their last value from entry to entry
  NetResource entry;
  while (entries->Next(entry) == 0) {
    const char16_t* kind = ClassOf(entry);
    if (kind) {
      record = Text(kind) + u"\t" + entry.provider + u"\t" + entry.remote_name + u"\t" +
               entry.local_name + u"\t" + entry.comment;
    }
    if (kind || entry.display_type == 3) {
      name = entry.remote_name;
      name.resize(256, u'\0');
    }
    NET_Recursos->Add(record);
    if (entry.usage == 2 || entry.usage == 10) netResourceWalk(name, entry.display_type, depth + 1);
    entry = NetResource();
  }
}

bool NetworkTimeShares::NET_ShareConnect(const Variant& UNCPath, Text& DriveLetter) {
  Text unc = CStr(UNCPath);
  if (unc.empty() || DriveLetter.empty()) return false;
  if (DriveLetter.size() > 1) DriveLetter = Left(DriveLetter, 1);
  return platform().shares->AddConnection(unc, Text(), DriveLetter + u":") == 0;
}

bool NetworkTimeShares::NET_ShareDisconnect(Variant& DriveLetter, bool Force) {
  Text letter = CStr(DriveLetter);
  if (letter.empty()) return false;
  if (letter.size() > 1) {
    letter = Left(letter, 1);
    DriveLetter = letter;
  }
  return platform().shares->CancelConnection(letter + u":", Force ? 0 : 1) == 0;
}

Text NetworkTimeShares::NET_GetUncName(const Text& FileSpec) {
  NetworkShares& shares = *platform().shares;
  Text universal;
  int32_t status = shares.GetUniversalName(FileSpec, universal);
  if (status == 0) return universal;
  if (status != NetworkShares::kNotConnected) return Text();
  for (const ShareInfo& share : shares.LocalShares()) {
    if (share.type != 0) continue;
    if (StrComp(Left(FileSpec, Len(share.path)), share.path, CompareMode::TextCompare) == 0) {
      return u"\\\\" + shares.MachineName() + u"\\" + share.name + Mid(FileSpec, Len(share.path));
    }
  }
  return FileSpec;
}

bool NetworkTimeShares::NET_BroadcastMessage(const Text&, const Text&, const Text&) {
  return false;
}

}  // namespace varnek
