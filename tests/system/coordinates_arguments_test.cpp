// Coordinates and command-line arguments: the kept constants, the 365
// fallback, the doubled dy, the cut's edges and the stored-back separator.
#include <gtest/gtest.h>

#include <cmath>

#include "varnek/adds/adds.h"
#include "varnek/platform/linux/test_doubles/sim_platform.h"
#include "varnek/runtime/convert.h"
#include "tests/runtime/test_util.h"

namespace varnek {
namespace {

TEST(Coordinates, PointOnEllipseRunsClockwiseFromTheTop) {
  struct Case {
    double degree;
    int32_t x, y;
  } cases[] = {{0, 100, 50},   {90, 150, 100}, {180, 100, 150},
               {270, 50, 100}, {45, 135, 65},  {-90, 50, 100}};
  for (const Case& c : cases) {
    int32_t x = -1, y = -1;
    Coordenadas2D_GradosToXY(100, 100, c.degree, 50, 50, x, y);
    EXPECT_EQ(std::pair(x, y), std::pair(c.x, c.y)) << c.degree;
  }
  // The short pi shows: sin(30 degrees) is 0.50000005 with it, so X rounds
  // to 1 (the double's pi would give 0.49999999999999994 and 0).
  int32_t x = 0, y = 0;
  Coordenadas2D_GradosToXY(0, 0, 30, 1, 0, x, y);
  EXPECT_EQ(std::pair(x, y), std::pair(1, 0));
}

TEST(Coordinates, PlaneAnglesHaveNoQuadrantAndTheDegreeFormFallsBackTo365) {
  EXPECT_NEAR(CDbl(Coordenadas2D_AnguloEntrePuntosGrados(0, 0, 1, 1)), 45.0, 1e-7);
  EXPECT_EQ(CDbl(Coordenadas2D_AnguloEntrePuntosGrados(1, 1, 0, 0)),
            CDbl(Coordenadas2D_AnguloEntrePuntosGrados(0, 0, 1, 1)));
  // The constant is 3.141592654, not the double's pi: 45 is off by its error.
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas2D_AnguloEntrePuntosGrados(0, 0, 1, 1)),
                   std::atan(1.0) * 180 / 3.141592654);
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas2D_AnguloEntrePuntosRadianes(0, 0, -2, 2)), std::atan(-1.0));

  Variant vertical = Coordenadas2D_AnguloEntrePuntosGrados(0, 0, 0, 5);
  EXPECT_EQ(vertical.Type(), VarType::Integer);
  EXPECT_EQ(CLng(vertical), 365);
  const Variant fallbacks[][4] = {
      {0, 0, 0, 0}, {u"a", 0, 1, 1}, {-1.7e308, 0, 1.7e308, 1}};  // the last: dx overflows
  for (const auto& p : fallbacks)
    EXPECT_EQ(CLng(Coordenadas2D_AnguloEntrePuntosGrados(p[0], p[1], p[2], p[3])), 365);

  ExpectFailures({
      {kErrDivisionByZero, [] { Coordenadas2D_AnguloEntrePuntosRadianes(0, 0, 0, 5); }},
      {kErrOverflow, [] { Coordenadas2D_AnguloEntrePuntosRadianes(0, 0, 0, 0); }},
      {kErrTypeMismatch, [] { Coordenadas2D_AnguloEntrePuntosRadianes(u"x", 0, 1, 1); }},
  });
}

TEST(Coordinates, DistancesAndElevationKeepTheirQuirks) {
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas2D_DistanciaEntrePuntos(0, 0, 3, 4)), 5.0);
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas2D_DistanciaEntrePuntos(u"1", 1, 4, 5)), 5.0);  // numeric text
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas3D_DistanciaEntrePuntos(0, 0, 0, 1, 0, 0)), 1.0);
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas3D_DistanciaEntrePuntos(0, 0, 0, 0, 1, 0)), std::sqrt(2.0));
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas3D_DistanciaEntrePuntos(0, 0, 0, 1, 2, 2)), std::sqrt(13.0));

  EXPECT_DOUBLE_EQ(CDbl(Coordenadas3D_AnguloEntrePuntosRadianes(0, 0, 0, 3, 4, 5)), std::atan(1.0));
  EXPECT_DOUBLE_EQ(CDbl(Coordenadas3D_AnguloEntrePuntosGrados(0, 0, 0, 3, 4, -5)),
                   -std::atan(1.0) * 180 / 3.141592654);

  ExpectFailures({
      // Straight above: no plane distance to divide by, and no fallback.
      {kErrDivisionByZero, [] { Coordenadas3D_AnguloEntrePuntosGrados(1, 1, 0, 1, 1, 7); }},
      {kErrOverflow, [] { Coordenadas3D_AnguloEntrePuntosRadianes(1, 1, 1, 1, 1, 1); }},
      // Huge coordinates: the squares leave the Double range.
      {kErrOverflow, [] { Coordenadas2D_DistanciaEntrePuntos(0, 0, 1e200, 0); }},
      {kErrOverflow, [] { Coordenadas3D_DistanciaEntrePuntos(0, 0, 0, 0, 0, 1e160); }},
      {kErrOverflow,
       [] {
         int32_t x, y;
         Coordenadas2D_GradosToXY(2147483600, 0, 90, 100, 0, x, y);
       }},
  });
}

TEST(AppArguments, CutsPicksAndStoresTheDefaultSeparator) {
  struct Row {
    Variant position;
    const char16_t *separator, *source, *want;
  };
  const Row rows[] = {
      {0, u"/", u"x /y", u"x /y"},  // position 0: the whole text
      {1, u"/", u"x /y", u"x"},
      {2, u"/", u"x /y", u"y"},
      {3, u"/", u"x /y", u""},
      {-1, u"/", u"x /y", u""},
      {u"two", u"/", u"x /y", u""},
      {Variant::Null(), u"/", u"x /y", u""},
      {1.5, u"/", u"a/b/c", u"b"},  // 1.5 rounds to 2
      {2, u",", u"a, b ,c", u"b"},
      {3, u",", u"a, b ,c", u"c"},
      {1, u"/", u"/a /b", u""},
      {3, u"/", u"/a /b", u"b"},
      {1, u"/", u"no separator ", u"no separator "},
      {0, u"/", u"  padded / x ", u"  padded / x "},
      // a separator of several units steps over one unit only
      {1, u"--", u"a--b", u"a"},
      {2, u"--", u"a--b", u"-b"},
      {3, u"--", u"a--b--c", u"-c"},
      {3, u"", u"abc", u""},
      {4, u"", u"abc", u""}};  // an empty separator takes the text apart unit by unit
  for (const Row& r : rows) {
    EXPECT_EQ(CStr(AppArgumentsOf(r.position, r.separator, r.source)), r.want)
        << "row " << &r - rows;
  }
  // A separator found past 32767 overflows the 16-bit position.
  Text longer(40000, u'a');
  longer += u"/b";
  EXPECT_EQ(FailureOf([&] { AppArgumentsOf(1, u"/", longer); }), kErrOverflow);

  SimPlatform sim(SimPlatform::kDefaultStart, u"/port 8080 /verbose");
  Adds adds(sim.platform);
  Variant separator;  // Empty
  EXPECT_EQ(CStr(adds.App_Arguments(2, separator)), u"port 8080");
  EXPECT_EQ(CStr(separator), u"/");  // the default is stored back
  EXPECT_EQ(CStr(adds.App_Arguments(3)), u"verbose");
  Variant comma = u",";
  EXPECT_EQ(CStr(adds.App_Arguments(2, comma, Variant(u"p,q"))), u"q");
  // "" as a string is a source of its own; Empty is not.
  EXPECT_EQ(CStr(adds.App_Arguments(1, separator, Variant(Text()))), u"");
  EXPECT_EQ(CStr(adds.App_Arguments(0, separator, Variant())), u"/port 8080 /verbose");
  EXPECT_EQ(FailureOf([&] { adds.App_Arguments(1, separator, Variant::Null()); }),
            kErrInvalidUseOfNull);
}

}  // namespace
}  // namespace varnek
