#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>
#include <vector>

#include "solutions/enumeration.h"
#include "test_machines.h"

namespace {

using V3 = std::array<double, 3>;
using List = std::vector<V3>;

// B = 30 tilts +Z towards +X; the table at C = 30 turns that about Z: (0.5 cos 30, 0.5 sin 30,
// cos 30). The other branch is B = -30 with C = 30 + 180.
const double kTilted[3] = {0.4330127018922193, 0.25, 0.8660254037844386};
const double kDown[3] = {0.0, 0.0, -1.0};

// A B head (about Y, tool +Z at rest, travel +-95) over the given table, with extra lines first.
std::string head_table(const std::string& extra,
                       const char* table = "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n") {
  return "coursemaximum = AXE_B, 95\ncourseminimum = AXE_B, -95\n" + extra +
         "bati = Z, Frame\naxe = AXE_X, X, X\naxe = AXE_Y, Y, Y\naxe = AXE_Z, Z, Z\n"
         "rotation = AXE_B, Y, 0, 1, 0, 0, 120, Head B\noutil = Z, 0, 0, 0\nlien = AXE_BATI\n" +
         table + "piece = X, Y, 0, 0, 0\n";
}

TEST(AxisSeeds, FollowTheRulesInOrder) {
  const double tol = std::asin(1e-6) * 180.0 / k5x::kPi;
  const struct { double min, max; std::vector<double> expected; } rows[] = {
      {-90, 90, {0, 90, -90}},
      {0, 720, {0, 360, 90, 180, 270, 360, 720}},  // 360 as the middle and by the full-turn rule
      {-400, 500, {0, 50, -90, 90, -180, 180, -270, 270, -360, 360, -400, 500}},
      {-360, 360, {0, -90, 90, -180, 180, -270, 270, 360, -360}},  // unlimited, once replaced
      {30, 30 + 1.0 / 32768, {30 + 1.0 / 65536}},  // narrower than the tolerance: fixed
      {-95, 95, {0, -90, 90, 95, -95}}, {0, 45, {0, 22.5, 45}},  // equal magnitudes, zero min
      {10, 20, {15, 10, 20}}};                                     // 0 outside the travel
  for (const auto& r : rows) {
    double out[12];
    const int n = k5x::axis_seeds(r.min, r.max, tol, out);
    EXPECT_EQ(std::vector<double>(out, out + n), r.expected) << r.min << " .. " << r.max;
  }
}

class Enumeration : public k5x_test::MachineTest {
 protected:
  int all(const double dir[3], int** flags = nullptr, int entry = 0) {
    count = entry;
    return k5x::all_solutions(st, dir, &count, &list, flags);
  }
  // The first n solutions, each checked against the direction (by the chain) and the travel,
  // rounded to 1e-6 degrees and sorted.
  List solutions(const double dir[3], int n) {
    List v;
    auto round6 = [](double x) { return std::round(x * 1e6) / 1e6 + 0.0; };
    for (const double* s = list; s < list + 3 * n; s += 3) {
      double e[3];
      k5x_test::chain_tool_direction(st, s, e);
      for (int k = 0; k < 3; ++k) EXPECT_NEAR(e[k], dir[k], 1e-6) << "solution " << (s - list) / 3;
      EXPECT_TRUE(k5x_test::within_rotary_travel(st, s)) << "solution " << (s - list) / 3;
      v.push_back({round6(s[0]), round6(s[1]), round6(s[2])});
    }
    std::sort(v.begin(), v.end());
    return v;
  }
  int count = 0;
  double* list = nullptr;
  int* flags = nullptr;
};

// DemoHead's tool points along -Z at rest, the axis of C: C is free, B must stay at 0, and every
// C seed of the unlimited travel is a solution of its own. With flags only the first survives.
// With C indexed in 5-degree steps the probe moves C by two steps (a one-degree probe would be
// snapped back onto the grid and C would not look free).
TEST_F(Enumeration, FreeAxisFilterKeepsOnlyTheHead) {
  for (const char* extra : {"", "increment = AXE_C, 5\n"}) {
    SCOPED_TRACE(extra);
    load(k5x_test::machine_text("DemoHead") + extra);
    List expected;
    for (double c : {-360, -270, -180, -90, 0, 90, 180, 270, 360}) expected.push_back({0, 0, c});
    EXPECT_EQ(solutions(kDown, all(kDown)), expected);
    ASSERT_EQ(all(kDown, &flags), 1);
    EXPECT_EQ(flags[0], 4);
    EXPECT_EQ(list[2], 0.0);  // the first seed's solution
  }
}

// A/B head over a C table, A and B free to +-200: the tool points up at (0, 0) and at
// (180, 180), C free in both. The flagged entries of the second branch differ from the head on
// every axis but C, yet only the head survives: the filter does not skip the free axes.
TEST_F(Enumeration, FlaggedEntriesDifferingOnTheOtherAxesAreDroppedToo) {
  load(k5x_test::machine_text("ThreeRotary") +
       "coursemaximum = AXE_A, 200\ncourseminimum = AXE_A, -200\n"
       "coursemaximum = AXE_B, 200\ncourseminimum = AXE_B, -200\n");
  const double up[3] = {0.0, 0.0, 1.0};
  const List plain = solutions(up, all(up));
  ASSERT_TRUE(std::any_of(plain.begin(), plain.end(), [](const V3& s) {
    return std::fabs(s[0]) == 180 && std::fabs(s[1]) == 180;
  }));
  ASSERT_EQ(all(up, &flags), 1);
  EXPECT_EQ(flags[0], 4);
  EXPECT_EQ(V3({list[0], list[1]}), V3({0.0, 0.0}));
}

// The tool length (0 here, raised during the call) and the mode come back on every path. The
// flag buffer keeps its own size while calls without flags grow the solution buffer alone.
TEST_F(Enumeration, CountBuffersAndSettings) {
  load(k5x_test::machine_text("DemoHead"));
  st.machine.tool_length = 0.0;
  st.machine.mode = 2;
  ASSERT_EQ(all(kDown, &flags), 1);
  for (const int entry : {6000, 4, 20}) {
    EXPECT_EQ(all(kDown, nullptr, entry), entry > 5184 ? -1 : 9);
    EXPECT_EQ(count, entry > 5184 ? 5184 : std::max(entry, 9));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list[1], 0.0);  // filled even with -1
    EXPECT_EQ(st.machine.tool_length, 0.0);
    EXPECT_EQ(st.machine.mode, 2);
  }
  const double tilted_down[3] = {kTilted[0], kTilted[1], -kTilted[2]};
  const int n = all(tilted_down, &flags);  // no free axis: several entries with flags
  ASSERT_GT(n, 1);  // the flag buffer grew with it (the sanitizer build sees any overflow)
  k5x::free_all_solutions(st);
  EXPECT_TRUE(st.solutions == nullptr && st.solution_flags == nullptr);
  EXPECT_EQ(st.solutions_capacity, 0);
  k5x::free_all_solutions(st);  // twice is harmless
}

// The initial solution is the mode-0 answer from the first seeds (0 on each axis): of the two
// branches (B 30, C 30) and (B -30, C -150) it moves the axes least. B within +-95 cannot turn
// the tool over: no solution, an empty but valid list, and the output left alone.
TEST_F(Enumeration, InitialSolutionIsTheFirstInTravel) {
  load(k5x_test::machine_text("HeadTable"));
  V3 abc = {1.0, 2.0, 3.0};
  ASSERT_EQ(k5x::first_in_travel_solution(st, kTilted, abc.data()), 1);
  EXPECT_NEAR(abc[1], 30.0, 1e-9);
  EXPECT_NEAR(abc[2], 30.0, 1e-9);
  EXPECT_EQ(st.solutions, nullptr);  // released after use
  EXPECT_EQ(all(kDown, &flags), 0);
  EXPECT_EQ(count, 0);
  EXPECT_TRUE(list != nullptr && flags != nullptr);
  const V3 before = abc;
  EXPECT_EQ(k5x::first_in_travel_solution(st, kDown, abc.data()), 0);
  EXPECT_EQ(abc, before);
  // C folds into [0, 360) by its law 2 and travels 0 to 360. From the first seeds the solver's
  // mode-0 answer is (B 30, C -30), out of travel; its folded form (30, 330) is checked by
  // direction with the tool length raised from 0 and becomes the first entry. Without that retry
  // the first in-travel entry would be the other branch (B -30, C 150).
  load(head_table("coursemaximum = AXE_C, 360\ncourseminimum = AXE_C, 0\n",
                  "rotation = AXE_C, Z, 2, 1, 0, 0, 0, Table C\n"));
  ASSERT_EQ(st.machine.tool_length, 0.0);
  const V3 dir = direction_at({0.0, 30.0, -30.0});
  ASSERT_EQ(k5x::first_in_travel_solution(st, dir.data(), abc.data()), 1);
  EXPECT_NEAR(abc[1], 30.0, 1e-9);
  EXPECT_NEAR(abc[2], 330.0, 1e-9);
  EXPECT_EQ(st.machine.tool_length, 0.0);
}

}  // namespace
