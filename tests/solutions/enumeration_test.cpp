#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "geometry/chain.h"
#include "geometry/kernel.h"
#include "solutions/enumeration.h"
#include "test_machines.h"

namespace {

using k5x::State;

constexpr double kTol = 5.7295779e-05;  // asin(1e-06) in degrees

// Tool direction in workpiece coordinates at the rotary values abc, read off the evaluated chain.
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
  for (int i = 0; i < 3; ++i) {
    const double lo = st.machine.travel_min[3 + i] - st.machine.travel_tol;
    const double hi = st.machine.travel_max[3 + i] + st.machine.travel_tol;
    if (abc[i] < lo || abc[i] > hi) return false;
  }
  return true;
}

// Every listed solution reproduces dir by the chain and lies within travel.
void expect_valid(State& st, const double dir[3], const double* list, int n) {
  for (int i = 0; i < n; ++i) {
    double e[3];
    chain_direction(st, list + 3 * i, e);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(e[k], dir[k], 1e-6) << "solution " << i;
    EXPECT_TRUE(within_travel(st, list + 3 * i)) << "solution " << i;
  }
}

std::vector<double> seed_list(double min, double max) {
  double out[12];
  const int n = k5x::axis_seeds(min, max, kTol, out);
  return std::vector<double>(out, out + n);
}

// Solutions as sorted (A, B, C) triples rounded to 1e-6 degrees, for set comparisons.
std::vector<std::vector<double>> as_set(const double* list, int n) {
  std::vector<std::vector<double>> v;
  for (int i = 0; i < n; ++i) {
    std::vector<double> t;
    for (int k = 0; k < 3; ++k) t.push_back(std::round(list[3 * i + k] * 1e6) / 1e6 + 0.0);
    v.push_back(t);
  }
  std::sort(v.begin(), v.end());
  return v;
}

const char kTableC[] = "rotation = AXE_C, Z, 0, 1, 0, 0, 0, Table C\n";

// A B head (about Y, tool +Z at rest, travel +-95) over the given table, with extra travel lines.
std::string head_table(const std::string& c_travel, const char* table = kTableC) {
  return "nommachine = HT\n"
         "coursemaximum = AXE_B, 95\n"
         "courseminimum = AXE_B, -95\n" +
         c_travel +
         "bati = Z, Frame\n"
         "axe = AXE_X, X, Slide X\n"
         "axe = AXE_Y, Y, Slide Y\n"
         "axe = AXE_Z, Z, Ram Z\n"
         "rotation = AXE_B, Y, 0, 1, 0, 0, 120, Head B\n"
         "outil = Z, 0, 0, 0\n"
         "lien = AXE_BATI\n" +
         table +
         "piece = X, Y, 0, 0, 0\n"
         "position = 0, 0, 0, 0, 0, 0\n";
}

// B = 30 tilts +Z towards +X; the table at C = 30 turns that about Z: (0.5 cos 30, 0.5 sin 30,
// cos 30). The other branch is B = -30 with C = 30 + 180.
const double kTilted[3] = {0.4330127018922193, 0.25, 0.8660254037844386};

// ---- seeds -----------------------------------------------------------------------------------

struct SeedCase {
  double min, max;
  std::vector<double> expected;
};

class AxisSeeds : public ::testing::TestWithParam<SeedCase> {};

TEST_P(AxisSeeds, FollowTheRulesInOrder) {
  const SeedCase& c = GetParam();
  EXPECT_EQ(seed_list(c.min, c.max), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Travel, AxisSeeds,
    ::testing::Values(
        SeedCase{-90, 90, {0, 90, -90}},
        // 360 twice: the middle, then the full-turn rule tested against the minimum.
        SeedCase{0, 720, {0, 360, 90, 180, 270, 360, 720}},
        SeedCase{-400, 500, {0, 50, -90, 90, -180, 180, -270, 270, -360, 360, -400, 500}},
        // Unlimited travel, after the replacement by -360 and 360.
        SeedCase{-360, 360, {0, -90, 90, -180, 180, -270, 270, 360, -360}},
        // A travel width below the tolerance is one fixed value.
        SeedCase{30, 30 + 1.0 / 32768, {30 + 1.0 / 65536}},
        // Limits of equal magnitude: maximum first; a zero minimum adds only the maximum.
        SeedCase{-95, 95, {0, -90, 90, 95, -95}},
        SeedCase{0, 45, {0, 22.5, 45}},
        // 0 outside the travel; the middle and both limits remain.
        SeedCase{10, 20, {15, 10, 20}}));

// ---- solutions through the seeds ------------------------------------------------------------

class Enumeration : public ::testing::Test {
 protected:
  State st;

  void load(const std::string& text) { ASSERT_EQ(k5x_test::load_text(st, text), 0); }

  int all(const double dir[3], double** list, int** flags = nullptr) {
    int count = 0;
    return k5x::ex_getallabchcpossible(st, dir, &count, list, flags);
  }
};

// Per C seed s the solver returns the representative of C in (s - 180, s + 180); the B seeds
// +-90 make mode 2 return both branches (B 30, C 30) and (B -30, C -150) for every s.
struct TravelCase {
  const char* travel;
  std::vector<std::vector<double>> expected;
};

class SeededSolutions : public Enumeration, public ::testing::WithParamInterface<TravelCase> {};

TEST_P(SeededSolutions, FollowTheSeeds) {
  load(head_table(GetParam().travel));
  double* list = nullptr;
  const int n = all(kTilted, &list);
  expect_valid(st, kTilted, list, n);
  EXPECT_EQ(as_set(list, n), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    CTravel, SeededSolutions,
    ::testing::Values(
        TravelCase{"coursemaximum = AXE_C, 500\ncourseminimum = AXE_C, -400\n",
                   {{0, -30, -150}, {0, -30, 210}, {0, 30, -330}, {0, 30, 30}, {0, 30, 390}}},
        TravelCase{"coursemaximum = AXE_C, 720\ncourseminimum = AXE_C, 0\n",
                   {{0, -30, 210}, {0, -30, 570}, {0, 30, 30}, {0, 30, 390}}},
        TravelCase{"coursemaximum = AXE_C, 90\ncourseminimum = AXE_C, -90\n", {{0, 30, 30}}},
        TravelCase{"coursemaximum = AXE_C, 30\ncourseminimum = AXE_C, 30\n", {{0, 30, 30}}}));

// A table about X under a B head about Y, no C: direction (sin b, -sin a cos b, cos a cos b).
// With b = 30, a = 40 the other branch needs b = 150, out of travel; the unlimited A seeds give
// 40, -320 and 400.
TEST_F(Enumeration, AbsentCAxisStaysAtItsSeed) {
  load(head_table("", "rotation = AXE_A, X, 0, 1, 0, 0, 0, Table A\n"));
  const double a = 40.0 * k5x::kDegToRad, b = 30.0 * k5x::kDegToRad;
  const double dir[3] = {std::sin(b), -std::sin(a) * std::cos(b), std::cos(a) * std::cos(b)};
  double* list = nullptr;
  const int n = all(dir, &list);
  ASSERT_EQ(n, 3);
  expect_valid(st, dir, list, n);
  const std::vector<std::vector<double>> expected = {{-320, 30, 0}, {40, 30, 0}, {400, 30, 0}};
  EXPECT_EQ(as_set(list, n), expected);
}

TEST_F(Enumeration, EverySolutionValidOnEmbeddedMachines) {
  const double dirs[][3] = {{0.3, -0.4, 0.866}, {0.0, 0.6, 0.8}, {-0.5, 0.5, 0.7071}};
  for (const char* name : {"DemoHead", "Trunnion", "HeadTable", "ThreeRotary"}) {
    State local;
    ASSERT_EQ(k5x_test::load_text(local, k5x_test::machine_text(name)), 0) << name;
    for (const auto& raw : dirs) {
      double dir[3] = {raw[0], raw[1], raw[2]};
      k5x::vnormalize(dir, 1e-9);
      // DemoHead's tool points down at rest: ask for the mirrored direction there.
      if (std::string(name) == "DemoHead") dir[2] = -dir[2];
      int count = 0;
      double* list = nullptr;
      const int n = k5x::ex_getallabchcpossible(local, dir, &count, &list, nullptr);
      EXPECT_GT(n, 0) << name;
      EXPECT_EQ(count, n);
      expect_valid(local, dir, list, n);
    }
  }
}

// ---- free axes -------------------------------------------------------------------------------

// DemoHead's tool points along -Z at rest, the axis of C: C is free, B must stay at 0, and
// every C seed of the unlimited travel is a solution of its own.
TEST_F(Enumeration, FreeAxisFilterKeepsOnlyTheHead) {
  load(k5x_test::machine_text("DemoHead"));
  const double down[3] = {0.0, 0.0, -1.0};
  double* list = nullptr;
  const int n = all(down, &list);
  ASSERT_EQ(n, 9);
  const std::vector<std::vector<double>> expected = {
      {0, 0, -360}, {0, 0, -270}, {0, 0, -180}, {0, 0, -90}, {0, 0, 0},
      {0, 0, 90},   {0, 0, 180},  {0, 0, 270},  {0, 0, 360}};
  EXPECT_EQ(as_set(list, n), expected);

  int* flags = nullptr;
  ASSERT_EQ(all(down, &list, &flags), 1);
  ASSERT_NE(flags, nullptr);
  EXPECT_EQ(flags[0], 4);
  EXPECT_NEAR(list[2], 0.0, 1e-9);  // the first seed's solution
}

// B free to +-400 reaches the downward tool at B = -360, 0 and 360, each with C free. The flagged
// entries at B = +-360 differ from the head on B, yet only the head survives the filter.
TEST_F(Enumeration, FlaggedEntriesDifferingOnFixedAxesAreDroppedToo) {
  load(k5x_test::machine_text("DemoHead") +
       "coursemaximum = AXE_B, 400\ncourseminimum = AXE_B, -400\n");
  const double down[3] = {0.0, 0.0, -1.0};
  double* list = nullptr;
  const int plain = all(down, &list);
  bool turned = false;
  for (int i = 0; i < plain; ++i)
    turned = turned || std::fabs(std::fabs(list[3 * i + 1]) - 360.0) < 1e-9;
  ASSERT_TRUE(turned);
  int* flags = nullptr;
  ASSERT_EQ(all(down, &list, &flags), 1);
  EXPECT_EQ(flags[0], 4);
  EXPECT_NEAR(list[1], 0.0, 1e-9);
}

// C folds into [0, 360) by its law 2 and travels 0 to 360. From the first seeds the solver's
// mode-0 answer is (B 30, C -30), out of travel; its folded form (30, 330) is checked by direction
// with the tool length raised from 0 and becomes the first entry. Without that retry the first
// in-travel entry would be the other branch (B -30, C 150).
TEST_F(Enumeration, FoldedRetryComesFirstAtZeroToolLength) {
  load(head_table("coursemaximum = AXE_C, 360\ncourseminimum = AXE_C, 0\n",
                  "rotation = AXE_C, Z, 2, 1, 0, 0, 0, Table C\n"));
  ASSERT_EQ(st.machine.outil, 0.0);
  const double target[3] = {0.0, 30.0, -30.0};
  double dir[3];
  chain_direction(st, target, dir);
  double abc[3] = {0.0, 0.0, 0.0};
  ASSERT_EQ(k5x::ex_getinit_ijk_2_abc_not_hc(st, dir, abc), 1);
  EXPECT_NEAR(abc[1], 30.0, 1e-9);
  EXPECT_NEAR(abc[2], 330.0, 1e-9);
  EXPECT_EQ(st.machine.outil, 0.0);
}

// With C indexed in 5-degree steps the probe moves C by two steps: a one-degree probe would be
// snapped back onto the grid and C would not look free.
TEST_F(Enumeration, FreeAxisProbeFollowsTheIncrement) {
  load(k5x_test::machine_text("DemoHead") + "increment = AXE_C, 5\n");
  ASSERT_EQ(st.machine.increment_behaviour, 1);
  const double down[3] = {0.0, 0.0, -1.0};
  double* list = nullptr;
  int* flags = nullptr;
  ASSERT_EQ(all(down, &list, &flags), 1);
  EXPECT_EQ(flags[0], 4);
}

// ---- count, buffers and settings --------------------------------------------------------------

// The tool length (0 here, raised during the call) and the mode come back on every path.
TEST_F(Enumeration, CountAndSettingsOnEveryPath) {
  load(k5x_test::machine_text("DemoHead"));
  st.machine.outil = 0.0;
  st.machine.mode = 2;
  const double down[3] = {0.0, 0.0, -1.0};
  double* list = nullptr;
  for (const int entry : {6000, 4, 20}) {
    int count = entry;
    const int r = k5x::ex_getallabchcpossible(st, down, &count, &list, nullptr);
    EXPECT_EQ(r, entry > 5184 ? -1 : 9);
    EXPECT_EQ(count, entry > 5184 ? 5184 : std::max(entry, 9));
    ASSERT_NE(list, nullptr);
    EXPECT_NEAR(list[1], 0.0, 1e-9);  // filled even with -1
    EXPECT_EQ(st.machine.outil, 0.0);
    EXPECT_EQ(st.machine.mode, 2);
  }
}

TEST_F(Enumeration, UnreachableDirectionGivesEmptyValidList) {
  load(k5x_test::machine_text("HeadTable"));  // B within +-95 cannot turn the tool over
  const double down[3] = {0.0, 0.0, -1.0};
  int count = 0;
  double* list = nullptr;
  int* flags = nullptr;
  EXPECT_EQ(k5x::ex_getallabchcpossible(st, down, &count, &list, &flags), 0);
  EXPECT_EQ(count, 0);
  EXPECT_NE(list, nullptr);
  EXPECT_NE(flags, nullptr);

  double abc[3] = {7.0, 8.0, 9.0};
  EXPECT_EQ(k5x::ex_getinit_ijk_2_abc_not_hc(st, down, abc), 0);
  EXPECT_EQ(abc[0], 7.0);
  EXPECT_EQ(abc[1], 8.0);
  EXPECT_EQ(abc[2], 9.0);
}

TEST_F(Enumeration, BuffersGrowAndFreeResets) {
  load(k5x_test::machine_text("DemoHead"));
  const double down[3] = {0.0, 0.0, -1.0};
  double* list = nullptr;
  int* flags = nullptr;
  ASSERT_EQ(all(down, &list, &flags), 1);  // flag buffer sized for one entry
  EXPECT_GE(st.flags_capacity, 1);
  ASSERT_EQ(all(down, &list), 9);          // solution buffer grows alone
  EXPECT_GE(st.solutions_capacity, 9);
  const double tilted_down[3] = {kTilted[0], kTilted[1], -kTilted[2]};
  const int n = all(tilted_down, &list, &flags);  // no free axis: several entries with flags
  ASSERT_GT(n, 1);
  EXPECT_GE(st.flags_capacity, n);
  k5x::ex_abchcpossible_free(st);
  EXPECT_EQ(st.solutions, nullptr);
  EXPECT_EQ(st.solution_flags, nullptr);
  EXPECT_EQ(st.solutions_capacity, 0);
  k5x::ex_abchcpossible_free(st);  // twice is harmless
}

// The initial solution is the mode-0 answer from the first seeds (0 on each axis): of the two
// branches (B 30, C 30) and (B -30, C -150) it moves the axes least.
TEST_F(Enumeration, InitialSolutionIsTheFirstInTravel) {
  load(k5x_test::machine_text("HeadTable"));
  double abc[3] = {1.0, 2.0, 3.0};
  ASSERT_EQ(k5x::ex_getinit_ijk_2_abc_not_hc(st, kTilted, abc), 1);
  EXPECT_NEAR(abc[1], 30.0, 1e-9);
  EXPECT_NEAR(abc[2], 30.0, 1e-9);
  EXPECT_EQ(st.solutions, nullptr);  // released after use
}

}  // namespace
