// The solutions the planner is offered, against the library's own travel test. (Planned paths,
// window after window, are the program's recorded outputs to guard.)
#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "test_machines.h"
#include "geometry/travel.h"
#include "toolpath/kinematics.h"
#include "toolpath/planner.h"

namespace {

constexpr double kDeg = 3.141592653589793 / 180.0;

// Every solution the planner is offered carries the code the output prints for it: on two
// rotary axes 0 exactly when the solution is in travel, whichever branch it came from (on three,
// 1). The trunnion's A travel (-120..30) puts one branch out of travel once the tool leans over
// 30. Each axis is held for three moves, the third answered from what the second kept. The
// direction along the first rotary axis comes last, where the values that axis had are offered
// again; with the table's C limited to +-100 some of them are out of travel.
TEST(Planner, EverySolutionCodeAgreesWithItsTravel) {
  for (const char* name : {"Trunnion", "HeadTable", "DemoHead", "IndexedTable", "ThreeRotary"}) {
    k5x::State st;
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text(name)), 0) << name;
    st.silent = 1;
    if (std::string(name) == "Trunnion") {
      k5x::set_travel_minimum(st, k5x::kIdC, -100.0);
      k5x::set_travel_maximum(st, k5x::kIdC, 100.0);
    }
    const bool three_rotary = k5x::read_machine_facts(st).three_rotary;
    k5x::PlanOptions options;
    options.cam_axis = false;
    k5x::Gatherer gatherer(st, options);
    int out_of_travel = 0;
    int offered_again = 0;
    for (int step = 1; step <= 17; ++step) {
      const double tilt = step == 17 ? 0.0 : 7.5 * step;
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
        if (c[0].singular) offered_again += c[0].count;
      }
    }
    EXPECT_GT(out_of_travel, 0) << name << ": no solution out of travel to check";
    if (std::string(name) == "Trunnion") {
      EXPECT_GT(offered_again, 2);
    }
  }
}

}  // namespace
