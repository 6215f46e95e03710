// System services of Adds: battery prediction and readings of the machine's
// load and memory, plane and space coordinates, command-line arguments.
//
// Linux sources (through the platform): the power supply class in sysfs,
// sysinfo, /proc/stat, /proc/self/cmdline. See platform/system_readings.h.
//
//   adds.POWER_Update();                        // call from time to time
//   adds.POWER_Percent();                       // 82
//   adds.App_Arguments(2, sep, Variant(u"x /y"));  // "y"
#pragma once

#include <cstdint>

#include "varnek/adds/adds_core.h"
#include "varnek/adds/system/app_arguments.h"
#include "varnek/adds/system/coordinates.h"
#include "varnek/platform/system_readings.h"
#include "varnek/runtime/collection.h"
#include "varnek/runtime/variant.h"

namespace varnek {

class SystemServices : public virtual AddsCore {
 public:
  explicit SystemServices(Platform& platform) { Attach(platform); }

  // ---- Battery prediction and readings (power_readings.cpp) -----------------

  // One change of the battery level, newest first in the history.
  struct PowerRecord {
    Variant percent;  // Byte; Empty (reading 0) until the record is filled
    int32_t source = 0;
    Date when;
  };

  // The last power reading of POWER_Update; zero before the first.
  SystemPowerStatus PowerStatus;
  // Positions 0..5; 0 is never used, 1 is the newest change, 5 the oldest.
  PowerRecord PowerHistory[6];

  // Reads the power status. When the level differs from the newest
  // record's (an empty record reads 0, so a first reading of 0 records
  // nothing), the history shifts down one (the oldest is lost) and position
  // 1 takes now, the level and the line status. Open; returns Empty.
  Variant POWER_Update();
  // The level of the last POWER_Update as a Byte: 0..100, 255 when the
  // machine has no battery or tells no level. 0 before the first. Open.
  Variant POWER_Percent();
  // 0 off line, 1 on line, 2 for anything else (255: unknown). Open.
  int16_t POWER_Source();
  // The time left, as a time of day, from the last five changes: when each
  // of the last four fell, n = t * (P1 / s) seconds, t the hours, minutes
  // and seconds of the mean gap (whole days lost) and s the mean step. n is
  // rounded half to even into 16 bits, so the longest prediction is
  // 09:06:07 and a larger n fails with 6 towards the caller. 00:00:00 while
  // a level of the five is 0 or when the level did not fall each time. Open.
  Date POWER_DurationPredicted();
  // Pumps the host loop once, then the processor load in percent since the
  // previous reading (since boot for the first); -1 when the machine has no
  // load counters (no /proc/stat). May pump. Open.
  Variant Win_CPUUsage();
  // Memory in units of 1024 bytes: 0 total physical, 1 available physical,
  // 2 total virtual (ram and swap), 3 available virtual; any other 0. Each
  // amount is first held as the classic 32-bit unsigned figure, which
  // reports an amount of 4 GB or more as 0xFFFFFFFF, then read as signed
  // and divided by 1024 truncating towards zero: 2 GB up to 4 GB reads
  // negative, and 4 GB or more reads 0. Open.
  Variant Win_Memoria(int32_t sSolicitud);

  // ---- Coordinates (coordinates.h) ------------------------------------------

  void Coordenadas2D_GradosToXY(int32_t CenterX, int32_t CenterY, double degree, int32_t radiusX,
                                int32_t radiusY, int32_t& X, int32_t& Y) {
    varnek::Coordenadas2D_GradosToXY(CenterX, CenterY, degree, radiusX, radiusY, X, Y);
  }
  Variant Coordenadas2D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                  const Variant& PosEndX, const Variant& PosEndY) {
    return varnek::Coordenadas2D_AnguloEntrePuntosRadianes(PosIniX, PosIniY, PosEndX, PosEndY);
  }
  Variant Coordenadas2D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosEndX, const Variant& PosEndY) {
    return varnek::Coordenadas2D_AnguloEntrePuntosGrados(PosIniX, PosIniY, PosEndX, PosEndY);
  }
  Variant Coordenadas2D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                             const Variant& PosEndX, const Variant& PosEndY) {
    return varnek::Coordenadas2D_DistanciaEntrePuntos(PosIniX, PosIniY, PosEndX, PosEndY);
  }
  Variant Coordenadas3D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                  const Variant& PosIniZ, const Variant& PosEndX,
                                                  const Variant& PosEndY, const Variant& PosEndZ) {
    return varnek::Coordenadas3D_AnguloEntrePuntosRadianes(PosIniX, PosIniY, PosIniZ, PosEndX,
                                                           PosEndY, PosEndZ);
  }
  Variant Coordenadas3D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosIniZ, const Variant& PosEndX,
                                                const Variant& PosEndY, const Variant& PosEndZ) {
    return varnek::Coordenadas3D_AnguloEntrePuntosGrados(PosIniX, PosIniY, PosIniZ, PosEndX,
                                                         PosEndY, PosEndZ);
  }
  Variant Coordenadas3D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                             const Variant& PosIniZ, const Variant& PosEndX,
                                             const Variant& PosEndY, const Variant& PosEndZ) {
    return varnek::Coordenadas3D_DistanciaEntrePuntos(PosIniX, PosIniY, PosIniZ, PosEndX, PosEndY,
                                                      PosEndZ);
  }

  // ---- Command-line arguments (app_arguments.cpp) ---------------------------

  // The argument at Position (see app_arguments.h for the cut). A missing or
  // Empty Separator becomes "/" and is stored back. SourceString, when
  // present and not Empty (a "" string counts), is the text; otherwise the
  // process's arguments after the program name, joined by blanks. Open while
  // cutting (a Null source fails with 94), resume for the pick: "".
  Variant App_Arguments(const Variant& Position);
  Variant App_Arguments(const Variant& Position, Variant& Separator,
                        const Variant& SourceString = Variant::Missing());

 protected:
  // For a class that joins this one with others (see adds_core.h).
  SystemServices() = default;
};

}  // namespace varnek
