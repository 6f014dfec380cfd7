#include "geometry/transforms.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

using k5x::State;
using Vec = std::array<double, 3>;
using Six = std::vector<double>;
using k5x_test::expect_values;

class Transforms : public k5x_test::MachineTest {
 protected:
  Vec tip(const Vec& xyz, const Vec& abc) {
    Vec p;
    EXPECT_EQ(0, k5x::tip_at(st, xyz.data(), abc.data(), p.data()));
    return p;
  }
};

// DemoHead: B pivots at z 150 about +Y; the tool point 150 below it swings to (-150, 0, 150) at
// B 90. The workpiece sits at the frame origin after the load's identity placement, until placed.
TEST_F(Transforms, HeadRotationOffsetsAndPlacedWorkpiece) {
  load(k5x_test::machine_text("DemoHead"));
  const Vec rest = {0.0, 0.0, 0.0};
  double v[3];
  EXPECT_EQ(1, k5x::place_tip(st, Vec{900.0, 2.0, 3.0}.data(), rest.data(), v));  // X above 800
  // Head offset at B 90: tip (-150, 0, 150) minus the C pivot (0, 0, 300). m2l and machine2tool
  // apply it under opposite rtcp settings.
  const Six m = {0.0, 0.0, 0.0, 0.0, 90.0, 0.0}, offset = {-150.0, 0.0, -150.0, 0.0, 90.0, 0.0};
  const Six tip_at = {-150.0, 0.0, 150.0, 0.0, 90.0, 0.0};
  const Six* expected[3][2] = {{&m, &offset}, {&tip_at, &offset}, {&offset, &m}};  // per rtcp
  for (int rtcp = 0; rtcp <= 2; ++rtcp) {
    SCOPED_TRACE(rtcp);
    k5x::set_rtcp(st, rtcp);
    double l[6], t[6];
    k5x::machine_to_programmed(st, m.data(), l);
    k5x::machine_to_tool(st, m.data(), t);
    expect_values(l, *expected[rtcp][0]);
    expect_values(t, *expected[rtcp][1]);
  }
  // Rz(90) at (5, 6, 7); element 11 holds a decoy that must not be read.
  k5x::set_rtcp(st, 1);
  const double t[16] = {0, -1, 0, 5, 1, 0, 0, 6, 0, 0, 1, 1000, 7, 0, 0, 1};
  ASSERT_EQ(0, k5x::place_workpiece(st, t));
  const k5x::AxisRecord& w = st.machine.records[st.machine.workpiece];
  expect_values(w.origin, {5.0, 6.0, 7.0});
  expect_values(w.point, {5.0, 6.0, 7.0});
  expect_values(tip({15.0, 26.0, 37.0}, {0.0, 0.0, 0.0}).data(), {20.0, -10.0, 30.0});
  // Without the frame's second link no link leads to a record without a letter.
  st.machine.records[w.previous].link_count = 1;
  EXPECT_EQ(2, k5x::place_workpiece(st, t));
  State empty;
  EXPECT_EQ(1, k5x::place_workpiece(empty, t));
}

// A B head pivoting at x 0.3 over a tool point at x 0.3, on X and Z only. (How rtcp 1 groups
// its sums, to the bit, is the golden record's to guard.)
TEST_F(Transforms, LinearValuesOnAnXZMachine) {
  load("nommachine = G\nbati = Z, F\naxe = AXE_X, X, X\naxe = AXE_Z, Z, Z\n"
       "rotation = AXE_B, Y, 0, 1, 0.3, 0, 120, B\noutil = Z, 0.3, 0, 0\nlien = AXE_BATI\n"
       "piece = X, Y, 0, 0, 0\nposition = 0, 0, 0, 0, 0, 0\n");
  // The tip at rest is the tool point, so X = 4 - 0.3; Y has no axis and keeps the caller's value.
  const double p[3] = {4.0, 0.0, -9.0}, abc[3] = {0.0, 0.0, 0.0};
  double xyz[3] = {0.0, 123.0, 0.0};
  EXPECT_EQ(0, k5x::place_tip(st, p, abc, xyz));
  expect_values(xyz, {3.7, 123.0, -9.0});
}

// Step counts on HeadTable, tolerance 0.05, beyond what the golden record asks (its radius rules
// and rows): C by 2000 degrees at radius 100 needs 551 steps, over the cap.
TEST_F(Transforms, SubdivisionStepCountsAndBlendedRows) {
  const double x100[6] = {100, 0, 0, 0, 0, 0}, far[6] = {100, 0, 0, 0, 100, 2000};
  const double p[6] = {10, 20, 30, 0, 45, 90};
  const struct {
    const double *s, *e;
    int n_in, n_out, code;
  } cases[] = {// Cut to 500 with 7, though B ends beyond its 95 degree limit.
               {x100, far, 1, 500, 7},
               // Equal ends: at least one row; the caller's count is a minimum.
               {p, p, 0, 1, 0},
               {p, p, 3, 3, 0}};
  double* table = nullptr;
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    load(k5x_test::machine_text("HeadTable"));
    k5x::set_rtcp(st, 0);
    int n = c.n_in;
    EXPECT_EQ(c.code, k5x::subdivide_move(st, c.s, c.e, &n, &table));
    ASSERT_EQ(c.n_out, n);
    for (int i = 0; i < n; ++i)
      for (int k = 0; k < 6; ++k)
        ASSERT_NEAR(c.s[k] + (c.e[k] - c.s[k]) * (i + 1) / n, table[6 * i + k], 1e-9) << i;
  }
  EXPECT_EQ(500, st.table_capacity);  // never shrunk by the smaller counts after the cap
}

}  // namespace
