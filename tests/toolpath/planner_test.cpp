// The planner against the library's own answers: a planned path stays in travel, continuous and
// on the programmed points and axes, window after window.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "geometry/transforms.h"
#include "test_machines.h"
#include "toolpath/kinematics.h"
#include "toolpath/planner.h"

namespace {

constexpr double kDeg = 3.141592653589793 / 180.0;

struct Collect : k5x::PositionSink {
  std::vector<k5x::PlannedPosition> rows;
  void position(const k5x::PlannedPosition& p) override { rows.push_back(p); }
};

// A long pass on the trunnion whose tool leans up to 70 degrees while the table turns three
// times: from the vertical, the nearest solution takes the branch that leaves the A travel
// (-120..30); the plan must not.
std::vector<k5x::ProgrammedMove> trunnion_pass(int n) {
  std::vector<k5x::ProgrammedMove> moves(n);
  for (int i = 0; i < n; ++i) {
    const double s = static_cast<double>(i) / n;
    const double tilt = 70.0 * std::sin(3.141592653589793 * s) * kDeg;
    const double turn = (1080.0 * s + 200.0) * kDeg;
    k5x::ProgrammedMove& m = moves[i];
    m.point[0] = 30.0 * std::cos(turn);
    m.point[1] = 30.0 * std::sin(turn);
    m.point[2] = 5.0;
    m.axis[0] = std::sin(tilt) * std::cos(turn);
    m.axis[1] = std::sin(tilt) * std::sin(turn);
    m.axis[2] = std::cos(tilt);
    m.line = i + 1;
    m.index = i;
  }
  return moves;
}

TEST(Planner, KeepsALongPathInTravelAcrossWindows) {
  k5x::State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("Trunnion")), 0);
  st.silent = 1;
  const int n = 900;
  const std::vector<k5x::ProgrammedMove> moves = trunnion_pass(n);
  k5x::PlanOptions options;
  {
    options.choice = k5x::Choice::nearest;
    Collect nearest;
    k5x::Planner planner(st, options, &nearest);
    for (const k5x::ProgrammedMove& m : moves) planner.push(m);
    planner.finish();
    ASSERT_GT(planner.stats().out_of_travel, 0) << "the path does not test the choice";
  }
  options.choice = k5x::Choice::path;
  // Several windows on a short path; each must see the A limit coming (some 130 moves ahead).
  options.window = 100;
  options.overlap = 150;
  options.linearise = k5x::Linearise::tolerance;
  Collect sink;
  k5x::Planner planner(st, options, &sink);
  for (const k5x::ProgrammedMove& m : moves) planner.push(m);
  planner.finish();
  EXPECT_EQ(planner.stats().moves, n);
  EXPECT_EQ(planner.stats().out_of_travel, 0);
  EXPECT_EQ(planner.stats().swings, 0);
  EXPECT_LE(planner.stats().max_tip_deviation, options.tolerance);
  long programmed = 0;
  const k5x::PlannedPosition* last = nullptr;
  for (const k5x::PlannedPosition& p : sink.rows) {
    ASSERT_TRUE(p.reachable);
    EXPECT_EQ(p.travel_code, 0) << "line " << p.line;
    for (int k = 3; k < 6 && last != nullptr; ++k) {
      EXPECT_LT(std::fabs(p.axes[k] - last->axes[k]), 20.0) << "line " << p.line;
    }
    last = &p;
    if (p.inserted) continue;
    ASSERT_EQ(p.index, programmed) << "a move delivered twice or lost";
    const k5x::ProgrammedMove& m = moves[programmed++];
    double tip[3], dir[3];
    k5x::tip_at(st, p.axes, p.axes + 3, tip);
    k5x_test::chain_tool_direction(st, p.axes + 3, dir);
    for (int k = 0; k < 3; ++k) {
      EXPECT_NEAR(tip[k], m.point[k], 1e-6) << "line " << p.line;
    }
    // Within the angle tolerance of the table's axis, a move may be stood along it.
    const double tilt = std::acos(m.axis[2]) / kDeg;
    EXPECT_LT(k5x_test::angle_between_deg(dir, m.axis),
              tilt <= options.angle_tolerance ? options.angle_tolerance : 1e-6)
        << "line " << p.line;
  }
  EXPECT_EQ(programmed, n);
}

// Every solution the planner is offered carries the code the output prints for it: on two
// rotary axes 0 exactly when the solution is in travel, whichever branch it came from (on three,
// 1). The trunnion's A travel (-120..30) puts one branch out of travel once the tool leans over
// 30. Each axis is held for three moves, the third answered from what the second kept.
TEST(Planner, EverySolutionCodeAgreesWithItsTravel) {
  for (const char* name : {"Trunnion", "HeadTable", "DemoHead", "IndexedTable", "ThreeRotary"}) {
    k5x::State st;
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text(name)), 0) << name;
    st.silent = 1;
    const bool three_rotary = k5x::read_machine_facts(st).three_rotary;
    k5x::PlanOptions options;
    options.cam_axis = false;
    k5x::Gatherer gatherer(st, options);
    int out_of_travel = 0;
    for (double tilt = 0.0; tilt <= 120.0; tilt += 7.5) {
      for (double turn = -170.0; turn < 360.0; turn += 41.0) {
        k5x::Candidates c[3];
        for (int n = 0; n < 3; ++n) {
          k5x::ProgrammedMove move;
          move.axis[0] = std::sin(tilt * kDeg) * std::cos(turn * kDeg);
          move.axis[1] = std::sin(tilt * kDeg) * std::sin(turn * kDeg);
          move.axis[2] = std::cos(tilt * kDeg);
          gatherer.gather(move, &c[n]);
          for (int j = 0; j < c[n].count; ++j) {
            EXPECT_EQ(c[n].solver_code[j] == (three_rotary ? 1 : 0), c[n].in_travel[j])
                << name << " tilt " << tilt << " turn " << turn << " move " << n << " solution "
                << j << ": code " << c[n].solver_code[j];
            out_of_travel += !c[n].in_travel[j];
          }
        }
        // Whether the axis lies along the first rotary axis is the direction's alone.
        EXPECT_TRUE(c[0].singular == c[1].singular && c[1].singular == c[2].singular)
            << name << " tilt " << tilt << " turn " << turn;
      }
    }
    EXPECT_GT(out_of_travel, 0) << name << ": no solution out of travel to check";
  }
}

}  // namespace
