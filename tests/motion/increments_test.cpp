#include "motion/increments.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <tuple>

#include "kernel/kernel.h"
#include "geometry/solver.h"
#include "test_machines.h"

namespace {

using V3 = std::array<double, 3>;

constexpr double kDeg = k5x::kPi / 180.0;

class Increments : public k5x_test::MachineTest {
 protected:
  // Loads an embedded machine and gives each of its rotary axes the step, unless it is -1.
  void load(const char* name, double step = -1.0) {
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text(name)), 0);
    for (int id = k5x::kIdA; id <= k5x::kIdC && step != -1.0; ++id)
      k5x::set_axis_increment(st, id, step);
  }
  double compute(const V3& in, const V3& dir) {
    return k5x::snap_to_increments(st, in.data(), dir.data(), out.data());
  }
  int& fixe(int id) { return k5x::record_by_id(st, id)->locked; }
  V3 out;
};

TEST_F(Increments, MachineReportsContinuousStepsButZeroForFixedOrAbsentAxes) {
  load("HeadTable");
  V3 steps = {9.0, 9.0, 9.0};
  EXPECT_EQ(k5x::get_increment_machine(st, steps.data()), 0);
  EXPECT_EQ(steps, (V3{0.0, -1.0, -1.0}));  // no A
  k5x::set_axis_increment(st, k5x::kIdC, 5.0);
  fixe(k5x::kIdB) = 1;
  EXPECT_EQ(k5x::get_increment_machine(st, steps.data()), 1);
  EXPECT_EQ(steps, (V3{0.0, 0.0, 5.0}));
  EXPECT_EQ(k5x::get_increment_machine(st, nullptr), 1);
  fixe(k5x::kIdC) = 1;
  EXPECT_EQ(k5x::get_increment_machine(st, steps.data()), 0);
}

// Deviation 0 and the input copied: no indexed axis, or already on the grid within eps.
TEST_F(Increments, NothingToSnapCopiesTheInput) {
  const struct { double step, eps; V3 in; } rows[] = {
      {0.0, 1e-6, {0, 12.3, -45.6}}, {-1.0, 1e-6, {0, 12.3, -45.6}},
      {15, 1e-6, {0, 45.0000001, 30}}, {15, 1e-6, {0, 30.0000005, -30.0000005}},
      {15, 0.5, {0, 30.5, -15.5}}};  // a remainder of exactly eps is on the grid
  for (const auto& r : rows) {
    SCOPED_TRACE(testing::Message() << "step " << r.step << " eps " << r.eps << " B " << r.in[1]);
    load("HeadTable", r.step);
    st.eps = r.eps;
    EXPECT_EQ(compute(r.in, {1.0, 0.0, 0.0}), 0.0);
    EXPECT_EQ(out, r.in);
  }
}

// With a zero wanted direction every candidate ties, so the first one (each axis's nearer
// multiple) is kept; aiming at the far multiples shows they are the second choices.
TEST_F(Increments, NearerMultipleFirstLowerOnATie) {
  const struct { double value, first, second; } rows[] = {
      {37.0, 30.0, 45.0}, {-37.0, -30.0, -45.0}, {37.5, 30.0, 45.0}, {-37.5, -45.0, -30.0},
      // truncation: a hair below a multiple is off the grid
      {29.9999995, 30.0, 15.0}, {-29.9999995, -30.0, -15.0}};
  load("HeadTable", 15.0);
  for (const auto& r : rows) {
    SCOPED_TRACE(r.value);
    const V3 in = {0.0, r.value, r.value}, far = {0.0, r.second, r.second};
    EXPECT_EQ(compute(in, {0.0, 0.0, 0.0}), 0.0);
    EXPECT_EQ(out, (V3{0.0, r.first, r.first}));
    EXPECT_LT(compute(in, direction_at(far)), 1e-6);
    EXPECT_EQ(out, far);
  }
}

// Aimed at B = 37.6 with C = 30: candidate (30, 30) is 7.6 degrees off, the later (45, 30) 7.4,
// better by 0.2 degrees (0.00349 rad). A later candidate must be better by more than half an
// epsilon to win: it does with eps 0.005, not with eps 0.01.
TEST_F(Increments, LaterCandidateMustWinByHalfAnEpsilon) {
  load("HeadTable", 15.0);
  const V3 want = direction_at({0.0, 37.6, 30.0}), in = {0.0, 37.0, 30.5};
  for (double eps : {1e-6, 0.005}) {
    st.eps = eps;
    EXPECT_NEAR(compute(in, want), 7.4, 1e-9);
    EXPECT_EQ(out, (V3{0.0, 45.0, 30.0})) << eps;
  }
  st.eps = 0.01;
  EXPECT_NEAR(compute(in, want), 7.6, 1e-9);
  EXPECT_EQ(out, (V3{0.0, 30.0, 30.0}));
}

// C table under an A/B head. With all three indexed, C (first of the rotary list) is held.
// With only B indexed, A is re-solved for the direction; locks and behaviour come back.
TEST_F(Increments, ThreeRotaryHoldsTheFirstAxisAndReSolvesTheContinuousOne) {
  load("ThreeRotary", 5.0);
  EXPECT_LT(compute({12.0, 23.0, 37.0}, direction_at({10.0, 25.0, 37.0})), 1e-6);
  EXPECT_EQ(out, (V3{10.0, 25.0, 37.0}));  // C not snapped to 35

  load("ThreeRotary");
  k5x::set_axis_increment(st, k5x::kIdB, 5.0);
  k5x::set_increment_behaviour(st, 1, -1.0);
  EXPECT_LT(compute({0.0, 23.0, 37.0}, direction_at({8.0, 25.0, 37.0})), 1e-6);
  EXPECT_NEAR(out[0], 8.0, 1e-9);
  EXPECT_EQ(out, (V3{out[0], 25.0, 37.0}));
  EXPECT_EQ(std::make_tuple(k5x::get_increment_behaviour(st), fixe(k5x::kIdA), fixe(k5x::kIdB),
                            fixe(k5x::kIdC)),
            std::make_tuple(1, 0, 0, 0));

  // A locked by the caller: only B and C take part, C aims, and A stays locked.
  fixe(k5x::kIdA) = 1;
  EXPECT_LT(compute({0.0, 27.0, 0.0}, direction_at({0.0, 25.0, 50.0})), 1e-6);
  EXPECT_NEAR(out[2], 50.0, 1e-9);
  EXPECT_EQ(out, (V3{0.0, 25.0, out[2]}));
  EXPECT_EQ(std::make_pair(fixe(k5x::kIdA), fixe(k5x::kIdC)), std::make_pair(1, 0));
}

// The snap inside the orientation solver, on the table that indexes C every 5 degrees. With C
// held on a multiple, B sweeps a great circle: the deviation is asin(sin B sin dC).
class Snap : public Increments {
 protected:
  void SetUp() override { load("IndexedTable"); }
  int solve_at(double b, double c) {
    const V3 want = direction_at({0.0, b, c}), prev = {0.0, b, std::round(c)};
    return k5x::solve_direction(st, want.data(), prev.data(), out.data());
  }
  static double deviation(double b, double dc) {
    return std::asin(std::sin(b * kDeg) * std::sin(dc * kDeg)) / kDeg;
  }
};

TEST_F(Snap, AcceptedBelowTheToleranceRefusedAtIt) {
  ASSERT_NEAR(deviation(30.0, 0.008), 0.004, 1e-6);
  EXPECT_EQ(std::make_pair(solve_at(30.0, 10.008), out[2]), std::make_pair(0, 10.0));
  EXPECT_NEAR(out[1], 30.0, 1e-3);
  const double dev = k5x::largest_increment_deviation(st);
  EXPECT_NEAR(dev, deviation(30.0, 0.008), 1e-9);
  EXPECT_EQ(std::make_pair(solve_at(30.0, 20.001), out[2]), std::make_pair(0, 20.0));
  EXPECT_EQ(k5x::largest_increment_deviation(st), dev);  // a smaller deviation keeps the maximum
  k5x::reset_increment_deviation(st);
  k5x::set_increment_behaviour(st, 1, dev);
  EXPECT_EQ(solve_at(30.0, 10.008), 0);
  EXPECT_NEAR(out[2], 10.008, 1e-9);
  EXPECT_EQ(k5x::largest_increment_deviation(st), 0.0);
  k5x::set_increment_behaviour(st, 0, 1.0);  // behaviour 0 does not even look
  solve_at(30.0, 10.008);
  EXPECT_NEAR(out[2], 10.008, 1e-9);
}

TEST_F(Snap, BehaviourTwoAlwaysSnapsLowerFirstOnATie) {
  EXPECT_EQ(solve_at(40.0, 32.5), 0);  // 1.6 degrees off: behaviour 1 refuses
  EXPECT_NEAR(out[2], 32.5, 1e-9);
  k5x::set_increment_behaviour(st, 2, -1.0);
  EXPECT_EQ(std::make_pair(solve_at(40.0, 32.5), out[2]), std::make_pair(0, 30.0));  // a tie
  EXPECT_NEAR(k5x::largest_increment_deviation(st), deviation(40.0, 2.5), 1e-9);
  // Without a tool length no candidate has a direction: the search gives 180 with the input
  // unchanged, and behaviour 2 takes both.
  k5x::reset_increment_deviation(st);
  const V3 want = direction_at({0.0, 40.0, 32.5}), prev = {0.0, 40.0, 32.0};
  st.machine.tool_length = 0.0;
  k5x::solve_direction(st, want.data(), prev.data(), out.data());
  EXPECT_NEAR(out[2], 32.5, 1e-9);
  EXPECT_EQ(k5x::largest_increment_deviation(st), 180.0);
}

}  // namespace
