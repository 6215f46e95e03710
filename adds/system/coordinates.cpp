// The coordinate routines, with the classic runtime's floating-point checks:
// every operation that leaves the Double range fails with 6.
#include "varnek/adds/system/coordinates.h"

#include <cmath>
#include <cstdint>

#include "varnek/runtime/convert.h"
#include "varnek/runtime/failure.h"

namespace varnek {

namespace {

constexpr double kPiForRadians = 3.141593;
constexpr double kPiForDegrees = 3.141592654;

double Checked(double value) {
  if (!std::isfinite(value)) Fail(kErrOverflow);
  return value;
}

double Difference(const Variant& end, const Variant& start) {
  return Checked(CDbl(end) - CDbl(start));
}
double Square(double value) { return Checked(value * value); }
double Divide(double dividend, double divisor) {
  if (divisor == 0) Fail(dividend == 0 ? kErrOverflow : kErrDivisionByZero);
  return Checked(dividend / divisor);
}
// The plane angle in radians of the line from (x1, y1) to (x2, y2).
double PlaneAngle(const Variant& x1, const Variant& y1, const Variant& x2, const Variant& y2) {
  return std::atan(Divide(Difference(y2, y1), Difference(x2, x1)));
}
// Rounds half to even into 32 bits; outside fails with 6.
int32_t RoundToLong(double value) {
  double rounded = RoundHalfEven(value);
  if (rounded < INT32_MIN || rounded > INT32_MAX) Fail(kErrOverflow);
  return static_cast<int32_t>(rounded);
}
double Elevation(const Variant& x1, const Variant& y1, const Variant& z1, const Variant& x2,
                 const Variant& y2, const Variant& z2) {
  double dx = Difference(x2, x1), dy = Difference(y2, y1), dz = Difference(z2, z1);
  double h = std::sqrt(Checked(Square(dx) + Square(dy)));
  return std::atan(Divide(dz, h));
}

}  // namespace

void Coordenadas2D_GradosToXY(int32_t CenterX, int32_t CenterY, double degree, int32_t radiusX,
                              int32_t radiusY, int32_t& X, int32_t& Y) {
  constexpr double k = kPiForRadians / 180;
  double x = Checked(CenterX - Checked(radiusX * std::sin(Checked(-degree * k))));
  double y = Checked(CenterY - Checked(radiusY * std::sin(Checked((degree + 90) * k))));
  X = RoundToLong(x);
  Y = RoundToLong(y);
}

Variant Coordenadas2D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosEndX, const Variant& PosEndY) {
  return PlaneAngle(PosIniX, PosIniY, PosEndX, PosEndY);
}

Variant Coordenadas2D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                              const Variant& PosEndX, const Variant& PosEndY) {
  Variant result;
  bool failed = !Resume(
      [&] { result = PlaneAngle(PosIniX, PosIniY, PosEndX, PosEndY) * 180 / kPiForDegrees; });
  if (failed) result = 365;
  return result;
}

Variant Coordenadas2D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                           const Variant& PosEndX, const Variant& PosEndY) {
  double dx = Difference(PosEndX, PosIniX), dy = Difference(PosEndY, PosIniY);
  return std::sqrt(Checked(Square(dx) + Square(dy)));
}

Variant Coordenadas3D_AnguloEntrePuntosRadianes(const Variant& PosIniX, const Variant& PosIniY,
                                                const Variant& PosIniZ, const Variant& PosEndX,
                                                const Variant& PosEndY, const Variant& PosEndZ) {
  return Elevation(PosIniX, PosIniY, PosIniZ, PosEndX, PosEndY, PosEndZ);
}

Variant Coordenadas3D_AnguloEntrePuntosGrados(const Variant& PosIniX, const Variant& PosIniY,
                                              const Variant& PosIniZ, const Variant& PosEndX,
                                              const Variant& PosEndY, const Variant& PosEndZ) {
  return Elevation(PosIniX, PosIniY, PosIniZ, PosEndX, PosEndY, PosEndZ) * 180 / kPiForDegrees;
}

Variant Coordenadas3D_DistanciaEntrePuntos(const Variant& PosIniX, const Variant& PosIniY,
                                           const Variant& PosIniZ, const Variant& PosEndX,
                                           const Variant& PosEndY, const Variant& PosEndZ) {
  double dx = Difference(PosEndX, PosIniX), dy = Difference(PosEndY, PosIniY);
  double dz = Difference(PosEndZ, PosIniZ);
  double a = std::sqrt(Checked(Square(dy) + Square(dz)));
  double b = std::sqrt(Checked(Square(dx) + Square(dy)));
  return std::sqrt(Checked(Square(a) + Square(b)));
}

}  // namespace varnek
