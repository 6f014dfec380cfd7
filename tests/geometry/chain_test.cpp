#include "geometry/chain.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "geometry/transforms.h"
#include "test_machines.h"

namespace {

using namespace k5x;
using k5x_test::expect_values;
using Vec = std::array<double, 3>;

// Column c of a row-major 3x3 frame.
Vec col(const double* m, int c) { return {m[c], m[3 + c], m[6 + c]}; }

class Chain : public k5x_test::MachineTest {
 protected:
  void eval(double x, double y, double z, double a, double b, double c) {
    const double q[6] = {x, y, z, a, b, c};
    evaluate_chain(st, q);
  }
  const AxisRecord& rec(int id) {
    const AxisRecord* r = record_by_id(st, id);
    if (r == nullptr) ADD_FAILURE() << "no record " << id;
    return r != nullptr ? *r : st.machine.records[0];
  }
};

// A C table pivoting about (10, 0, 0), carrying a Y pallet (point at the origin) and the workpiece.
const char kTableC[] =
    "nommachine = TableC\nbati = Z, Frame\nrotation = AXE_C, Z, 0, 1, 10, 0, 0, Table C\n"
    "axe = AXE_Y, Y, Pallet Y\npiece = X, Y, 0, 0, 0\nlien = AXE_BATI\noutil = Z, 0, 0, 100\n"
    "position = 0, 0, 0, 0, 0, 0\n";

TEST(ChainEmpty, EvaluationDoesNothingAndTheTipIsTheOrigin) {
  State empty;
  const double q[6] = {1, 2, 3, 4, 5, 6};
  double tip[3] = {7, 7, 7};
  evaluate_chain(empty, q);
  tool_tip(empty, tip);
  expect_values(tip, {0, 0, 0}, 0);
}

TEST_F(Chain, TurnedFrameIsNeverResetAndCarriesTheChain) {
  // "-Z" turns the frame half a turn about X: columns X, -Y, -Z, reaching every record below it.
  load("nommachine = U\nbati = -Z, F\naxe = AXE_Z, Z, Z\noutil = Z, 0, 0, 100\n"
       "lien = AXE_BATI\npiece = X, Y, 0, 0, 0\nposition = 0, 0, 0, 0, 0, 0\n");
  for (int pass = 0; pass < 2; ++pass) {
    SCOPED_TRACE(pass);
    eval(0, 0, 10, 0, 0, 0);
    expect_values(rec(kIdZ).origin, {0, 0, -10});  // Z slides along the frame's -Z
    expect_values(rec(kIdTool).origin, {0, 0, -110});
    expect_values(col(rec(kIdWorkpiece).frame, 2).data(), {0, 0, -1});
  }
}

// An evaluation passes by the records whose values did not change since the last one. After
// every step of a long run it must leave the very bits that a full evaluation of the same state
// leaves: values that change one at a time, return, become -0 or NaN; a workpiece placed again;
// a changed tolerance; trees that no load makes: a moving record that lost its parent link and so
// moves again at every call, a record placed by two links, a link back to an earlier record.
TEST(ChainMemo, EveryStepLeavesTheBitsOfAFullEvaluation) {
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> value(-200.0, 200.0);
  const double specials[] = {0.0, -0.0, 90.0, std::nan("")};
  enum Surgery { kNoSurgery, kCutA, kSecondLinkToC, kLinkBack };
  const struct {
    const char* name;
    Surgery surgery;
  } machines[] = {{"DemoHead", kNoSurgery},    {"Trunnion", kNoSurgery},
                  {"HeadTable", kNoSurgery},   {"ThreeRotary", kNoSurgery},
                  {"IndexedTable", kNoSurgery}, {"Trunnion", kCutA},
                  {"Trunnion", kSecondLinkToC}, {"Trunnion", kLinkBack}};
  for (const auto& machine : machines) {
    SCOPED_TRACE(testing::Message() << machine.name << " " << machine.surgery);
    State st;
    ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text(machine.name)), 0);
    Model& m = st.machine;
    const int a = record_index_by_id(st, kIdA), c = record_index_by_id(st, kIdC);
    const int x = record_index_by_id(st, kIdX), z = record_index_by_id(st, kIdZ);
    const bool cut = machine.surgery == kCutA;
    if (cut)
      for (int i = 0; i < m.record_count; ++i)
        for (Link& l : m.records[i].links)
          if (l.child == a) l.child = kNone;
    AxisRecord* from = machine.surgery == kSecondLinkToC ? &m.records[z]
                       : machine.surgery == kLinkBack    ? &m.records[c]
                                                         : nullptr;
    if (from != nullptr) {
      ASSERT_LT(from->link_count, kMaxLinks);
      Link& l = from->links[from->link_count++];
      l = from->links[0];
      l.child = machine.surgery == kLinkBack ? x : c;
    }
    m.chain_memo.valid = false;  // as every change of the geometry does
    double q[6] = {0, 0, 0, 0, 0, 0};
    for (int step = 0; step < 400; ++step) {
      SCOPED_TRACE(step);
      const int k = static_cast<int>(rng() % 7);
      // NaN only where nothing keeps it: a record that moves at every call would carry it on.
      if (k < 6) q[k] = rng() % 5 == 0 ? specials[rng() % (cut ? 3 : 4)] : value(rng);
      if (step % 97 == 96) {
        const double t[16] = {0, -1, 0, value(rng), 1, 0, 0, value(rng), 0, 0, 1, 0, value(rng)};
        place_workpiece(st, t);
      }
      if (step == 250) st.eps = 2.0;  // every column then counts as along its axis
      if (step == 300) st.eps = 1e-6;
      State full;
      full.machine = st.machine;
      full.eps = st.eps;
      full.machine.chain_memo.valid = false;
      evaluate_chain(full, q);
      evaluate_chain(st, q);
      for (int i = 0; i < st.machine.record_count; ++i) {
        const AxisRecord& got = st.machine.records[i];
        const AxisRecord& want = full.machine.records[i];
        ASSERT_EQ(std::memcmp(got.origin, want.origin, sizeof got.origin), 0) << "record " << i;
        ASSERT_EQ(std::memcmp(got.frame, want.frame, sizeof got.frame), 0) << "record " << i;
      }
    }
  }
}

// The top three rows of a 4x4 matrix, and its bottom row 0, 0, 0, 1.
void expect_h(const double* h, const double (&want)[12]) {
  for (int i = 0; i < 12; ++i) EXPECT_NEAR(h[i], want[i], 1e-12) << i;
  for (int i = 12; i < 16; ++i) EXPECT_EQ(h[i], i == 15 ? 1.0 : 0.0) << i;
}

// kTableC at C = 90, its table turned by -90 degrees about +Z through the pivot, read through
// axe_mat. The workpiece frame has columns (0,-1,0), (1,0,0), (0,0,1) at (10, 10, 0),
// C's frame the same columns at its pivot (10, 0, 0), which is also its point. A record in itself
// is the identity less its point; the tool (point at its origin) seen from the workpiece is
// W^-1 (0 - w); a missing a is the world, still carried into b; a missing b is the world and is
// not reported.
TEST_F(Chain, TableAxisTurnsTheWorkpieceTheOtherWay) {
  load(kTableC);
  eval(0, 0, 0, 0, 0, 90);
  const struct {
    int a, b, code;
    double h[12];
  } cases[] = {{kIdC, kIdC, 0, {1, 0, 0, -10, 0, 1, 0, 0, 0, 0, 1, 0}},
               {kIdTool, kIdWorkpiece, 0, {0, -1, 0, 10, 1, 0, 0, -10, 0, 0, 1, 0}},
               {7, kIdWorkpiece, 1, {0, -1, 0, 10, 1, 0, 0, -10, 0, 0, 1, 0}},
               {7, kIdFrame, 1, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}},
               {-3, kIdFrame, 1, {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0}},
               {kIdC, 7, 0, {0, 1, 0, 10, -1, 0, 0, 10, 0, 0, 1, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.a << " in " << c.b);
    double h[16];
    for (double& x : h) x = 99;
    EXPECT_EQ(axis_matrix(st, c.a, c.b, h), c.code);
    expect_h(h, c.h);
  }
  // The pallet slides along its turned axis (world +X), negated as a workpiece-side axis. Half a
  // turn the other way puts its point at (10, 0, 0) from the pivot: nothing accumulates.
  eval(0, 5, 0, 0, 0, 90);
  expect_values(rec(kIdWorkpiece).origin, {5, 10, 0});
  eval(0, 0, 0, 0, 0, -180);
  expect_values(rec(kIdWorkpiece).origin, {20, 0, 0});
}

// Rows of Rz(phi + 90) Rx(theta): the third column is the unit direction, the first horizontal.
// Straight up gives columns -X, -Y, +Z, not the identity; at theta = phi = 45 degrees the right
// phi is found only when (x, y) is rescaled to unit.
TEST(AxisMatrix, FrameFromADirection) {
  const double s = 0.7071067811865476;
  const struct {
    double v[3], h[12];
  } cases[] = {{{0, 0, 1}, {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0}},
               {{0, 0, 5}, {-1, 0, 0, 0, 0, -1, 0, 0, 0, 0, 1, 0}},
               {{0, 0, -1}, {-1, 0, 0, 0, 0, 1, 0, 0, 0, 0, -1, 0}},
               {{1, 0, 0}, {0, 0, 1, 0, 1, 0, 0, 0, 0, 1, 0, 0}},
               {{0, -3, 3}, {1, 0, 0, 0, 0, s, -s, 0, 0, s, s, 0}},
               {{1, 1, 2 * s}, {-s, -0.5, 0.5, 0, s, -0.5, 0.5, 0, 0, s, s, 0}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.v[0] << ", " << c.v[1] << ", " << c.v[2]);
    double h[16];
    frame_along(c.v, h);
    expect_h(h, c.h);
  }
}

}  // namespace
