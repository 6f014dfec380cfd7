#include <gtest/gtest.h>

#include <cmath>

#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

using k5x::State;

void expect_near3(const double* expected, const double* actual, double tol = 1e-9) {
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(expected[k], actual[k], tol) << "component " << k;
}

struct Case {
  const char* machine;
  int rtcp;
};

class RoundTrip : public ::testing::TestWithParam<Case> {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text(GetParam().machine)));
    k5x::set_rtcp(st, GetParam().rtcp);
  }
  State st;
};

TEST_P(RoundTrip, PointToMachineAndBack) {
  const double cases[][6] = {{12.5, -40.0, 7.0, 0.0, 0.0, 0.0},
                             {-80.0, 33.0, 120.0, 20.0, -35.0, 75.0},
                             {5.0, 5.0, -60.0, -15.0, 60.0, -140.0}};
  for (const auto& c : cases) {
    double xyz[3] = {0.0, 0.0, 0.0}, back[3];
    k5x::pts2xyz(st, c, c + 3, xyz);
    EXPECT_EQ(0, k5x::xyz2pts(st, xyz, c + 3, back));
    expect_near3(c, back, 1e-8);
  }
}

TEST_P(RoundTrip, LocalAndMachineAreInverse) {
  const double cases[][6] = {{0.0, 0.0, 0.0, 0.0, 0.0, 0.0},
                             {30.0, -12.0, 80.0, 25.0, -40.0, 110.0},
                             {-250.0, 90.0, -15.0, -20.0, 70.0, -30.0}};
  for (const auto& m : cases) {
    double l[6], back[6];
    EXPECT_EQ(0, k5x::m2l(st, m, l));
    EXPECT_EQ(0, k5x::l2m(st, l, back));
    for (int k = 0; k < 6; ++k) EXPECT_NEAR(m[k], back[k], 1e-8) << "value " << k;
  }
}

TEST_P(RoundTrip, SolvedDirectionComesBackScaledByToolLength) {
  st.machine.outil = 40.0;
  const double dirs[][3] = {{0.0, 0.0, 1.0}, {1.0, 1.0, 2.0}, {0.3, -0.5, 0.8}, {-0.2, 0.1, -1.0}};
  int solved = 0;
  for (const auto& d : dirs) {
    const double prev[3] = {0.0, 0.0, 0.0};
    double abc[3];
    if (k5x::ijk2abc(st, d, prev, abc) == 1) continue;
    ++solved;
    const double xyz[3] = {15.0, -25.0, 35.0};
    double v[3];
    k5x::xyz2ijk(st, xyz, abc, v);
    const double len = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    const double expected[3] = {40.0 * d[0] / len, 40.0 * d[1] / len, 40.0 * d[2] / len};
    expect_near3(expected, v, 1e-6);
  }
  EXPECT_GE(solved, 2);
}

INSTANTIATE_TEST_SUITE_P(Machines, RoundTrip,
                         ::testing::Values(Case{"DemoHead", 0}, Case{"DemoHead", 1},
                                           Case{"DemoHead", 2}, Case{"Trunnion", 0},
                                           Case{"Trunnion", 1}, Case{"Trunnion", 2},
                                           Case{"HeadTable", 0}, Case{"HeadTable", 1},
                                           Case{"HeadTable", 2}));

class DemoHead : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("DemoHead")));
  }
  State st;
};

// B pivots at z 150 about +Y; the tool point 150 below it swings to (-150, 0, 150) at B 90. The
// workpiece sits at the frame origin after the load's identity placement.
TEST_F(DemoHead, HeadRotationMovesTipAndDirection) {
  const double xyz[3] = {10.0, 20.0, 30.0}, abc[3] = {0.0, 90.0, 0.0};
  double p[3], v[3];
  k5x::xyz2pts(st, xyz, abc, p);
  const double tip[3] = {-140.0, 20.0, 180.0};
  expect_near3(tip, p);
  k5x::xyz2ijk(st, xyz, abc, v);  // tool length 0
  const double zero[3] = {0.0, 0.0, 0.0};
  expect_near3(zero, v);
  st.machine.outil = 10.0;
  k5x::xyz2ijk(st, xyz, abc, v);  // the tool's -Z at rest turned to -X, length 10
  const double dir[3] = {-10.0, 0.0, 0.0};
  expect_near3(dir, v);
}

TEST_F(DemoHead, PointAtRestIsMachineValueAndTravelIsTested) {
  const double abc[3] = {0.0, 0.0, 0.0};
  const double inside[3] = {100.0, -20.0, 5.0}, above[3] = {900.0, 0.0, 0.0},
               below[3] = {-900.0, 0.0, 0.0};
  double xyz[3];
  EXPECT_EQ(0, k5x::pts2xyz(st, inside, abc, xyz));
  expect_near3(inside, xyz);
  EXPECT_EQ(1, k5x::pts2xyz(st, above, abc, xyz));
  EXPECT_EQ(-1, k5x::pts2xyz(st, below, abc, xyz));
}

// Head offset at B 90: tip (-150, 0, 150) minus the C pivot (0, 0, 300). m2l and machine2tool
// apply it under opposite rtcp settings.
TEST_F(DemoHead, HeadOffsetAsymmetryBetweenM2lAndMachine2tool) {
  const double m[6] = {0.0, 0.0, 0.0, 0.0, 90.0, 0.0};
  const double offset[6] = {-150.0, 0.0, -150.0, 0.0, 90.0, 0.0};
  const double tip[6] = {-150.0, 0.0, 150.0, 0.0, 90.0, 0.0};
  const struct {
    int rtcp;
    const double* m2l;
    const double* tool;
  } rows[] = {{0, m, offset}, {1, tip, offset}, {2, offset, m}};
  for (const auto& r : rows) {
    k5x::set_rtcp(st, r.rtcp);
    double l[6], t[6];
    k5x::m2l(st, m, l);
    k5x::machine2tool(st, m, t);
    for (int k = 0; k < 6; ++k) {
      EXPECT_NEAR(r.m2l[k], l[k], 1e-9) << "rtcp " << r.rtcp << " m2l " << k;
      EXPECT_NEAR(r.tool[k], t[k], 1e-9) << "rtcp " << r.rtcp << " machine2tool " << k;
    }
  }
}

TEST_F(DemoHead, SetPieceTakesZFromElementTwelve) {
  // Rz(90) at (5, 6, 7); element 11 holds a decoy that must not be read.
  const double t[16] = {0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 1, 1000, 7, 0, 0, 1};
  ASSERT_EQ(0, k5x::set_piece(st, t));
  const k5x::AxisRecord& w = st.machine.records[st.machine.workpiece];
  const double pos[3] = {5.0, 6.0, 7.0};
  expect_near3(pos, w.origin);
  expect_near3(pos, w.point);
  const double xyz[3] = {15.0, 26.0, 37.0}, abc[3] = {0.0, 0.0, 0.0};
  double p[3];
  k5x::xyz2pts(st, xyz, abc, p);  // Rz(-90) * (10, 20, 30)
  const double expected[3] = {20.0, -10.0, 30.0};
  expect_near3(expected, p);
}

// Trunnion: Z offset 250 from the geometry, tool length 100, so the tip is at (x, y, z - 100);
// table axes turn the workpiece the opposite way, so the tip seen from it turns positively.
TEST(TableMachine, TipInRotatedWorkpiece) {
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("Trunnion")));
  const double xyz[3] = {10.0, 20.0, 250.0};
  const double c90[3] = {0.0, 0.0, 90.0}, a90[3] = {90.0, 0.0, 0.0};
  double p[3];
  k5x::xyz2pts(st, xyz, c90, p);
  const double about_z[3] = {-20.0, 10.0, 150.0};
  expect_near3(about_z, p);
  k5x::xyz2pts(st, xyz, a90, p);
  const double about_x[3] = {10.0, -150.0, 20.0};
  expect_near3(about_x, p);
}

// Only X and Z exist: Y keeps whatever the caller had there.
TEST(PointToMachine, UnboundLetterIsNotWritten) {
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st,
                                    "nommachine = XZ\nbati = Z, Frame\n"
                                    "axe = AXE_X, X, X\naxe = AXE_Z, Z, Z\noutil = Z, 0, 0, 0\n"
                                    "lien = AXE_BATI\npiece = X, Y, 0, 0, 0\n"
                                    "position = 0, 0, 0, 0, 0, 0\n"));
  const double p[3] = {4.0, 0.0, -9.0}, abc[3] = {0.0, 0.0, 0.0};
  double xyz[3] = {0.0, 123.0, 0.0};
  EXPECT_EQ(0, k5x::pts2xyz(st, p, abc, xyz));
  const double expected[3] = {4.0, 123.0, -9.0};
  expect_near3(expected, xyz);
}

// Rtcp 1 rebuilds the linear values as F^-1 ((w - pivot) + W l) - F^-1 (tip - pivot), grouped
// as written: with w.x 0.1, pivot.x 0.3 and l.x 0.2 the rounding of that grouping shows.
TEST(LocalToMachine, FullCompensationKeepsTheFormulaGrouping) {
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st,
                                    "nommachine = G\nbati = Z, Frame\naxe = AXE_X, X, X\n"
                                    "axe = AXE_Y, Y, Y\naxe = AXE_Z, Z, Z\n"
                                    "rotation = AXE_B, Y, 0, 1, 0.3, 0, 120, B\n"
                                    "outil = Z, 0.3, 0, 0\nlien = AXE_BATI\n"
                                    "piece = X, Y, 0, 0, 0\nposition = 0, 0, 0, 0, 0, 0\n"));
  const double t[16] = {1, 0, 0, 0.1, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  ASSERT_EQ(0, k5x::set_piece(st, t));
  k5x::set_rtcp(st, 1);
  const double l[6] = {0.2, 0.0, 0.0, 0.0, 0.0, 0.0};
  double m[6];
  EXPECT_EQ(0, k5x::l2m(st, l, m));
  const double w = 0.1, pivot = 0.3, tip = 0.3;
  EXPECT_EQ(((w - pivot) + l[0]) - (tip - pivot), m[0]);
}

TEST(SetPiece, MissingWorkpieceOrLink) {
  const double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  State empty;
  EXPECT_EQ(1, k5x::set_piece(empty, identity));
  // DemoHead's workpiece hangs on the frame, whose first link goes to X; without the second
  // link no link leads to a record without letter.
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("DemoHead")));
  k5x::AxisRecord& parent = st.machine.records[st.machine.records[st.machine.workpiece].previous];
  ASSERT_EQ(2, parent.nlien);
  parent.nlien = 1;
  EXPECT_EQ(2, k5x::set_piece(st, identity));
}

// HeadTable: B pivot 120 above the tool point, tool length 80, so the tip is 200 from the B axis
// and, at X 100, 100 from the C axis.
class Subdivision : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("HeadTable")));
    k5x::set_rtcp(st, 0);
  }
  State st;
  double* table = nullptr;
};

TEST_F(Subdivision, EqualEndpointsGiveEndRows) {
  const double p[6] = {10.0, 20.0, 30.0, 0.0, 45.0, 90.0};
  for (int given : {0, 3}) {
    int n = given;
    EXPECT_EQ(0, k5x::xyzabc(st, p, p, &n, &table));
    EXPECT_EQ(given < 1 ? 1 : given, n);
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < 6; ++k) EXPECT_EQ(p[k], table[6 * i + k]);
  }
}

TEST_F(Subdivision, StepCountFollowsRadiusAndTolerance) {
  // C by 10 deg at radius 100, tolerance 0.05: 2 alpha = 0.06325 rad, 0.17453 / 0.06325 = 2.76.
  const double s[6] = {100.0, 0.0, 0.0, 0.0, 0.0, 0.0}, e[6] = {100.0, 0.0, 0.0, 0.0, 0.0, 10.0};
  int n = 1;
  EXPECT_EQ(0, k5x::xyzabc(st, s, e, &n, &table));
  EXPECT_EQ(2, n);
  EXPECT_DOUBLE_EQ(5.0, table[5]);
  n = 5;  // the caller's count is a minimum
  k5x::xyzabc(st, s, e, &n, &table);
  EXPECT_EQ(5, n);
  // B by 10 deg at radius 200: 2 alpha = 0.04472 rad, 3.90 steps.
  const double s2[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, e2[6] = {0.0, 0.0, 0.0, 0.0, 10.0, 0.0};
  n = 1;
  k5x::xyzabc(st, s2, e2, &n, &table);
  EXPECT_EQ(3, n);
}

TEST_F(Subdivision, RadiusIsTheLargerOfStartAndEnd) {
  // C by 10 deg with the tip 100 from the C axis at one end only: 2 steps either way round.
  const double near[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, far[6] = {100.0, 0.0, 0.0, 0.0, 0.0, 10.0};
  int n = 1;
  k5x::xyzabc(st, near, far, &n, &table);
  EXPECT_EQ(2, n);
  n = 1;
  k5x::xyzabc(st, far, near, &n, &table);
  EXPECT_EQ(2, n);
}

// On DemoHead every head axis is measured from the line through the head's top (C pivot at z
// 300), not through its own pivot: B by 10 deg with the tip at the origin has radius 300.
// alpha = acos(299.95 / 300) = 0.018258 rad, 0.174533 / 0.036516 = 4.78 (radius 150: 3.38).
TEST(SubdivisionHead, HeadAxesMeasuredFromTheToolHead) {
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("DemoHead")));
  k5x::set_rtcp(st, 0);
  const double s[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, e[6] = {0.0, 0.0, 0.0, 0.0, 10.0, 0.0};
  int n = 1;
  double* table = nullptr;
  EXPECT_EQ(0, k5x::xyzabc(st, s, e, &n, &table));
  EXPECT_EQ(4, n);
}

TEST_F(Subdivision, ClampedAtFiveHundredWithCodeSeven) {
  // C by 3000 deg at radius 100 needs 827 steps; B ends beyond its 95 deg limit.
  const double s[6] = {100.0, 0.0, 0.0, 0.0, 0.0, 0.0}, e[6] = {100.0, 0.0, 0.0, 0.0, 100.0, 3000.0};
  int n = 1;
  EXPECT_EQ(7, k5x::xyzabc(st, s, e, &n, &table));
  EXPECT_EQ(500, n);
  EXPECT_NEAR(3000.0, table[6 * 499 + 5], 1e-9);
  n = 800;
  EXPECT_EQ(7, k5x::xyzabc(st, s, s, &n, &table));
  EXPECT_EQ(500, n);
}

TEST_F(Subdivision, TableSharedWithInterpolationTable) {
  const double s[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0}, e[6] = {60.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  int n = 10;
  k5x::interpolationtable(st, s, e, &n, &table);
  double* first = table;
  n = 4;
  k5x::xyzabc(st, s, e, &n, &table);
  EXPECT_EQ(first, table);  // big enough: reused, not shrunk
  EXPECT_EQ(10, st.table_capacity);
  EXPECT_DOUBLE_EQ(15.0, table[0]);
  EXPECT_DOUBLE_EQ(36.0, table[6 * 5]);  // row 5 of the earlier call is left as it was
  n = 200;
  k5x::xyzabc(st, s, e, &n, &table);
  EXPECT_EQ(200, st.table_capacity);
  double* grown = table;
  n = 3;
  k5x::interpolationtable(st, s, e, &n, &table);
  EXPECT_EQ(grown, table);
  EXPECT_DOUBLE_EQ(20.0, table[0]);
}

}  // namespace
