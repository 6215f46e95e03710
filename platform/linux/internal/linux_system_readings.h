// Machine readings on Linux: the power supply class in sysfs, sysinfo for
// memory and the counters of /proc/stat for the processor load. The roots are
// injectable so tests read a fake tree.
#pragma once

#include <cstdint>
#include <string>

#include "varnek/platform/system_readings.h"

namespace varnek {

class LinuxSystemReadings : public SystemReadings {
 public:
  explicit LinuxSystemReadings(std::string power_root = "/sys/class/power_supply",
                               std::string proc_stat = "/proc/stat")
      : power_root_(std::move(power_root)), proc_stat_(std::move(proc_stat)) {}

  // Supplies of type "Mains" or "USB*" tell the line: 1 if any is online, 0
  // if all are off. With none, the first present system battery's status
  // does: "Discharging" 0, "Charging", "Full" or "Not charging" 1, anything
  // else 255. The level is that battery's "capacity"; no battery, or one
  // with no readable capacity, reads 255. Device-scoped batteries (mice,
  // keyboards) are left out.
  SystemPowerStatus ReadPowerStatus() override;
  // sysinfo: physical = totalram / freeram + bufferram; virtual = ram and
  // swap together / their free parts.
  MemoryStatus ReadMemoryStatus() override;
  // The aggregate "cpu" line: non-idle share of the jiffies elapsed since
  // the previous reading, rounded; nullopt when the file or line is missing.
  std::optional<int32_t> ReadCpuUsage() override;

 private:
  std::string power_root_;
  std::string proc_stat_;
  uint64_t last_total_ = 0;
  uint64_t last_idle_ = 0;
};

}  // namespace varnek
