// Power, memory and load readings from sysfs, sysinfo and /proc/stat.
#include "varnek/platform/linux/internal/linux_system_readings.h"

#include <sys/sysinfo.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

namespace varnek {

namespace {

// The first line of a sysfs attribute, without its line end; "" if unreadable.
std::string ReadAttribute(const std::filesystem::path& file) {
  std::ifstream in(file);
  std::string line;
  if (!in || !std::getline(in, line)) return {};
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r' || line.back() == ' ')) {
    line.pop_back();
  }
  return line;
}

// A whole decimal number, or -1 when the text is not one.
long ParseWhole(const std::string& text) {
  if (text.empty() || text.size() > 9) return -1;
  long value = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return -1;
    value = value * 10 + (c - '0');
  }
  return value;
}

bool IsLineSupply(const std::string& type) { return type == "Mains" || type.rfind("USB", 0) == 0; }

std::vector<std::filesystem::path> SupplyFolders(const std::string& root) {
  std::vector<std::filesystem::path> folders;
  std::error_code ec;
  for (std::filesystem::directory_iterator it(root, ec), end; !ec && it != end; it.increment(ec)) {
    folders.push_back(it->path());
  }
  std::sort(folders.begin(), folders.end());
  return folders;
}

}  // namespace

SystemPowerStatus LinuxSystemReadings::ReadPowerStatus() {
  bool line_known = false, line_online = false, battery_found = false;
  std::string battery_status;
  long level = -1;
  for (const auto& folder : SupplyFolders(power_root_)) {
    std::string type = ReadAttribute(folder / "type");
    if (IsLineSupply(type)) {
      long online = ParseWhole(ReadAttribute(folder / "online"));
      if (online < 0) continue;
      line_known = true;
      line_online = line_online || online > 0;
    } else if (type == "Battery" && !battery_found) {
      if (ReadAttribute(folder / "scope") == "Device") continue;
      if (ReadAttribute(folder / "present") == "0") continue;
      battery_found = true;
      battery_status = ReadAttribute(folder / "status");
      level = ParseWhole(ReadAttribute(folder / "capacity"));
    }
  }
  SystemPowerStatus status;
  if (line_known) {
    status.ac_line_status = line_online ? 1 : 0;
  } else if (battery_status == "Discharging") {
    status.ac_line_status = 0;
  } else if (battery_status == "Charging" || battery_status == "Full" ||
             battery_status == "Not charging") {
    status.ac_line_status = 1;
  } else {
    status.ac_line_status = 255;
  }
  status.battery_life_percent = (level >= 0 && level <= 255) ? static_cast<uint8_t>(level) : 255;
  return status;
}

MemoryStatus LinuxSystemReadings::ReadMemoryStatus() {
  struct sysinfo info {};
  MemoryStatus m;
  if (sysinfo(&info) != 0) return m;
  uint64_t unit = info.mem_unit ? info.mem_unit : 1;
  m.total_phys = uint64_t{info.totalram} * unit;
  m.avail_phys = (uint64_t{info.freeram} + info.bufferram) * unit;
  m.total_virtual = (uint64_t{info.totalram} + info.totalswap) * unit;
  m.avail_virtual = (uint64_t{info.freeram} + info.freeswap) * unit;
  return m;
}

std::optional<int32_t> LinuxSystemReadings::ReadCpuUsage() {
  std::ifstream in(proc_stat_);
  std::string line;
  if (!in || !std::getline(in, line) || line.rfind("cpu ", 0) != 0) return std::nullopt;
  std::istringstream fields(line.substr(4));
  // user nice system idle iowait irq softirq steal; guest time is inside user.
  uint64_t value = 0, total = 0, idle = 0;
  int count = 0;
  while (count < 8 && fields >> value) {
    total += value;
    if (count == 3 || count == 4) idle += value;
    ++count;
  }
  if (count < 4) return std::nullopt;
  uint64_t dtotal = total >= last_total_ ? total - last_total_ : total;
  uint64_t didle = idle >= last_idle_ ? idle - last_idle_ : idle;
  last_total_ = total;
  last_idle_ = idle;
  if (dtotal == 0) return 0;
  didle = std::min(didle, dtotal);
  return static_cast<int32_t>(
      std::lround(100.0 * static_cast<double>(dtotal - didle) / static_cast<double>(dtotal)));
}

}  // namespace varnek
