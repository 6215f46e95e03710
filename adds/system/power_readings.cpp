// Battery history and prediction, processor load and memory figures.
#include <cmath>
#include <cstdlib>
#include <optional>

#include "varnek/adds/system/system_services.h"
#include "varnek/runtime/convert.h"
#include "varnek/runtime/date_math.h"
#include "varnek/runtime/dates.h"
#include "varnek/runtime/failure.h"
#include "varnek/runtime/int16.h"

namespace varnek {

namespace {

// An empty percent reads 0.
int32_t PercentOf(const Variant& percent) { return percent.IsEmpty() ? 0 : CLng(percent); }

// The classic 32-bit unsigned memory figure: 4 GB or more reports the
// overflow marker 0xFFFFFFFF.
uint32_t ClassicMemoryFigure(uint64_t bytes) {
  return bytes > 0xFFFFFFFFull ? 0xFFFFFFFFu : static_cast<uint32_t>(bytes);
}

}  // namespace

Variant SystemServices::POWER_Update() {
  PowerStatus = platform().readings->ReadPowerStatus();
  if (PowerStatus.battery_life_percent != PercentOf(PowerHistory[1].percent)) {
    for (int i = 4; i >= 1; --i) PowerHistory[i + 1] = PowerHistory[i];
    PowerHistory[1].when = Date{loop().Now()};
    PowerHistory[1].percent = Variant::Byte(PowerStatus.battery_life_percent);
    PowerHistory[1].source = PowerStatus.ac_line_status;
  }
  return Variant();
}

Variant SystemServices::POWER_Percent() { return Variant::Byte(PowerStatus.battery_life_percent); }

int16_t SystemServices::POWER_Source() {
  switch (PowerStatus.ac_line_status) {
    case 0: return 0;
    case 1: return 1;
    default: return 2;
  }
}

Date SystemServices::POWER_DurationPredicted() {
  Date result{0};
  int32_t p[6] = {};
  double when[6] = {};
  for (int k = 1; k <= 5; ++k) {
    p[k] = PercentOf(PowerHistory[k].percent);
    when[k] = LinearFromDate(PowerHistory[k].when.serial);
    if (p[k] == 0) return result;
  }
  double gap = DateFromLinear(
      ((when[1] - when[2]) + (when[2] - when[3]) + (when[3] - when[4]) + (when[4] - when[5])) / 4);
  double step = std::fabs((std::abs(p[1] - p[2]) + std::abs(p[2] - p[3]) + std::abs(p[3] - p[4]) +
                           std::abs(p[4] - p[5])) /
                          4.0);
  if (p[1] < p[2] && p[2] < p[3] && p[3] < p[4] && p[4] < p[5]) {
    double t = (Hour(gap) * 60.0 + Minute(gap)) * 60.0 + Second(gap);
    double n = t * (p[1] / step);
    double rounded = RoundHalfEven(n);
    if (!(rounded >= INT16_MIN && rounded <= INT16_MAX)) Fail(kErrOverflow);
    result = Date{TimeSerial(0, 0, static_cast<int16_t>(rounded))};
  }
  return result;
}

Variant SystemServices::Win_CPUUsage() {
  loop().DoEvents();
  std::optional<int32_t> usage = platform().readings->ReadCpuUsage();
  return Variant::Long(usage ? *usage : -1);
}

Variant SystemServices::Win_Memoria(int32_t sSolicitud) {
  MemoryStatus memory = platform().readings->ReadMemoryStatus();
  uint64_t bytes = 0;
  switch (sSolicitud) {
    case 0: bytes = memory.total_phys; break;
    case 1: bytes = memory.avail_phys; break;
    case 2: bytes = memory.total_virtual; break;
    case 3: bytes = memory.avail_virtual; break;
    default: return Variant::Long(0);
  }
  auto figure = static_cast<int32_t>(ClassicMemoryFigure(bytes));
  return Variant::Long(figure / 1024);
}

}  // namespace varnek
