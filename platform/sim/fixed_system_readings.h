// Machine readings that tests set by hand.
#pragma once

#include "varnek/platform/system_readings.h"

namespace varnek {

class FixedSystemReadings : public SystemReadings {
 public:
  SystemPowerStatus ReadPowerStatus() override {
    ++power_reads;
    return power;
  }
  MemoryStatus ReadMemoryStatus() override { return memory; }
  std::optional<int32_t> ReadCpuUsage() override { return cpu; }

  SystemPowerStatus power{255, 255};
  MemoryStatus memory;
  std::optional<int32_t> cpu;
  int power_reads = 0;
};

}  // namespace varnek
