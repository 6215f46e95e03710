// Building the browse tree's levels from the machine's own sources.
#include "varnek/platform/linux/internal/linux_resource_tree.h"

namespace varnek {

namespace {

struct Server {
  Text name;  // "\\srv" or "nas:"
  std::vector<NetResource> shares;
};

Text Folded(const Text& text) {
  Text out = text;
  for (char16_t& c : out)
    if (c >= u'a' && c <= u'z') c = static_cast<char16_t>(c - 32);
  return out;
}

NetResource Node(int32_t display, int32_t type, int32_t usage, const Text& remote,
                 const Text& provider, const Text& local = {}, const Text& comment = {}) {
  NetResource e;
  e.scope = 2;  // global network
  e.type = type, e.display_type = display, e.usage = usage;
  e.remote_name = remote, e.provider = provider, e.local_name = local, e.comment = comment;
  return e;
}

Server& ServerNamed(std::vector<Server>& servers, const Text& name) {
  for (Server& s : servers)
    if (Folded(s.name) == Folded(name)) return s;
  servers.push_back({name, {}});
  return servers.back();
}

// SMB servers first with this machine, then NFS servers, each with its shares.
void Gather(const ResourceSources& src, std::vector<Server>& smb, std::vector<Server>& nfs) {
  if (!src.shares.empty()) {
    Server& self = ServerNamed(smb, u"\\\\" + src.machine);
    for (const ShareInfo& s : src.shares) {
      self.shares.push_back(
          Node(3, s.type == 1 ? 2 : 1, 1, self.name + u"\\" + s.name, kSmbProvider, {}, s.comment));
    }
  }
  for (const Mount& m : src.mounts) {
    Text source = Utf8ToText(m.source), point = Utf8ToText(m.point);
    if (m.type == "cifs" || m.type == "smb3") {
      for (char16_t& c : source)
        if (c == u'/') c = u'\\';
      size_t host_end = source.find(u'\\', 2);
      if (source.rfind(u"\\\\", 0) != 0 || host_end == Text::npos || host_end == 2) continue;
      ServerNamed(smb, source.substr(0, host_end))
          .shares.push_back(Node(3, 1, 1, source, kSmbProvider, point));
    } else if (m.type == "nfs" || m.type == "nfs4") {
      size_t colon = source.find(u":/");
      if (colon == Text::npos || colon == 0) continue;
      ServerNamed(nfs, source.substr(0, colon + 1))
          .shares.push_back(Node(3, 1, 1, source, kNfsProvider, point));
    }
  }
  for (const Text& name : src.named_servers) ServerNamed(smb, u"\\\\" + name);
}

}  // namespace

bool ResourceChildren(const ResourceSources& sources, const NetResource* start,
                      std::vector<NetResource>& children) {
  std::vector<Server> smb, nfs;
  Gather(sources, smb, nfs);
  children.clear();
  if (!start) {
    if (!smb.empty()) children.push_back(Node(6, 0, 2, kSmbProvider, kSmbProvider));
    if (!nfs.empty()) children.push_back(Node(6, 0, 2, kNfsProvider, kNfsProvider));
    return true;
  }
  const Text key = Folded(start->remote_name.empty() ? start->provider : start->remote_name);
  for (auto [provider, servers] : {std::pair{kSmbProvider, &smb}, std::pair{kNfsProvider, &nfs}}) {
    if (key == Folded(provider)) {
      for (const Server& s : *servers) children.push_back(Node(2, 0, 2, s.name, provider));
      return !servers->empty();
    }
    for (const Server& s : *servers) {
      if (Folded(s.name) == key) {
        children = s.shares;
        return true;
      }
    }
  }
  return false;
}

std::vector<Text> ParseServerList(const Text& value) {
  std::vector<Text> names;
  Text name;
  for (size_t i = 0; i <= value.size(); ++i) {
    char16_t c = i < value.size() ? value[i] : u';';
    if (c == u';' || c == u',' || c == u' ' || c == u'\t') {
      size_t lead = name.find_first_not_of(u"\\/");
      if (lead != Text::npos) names.push_back(name.substr(lead));
      name.clear();
    } else {
      name += c;
    }
  }
  return names;
}

}  // namespace varnek
