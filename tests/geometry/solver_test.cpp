#include "geometry/solver.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "geometry/chain.h"
#include "geometry/kernel.h"
#include "machine/machine_model.h"
#include "test_machines.h"

namespace {

using k5x::State;

constexpr double kDeg = 0.017453292519943295;

// Tool direction in workpiece coordinates at the rotary values abc, read from the evaluated chain:
// W^-1 times the tool frame's third column.
void tool_dir(State& st, const double abc[3], double dir[3]) {
  const double q[6] = {0.0, 0.0, 0.0, abc[0], abc[1], abc[2]};
  k5x::machine_eval(st, q);
  const k5x::AxisRecord& tool = st.machine.records[st.machine.tool];
  const k5x::AxisRecord& piece = st.machine.records[st.machine.workpiece];
  double winv[9];
  ASSERT_EQ(k5x::m3inverse(piece.frame, winv, 1e-12), 0);
  const double z[3] = {tool.frame[2], tool.frame[5], tool.frame[8]};
  k5x::m3apply(winv, z, dir);
}

double angle_between(const double a[3], const double b[3]) {
  double c[3];
  k5x::vcross(a, b, c);
  return std::atan2(k5x::vnorm(c), k5x::vdot(a, b)) / kDeg;
}

void load(State& st, const std::string& text) { ASSERT_EQ(k5x_test::load_text(st, text), 0); }

// ---------------------------------------------------------------------------------------------
// Both solutions reproduce the wanted direction on the three machine types.

struct Sweep {
  const char* machine;
  int f1, f2;           // angle indices of the first and second free axis
  double f2_min, f2_max;
};

class SolverSweep : public ::testing::TestWithParam<Sweep> {};

TEST_P(SolverSweep, BothSolutionsReproduceTheDirection) {
  const Sweep& p = GetParam();
  State st;
  load(st, k5x_test::machine_text(p.machine));
  st.machine.outil = 75.0;  // the direction must not depend on the tool length
  const double seeds[][3] = {{0.0, 0.0, 0.0}, {5.0, -10.0, 20.0}, {-40.0, 70.0, -300.0}};
  for (int mode = 0; mode <= 2; ++mode) {
    st.machine.mode = mode;
    for (const auto& prev : seeds) {
      for (double a1 = -165.0; a1 <= 180.0; a1 += 23.0) {
        for (double a2 = p.f2_min; a2 <= p.f2_max; a2 += 17.0) {
          double abc[3] = {0.0, 0.0, 0.0};
          abc[p.f1] = a1;
          abc[p.f2] = a2;
          double want[3];
          tool_dir(st, abc, want);
          double out[3];
          const int rc = k5x::ijk2abc(st, want, prev, out);
          SCOPED_TRACE(testing::Message() << p.machine << " mode " << mode << " at " << a1 << ", "
                                          << a2 << " from " << prev[p.f1] << ", " << prev[p.f2]);
          ASSERT_NE(rc, 1);
          const double s1[3] = {st.sol1[0], st.sol1[1], st.sol1[2]};
          const double s2[3] = {st.sol2[0], st.sol2[1], st.sol2[2]};
          for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], s1[i]);
          double got[3];
          tool_dir(st, s1, got);
          EXPECT_LT(angle_between(got, want), 1e-6);
          tool_dir(st, s2, got);
          EXPECT_LT(angle_between(got, want), 1e-6);
          // Both stay within half a turn of the previous values.
          for (int i = 0; i < 3; ++i) {
            EXPECT_LE(std::fabs(s1[i] - prev[i]), 180.0 + 1e-9);
            EXPECT_LE(std::fabs(s2[i] - prev[i]), 180.0 + 1e-9);
          }
          if (mode == 0) {
            double e1 = 0.0, e2 = 0.0;
            for (int i = 0; i < 3; ++i) {
              e1 = std::fmax(e1, std::fabs(s1[i] - prev[i]));
              e2 = std::fmax(e2, std::fabs(s2[i] - prev[i]));
            }
            EXPECT_LE(e1, e2 + 1e-6);
          }
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Machines, SolverSweep,
                         ::testing::Values(Sweep{"DemoHead", 2, 1, -100.0, 100.0},
                                           Sweep{"Trunnion", 2, 0, -115.0, 25.0},
                                           Sweep{"HeadTable", 2, 1, -90.0, 90.0}),
                         [](const ::testing::TestParamInfo<Sweep>& i) {
                           return std::string(i.param.machine);
                         });

// ---------------------------------------------------------------------------------------------
// DemoHead: C then B on the head, tool along -Z, B limited to +-110.

class DemoHead : public ::testing::Test {
 protected:
  void SetUp() override { load(st, k5x_test::machine_text("DemoHead")); }
  void dir_at(double b, double c, double d[3]) {
    const double abc[3] = {0.0, b, c};
    tool_dir(st, abc, d);
  }
  State st;
};

// At B = 30, C = 0 the other solution is B = -30, C = 180. Mode 0 minimises the largest change,
// mode 1 the change of C, mode 2 keeps the solution whose B is nearer (even if C then moves more).
// With B = +-30 equally far, the first is +alpha + beta = 150 + 180, i.e. -30.
TEST_F(DemoHead, ChoiceBetweenTheTwoSolutions) {
  double want[3];
  dir_at(30.0, 0.0, want);
  struct Case {
    int mode;
    double prev_b, prev_c, b, c;
  } cases[] = {{0, -100.0, 80.0, -30.0, 180.0}, {1, -100.0, 80.0, 30.0, 0.0},
               {2, -100.0, 80.0, -30.0, 180.0}, {2, -5.0, 10.0, -30.0, 180.0},
               {0, -5.0, 10.0, 30.0, 0.0},      {2, 0.0, 0.0, -30.0, 180.0},
               // Nearer by less than epsilon is no reason to swap: B (step 7) and the whole
               // solutions (choice) keep their first place.
               {2, 2e-7, 0.0, -30.0, 180.0},    {1, 0.0, 90.0 - 2e-7, -30.0, 180.0},
               {0, 0.0, 90.0 - 2e-7, -30.0, 180.0}};
  for (const Case& c : cases) {
    st.machine.mode = c.mode;
    const double prev[3] = {0.0, c.prev_b, c.prev_c};
    double out[3];
    EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 0);
    SCOPED_TRACE(testing::Message() << "mode " << c.mode << " from " << c.prev_b);
    EXPECT_NEAR(out[1], c.b, 1e-9);
    EXPECT_NEAR(out[2], c.c, 1e-9);
    EXPECT_NEAR(st.sol2[1], -c.b, 1e-9);
  }
  // A negative direction flag on B puts +30 first in that tie.
  State flipped;
  std::string text = k5x_test::machine_text("DemoHead");
  const std::string from = "rotation = AXE_B, Y, 0, 1,";
  text.replace(text.find(from), from.size(), "rotation = AXE_B, Y, 0, -1,");
  load(flipped, text);
  flipped.machine.mode = 2;
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3];
  k5x::ijk2abc(flipped, want, prev, out);
  EXPECT_NEAR(out[1], 30.0, 1e-9);
}

// Tool turned straight up needs B = 180: the candidate lies exactly half a turn from the previous
// B and is not wrapped, on either side; it is out of B's travel.
TEST_F(DemoHead, SecondAxisExactlyHalfATurnAwayStays) {
  const double up[3] = {0.0, 0.0, 1.0};
  for (double prev_b : {0.0, 360.0}) {
    const double prev[3] = {0.0, prev_b, 12.0};
    double out[3];
    EXPECT_EQ(k5x::ijk2abc(st, up, prev, out), 5) << prev_b;
    EXPECT_EQ(out[1], 180.0) << prev_b;
    EXPECT_EQ(out[2], 12.0);  // tool along C afterwards: C keeps its value
  }
}

TEST_F(DemoHead, DirectionAlongTheFirstFreeAxisKeepsItsValue) {
  const double down[3] = {0.0, 0.0, -3.0};  // need not be unit
  const double prev[3] = {0.0, 4.0, 37.0};
  double out[3];
  EXPECT_EQ(k5x::ijk2abc(st, down, prev, out), 0);
  EXPECT_NEAR(out[1], 0.0, 1e-12);
  EXPECT_EQ(out[2], 37.0);
}

TEST_F(DemoHead, LockedAxesAreHeldAtThePreviousValue) {
  double want[3];
  dir_at(40.0, 30.0, want);
  double out[3];
  // C locked at 30: only B moves.
  st.machine.records[st.machine.letter[5]].fixe = 1;
  const double prev_c[3] = {0.0, -10.0, 30.0};
  EXPECT_EQ(k5x::ijk2abc(st, want, prev_c, out), 0);
  EXPECT_NEAR(out[1], 40.0, 1e-9);
  EXPECT_EQ(out[2], 30.0);
  EXPECT_EQ(st.machine.records[st.machine.letter[5]].fixe, 1);  // the solver works on a copy
  // B locked at 40 as well: the previous values are the answer, and reach decides.
  st.machine.records[st.machine.letter[4]].fixe = 1;
  const double prev_bc[3] = {0.0, 40.0, 30.0};
  EXPECT_EQ(k5x::ijk2abc(st, want, prev_bc, out), 0);
  EXPECT_EQ(out[1], 40.0);
  EXPECT_EQ(out[2], 30.0);
  const double other[3] = {0.0, 40.0, 31.0};
  EXPECT_EQ(k5x::ijk2abc(st, want, other, out), 1);
  // Only C locked, now at 120: B alone cannot reach the direction.
  st.machine.records[st.machine.letter[4]].fixe = 0;
  const double prev_far[3] = {0.0, 0.0, 120.0};
  EXPECT_EQ(k5x::ijk2abc(st, want, prev_far, out), 1);
  EXPECT_EQ(out[2], 120.0);
}

TEST_F(DemoHead, ZeroDirectionWritesNothing) {
  st.sol1[1] = 7.0;
  st.sol2[1] = 8.0;
  const double zero[3] = {0.0, 0.0, 0.0};
  const double prev[3] = {1.0, 2.0, 3.0};
  double out[3] = {9.0, 9.0, 9.0};
  EXPECT_EQ(k5x::ijk2abc(st, zero, prev, out), 1);
  EXPECT_EQ(out[1], 9.0);
  EXPECT_EQ(st.sol1[1], 7.0);
  EXPECT_EQ(st.sol2[1], 8.0);
}

TEST_F(DemoHead, TravelCodeOfTheAnswer) {
  double want[3];
  dir_at(100.0, 45.0, want);
  const double prev[3] = {0.0, 100.0, 45.0};
  double out[3];
  EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 0);
  st.machine.travel_max[4] = 90.0;  // B
  EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 5);
  st.machine.travel_max[5] = 40.0;  // C
  EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 9);
  st.machine.travel_max[4] = 110.0;
  EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 6);
}

TEST_F(DemoHead, PreviousValuesFarAwayDoNotHang) {
  double want[3];
  dir_at(20.0, 10.0, want);
  const double prev[3] = {0.0, 1e300, -1e300};
  double out[3];
  k5x::ijk2abc(st, want, prev, out);  // any answer, but it returns
  const double nan_prev[3] = {0.0, NAN, NAN};
  k5x::ijk2abc(st, want, nan_prev, out);
  const double huge[3] = {1e308, -1e308, 1e308};
  const double prev0[3] = {0.0, 0.0, 0.0};
  k5x::ijk2abc(st, huge, prev0, out);
}

// ---------------------------------------------------------------------------------------------
// Small machines whose geometry makes the arithmetic exact.

// One rotary axis C on the head, tool along +X.
const char kOneAxis[] =
    "nommachine = OneAxis\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 100, Head C\n"
    "outil = X, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// Table-table with C on the frame carrying A carrying the workpiece: the second free axis (C) is
// parallel to the tool at rest.
const char kCUnderA[] =
    "nommachine = CUnderA\n"
    "longueur = 50\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "outil = Z, 0, 0, 200\n"
    "lien = AXE_BATI\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n"
    "rotation = AXE_A, X, 0, 1, 0, 0, 0, Cradle A\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// Two head axes about the same direction.
const char kParallel[] =
    "nommachine = Parallel\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "axe = AXE_Y, Y, Slide Y\n"
    "axe = AXE_Z, Z, Ram Z\n"
    "rotation = AXE_A, Z, 0, 1, 0, 0, 200, Head A\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 100, Head C\n"
    "outil = X, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// Turning +X onto -X needs exactly half a turn of C, and the comparisons include equality: the
// answer always ends half a turn above the previous value.
TEST(SolverEdges, FirstAxisExactlyHalfATurnAwayEndsAbove) {
  State st;
  load(st, kOneAxis);
  const double back[3] = {-1.0, 0.0, 0.0};
  struct Case {
    double prev, expected;
  } cases[] = {{0.0, 180.0}, {360.0, 540.0}, {-360.0, -180.0}};
  for (const Case& c : cases) {
    const double prev[3] = {0.0, 0.0, c.prev};
    double out[3];
    EXPECT_EQ(k5x::ijk2abc(st, back, prev, out), 0) << c.prev;
    EXPECT_EQ(out[2], c.expected) << c.prev;
  }
}

TEST(SolverEdges, SecondAxisAlongTheToolKeepsItsValue) {
  State st;
  load(st, kCUnderA);
  const double prev[3] = {10.0, 0.0, 33.0};
  double out[3];
  const double up[3] = {0.0, 0.0, 1.0};
  EXPECT_EQ(k5x::ijk2abc(st, up, prev, out), 0);
  EXPECT_EQ(out[2], 33.0);
  EXPECT_NEAR(out[0], 0.0, 1e-12);
  // A tilted direction in the YZ plane: C still keeps its value, A is the angle of the projection.
  const double tilted[3] = {0.0, -0.6, 0.8};
  EXPECT_EQ(k5x::ijk2abc(st, tilted, prev, out), 0);
  EXPECT_EQ(out[2], 33.0);
  EXPECT_NEAR(out[0], std::atan2(0.6, 0.8) / kDeg, 1e-9);
  double got[3];
  const double at[3] = {out[0], 0.0, 0.0};
  tool_dir(st, at, got);
  EXPECT_NEAR(got[1], -0.6, 1e-9);
  EXPECT_NEAR(got[2], 0.8, 1e-9);
}

// A tool a hair (5e-7) off the second axis is still along it: r * s must exceed epsilon, not 0.
TEST(SolverEdges, SecondAxisWithinEpsilonOfTheToolKeepsItsValue) {
  State st;
  load(st, kCUnderA);
  double* tool = st.machine.records[st.machine.tool].direction;
  tool[0] = 5e-7;
  tool[1] = 0.0;
  tool[2] = 1.0;
  const double prev[3] = {10.0, 0.0, 33.0};
  const double up[3] = {0.0, 0.0, 1.0};
  double out[3];
  EXPECT_EQ(k5x::ijk2abc(st, up, prev, out), 0);
  EXPECT_EQ(out[2], 33.0);
  EXPECT_EQ(st.sol2[2], 33.0);
}

TEST(SolverEdges, UnreachableDirectionStillWritesTheOutputs) {
  State st;
  load(st, kCUnderA);
  st.sol1[0] = st.sol1[1] = st.sol1[2] = 99.0;
  st.sol2[0] = st.sol2[1] = st.sol2[2] = 99.0;
  const double sideways[3] = {1.0, 0.0, 1.0};
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3] = {99.0, 99.0, 99.0};
  EXPECT_EQ(k5x::ijk2abc(st, sideways, prev, out), 1);
  EXPECT_NEAR(out[0], 0.0, 1e-12);  // x is out of reach: A aims at what it can
  EXPECT_EQ(out[2], 0.0);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(out[i], st.sol1[i]);
    EXPECT_NE(st.sol2[i], 99.0);
  }
}

TEST(SolverEdges, ParallelFreeAxesLeaveTheSecondAtItsValue) {
  State st;
  load(st, kParallel);
  const double prev[3] = {5.0, 0.0, 17.0};
  double out[3];
  const double y[3] = {0.0, 1.0, 0.0};
  EXPECT_EQ(k5x::ijk2abc(st, y, prev, out), 0);
  EXPECT_EQ(out[2], 17.0);
  EXPECT_NEAR(out[0], 73.0, 1e-9);  // A makes up the rest of the quarter turn
  double got[3];
  tool_dir(st, out, got);
  EXPECT_LT(angle_between(got, y), 1e-6);
}

// Three free axes: the one nearest the workpiece (the C table) is held at its previous value.
TEST(SolverEdges, ThreeFreeAxesHoldTheFirst) {
  State st;
  load(st, k5x_test::machine_text("ThreeRotary"));
  const double at[3] = {10.0, 20.0, 25.0};
  double want[3];
  tool_dir(st, at, want);
  const double prev[3] = {0.0, 0.0, 25.0};
  double out[3];
  EXPECT_EQ(k5x::ijk2abc(st, want, prev, out), 0);
  EXPECT_EQ(out[2], 25.0);
  double got[3];
  tool_dir(st, out, got);
  EXPECT_LT(angle_between(got, want), 1e-6);
  for (int i = 0; i < st.machine.rotary_count; ++i)
    EXPECT_EQ(st.machine.records[st.machine.rotary[i]].fixe, 0);
}

TEST(SolverEdges, EmptyMachinePrintsAndReturnsOne) {
  State st;
  const double dir[3] = {0.0, 0.0, 1.0};
  const double prev[3] = {1.0, 2.0, 3.0};
  double out[3] = {4.0, 5.0, 6.0};
  testing::internal::CaptureStdout();
  const int rc = k5x::ijk2abc(st, dir, prev, out);
  const std::string printed = testing::internal::GetCapturedStdout();
  EXPECT_EQ(rc, 1);
  EXPECT_EQ(printed, "k5x_ijk2abc, uninitialised/empty machine, exit(1)\n");
  EXPECT_EQ(out[0], 4.0);
  EXPECT_EQ(out[2], 6.0);
}

// ---------------------------------------------------------------------------------------------
// Value laws.

TEST(ValueLaws, FoldingAndSign) {
  State st;
  load(st, "nommachine = Laws\n"
           "bati = Z, Frame\n"
           "axe = AXE_X, X, Slide X\n"
           "rotation = AXE_A, X, 1, 1, 0, 0, 0, A law 1\n"
           "rotation = AXE_B, Y, 2, 1, 0, 0, 0, B law 2\n"
           "rotation = AXE_C, Z, 0, 1, 0, 0, 0, C law 0\n"
           "outil = Z, 0, 0, 0\n"
           "lien = AXE_BATI\n"
           "piece = X, Y, 0, 0, 0\n");
  struct Case {
    int axis;
    double from, to, value;
    int sign;
  } cases[] = {{4, 10.0, -30.0, 330.0, -1}, {4, -30.0, 750.0, 30.0, 1}, {4, 5.0, 5.0, 5.0, 1},
               {4, 0.0, 360.0, 0.0, 1},     {5, 10.0, -30.0, 330.0, 1}, {6, 10.0, -30.0, -30.0, 0}};
  for (const Case& c : cases) {
    int sign = 7;
    EXPECT_EQ(k5x::axe_val(st, c.axis, c.from, c.to, &sign), c.value) << c.axis << " " << c.to;
    EXPECT_EQ(sign, c.sign) << c.axis << " " << c.to;
  }
  const double from[3] = {10.0, 10.0, 10.0};
  const double to[3] = {-30.0, -30.0, -400.0};
  double out[3];
  k5x::abc2abc_loi(st, from, to, out);
  EXPECT_EQ(out[0], -330.0);
  EXPECT_EQ(out[1], 330.0);
  EXPECT_EQ(out[2], -400.0);
  const double far[3] = {1e300, INFINITY, NAN};
  k5x::abc2abc_loi(st, from, far, out);  // returns, whatever the values
}

}  // namespace
