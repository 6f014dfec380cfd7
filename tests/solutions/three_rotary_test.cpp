#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

#include "geometry/axis_queries.h"
#include "solutions/three_rotary.h"
#include "test_machines.h"

namespace {

using Values = std::vector<double>;

bool ends_with(const std::string& s, const std::string& p) {
  return s.size() >= p.size() && s.compare(s.size() - p.size(), p.size(), p) == 0;
}

class ThreeRotary : public ::testing::Test {
 protected:
  void load(const std::string& extra = "", const char* name = "ThreeRotary") {
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text(name) + extra), 0);
  }
  void aim_at(double a, double b, double c) {  // dir = the direction the chain gives there
    const double abc[3] = {a, b, c};
    k5x_test::chain_tool_direction(st, abc, dir);
  }
  int solve(int mode, const double prev[3] = nullptr) {
    const double zero[3] = {0.0, 0.0, 0.0};
    testing::internal::CaptureStdout();
    const int r = k5x::solve_three_rotary(st, dir, prev ? prev : zero, out, mode);
    trace = "\n" + testing::internal::GetCapturedStdout();  // every line starts after a newline
    return r;
  }
  int count(const std::string& text) const {  // occurrences in the trace
    int n = 0;
    for (size_t i = trace.find(text); i != std::string::npos; i = trace.find(text, i + 1)) ++n;
    return n;
  }
  Values stepped_c() const {  // the values of the stepped axis C, in trace order
    Values v;
    const std::string at = "\nAxis 2 (C) at ";
    for (size_t i = trace.find(at); i != std::string::npos; i = trace.find(at, i + 1))
      v.push_back(std::atof(trace.c_str() + i + at.size()));
    return v;
  }
  void expect_in_travel_solution() {
    double e[3];
    k5x_test::chain_tool_direction(st, out, e);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(e[k], dir[k], 1e-6);
    EXPECT_TRUE(k5x_test::within_rotary_travel(st, out));
  }
  std::vector<int> locks() const {
    return {k5x::axis_locked(st, k5x::kIdA), k5x::axis_locked(st, k5x::kIdB),
            k5x::axis_locked(st, k5x::kIdC)};
  }
  k5x::State st;
  std::string trace;
  double dir[3] = {0.0, 0.0, -1.0};  // down: a tilt of 180 degrees, which no machine here reaches
  double out[3] = {0.0, 0.0, 0.0};
};

TEST_F(ThreeRotary, TwoRotaryMachineFallsThrough) {
  load("", "HeadTable");
  const double prev[3] = {0.0, 25.0, 35.0};
  out[0] = 5.0;
  EXPECT_EQ(solve(1, prev), 0);  // mode 1 gives the initial solution's 0 and keeps out
  EXPECT_EQ(out[0], 5.0);
  EXPECT_EQ(std::abs(solve(0, prev)), 5);  // B would have to reach 180
  aim_at(0.0, 30.0, 40.0);
  for (int mode : {0, 1, 2}) {
    EXPECT_EQ(solve(mode, prev), 1) << mode;
    EXPECT_EQ(trace, "\nk5x_ex_getabc_3r(" + std::to_string(mode) + ") : 2r only\n");
    expect_in_travel_solution();
  }
  st.silent = 1;
  EXPECT_EQ(solve(0, prev), 1);
  EXPECT_EQ(trace, "\n");
}

// The header shows each axis's travel, kind and middle; below, C's for each branch of each kind.
TEST_F(ThreeRotary, HeaderShowsTravelAndMiddles) {
  load();
  solve(0);
  EXPECT_EQ(count("\nCourses : [  -45.000 ..   45.000 ] / lim=0\n"), 1);
  EXPECT_EQ(count("\n          [ -10000000000.000 .. 10000000000.000 ] / lim=2\najustees: "), 1);
  EXPECT_EQ(count("\najustees: [  -45.000 ..   45.000 ] mid=   0.000\n"), 1);
  EXPECT_EQ(count(" mid=   0.000\nk5x_ex_getabc_3r(0) : 3r cont.\n"), 1);
  const struct { double min, max; const char *kind, *middle; } rows[] = {
      {0.0, 360.0, "lim=0", "mid= 180.000"},   {-0.5, 360.502, "lim=0", "mid=   0.000"},
      {20.0, 1e7, "lim=1", "mid= 200.000"},    {-20.0, 1e7, "lim=1", "mid=   0.000"},
      {-1e7, -30.0, "lim=-1", "mid=-210.000"}, {-1e7, 30.0, "lim=-1", "mid=   0.000"}};
  for (const auto& r : rows) {
    st.machine.travel_min[5] = r.min, st.machine.travel_max[5] = r.max;
    solve(0);
    EXPECT_EQ(count(std::string(r.kind) + "\najustees: "), 1) << trace;
    EXPECT_EQ(count(std::string(r.middle) + "\nk5x_ex_getabc_3r"), 1) << trace;
  }
}

// The discrete axis from the test counts on A [-45, 45], B [-100, 100], C [-180, 180]: the ties
// and the pick of an axis without tests follow the rule as it stands.
TEST_F(ThreeRotary, DiscreteAxisFollowsTheCountRule) {
  const struct { const char *increments, *header; } rows[] = {
      {"increment = AXE_A, 5\n", "2 (C), 0 tests"},  // 19, 0, 0: only A indexed picks C
      {"increment = AXE_A, 9\nincrement = AXE_B, 20\n", "1 (B), 11 tests"},  // 11, 11, 0
      {"increment = AXE_A, 5\nincrement = AXE_B, 20\nincrement = AXE_C, 36\n", "2 (C), 11 tests"},
      {"increment = AXE_A, 9\nincrement = AXE_B, 10\nincrement = AXE_C, 36\n", "2 (C), 11 tests"},
      {"increment = AXE_B, 5\nincrement = AXE_C, 5\n", "0 (A), 0 tests"},  // 0, 41, 73
      {"increment = AXE_A, 5\nincrement = AXE_B, 5\nincrement = AXE_C, 5\n", "0 (A), 19 tests"}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.increments);
    load(r.increments);
    aim_at(10.0, 20.0, 30.0);
    out[0] = 1.5, out[1] = 2.5, out[2] = 3.5;
    const int result = solve(0);
    EXPECT_EQ(count("\nk5x_ex_getabc_3r(0) : 3r / discrete on " + std::string(r.header) + "\n"), 1);
    EXPECT_EQ(st.machine.increment_behaviour, 1);
    if (!ends_with(r.header, ", 0 tests")) continue;
    EXPECT_EQ(result, -1);
    EXPECT_EQ(count("\nAxis"), 0);
    EXPECT_TRUE(ends_with(
        trace, "\nk5x_ex_getabc_3r, ABC=(  +1.500000 |   +2.500000 |   +3.500000), r=-1\n"));
  }
}

// C in 15-degree steps: the unlimited travel (kind 2) becomes the window [-180, 180], 25 tests;
// a window starting above 0 starts on its own first multiple.
TEST_F(ThreeRotary, DiscreteStepsThroughTheWindow) {
  load("increment = AXE_C, 15\n");
  aim_at(20.0, -35.0, 45.0);
  EXPECT_EQ(solve(0), 1);
  EXPECT_EQ(count("k5x_ex_getabc_3r(0) : 3r / discrete on 2 (C), 25 tests"), 1);
  Values expected;
  for (int i = 0; i < 25; ++i) expected.push_back(-180.0 + 15.0 * i);
  EXPECT_EQ(stepped_c(), expected);
  expect_in_travel_solution();
  EXPECT_NEAR(std::remainder(out[2], 15.0), 0.0, 1e-9);
  EXPECT_EQ(locks(), (std::vector<int>{0, 0, 1}));  // left behind: the stepped axis locked

  load("increment = AXE_C, 15\n");
  st.machine.travel_min[5] = 30.0, st.machine.travel_max[5] = 120.0;
  aim_at(10.0, 20.0, 60.0);
  EXPECT_EQ(solve(0), 1);
  EXPECT_EQ(stepped_c(), (Values{30, 45, 60, 75, 90, 105, 120}));
}

// Tilted 80 degrees, the direction needs A beyond 45 for C about 90 degrees off its azimuth:
// mode 1 drops those tests, mode 2 retries them with open travel and reports their travel code.
// Both leave C's travel at its window; the retry sets A and B back to theirs.
TEST_F(ThreeRotary, ModeTwoRetriesWithOpenTravel) {
  const double t = 80.0 * k5x::kDegToRad;
  dir[0] = std::sin(t), dir[1] = 0.0, dir[2] = std::cos(t);
  int tests[3], retried[3];
  for (int mode : {1, 2}) {
    load("increment = AXE_C, 15\n");
    ASSERT_EQ(solve(mode), 1);
    expect_in_travel_solution();
    const k5x::Model& m = st.machine;
    EXPECT_EQ((Values{m.travel_min[5], m.travel_max[5], m.travel_min[3], m.travel_max[4]}),
              (Values{-180, 180, -45, 100}));
    tests[mode] = count("Axis 2 (C) at");
    retried[mode] = count("(HC 4)") + count("(HC -4)");
  }
  EXPECT_LT(tests[1], 25);
  EXPECT_EQ(retried[1], 0);
  EXPECT_EQ(tests[2], 25);
  EXPECT_EQ(retried[2], 25 - tests[1]);
}

// Looking straight down needs a tilt of 180: mode 1 finds nothing, mode 0 keeps the direct
// solves that leave B's travel (5). The relaxed epsilon appears only on the step 1 lines, 0.25 in
// mode 1 and min(0.1, 1000 * 1e-06) in mode 0, and is restored after.
TEST_F(ThreeRotary, RelaxedEpsilonOnlyInStepOne) {
  load();
  for (const auto& [mode, relaxed, step1] :
       {std::make_tuple(0, "t=0.00100", 9), std::make_tuple(1, "t=0.25000", 3)}) {
    SCOPED_TRACE(mode);
    out[0] = 4.0;
    EXPECT_EQ(solve(mode), mode == 0 ? 5 : -1);
    EXPECT_EQ(count("direct, lock="), 3);
    EXPECT_EQ(count("step 1, lock="), step1);
    EXPECT_EQ(count(relaxed), step1);
    EXPECT_EQ(st.eps, 1e-06);
  }
  EXPECT_EQ(count("step 1, lock=4 (A), nABC0=0"), 1);
  EXPECT_EQ(count("iRet1=-1, 0 values"), 1);
  EXPECT_EQ(out[0], 4.0);
  EXPECT_EQ(locks(), (std::vector<int>{0, 0, 1}));  // the last lock was C
}

}  // namespace
