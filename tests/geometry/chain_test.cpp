#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "geometry/chain.h"
#include "test_machines.h"

namespace {

using namespace k5x;

void expect_vec(const double* got, double x, double y, double z, double tol = 1e-9) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

// Column c of a row-major 3x3 frame.
void expect_col(const double* m, int c, double x, double y, double z, double tol = 1e-9) {
  const double col[3] = {m[c], m[3 + c], m[6 + c]};
  expect_vec(col, x, y, z, tol);
}

const AxisRecord& rec(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  EXPECT_NE(r, nullptr) << "identifier " << id;
  static AxisRecord none{};
  return r != nullptr ? *r : none;
}

class Chain : public ::testing::Test {
 protected:
  void load(const std::string& text) { ASSERT_EQ(k5x_test::load_text(st, text), 0); }
  void eval(double x, double y, double z, double a, double b, double c) {
    const double q[6] = {x, y, z, a, b, c};
    machine_eval(st, q);
  }
  State st;
};

// A single X slide carrying the tool; the workpiece sits on the frame.
const char kSlide[] =
    "nommachine = Slide\n"
    "bati = Z, Frame\n"
    "axe = AXE_X, X, Slide X\n"
    "outil = Z, 0, 0, 100\n"
    "lien = AXE_BATI\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 5, 0, 0, 0, 0, 30\n";

// A rotary table C pivoting about (10, 0, 0), carrying a Y pallet slide (whose point is the
// origin) with the workpiece on it.
const char kTableC[] =
    "nommachine = TableC\n"
    "bati = Z, Frame\n"
    "rotation = AXE_C, Z, 0, 1, 10, 0, 0, Table C\n"
    "axe = AXE_Y, Y, Pallet Y\n"
    "piece = X, Y, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "outil = Z, 0, 0, 100\n"
    "position = 0, 0, 0, 0, 0, 0\n";

// The workpiece rides on an X table; the tool on a Z ram.
const char kTableX[] =
    "nommachine = TableX\n"
    "bati = Z, Frame\n"
    "axe = AXE_Z, Z, Ram\n"
    "outil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\n"
    "axe = AXE_X, X, Table X\n"
    "piece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";

TEST_F(Chain, LinearAxisMovesTheToolByValueMinusOffset) {
  load(kSlide);
  eval(15, 0, 0, 0, 0, 0);  // offset 5: moves by 10
  expect_vec(rec(st, kIdX).origin, 10, 0, 0);
  expect_vec(rec(st, kIdTool).origin, 10, 0, 100);
  expect_vec(rec(st, kIdWorkpiece).origin, 0, 0, 0);
  expect_col(rec(st, kIdTool).frame, 2, 0, 0, 1);
  eval(5, 0, 0, 0, 0, 0);  // back at the reference: nothing accumulates between calls
  expect_vec(rec(st, kIdTool).origin, 0, 0, 100);
}

TEST_F(Chain, TableAxisTurnsTheWorkpieceTheOtherWay) {
  load(kTableC);
  eval(0, 0, 0, 0, 0, 90);
  // Factor -pi/180: C = +90 turns the table by -90 degrees about +Z through the pivot, so the
  // pallet's point (-10, 0, 0) from the pivot goes to (0, 10, 0) from it.
  expect_vec(rec(st, kIdY).origin, 10, 10, 0);
  const AxisRecord& wp = rec(st, kIdWorkpiece);
  expect_vec(wp.origin, 10, 10, 0);
  expect_col(wp.frame, 0, 0, -1, 0);
  expect_col(wp.frame, 1, 1, 0, 0);
  expect_col(wp.frame, 2, 0, 0, 1);
  expect_vec(rec(st, kIdTool).origin, 0, 0, 100);
  // The pallet slides along its turned axis (now world +X), negated as a workpiece-side axis.
  eval(0, 5, 0, 0, 0, 90);
  expect_vec(rec(st, kIdWorkpiece).origin, 5, 10, 0);
  eval(0, 0, 0, 0, 0, -180);
  expect_vec(rec(st, kIdWorkpiece).origin, 20, 0, 0);
  expect_col(rec(st, kIdWorkpiece).frame, 0, -1, 0, 0);
}

TEST_F(Chain, TableSlideMovesTheWorkpieceNegatively) {
  load(kTableX);
  eval(10, 0, 5, 0, 0, 0);
  expect_vec(rec(st, kIdWorkpiece).origin, -10, 0, 0);
  expect_vec(rec(st, kIdTool).origin, 0, 0, 5);
}

TEST_F(Chain, HeadRotationCarriesTheToolAroundThePivot) {
  load(k5x_test::machine_text("DemoHead"));
  // X, Y, Z carry C at (0, 0, 300) and B at (0, 0, 150); the tool sits at B's pivot - 150 in Z
  // and points along -Z. B = +90 about +Y swings the tool tip to -X of the pivot, and the tool
  // direction -Z to -X.
  eval(1, 2, 3, 0, 90, 0);
  const AxisRecord& tool = rec(st, kIdTool);
  expect_vec(rec(st, kIdB).origin, 1, 2, 153);
  expect_vec(tool.origin, -149, 2, 153);
  expect_col(tool.frame, 2, -1, 0, 0);
  // C = 90 first turns B's axis from +Y to -X; B = 90 about -X then turns -Z to -Y.
  eval(0, 0, 0, 0, 90, 90);
  expect_vec(rec(st, kIdTool).origin, 0, -150, 150);
  expect_col(rec(st, kIdTool).frame, 2, 0, -1, 0);
  expect_col(rec(st, kIdB).frame, 1, -1, 0, 0);
}

TEST_F(Chain, ToolTipIsOriginMinusLengthAlongToolAxis) {
  load(k5x_test::machine_text("DemoHead"));
  st.machine.outil = 50;
  eval(1, 2, 3, 0, 90, 0);
  double tip[3];
  tool_tip(st, tip);
  expect_vec(tip, -99, 2, 153);
  State empty;  // nothing loaded: evaluation has nothing to do, the tip is the origin
  const double q[6] = {1, 2, 3, 4, 5, 6};
  machine_eval(empty, q);
  EXPECT_EQ(empty.machine.record_count, 0);
  double t2[3] = {9, 9, 9};
  tool_tip(empty, t2);
  expect_vec(t2, 0, 0, 0, 0);
}

TEST_F(Chain, TurnedFrameKeepsItsOrientationAndCarriesTheChain) {
  // "-Z" turns the frame half a turn about X: columns X, -Y, -Z. The evaluation never resets the
  // frame, so its orientation reaches every record below it through the links.
  load("nommachine = Upside\n"
       "bati = -Z, Frame\n"
       "axe = AXE_Z, Z, Ram\n"
       "outil = Z, 0, 0, 100\n"
       "lien = AXE_BATI\n"
       "piece = X, Y, 0, 0, 0\n"
       "position = 0, 0, 0, 0, 0, 0\n");
  for (int pass = 0; pass < 2; ++pass) {
    SCOPED_TRACE(pass);
    eval(0, 0, 10, 0, 0, 0);
    const AxisRecord& frame = rec(st, kIdFrame);
    expect_col(frame.frame, 1, 0, -1, 0);
    expect_col(frame.frame, 2, 0, 0, -1);
    expect_vec(frame.origin, 0, 0, 0);
    // Z slides along the frame's -Z; the tool sits 100 further along it.
    expect_vec(rec(st, kIdZ).origin, 0, 0, -10);
    expect_vec(rec(st, kIdTool).origin, 0, 0, -110);
    expect_col(rec(st, kIdWorkpiece).frame, 2, 0, 0, -1);
  }
}

TEST_F(Chain, BothAxesOfOneLetterMove) {
  load("nommachine = Twin\n"
       "bati = Z, Frame\n"
       "axe = AXE_X, X, Lower\n"
       "axe = AXE_X, X, Upper\n"
       "outil = Z, 0, 0, 0\n"
       "lien = AXE_BATI\n"
       "piece = X, Y, 0, 0, 0\n"
       "position = 0, 0, 0, 0, 0, 0\n");
  eval(7, 0, 0, 0, 0, 0);
  expect_vec(rec(st, kIdTool).origin, 14, 0, 0);
}

TEST_F(Chain, AxeMatOfARecordWithItselfIsMinusItsPoint) {
  load(kTableC);
  eval(0, 0, 0, 0, 0, 37);
  double h[16];
  ASSERT_EQ(axe_mat(st, kIdC, kIdC, h), 0);
  const double expect[16] = {1, 0, 0, -10, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(h[i], expect[i], 1e-12) << i;
}

TEST_F(Chain, AxeMatMapsToolPointIntoWorkpieceFrame) {
  load(kTableC);
  eval(0, 0, 0, 0, 0, 90);
  double h[16];
  ASSERT_EQ(axe_mat(st, kIdTool, kIdWorkpiece, h), 0);
  // Workpiece frame columns (0,-1,0), (1,0,0), (0,0,1) at (10,10,0); the tool point (0,0,100)
  // lies at (-10, -10, 100) from it in the world, i.e. (10, -10, 100) in the workpiece's axes.
  const double expect[16] = {0, -1, 0, 10, 1, 0, 0, -10, 0, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(h[i], expect[i], 1e-12) << i;
}

TEST_F(Chain, AxeMatWithMissingRecords) {
  load(kTableC);
  eval(0, 0, 0, 0, 0, 90);
  double h[16];
  for (int a : {7, -3, kIdA}) {
    for (double& x : h) x = 99;
    EXPECT_EQ(axe_mat(st, a, kIdFrame, h), 1) << a;
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(h[i], (i % 5 == 0) ? 1.0 : 0.0, 1e-12) << a;
  }
  // A missing a is the world, still carried into an existing b: rotation W^-1 and translation
  // -W^-1 w, with the workpiece frame columns (0,-1,0), (1,0,0), (0,0,1) at (10, 10, 0).
  for (double& x : h) x = 99;
  EXPECT_EQ(axe_mat(st, 7, kIdWorkpiece, h), 1);
  const double world_in_wp[16] = {0, -1, 0, 10, 1, 0, 0, -10, 0, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 16; ++i) EXPECT_NEAR(h[i], world_in_wp[i], 1e-12) << i;
  // A missing b is the world itself and is not reported.
  // The pivot point (10, 0, 0) of C, measured from itself, is C's origin; the frame turned.
  ASSERT_EQ(axe_mat(st, kIdC, 7, h), 0);
  EXPECT_NEAR(h[0] * 10 + h[3], 10, 1e-12);
  EXPECT_NEAR(h[4] * 10 + h[7], 0, 1e-12);
  EXPECT_NEAR(h[8] * 10 + h[11], 0, 1e-12);
  EXPECT_NEAR(h[4], -1, 1e-12);
}

struct AxisMatrixCase {
  double v[3];
  double cols[3][3];  // expected columns
};

class AxisMatrix : public ::testing::TestWithParam<AxisMatrixCase> {};

TEST_P(AxisMatrix, ColumnsAndLayout) {
  const AxisMatrixCase& c = GetParam();
  double h[16];
  ex_get_axis_matrix(c.v, h);
  for (int col = 0; col < 3; ++col) {
    SCOPED_TRACE(col);
    const double got[3] = {h[col], h[4 + col], h[8 + col]};
    expect_vec(got, c.cols[col][0], c.cols[col][1], c.cols[col][2], 1e-12);
  }
  EXPECT_EQ(h[3], 0.0);
  EXPECT_EQ(h[7], 0.0);
  EXPECT_EQ(h[11], 0.0);
  EXPECT_EQ(h[12], 0.0);
  EXPECT_EQ(h[13], 0.0);
  EXPECT_EQ(h[14], 0.0);
  EXPECT_EQ(h[15], 1.0);
}

const double kS = 0.7071067811865476;
INSTANTIATE_TEST_SUITE_P(
    Directions, AxisMatrix,
    ::testing::Values(
        AxisMatrixCase{{0, 0, 1}, {{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}},
        AxisMatrixCase{{0, 0, -1}, {{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}},
        AxisMatrixCase{{1, 0, 0}, {{0, 1, 0}, {0, 0, 1}, {1, 0, 0}}},
        AxisMatrixCase{{0, 0, 5}, {{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}},  // not unit on input
        // phi = -90: first column (1, 0, 0); second is third x first.
        AxisMatrixCase{{0, -3, 3}, {{1, 0, 0}, {0, kS, kS}, {0, -kS, kS}}}));

TEST(AxisMatrixGeneral, OrthonormalRightHandedWithHorizontalFirstColumn) {
  const double dirs[][3] = {{1, 2, 3}, {-0.3, 0.1, -0.9}, {-1, -1, 0}, {0.2, -5, 0.01}};
  for (const auto& d : dirs) {
    double h[16];
    ex_get_axis_matrix(d, h);
    const double n = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    const double c0[3] = {h[0], h[4], h[8]}, c1[3] = {h[1], h[5], h[9]},
                 c2[3] = {h[2], h[6], h[10]};
    expect_vec(c2, d[0] / n, d[1] / n, d[2] / n, 1e-12);
    EXPECT_NEAR(c0[2], 0.0, 1e-12);
    // c0 x c1 = c2 for a right-handed orthonormal frame.
    const double x[3] = {c0[1] * c1[2] - c0[2] * c1[1], c0[2] * c1[0] - c0[0] * c1[2],
                         c0[0] * c1[1] - c0[1] * c1[0]};
    expect_vec(x, c2[0], c2[1], c2[2], 1e-12);
    EXPECT_NEAR(c0[0] * c0[0] + c0[1] * c0[1], 1.0, 1e-12);
  }
}

}  // namespace
