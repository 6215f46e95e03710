// Readings of the machine: the power supply, memory and processor load.
//
// Rules every implementation keeps (Linux and simulated alike):
// - A reading never fails. What the machine does not tell reads as unknown:
//   255 for a byte of the power status, nullopt for the processor load.
// - Power: `ac_line_status` is 0 off line, 1 on line, 255 unknown;
//   `battery_life_percent` is 0..100, or 255 when no battery tells its level
//   (a level outside 0..255 or unreadable counts as 255; 101..255 pass as
//   they are, as the machine wrote them).
// - Memory: byte counts as the machine has them, never cut to 32 bits; the
//   logic decides how they narrow.
// - Processor load: the percent of time not idle since the previous reading
//   of the same object, or since boot for its first reading.
//
//   SystemPowerStatus p = platform.readings->ReadPowerStatus();
//   if (p.battery_life_percent != 255) ...
#pragma once

#include <cstdint>
#include <optional>

namespace varnek {

struct SystemPowerStatus {
  uint8_t ac_line_status = 0;
  uint8_t battery_life_percent = 0;
};

struct MemoryStatus {
  uint64_t total_phys = 0;
  uint64_t avail_phys = 0;
  uint64_t total_virtual = 0;
  uint64_t avail_virtual = 0;
};

class SystemReadings {
 public:
  virtual ~SystemReadings() = default;
  virtual SystemPowerStatus ReadPowerStatus() = 0;
  virtual MemoryStatus ReadMemoryStatus() = 0;
  // Percent 0..100, or nullopt when the machine has no load counters.
  virtual std::optional<int32_t> ReadCpuUsage() = 0;
};

}  // namespace varnek
