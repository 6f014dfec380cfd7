#include "motion/increments.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>

#include "geometry/chain.h"
#include "geometry/kernel.h"
#include "geometry/solver.h"
#include "machine/machine_model.h"
#include "test_machines.h"

namespace {

using k5x::State;

constexpr double kDeg = 0.017453292519943295;

void load(State& st, const std::string& text) { ASSERT_EQ(k5x_test::load_text(st, text), 0); }

// Tool direction in workpiece coordinates at abc, from the evaluated chain.
void tool_dir(State& st, const double abc[3], double dir[3]) {
  const double q[6] = {0.0, 0.0, 0.0, abc[0], abc[1], abc[2]};
  k5x::machine_eval(st, q);
  const k5x::AxisRecord& tool = st.machine.records[st.machine.tool];
  double winv[9];
  ASSERT_EQ(k5x::m3inverse(st.machine.records[st.machine.workpiece].frame, winv, 1e-12), 0);
  const double z[3] = {tool.frame[2], tool.frame[5], tool.frame[8]};
  k5x::m3apply(winv, z, dir);
}

double angle_between(const double a[3], const double b[3]) {
  double c[3];
  k5x::vcross(a, b, c);
  return std::atan2(k5x::vnorm(c), k5x::vdot(a, b)) / kDeg;
}

int& fixe(State& st, int id) { return k5x::record_by_id(st, id)->fixe; }

// ---------------------------------------------------------------------------------------------

TEST(IncrementSettings, BehaviourAndToleranceLiveApart) {
  State st;
  load(st, k5x_test::machine_text("HeadTable"));
  EXPECT_EQ(k5x::get_increment_behaviour(st), 0);
  EXPECT_EQ(k5x::get_increment_tolerance(st), 0.005);
  k5x::set_increment_behaviour(st, 2, 0.0);  // zero is not a tolerance
  EXPECT_EQ(k5x::get_increment_behaviour(st), 2);
  EXPECT_EQ(k5x::get_increment_tolerance(st), 0.005);
  k5x::set_increment_behaviour(st, 7, 0.02);  // stored unchecked
  EXPECT_EQ(k5x::get_increment_behaviour(st), 7);
  EXPECT_EQ(k5x::get_increment_tolerance(st), 0.02);
  st.machine.deviation_max = 3.0;
  // A reload resets behaviour and running maximum, not the tolerance.
  load(st, k5x_test::machine_text("HeadTable"));
  EXPECT_EQ(k5x::get_increment_behaviour(st), 0);
  EXPECT_EQ(k5x::increment_deviation_getmax(st), 0.0);
  EXPECT_EQ(k5x::get_increment_tolerance(st), 0.02);
}

TEST(IncrementMachine, ContinuousReportsItsStepFixedOrAbsentReportsZero) {
  State st;
  load(st, k5x_test::machine_text("HeadTable"));
  double steps[3] = {9.0, 9.0, 9.0};
  EXPECT_EQ(k5x::get_increment_machine(st, steps), 0);
  EXPECT_EQ(steps[0], 0.0);   // no A
  EXPECT_EQ(steps[1], -1.0);  // continuous B
  EXPECT_EQ(steps[2], -1.0);
  k5x::set_axe_increment(st, k5x::kIdC, 5.0);
  fixe(st, k5x::kIdB) = 1;
  EXPECT_EQ(k5x::get_increment_machine(st, steps), 1);
  EXPECT_EQ(steps[1], 0.0);
  EXPECT_EQ(steps[2], 5.0);
  EXPECT_EQ(k5x::get_increment_machine(st, nullptr), 1);
  fixe(st, k5x::kIdC) = 1;  // an indexed axis that is locked does not count
  EXPECT_EQ(k5x::get_increment_machine(st, steps), 0);
}

TEST(IncrementCompute, NoIndexedAxisCopiesTheInput) {
  State st;
  load(st, k5x_test::machine_text("HeadTable"));
  k5x::set_axe_increment(st, k5x::kIdB, 0.0);
  const double in[3] = {0.0, 12.3, -45.6};
  const double dir[3] = {0.0, 0.0, 1.0};
  double out[3];
  EXPECT_EQ(k5x::increment_compute(st, in, dir, out), 0.0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], in[i]);
}

// ---------------------------------------------------------------------------------------------
// The two nearest multiples on a head-table machine with B and C both indexed by 15 degrees.

class TwoIndexed : public ::testing::Test {
 protected:
  void SetUp() override {
    load(st, k5x_test::machine_text("HeadTable"));
    k5x::set_axe_increment(st, k5x::kIdB, 15.0);
    k5x::set_axe_increment(st, k5x::kIdC, 15.0);
  }
  State st;
};

struct Nearest {
  double value, first, second;
};

class GridChoices : public TwoIndexed, public ::testing::WithParamInterface<Nearest> {};

// With a zero wanted direction every candidate ties, so the first one (each axis's nearer
// multiple) is kept; aiming at the far multiples shows they are the second choices.
TEST_P(GridChoices, NearerFirstLowerOnATie) {
  const Nearest& p = GetParam();
  const double in[3] = {0.0, p.value, p.value};
  const double zero[3] = {0.0, 0.0, 0.0};
  double out[3];
  EXPECT_EQ(k5x::increment_compute(st, in, zero, out), 0.0);
  EXPECT_EQ(out[1], p.first);
  EXPECT_EQ(out[2], p.first);

  const double far[3] = {0.0, p.second, p.second};
  double want[3];
  tool_dir(st, far, want);
  EXPECT_LT(k5x::increment_compute(st, in, want, out), 1e-6);
  EXPECT_EQ(out[1], p.second);
  EXPECT_EQ(out[2], p.second);
}

INSTANTIATE_TEST_SUITE_P(Values, GridChoices,
                         ::testing::Values(Nearest{37.0, 30.0, 45.0}, Nearest{-37.0, -30.0, -45.0},
                                           Nearest{37.5, 30.0, 45.0}, Nearest{-37.5, -45.0, -30.0},
                                           // truncation: a hair below a multiple is off the grid
                                           Nearest{29.9999995, 30.0, 15.0},
                                           Nearest{-29.9999995, -30.0, -15.0}),
                         [](const ::testing::TestParamInfo<Nearest>& i) {
                           return "case" + std::to_string(i.index);
                         });

TEST_F(TwoIndexed, OnTheGridWithinEpsilonIsLeftAlone) {
  const double values[][3] = {{0.0, 45.0000001, 30.0},
                              {0.0, 30.0000005, -30.0000005},
                              {0.0, 0.0, -15.0}};
  const double dir[3] = {1.0, 0.0, 0.0};
  for (const auto& in : values) {
    double out[3];
    EXPECT_EQ(k5x::increment_compute(st, in, dir, out), 0.0);
    for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], in[i]);
  }
  // A remainder of exactly epsilon is still on the grid (0.5 keeps the arithmetic exact).
  st.eps = 0.5;
  const double edge[3] = {0.0, 30.5, -15.5};
  double out[3];
  EXPECT_EQ(k5x::increment_compute(st, edge, dir, out), 0.0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], edge[i]);
}

TEST_F(TwoIndexed, BestCandidateAndItsDeviation) {
  // Aim between grid points: B = 33 lies 3 from 30, C = 44 lies 1 from 45.
  const double aim[3] = {0.0, 33.0, 44.0};
  double want[3];
  tool_dir(st, aim, want);
  double out[3];
  const double dev = k5x::increment_compute(st, aim, want, out);
  EXPECT_EQ(out[1], 30.0);
  EXPECT_EQ(out[2], 45.0);
  double got[3];
  tool_dir(st, out, got);
  EXPECT_NEAR(dev, angle_between(got, want), 1e-9);
}

// Aimed at B = 37.6, C = 30: the first candidate (30, 30) is 7.6 degrees off, the later (45, 30)
// 7.4. A later candidate must be better by more than half an epsilon (radians) to win.
TEST_F(TwoIndexed, LaterCandidateMustWinByHalfAnEpsilon) {
  const double aim[3] = {0.0, 37.6, 30.0};
  double want[3];
  tool_dir(st, aim, want);
  const double in[3] = {0.0, 37.0, 30.5};
  double out[3];
  EXPECT_NEAR(k5x::increment_compute(st, in, want, out), 7.4, 1e-9);
  EXPECT_EQ(out[1], 45.0);
  EXPECT_EQ(out[2], 30.0);
  st.eps = 0.01;  // 0.2 degrees is about 0.0035 rad: less than half of it
  EXPECT_NEAR(k5x::increment_compute(st, in, want, out), 7.6, 1e-9);
  EXPECT_EQ(out[1], 30.0);
  EXPECT_EQ(out[2], 30.0);
}

TEST_F(TwoIndexed, EveryCandidateSkippedGives180) {
  st.machine.outil = 0.0;  // no tool length: no candidate has a direction
  const double in[3] = {0.0, 37.0, 37.0};
  const double dir[3] = {0.0, 0.0, 1.0};
  double out[3];
  EXPECT_EQ(k5x::increment_compute(st, in, dir, out), 180.0);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(out[i], in[i]);
}

// ---------------------------------------------------------------------------------------------
// Three free rotary axes: C table under an A/B head. The first of the rotary list (C) is held.

TEST(ThreeFree, FirstAxisIsExcludedAndKeepsItsValue) {
  State st;
  load(st, k5x_test::machine_text("ThreeRotary"));
  for (int id : {k5x::kIdA, k5x::kIdB, k5x::kIdC}) k5x::set_axe_increment(st, id, 5.0);
  const double aim[3] = {10.0, 25.0, 37.0};
  double want[3];
  tool_dir(st, aim, want);
  const double in[3] = {12.0, 23.0, 37.0};
  double out[3];
  EXPECT_LT(k5x::increment_compute(st, in, want, out), 1e-6);
  EXPECT_EQ(out[0], 10.0);
  EXPECT_EQ(out[1], 25.0);
  EXPECT_EQ(out[2], 37.0);  // not snapped to 35
}

TEST(ThreeFree, ContinuousAxisIsReSolvedAndFlagsComeBack) {
  State st;
  load(st, k5x_test::machine_text("ThreeRotary"));
  k5x::set_axe_increment(st, k5x::kIdB, 5.0);
  k5x::set_increment_behaviour(st, 1, -1.0);
  const double aim[3] = {8.0, 25.0, 37.0};
  double want[3];
  tool_dir(st, aim, want);
  const double in[3] = {0.0, 23.0, 37.0};
  double out[3];
  EXPECT_LT(k5x::increment_compute(st, in, want, out), 1e-6);
  EXPECT_NEAR(out[0], 8.0, 1e-9);  // A aimed with B on its grid and C held
  EXPECT_EQ(out[1], 25.0);
  EXPECT_EQ(out[2], 37.0);
  EXPECT_EQ(k5x::get_increment_behaviour(st), 1);
  for (int id : {k5x::kIdA, k5x::kIdB, k5x::kIdC}) EXPECT_EQ(fixe(st, id), 0);

  // A locked by the caller: C takes part and aims, and A stays locked afterwards.
  fixe(st, k5x::kIdA) = 1;
  const double aim2[3] = {0.0, 25.0, 50.0};
  tool_dir(st, aim2, want);
  const double in2[3] = {0.0, 27.0, 0.0};
  EXPECT_LT(k5x::increment_compute(st, in2, want, out), 1e-6);
  EXPECT_EQ(out[0], 0.0);
  EXPECT_EQ(out[1], 25.0);
  EXPECT_NEAR(out[2], 50.0, 1e-9);
  EXPECT_EQ(fixe(st, k5x::kIdA), 1);
  EXPECT_EQ(fixe(st, k5x::kIdB), 0);
  EXPECT_EQ(fixe(st, k5x::kIdC), 0);
}

// ---------------------------------------------------------------------------------------------
// The snap inside the orientation solver, on the table that indexes C every 5 degrees.

class IndexedTable : public ::testing::Test {
 protected:
  void SetUp() override { load(st, k5x_test::machine_text("IndexedTable")); }
  // Direction at B = b, C = c, solved from a nearby previous position.
  int solve_at(double b, double c, double out[3]) {
    const double at[3] = {0.0, b, c};
    double want[3];
    tool_dir(st, at, want);
    const double prev[3] = {0.0, b, std::round(c)};
    return k5x::ijk2abc(st, want, prev, out);
  }
  State st;
};

// With C held on a multiple, B sweeps a great circle; the deviation is the angle of the wanted
// direction from it: asin(sin B sin dC).
TEST_F(IndexedTable, SnapAcceptedBelowTheToleranceAndRecorded) {
  const double dc = 0.008;
  const double expected = std::asin(std::sin(30.0 * kDeg) * std::sin(dc * kDeg)) / kDeg;
  ASSERT_NEAR(expected, 0.004, 1e-6);
  double out[3];
  EXPECT_EQ(solve_at(30.0, 10.0 + dc, out), 0);
  EXPECT_EQ(out[2], 10.0);
  EXPECT_NEAR(out[1], 30.0, 1e-3);
  EXPECT_NEAR(k5x::increment_deviation_getmax(st), expected, 1e-9);
  // A smaller deviation later does not lower the running maximum.
  EXPECT_EQ(solve_at(30.0, 20.001, out), 0);
  EXPECT_EQ(out[2], 20.0);
  EXPECT_NEAR(k5x::increment_deviation_getmax(st), expected, 1e-9);
}

TEST_F(IndexedTable, SnapRefusedAtExactlyTheTolerance) {
  double out[3];
  solve_at(30.0, 10.008, out);
  const double dev = k5x::increment_deviation_getmax(st);
  k5x::increment_deviation_reset(st);
  k5x::set_increment_behaviour(st, 1, dev);
  EXPECT_EQ(solve_at(30.0, 10.008, out), 0);
  EXPECT_NEAR(out[2], 10.008, 1e-9);
  EXPECT_EQ(k5x::increment_deviation_getmax(st), 0.0);
  // Behaviour 0 does not even look.
  k5x::set_increment_behaviour(st, 0, 1.0);
  solve_at(30.0, 10.008, out);
  EXPECT_NEAR(out[2], 10.008, 1e-9);
}

TEST_F(IndexedTable, BehaviourTwoAlwaysSnapsLowerFirstOnATie) {
  double out[3];
  EXPECT_EQ(solve_at(40.0, 32.5, out), 0);  // 1.6 degrees off: behaviour 1 refuses
  EXPECT_NEAR(out[2], 32.5, 1e-9);
  k5x::set_increment_behaviour(st, 2, -1.0);
  EXPECT_EQ(solve_at(40.0, 32.5, out), 0);
  EXPECT_EQ(out[2], 30.0);  // 30 and 35 are equally far in direction too
  const double expected = std::asin(std::sin(40.0 * kDeg) * std::sin(2.5 * kDeg)) / kDeg;
  EXPECT_NEAR(k5x::increment_deviation_getmax(st), expected, 1e-9);
}

TEST_F(IndexedTable, FailedSearchIsAcceptedByBehaviourTwo) {
  k5x::set_increment_behaviour(st, 2, -1.0);
  const double at[3] = {0.0, 40.0, 32.5};
  double want[3];
  tool_dir(st, at, want);
  st.machine.outil = 0.0;
  const double prev[3] = {0.0, 40.0, 32.0};
  double out[3];
  k5x::ijk2abc(st, want, prev, out);
  EXPECT_NEAR(out[2], 32.5, 1e-9);
  EXPECT_EQ(k5x::increment_deviation_getmax(st), 180.0);
}

// ---------------------------------------------------------------------------------------------
// The environment variable and the file keyword.

class IncrementConfig : public ::testing::Test {
 protected:
  void TearDown() override { unsetenv("K5X_INCREMENTS_MAX_DEVIATION"); }
  State st;
};

TEST_F(IncrementConfig, EnvironmentAndFileKeyword) {
  setenv("K5X_INCREMENTS_MAX_DEVIATION", "0.02", 1);
  load(st, k5x_test::machine_text("IndexedTable"));
  EXPECT_EQ(k5x::get_increment_tolerance(st), 0.02);
  EXPECT_EQ(k5x::get_increment_behaviour(st), 1);  // from the increment line
  State keyword;
  load(keyword, k5x_test::machine_text("IndexedTable") + "incrementmaximumdeviation = 0.03\n");
  EXPECT_EQ(k5x::get_increment_tolerance(keyword), 0.03);  // the file wins
  // Non-positive values: the variable has nothing to change yet, the keyword selects behaviour 2.
  setenv("K5X_INCREMENTS_MAX_DEVIATION", "-1", 1);
  State negative;
  load(negative, k5x_test::machine_text("IndexedTable") + "incrementmaximumdeviation = 0\n");
  EXPECT_EQ(k5x::get_increment_tolerance(negative), 0.005);
  EXPECT_EQ(k5x::get_increment_behaviour(negative), 2);
  State plain;
  load(plain, k5x_test::machine_text("IndexedTable"));
  EXPECT_EQ(k5x::get_increment_behaviour(plain), 1);
}

}  // namespace
