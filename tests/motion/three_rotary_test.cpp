#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "geometry/chain.h"
#include "motion/three_rotary.h"
#include "test_machines.h"

namespace {

using k5x::State;

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> out;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) out.push_back(line);
  return out;
}

bool starts_with(const std::string& s, const std::string& prefix) {
  return s.compare(0, prefix.size(), prefix) == 0;
}

int count_prefix(const std::vector<std::string>& lines, const std::string& prefix) {
  int n = 0;
  for (const std::string& l : lines) n += starts_with(l, prefix) ? 1 : 0;
  return n;
}

// Tool direction in workpiece coordinates at abc, read off the evaluated chain.
void chain_direction(State& st, const double abc[3], double out[3]) {
  const double q[6] = {0.0, 0.0, 0.0, abc[0], abc[1], abc[2]};
  k5x::machine_eval(st, q);
  const k5x::AxisRecord& tool = st.machine.records[st.machine.tool];
  const k5x::AxisRecord& wp = st.machine.records[st.machine.workpiece];
  const double z[3] = {tool.frame[2], tool.frame[5], tool.frame[8]};
  for (int i = 0; i < 3; ++i)
    out[i] = wp.frame[i] * z[0] + wp.frame[3 + i] * z[1] + wp.frame[6 + i] * z[2];
}

bool within_travel(const State& st, const double abc[3]) {
  for (int i = 0; i < 3; ++i)
    if (abc[i] < st.machine.travel_min[3 + i] - st.machine.travel_tol ||
        abc[i] > st.machine.travel_max[3 + i] + st.machine.travel_tol)
      return false;
  return true;
}

class ThreeRotary : public ::testing::Test {
 protected:
  State st;
  std::string trace;

  void load(const std::string& extra = "") {
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("ThreeRotary") + extra), 0);
  }

  int solve(const double dir[3], const double prev[3], double out[3], int mode) {
    testing::internal::CaptureStdout();
    const int r = k5x::ex_getabc_3r(st, dir, prev, out, mode);
    trace = testing::internal::GetCapturedStdout();
    return r;
  }

  // A direction the machine reaches within travel, built by evaluating the chain.
  void direction_at(const double abc[3], double dir[3]) { chain_direction(st, abc, dir); }

  void expect_reproduces(const double dir[3], const double abc[3]) {
    double e[3];
    chain_direction(st, abc, e);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(e[k], dir[k], 1e-6);
  }
};

TEST_F(ThreeRotary, TwoRotaryMachineFallsThrough) {
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("HeadTable")), 0);
  const double abc[3] = {0.0, 30.0, 40.0};
  double dir[3];
  direction_at(abc, dir);
  const double prev[3] = {0.0, 25.0, 35.0};
  for (int mode : {0, 1, 2}) {
    double out[3] = {0.0, 0.0, 0.0};
    EXPECT_EQ(solve(dir, prev, out, mode), 1) << mode;
    EXPECT_EQ(trace, "k5x_ex_getabc_3r(" + std::to_string(mode) + ") : 2r only\n");
    expect_reproduces(dir, out);
    EXPECT_TRUE(within_travel(st, out));
  }
  // Out of reach: mode 1 gives the initial solution's 0 and keeps out, mode 0 the travel code.
  const double down[3] = {0.0, 0.0, -1.0};
  double out[3] = {5.0, 6.0, 7.0};
  EXPECT_EQ(solve(down, prev, out, 1), 0);
  EXPECT_EQ(out[0], 5.0);
  EXPECT_EQ(out[2], 7.0);
  EXPECT_EQ(std::abs(solve(down, prev, out, 0)), 5);  // B would have to reach 180

  st.silent = 1;
  EXPECT_EQ(solve(dir, prev, out, 0), 1);
  EXPECT_EQ(trace, "");
}

TEST_F(ThreeRotary, TraversalHeaderShowsTravelAndMiddles) {
  load();
  const double abc[3] = {10.0, 20.0, 30.0};
  double dir[3], out[3];
  direction_at(abc, dir);
  solve(dir, abc, out, 0);
  const std::vector<std::string> l = lines_of(trace);
  ASSERT_GE(l.size(), 6u);
  EXPECT_EQ(l[0], "Courses : [  -45.000 ..   45.000 ] / lim=0");
  EXPECT_EQ(l[1], "          [ -100.000 ..  100.000 ] / lim=0");
  EXPECT_EQ(l[2], "          [ -10000000000.000 .. 10000000000.000 ] / lim=2");
  EXPECT_EQ(l[3], "ajustees: [  -45.000 ..   45.000 ] mid=   0.000");
  EXPECT_EQ(l[4], "          [ -100.000 ..  100.000 ] mid=   0.000");
  EXPECT_EQ(l[5], "          [ -10000000000.000 .. 10000000000.000 ] mid=   0.000");
  EXPECT_EQ(l[6], "k5x_ex_getabc_3r(0) : 3r cont.");
}

// A indexed, B and C continuous: the counts are 19, 0, 0 and the rule picks C, with no tests.
TEST_F(ThreeRotary, OnlyAIndexedFindsNothing) {
  load("increment = AXE_A, 5\n");
  const double prev[3] = {0.0, 0.0, 0.0};
  const double dir[3] = {0.0, 0.0, 1.0};
  double out[3] = {1.5, 2.5, 3.5};
  EXPECT_EQ(solve(dir, prev, out, 0), -1);
  EXPECT_EQ(out[0], 1.5);
  EXPECT_EQ(out[1], 2.5);
  EXPECT_EQ(out[2], 3.5);
  const std::vector<std::string> l = lines_of(trace);
  EXPECT_EQ(count_prefix(l, "k5x_ex_getabc_3r(0) : 3r / discrete on 2 (C), 0 tests"), 1);
  EXPECT_EQ(count_prefix(l, "Axis"), 0);
  EXPECT_EQ(l.back(), "k5x_ex_getabc_3r, ABC=(  +1.500000 |   +2.500000 |   +3.500000), r=-1");
  EXPECT_EQ(st.machine.increment_behaviour, 1);
}

// C in 15-degree steps, unlimited travel (kind 2): window [-180, 180], 25 tests.
TEST_F(ThreeRotary, IndexedCStepsThroughItsWindow) {
  load("increment = AXE_C, 15\n");
  const double abc[3] = {20.0, -35.0, 45.0};
  double dir[3];
  direction_at(abc, dir);
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3] = {0.0, 0.0, 0.0};
  const int r = solve(dir, prev, out, 0);
  const std::vector<std::string> l = lines_of(trace);
  EXPECT_EQ(count_prefix(l, "k5x_ex_getabc_3r(0) : 3r / discrete on 2 (C), 25 tests"), 1);
  std::vector<double> values;
  for (const std::string& line : l) {
    double v = 0.0;
    if (std::sscanf(line.c_str(), "Axis 2 (C) at %lf :", &v) == 1) values.push_back(v);
  }
  ASSERT_EQ(values.size(), 25u);
  for (int i = 0; i < 25; ++i) EXPECT_DOUBLE_EQ(values[i], -180.0 + 15.0 * i);

  EXPECT_EQ(r, 1);
  expect_reproduces(dir, out);
  EXPECT_TRUE(within_travel(st, out));
  EXPECT_NEAR(std::remainder(out[2], 15.0), 0.0, 1e-9);
  // Left behind: only the stepped axis locked; the behaviour and the epsilon are back.
  EXPECT_EQ(st.machine.records[st.machine.letter[5]].fixe, 1);
  EXPECT_EQ(st.machine.records[st.machine.letter[3]].fixe, 0);
  EXPECT_EQ(st.machine.records[st.machine.letter[4]].fixe, 0);
  EXPECT_EQ(st.machine.increment_behaviour, 1);
  EXPECT_EQ(st.eps, 1e-06);
}

// The discrete axis from the test counts on A [-45, 45], B [-100, 100], C [-180, 180]: the ties
// and the pick of an axis without tests follow the rule as it stands.
struct DiscreteCase {
  const char* increments;
  const char* header;  // after "k5x_ex_getabc_3r(0) : 3r / discrete on "
};

class DiscreteAxis : public ThreeRotary, public ::testing::WithParamInterface<DiscreteCase> {};

TEST_P(DiscreteAxis, FollowsTheCountRule) {
  load(GetParam().increments);
  const double abc[3] = {10.0, 20.0, 30.0};
  double dir[3];
  direction_at(abc, dir);
  double out[3] = {0.0, 0.0, 0.0};
  const int r = solve(dir, abc, out, 0);
  const std::vector<std::string> l = lines_of(trace);
  ASSERT_GE(l.size(), 7u);
  EXPECT_EQ(l[6], std::string("k5x_ex_getabc_3r(0) : 3r / discrete on ") + GetParam().header);
  if (std::string(GetParam().header).find(", 0 tests") != std::string::npos) {
    EXPECT_EQ(r, -1);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Counts, DiscreteAxis,
    ::testing::Values(
        // 11, 11, 0: NA = NB and NB > NC give B.
        DiscreteCase{"increment = AXE_A, 9\nincrement = AXE_B, 20\n", "1 (B), 11 tests"},
        // 19, 11, 11: NB = NC gives C.
        DiscreteCase{"increment = AXE_A, 5\nincrement = AXE_B, 20\nincrement = AXE_C, 36\n",
                     "2 (C), 11 tests"},
        // 11, 21, 11: NA < NB but not below NC gives C.
        DiscreteCase{"increment = AXE_A, 9\nincrement = AXE_B, 10\nincrement = AXE_C, 36\n",
                     "2 (C), 11 tests"},
        // 0, 41, 73: A, which has no tests.
        DiscreteCase{"increment = AXE_B, 5\nincrement = AXE_C, 5\n", "0 (A), 0 tests"},
        // 19, 41, 73.
        DiscreteCase{"increment = AXE_A, 5\nincrement = AXE_B, 5\nincrement = AXE_C, 5\n",
                     "0 (A), 19 tests"}));

// A window starting above 0 starts on its own first multiple: C over [30, 120] in 15-degree steps
// is tested at 30, 45, ..., 120.
TEST_F(ThreeRotary, DiscreteStartsAtAPositiveMinimum) {
  load("increment = AXE_C, 15\n");
  st.machine.travel_min[5] = 30.0;
  st.machine.travel_max[5] = 120.0;
  const double abc[3] = {10.0, 20.0, 60.0};
  double dir[3];
  direction_at(abc, dir);
  double out[3] = {0.0, 0.0, 0.0};
  EXPECT_EQ(solve(dir, abc, out, 0), 1);
  std::vector<double> values;
  for (const std::string& line : lines_of(trace)) {
    double v = 0.0;
    if (std::sscanf(line.c_str(), "Axis 2 (C) at %lf :", &v) == 1) values.push_back(v);
  }
  ASSERT_EQ(values.size(), 7u);
  for (int i = 0; i < 7; ++i) EXPECT_DOUBLE_EQ(values[i], 30.0 + 15.0 * i);
}

// The middle of C's travel per travel kind, as the header shows it.
struct MiddleCase {
  double min, max;
  const char* courses_end;
  const char* middle_end;
};

class TravelMiddle : public ThreeRotary, public ::testing::WithParamInterface<MiddleCase> {};

TEST_P(TravelMiddle, ShownInTheHeader) {
  load();
  st.machine.travel_min[5] = GetParam().min;
  st.machine.travel_max[5] = GetParam().max;
  const double abc[3] = {10.0, 20.0, 30.0};
  double dir[3], out[3];
  direction_at(abc, dir);
  solve(dir, abc, out, 0);
  const std::vector<std::string> l = lines_of(trace);
  ASSERT_GE(l.size(), 6u);
  const std::string courses_end = GetParam().courses_end;
  const std::string middle_end = GetParam().middle_end;
  ASSERT_GE(l[2].size(), courses_end.size());
  ASSERT_GE(l[5].size(), middle_end.size());
  EXPECT_EQ(l[2].substr(l[2].size() - courses_end.size()), courses_end);
  EXPECT_EQ(l[5].substr(l[5].size() - middle_end.size()), middle_end);
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, TravelMiddle,
    ::testing::Values(MiddleCase{10.0, 100.0, "/ lim=0", "mid=  55.000"},
                      MiddleCase{0.0, 360.0, "/ lim=0", "mid= 180.000"},
                      MiddleCase{-0.5, 360.502, "/ lim=0", "mid=   0.000"},
                      MiddleCase{20.0, 1e7, "/ lim=1", "mid= 200.000"},
                      MiddleCase{-20.0, 1e7, "/ lim=1", "mid=   0.000"},
                      MiddleCase{-1e7, -30.0, "/ lim=-1", "mid=-210.000"},
                      MiddleCase{-1e7, 30.0, "/ lim=-1", "mid=   0.000"}));

// In mode 1 the stepped axis's travel is narrowed per test and left at its window afterwards.
TEST_F(ThreeRotary, IndexedModeOneLeavesTheWindow) {
  load("increment = AXE_C, 15\n");
  const double abc[3] = {-15.0, 40.0, -60.0};
  double dir[3];
  direction_at(abc, dir);
  double out[3] = {0.0, 0.0, 0.0};
  EXPECT_EQ(solve(dir, abc, out, 1), 1);
  expect_reproduces(dir, out);
  EXPECT_EQ(st.machine.travel_min[5], -180.0);
  EXPECT_EQ(st.machine.travel_max[5], 180.0);
  EXPECT_EQ(st.machine.travel_min[3], -45.0);  // untouched without the mode-2 retry

  st.silent = 1;
  EXPECT_EQ(solve(dir, abc, out, 1), 1);
  EXPECT_EQ(trace, "");
}

// Tilted 80 degrees, the direction needs A beyond 45 for C about 90 degrees off its azimuth:
// mode 1 drops those tests, mode 2 retries them with open travel and reports their travel code.
TEST_F(ThreeRotary, ModeTwoRetriesWithOpenTravel) {
  load("increment = AXE_C, 15\n");
  const double t = 80.0 * k5x::kDegToRad;
  const double dir[3] = {std::sin(t), 0.0, std::cos(t)};
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3] = {0.0, 0.0, 0.0};
  ASSERT_EQ(solve(dir, prev, out, 1), 1);
  std::vector<std::string> l = lines_of(trace);
  const int mode1_tests = count_prefix(l, "Axis 2 (C) at");
  EXPECT_LT(mode1_tests, 25);
  EXPECT_EQ(trace.find("(HC "), std::string::npos);

  State fresh;
  ASSERT_EQ(k5x_test::load_text(fresh, k5x_test::machine_text("ThreeRotary") +
                                           "increment = AXE_C, 15\n"),
            0);
  testing::internal::CaptureStdout();
  const int r = k5x::ex_getabc_3r(fresh, dir, prev, out, 2);
  trace = testing::internal::GetCapturedStdout();
  EXPECT_EQ(r, 1);
  l = lines_of(trace);
  EXPECT_EQ(count_prefix(l, "Axis 2 (C) at"), 25);
  int retried = 0;
  for (const std::string& line : l)
    if (line.find("(HC 4)") != std::string::npos || line.find("(HC -4)") != std::string::npos)
      ++retried;
  EXPECT_EQ(retried, 25 - mode1_tests);
  double e[3];
  chain_direction(fresh, out, e);
  for (int k = 0; k < 3; ++k) EXPECT_NEAR(e[k], dir[k], 1e-6);
  EXPECT_TRUE(within_travel(fresh, out));
  // The retry leaves every rotary axis at its window: C at [-180, 180], A and B as loaded.
  EXPECT_EQ(fresh.machine.travel_min[5], -180.0);
  EXPECT_EQ(fresh.machine.travel_max[5], 180.0);
  EXPECT_EQ(fresh.machine.travel_min[3], -45.0);
  EXPECT_EQ(fresh.machine.travel_max[4], 100.0);
}

// Looking straight down needs a tilt of 180 degrees; A and B reach about 97: every solve fails,
// and the relaxed epsilon appears only on the step 1 lines.
TEST_F(ThreeRotary, ModeOneRelaxesEpsilonOnlyInStepOne) {
  load();
  const double down[3] = {0.0, 0.0, -1.0};
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3] = {4.0, 5.0, 6.0};
  EXPECT_EQ(solve(down, prev, out, 1), -1);
  const std::vector<std::string> l = lines_of(trace);
  EXPECT_EQ(count_prefix(l, "direct, lock="), 3);
  ASSERT_EQ(count_prefix(l, "step 1, lock="), 3);
  for (const std::string& line : l)
    EXPECT_EQ(starts_with(line, "step 1, lock="), line.find("t=0.25000") != std::string::npos)
        << line;
  EXPECT_EQ(count_prefix(l, "step 1, lock=4 (A), nABC0=0"), 1);
  EXPECT_EQ(count_prefix(l, "iRet1=-1, 0 values"), 1);
  EXPECT_EQ(st.eps, 1e-06);
  EXPECT_EQ(out[0], 4.0);
  // The last lock was C.
  EXPECT_EQ(st.machine.records[st.machine.letter[5]].fixe, 1);
  EXPECT_EQ(st.machine.records[st.machine.letter[3]].fixe, 0);
}

struct ContinuousCase {
  int mode;
  double abc[3];
};

class ThreeRotaryContinuous : public ThreeRotary,
                              public ::testing::WithParamInterface<ContinuousCase> {};

TEST_P(ThreeRotaryContinuous, ChosenSolutionReproducesDirection) {
  load();
  const ContinuousCase& c = GetParam();
  double dir[3];
  direction_at(c.abc, dir);
  const double prev[3] = {0.0, 0.0, 0.0};
  double out[3] = {0.0, 0.0, 0.0};
  EXPECT_EQ(solve(dir, prev, out, c.mode), 1);
  expect_reproduces(dir, out);
  EXPECT_TRUE(within_travel(st, out));
  EXPECT_EQ(st.eps, 1e-06);
  const std::vector<std::string> l = lines_of(trace);
  EXPECT_EQ(count_prefix(l, "k5x_ex_getabc_3r(" + std::to_string(c.mode) + ") : 3r cont."), 1);
  EXPECT_TRUE(starts_with(l.back(), "k5x_ex_getabc_3r, ABC=("));
  EXPECT_NE(l.back().find("r=1"), std::string::npos);
  // Outside modes 1 and 2 the relaxed solves run at min(0.1, 1000 * 1e-06).
  if (c.mode == 0) {
    for (const std::string& line : l) {
      if (starts_with(line, "step 1, lock=")) {
        EXPECT_NE(line.find("t=0.00100"), std::string::npos) << line;
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Modes, ThreeRotaryContinuous,
                         ::testing::Values(ContinuousCase{0, {10.0, 20.0, 30.0}},
                                           ContinuousCase{1, {10.0, 20.0, 30.0}},
                                           ContinuousCase{2, {-30.0, 60.0, -120.0}},
                                           ContinuousCase{0, {40.0, -80.0, 170.0}}));

}  // namespace
