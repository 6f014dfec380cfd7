#include "geometry/solver.h"
#include "motion/increments.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

#include "machine/machine_model.h"
#include "test_machines.h"

namespace {

using k5x_test::angle_between_deg;
using k5x_test::expect_values;
using Vec = std::array<double, 3>;

class Solver : public k5x_test::MachineTest {
 protected:
  int solve(const Vec& dir, const Vec& prev) {
    return k5x::solve_direction(st, dir.data(), prev.data(), out);
  }
  // Angle in degrees between the wanted direction and the one the chain gives at sol.
  double miss(const double sol[3], const Vec& want) {
    return angle_between_deg(direction_at({sol[0], sol[1], sol[2]}).data(), want.data());
  }
  double out[3] = {99.0, 99.0, 99.0};
};

// DemoHead: C then B on the head, tool along -Z, B limited to +-110. At B = 30, C = 0 the other
// solution is B = -30, C = 180. Mode 1 minimises the change of C, mode 2 keeps the solution whose
// B is nearer (even if C then moves more); mode 0, the largest change, is the golden record's.
// With B = +-30 equally far, the first is +alpha + beta = 150 + 180, i.e. -30.
TEST_F(Solver, ChoiceBetweenTheTwoSolutions) {
  load(k5x_test::machine_text("DemoHead"));
  const Vec want = direction_at({0.0, 30.0, 0.0});
  const double cases[][5] = {  // mode, previous B and C, expected B and C
      {1, -100.0, 80.0, 30.0, 0.0},  {2, -100.0, 80.0, -30.0, 180.0},
      {2, -5.0, 10.0, -30.0, 180.0}, {2, 0.0, 0.0, -30.0, 180.0}};
  for (const auto& c : cases) {
    st.machine.mode = static_cast<int>(c[0]);
    SCOPED_TRACE(testing::Message() << "mode " << c[0] << " from " << c[1]);
    EXPECT_EQ(solve(want, {0.0, c[1], c[2]}), 0);
    expect_values(out, {0.0, c[3], c[4]}, 1e-9);
    EXPECT_NEAR(st.sol2[1], -c[3], 1e-9);
  }
  st.machine.mode = 2;
  st.machine.records[st.machine.letter[4]].sense = -1;  // puts +30 first in that tie
  EXPECT_EQ(solve(want, {0.0, 0.0, 0.0}), 0);
  EXPECT_NEAR(out[1], 30.0, 1e-9);
}

// Tool turned straight up needs B = 180: exactly half a turn from the previous B, which is not
// wrapped on either side, and out of B's travel. A direction along C (need not be unit) keeps C.
TEST_F(Solver, SecondAxisHalfATurnAwayStaysAndToolAlongFirstKeepsIt) {
  load(k5x_test::machine_text("DemoHead"));
  for (double prev_b : {0.0, 360.0}) {
    EXPECT_EQ(solve({0.0, 0.0, 1.0}, {0.0, prev_b, 12.0}), 5) << prev_b;
    expect_values(out, {0.0, 180.0, 12.0}, 0.0);
  }
  EXPECT_EQ(solve({0.0, 0.0, -3.0}, {0.0, 4.0, 37.0}), 0);
  expect_values(out, {0.0, 0.0, 37.0}, 1e-12);
}

TEST_F(Solver, LockedAxesAreHeldAtThePreviousValue) {
  load(k5x_test::machine_text("DemoHead"));
  const Vec want = direction_at({0.0, 40.0, 30.0});
  st.machine.records[st.machine.letter[5]].locked = 1;  // C locked: only B moves
  EXPECT_EQ(solve(want, {0.0, -10.0, 30.0}), 0);
  expect_values(out, {0.0, 40.0, 30.0}, 1e-9);
  EXPECT_EQ(solve(want, {0.0, 0.0, 120.0}), 1);  // B alone cannot reach the direction
  EXPECT_EQ(out[2], 120.0);
  // Both locked: the previous values are the answer, reach and then travel decide.
  st.machine.records[st.machine.letter[4]].locked = 1;
  EXPECT_EQ(solve(want, {0.0, 40.0, 30.0}), 0);
  expect_values(out, {0.0, 40.0, 30.0}, 0.0);
  EXPECT_EQ(solve(want, {0.0, 40.0, 31.0}), 1);
  st.machine.travel_max[4] = 35.0;
  EXPECT_EQ(solve(want, {0.0, 40.0, 30.0}), 5);
}

TEST_F(Solver, BadInputWritesNothingOrStillReturns) {
  testing::internal::CaptureStdout();  // nothing loaded: the one message, 1, nothing written
  EXPECT_EQ(solve({0.0, 0.0, 1.0}, {1.0, 2.0, 3.0}), 1);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "k5x_ijk2abc, uninitialised/empty machine, exit(1)\n");
  expect_values(out, {99.0, 99.0, 99.0}, 0.0);
  // A zero direction: 1, and neither out nor the solutions are written.
  load(k5x_test::machine_text("DemoHead"));
  EXPECT_EQ(solve({0.0, 0.0, 0.0}, {1.0, 2.0, 3.0}), 1);
  expect_values(out, {99.0, 99.0, 99.0}, 0.0);
  EXPECT_EQ(st.sol1[1] + st.sol2[1], 0.0);
  // Far or undefined previous values and huge directions: any answer, but it returns.
  const Vec want = {0.3, 0.1, -0.9};
  solve(want, {0.0, 1e300, -1e300});
  solve(want, {0.0, NAN, NAN});
  solve({1e308, -1e308, 1e308}, {0.0, 0.0, 0.0});
}

// Two head axes A and C about the same direction, tool along +X: C, the second, keeps its value
// and A alone turns the tool. The first axis's wrap includes equality, so turning +X onto -X (half
// a turn of A) always ends half a turn above the previous value.
TEST_F(Solver, ParallelFreeAxesLeaveTheSecondAtItsValue) {
  load("nommachine = P\nbati = Z, F\nrotation = AXE_A, Z, 0, 1, 0, 0, 200, A\n"
       "rotation = AXE_C, Z, 0, 1, 0, 0, 100, C\noutil = X, 0, 0, 0\nlien = AXE_BATI\n"
       "piece = X, Y, 0, 0, 0\n");
  EXPECT_EQ(solve({0.0, 1.0, 0.0}, {5.0, 0.0, 17.0}), 0);
  expect_values(out, {73.0, 0.0, 17.0}, 1e-9);  // A makes up the rest of the quarter turn
  EXPECT_LT(miss(out, {0.0, 1.0, 0.0}), 1e-6);
  for (const Vec& c : {Vec{0.0, 180.0}, Vec{360.0, 540.0}, Vec{-360.0, -180.0}}) {
    EXPECT_EQ(solve({-1.0, 0.0, 0.0}, {c[0], 0.0, 0.0}), 0) << c[0];
    expect_values(out, {c[1], 0.0, 0.0}, 0.0);
  }
}

// Table-table, C on the frame carrying A carrying the workpiece: the second free axis (C) is
// parallel to the tool at rest, so C keeps its value and A is atan2 of the projection.
TEST_F(Solver, SecondAxisAlongTheToolKeepsItsValue) {
  load("nommachine = CA\nbati = Z, F\noutil = Z, 0, 0, 200\nlien = AXE_BATI\n"
       "rotation = AXE_C, Z, 0, 1, 0, 0, 0, C\nrotation = AXE_A, X, 0, 1, 0, 0, 0, A\n"
       "piece = X, Y, 0, 0, 0\n");
  EXPECT_EQ(solve({0.0, 0.0, 1.0}, {10.0, 0.0, 33.0}), 0);
  expect_values(out, {0.0, 0.0, 33.0}, 1e-12);
  EXPECT_EQ(solve({0.0, -0.6, 0.8}, {10.0, 0.0, 33.0}), 0);
  expect_values(out, {std::atan2(0.6, 0.8) * 180.0 / k5x::kPi, 0.0, 33.0}, 1e-9);
  // Out of reach: 1, yet out, sol1 and sol2 are written; A aims at what it can.
  st.sol2[0] = st.sol2[1] = st.sol2[2] = 99.0;
  EXPECT_EQ(solve({1.0, 0.0, 1.0}, {0.0, 0.0, 0.0}), 1);
  expect_values(out, {st.sol1[0], st.sol1[1], st.sol1[2]}, 0.0);
  expect_values(out, {0.0, 0.0, 0.0}, 1e-12);
  EXPECT_NE(st.sol2[0], 99.0);
  // A tool a hair (5e-7) off C is still along it: r * s must exceed epsilon, not 0.
  st.machine.records[st.machine.tool].direction[0] = 5e-7;
  EXPECT_EQ(solve({0.0, 0.0, 1.0}, {10.0, 0.0, 33.0}), 0);
  EXPECT_EQ(out[2], 33.0);
  EXPECT_EQ(st.sol2[2], 33.0);
}

// A shows law 1 (modulo 360, sign of the motion), B law 2 (modulo 360), C law 0 (as computed).
TEST_F(Solver, ValueLawsFoldAndSign) {
  load("nommachine = Laws\nbati = Z, F\nrotation = AXE_A, X, 1, 1, 0, 0, 0, A\n"
       "rotation = AXE_B, Y, 2, 1, 0, 0, 0, B\nrotation = AXE_C, Z, 0, 1, 0, 0, 0, C\n"
       "outil = Z, 0, 0, 0\nlien = AXE_BATI\npiece = X, Y, 0, 0, 0\n");
  const int axes[] = {4, 4, 4, 4, 5, 6}, signs[] = {-1, 1, 1, 1, 1, 0};
  const double cases[][3] = {{10.0, -30.0, 330.0}, {-30.0, 750.0, 30.0}, {5.0, 5.0, 5.0},
                             {0.0, 360.0, 0.0},    {10.0, -30.0, 330.0}, {10.0, -30.0, -30.0}};
  for (int i = 0; i < 6; ++i) {  // from, to, shown value
    int sign = 7;
    EXPECT_EQ(k5x::law_value(st, axes[i], cases[i][0], cases[i][1], &sign), cases[i][2]) << i;
    EXPECT_EQ(sign, signs[i]) << i;
  }
  const double from[3] = {10.0, 10.0, 10.0}, to[3] = {-30.0, -30.0, -400.0};
  const double odd[3] = {1e300, INFINITY, NAN};
  k5x::apply_laws(st, from, to, out);
  expect_values(out, {-330.0, 330.0, -400.0}, 0.0);
  k5x::apply_laws(st, from, odd, out);  // returns, whatever the values
}

}  // namespace
