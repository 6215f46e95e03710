// Plane and space coordinates: a point on an ellipse from an angle, and the
// angle and distance between two points. Stateless; they stand alone and Adds
// offers them under the same names.
//
// Arguments are numbers in Variants (a numeric text converts; anything else
// fails with 13); results are Doubles. Two values of pi are kept on purpose:
// 3.141593 where degrees become radians, 3.141592654 where radians become
// degrees. Arithmetic that leaves the range of a Double (a huge coordinate
// squared) fails with 6, as the classic runtime's floating-point overflow
// does; a division by zero fails with 11, and 0 / 0 with 6.
//
//   int32_t x, y;
//   Coordenadas2D_GradosToXY(100, 100, 90, 50, 50, x, y);   // (150, 100)
#pragma once

#include <cstdint>

#include "varnek/runtime/variant.h"

namespace varnek {

// X = CenterX - radiusX * sin(-degree * k), Y = CenterY - radiusY *
// sin((degree + 90) * k), k = 3.141593 / 180, each rounded half to even into
// 32 bits (outside fails with 6). Degree 0 is the top of the ellipse on a
// screen whose Y grows downwards; angles run clockwise. Open.
void Coordenadas2D_GradosToXY(int32_t CenterX, int32_t CenterY, double degree, int32_t radiusX,
                              int32_t radiusY, int32_t& X, int32_t& Y);
// atan(dy / dx): no quadrant, so opposite directions give the same angle.
// dx = 0 fails (11, or 6 for 0 / 0). Open.
Variant Coordenadas2D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosEndX, const Variant& PosEndY);
// The same angle times 180 / 3.141592654; any failure (dx = 0 among them)
// gives the Integer 365, a value no angle takes. Resume.
Variant Coordenadas2D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                              const Variant& PosEndX, const Variant& PosEndY);
// sqrt(dx^2 + dy^2). Open.
Variant Coordenadas2D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                           const Variant& PosEndX, const Variant& PosEndY);
// The elevation atan(dz / sqrt(dx^2 + dy^2)); a point straight above or
// below (or the same point) fails like a division by zero. Open.
Variant Coordenadas3D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosIniZ, const Variant& PosEndX,
                                                const Variant& PosEndY, const Variant& PosEndZ);
// The elevation in degrees (times 180 / 3.141592654), with no fallback value
// unlike the plane one. Open.
Variant Coordenadas3D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                              const Variant& PosIniZ, const Variant& PosEndX,
                                              const Variant& PosEndY, const Variant& PosEndZ);
// sqrt(a^2 + b^2) with a = sqrt(dy^2 + dz^2) and b = sqrt(dx^2 + dy^2): dy
// counts twice, so the result is the true distance only when dy is 0. Open.
Variant Coordenadas3D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                           const Variant& PosIniZ, const Variant& PosEndX,
                                           const Variant& PosEndY, const Variant& PosEndZ);

}  // namespace varnek
