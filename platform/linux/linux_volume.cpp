// The label and serial of the file system that holds a path, on Linux.
#include <blkid/blkid.h>
#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/sysmacros.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "varnek/platform/linux/internal/file_io.h"
#include "varnek/platform/linux/internal/linux_files.h"

namespace varnek {

namespace {

std::string RealPath(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) ? std::string(buf) : std::string();
}

// The mount source (a device path) of the file system with this device
// number, from /proc/self/mountinfo; "" when none is listed.
std::string MountSource(dev_t dev) {
  std::ifstream in("/proc/self/mountinfo");
  std::string line;
  std::string wanted = std::to_string(major(dev)) + ":" + std::to_string(minor(dev));
  while (std::getline(in, line)) {
    std::istringstream fields(line);
    std::string id, parent, devno;
    fields >> id >> parent >> devno;
    if (devno != wanted) continue;
    size_t dash = line.find(" - ");
    if (dash == std::string::npos) continue;
    std::istringstream tail(line.substr(dash + 3));
    std::string fstype, source;
    tail >> fstype >> source;
    return source;
  }
  return {};
}

// udev escapes unusual bytes of a label as \xNN.
std::string UnescapeUdev(const std::string& name) {
  std::string out;
  for (size_t i = 0; i < name.size(); ++i) {
    unsigned value = 0;
    if (name[i] == '\\' && i + 3 < name.size() && name[i + 1] == 'x' &&
        std::sscanf(name.c_str() + i + 2, "%2x", &value) == 1) {
      out += static_cast<char>(value);
      i += 3;
    } else {
      out += name[i];
    }
  }
  return out;
}

// The name of the link in /dev/disk/<kind> that points at the device.
bool FindDiskLink(const std::string& kind, const std::string& device, std::string& name) {
  std::string folder = "/dev/disk/" + kind;
  DIR* dir = opendir(folder.c_str());
  if (!dir) return false;
  bool found = false;
  while (struct dirent* d = readdir(dir)) {
    if (d->d_name[0] == '.') continue;
    if (RealPath(folder + "/" + d->d_name) == device) {
      name = UnescapeUdev(d->d_name);
      found = true;
      break;
    }
  }
  closedir(dir);
  return found;
}

// Label and UUID by probing the device itself (needs read access to it).
void ProbeDevice(const std::string& device, std::string& label, std::string& uuid) {
  blkid_probe probe = blkid_new_probe_from_filename(device.c_str());
  if (!probe) return;
  blkid_probe_enable_superblocks(probe, 1);
  blkid_probe_set_superblocks_flags(probe, BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID);
  if (blkid_do_safeprobe(probe) == 0) {
    const char* value = nullptr;
    size_t len = 0;
    if (label.empty() && blkid_probe_lookup_value(probe, "LABEL", &value, &len) == 0) label = value;
    if (uuid.empty() && blkid_probe_lookup_value(probe, "UUID", &value, &len) == 0) uuid = value;
  }
  blkid_free_probe(probe);
}

// The first 32 bits of a UUID's hexadecimal digits; false with fewer than 8.
bool SerialFromUuid(const std::string& uuid, uint32_t& serial) {
  uint32_t value = 0;
  int digits = 0;
  for (char c : uuid) {
    int d = (c >= '0' && c <= '9')   ? c - '0'
            : (c >= 'a' && c <= 'f') ? c - 'a' + 10
            : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                     : -1;
    if (d < 0) continue;
    value = (value << 4) | static_cast<uint32_t>(d);
    if (++digits == 8) break;
  }
  if (digits < 8) return false;
  serial = value;
  return true;
}

}  // namespace

bool LinuxFileSystem::VolumeInfo(TextView path, Text& label, uint32_t& serial) {
  std::string p = linux_io::PathBytes(path);
  struct stat st {};
  struct statfs fs {};
  if (p.empty() || stat(p.c_str(), &st) != 0 || statfs(p.c_str(), &fs) != 0) return false;

  std::string label_bytes, uuid;
  std::string source = MountSource(st.st_dev);
  std::string device;
  if (!source.empty() && source[0] == '/') device = RealPath(source);
  if (device.empty()) {
    // mountinfo may name "/dev/root"; the device number still finds the node.
    char* name = blkid_devno_to_devname(st.st_dev);
    if (name) {
      device = name;
      free(name);
    }
  }
  if (!device.empty()) {
    FindDiskLink("by-label", device, label_bytes);
    FindDiskLink("by-uuid", device, uuid);
    if (label_bytes.empty() || uuid.empty()) ProbeDevice(device, label_bytes, uuid);
  }
  if (!SerialFromUuid(uuid, serial)) {
    uint32_t id[2];
    static_assert(sizeof id == sizeof fs.f_fsid);
    std::memcpy(id, &fs.f_fsid, sizeof id);
    serial = id[0] ^ id[1];
  }
  label = Utf8ToText(label_bytes);
  return true;
}

}  // namespace varnek
