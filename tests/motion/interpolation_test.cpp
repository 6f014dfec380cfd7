#include <gtest/gtest.h>

#include <sys/resource.h>

#include <cstdlib>

#include "geometry/chain.h"
#include "geometry/transforms.h"
#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

using k5x::State;

// HeadTable with B limited to +-95.
class Interpolation : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("HeadTable")));
    k5x::set_rtcp(st, 0);
  }
  State st;
  double* table = nullptr;
  const double p0[6] = {10.0, -20.0, 30.0, 0.0, 0.0, 40.0};
  const double p1[6] = {50.0, 20.0, -10.0, 0.0, 120.0, 100.0};
};

TEST_F(Interpolation, EndpointsAndExtrapolationWithoutRtcp) {
  double out[6];
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 0.0, out));
  for (int k = 0; k < 6; ++k) EXPECT_EQ(p0[k], out[k]);
  // B ends out of travel, yet without rtcp no travel test is made.
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 1.0, out));
  for (int k = 0; k < 6; ++k) EXPECT_EQ(p1[k], out[k]);
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 1.5, out));
  EXPECT_DOUBLE_EQ(70.0, out[0]);
  EXPECT_DOUBLE_EQ(180.0, out[4]);
  k5x::interpolation(st, p0, p1, -0.5, out);
  EXPECT_DOUBLE_EQ(-10.0, out[0]);
  EXPECT_DOUBLE_EQ(10.0, out[5]);
}

TEST_F(Interpolation, TableReportsFirstFailingRowAndFillsAll) {
  int n = 4;
  EXPECT_EQ(5, k5x::interpolationtable(st, p0, p1, &n, &table));  // B 120 > 95 in the last row
  ASSERT_EQ(4, n);
  for (int i = 0; i < 4; ++i) {
    EXPECT_DOUBLE_EQ(30.0 * (i + 1), table[6 * i + 4]) << "row " << i;
    EXPECT_DOUBLE_EQ(10.0 + 10.0 * (i + 1), table[6 * i]) << "row " << i;
  }
  const double back[6] = {50.0, 20.0, -10.0, 0.0, -120.0, 100.0};  // out from the first row on
  EXPECT_EQ(-5, k5x::interpolationtable(st, p0, back, &n, &table));
}

TEST_F(Interpolation, CountBelowOneGivesOneRowAtEnd) {
  for (int given : {0, -7}) {
    int n = given;
    k5x::interpolationtable(st, p0, p1, &n, &table);
    ASSERT_EQ(1, n);
    for (int k = 0; k < 6; ++k) EXPECT_DOUBLE_EQ(p1[k], table[k]);
  }
}

TEST_F(Interpolation, SmallerCountReusesBufferAndLeavesTail) {
  int n = 6;
  k5x::interpolationtable(st, p0, p1, &n, &table);
  double* first = table;
  const double tail = table[6 * 4 + 4];
  n = 2;
  k5x::interpolationtable(st, p0, p0, &n, &table);
  EXPECT_EQ(first, table);
  EXPECT_EQ(p0[4], table[6 + 4]);
  EXPECT_EQ(tail, table[6 * 4 + 4]);
}

// An endpoint handed back from the table itself stays valid while the table grows.
TEST_F(Interpolation, EndpointMayBeARowOfTheTable) {
  int n = 2;
  k5x::interpolationtable(st, p0, p1, &n, &table);
  n = 300;
  k5x::interpolationtable(st, table + 6, p0, &n, &table);  // row 1 is p1
  EXPECT_DOUBLE_EQ(p1[0] + (p0[0] - p1[0]) / 300.0, table[0]);
  EXPECT_DOUBLE_EQ(p0[0], table[6 * 299]);
}

#if defined(__SANITIZE_ADDRESS__)
#define K5X_UNDER_ASAN 1
#endif

TEST_F(Interpolation, AllocationFailureGivesCodeEight) {
#ifdef K5X_UNDER_ASAN
  GTEST_SKIP() << "address space limits conflict with the sanitizer's shadow memory";
#else
  // In a child with 2 GB of address space, 100 million rows (4.8 GB) cannot be had.
  EXPECT_EXIT(
      {
        rlimit lim;
        lim.rlim_cur = lim.rlim_max = 2UL << 30;
        setrlimit(RLIMIT_AS, &lim);
        int n = 100000000;
        double dummy = 0.0;
        double* t = &dummy;  // any non-null value, to see that it is cleared
        const int code = k5x::interpolationtable(st, p0, p1, &n, &t);
        std::exit(code == 8 && n == 0 && t == nullptr && st.table_capacity == 0 ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
#endif
}

// With X running along -X the local forms are not a round trip, so the rotary values that the
// rebuild uses become visible. Hand derivations, halfway through each move:
// - B head (pivot z 100, tool point at the origin): the tool-side B goes back to its start value
//   under both rtcp 1 and 2, giving X = -50 - 50 sqrt2, Z = 50 sqrt2 - 50 (the blended B would
//   give X = 50 sqrt2 - 50).
// - C table at the origin, tool at x -10: with rtcp 1 C goes back to 0 and the row is
//   (0, -5 sqrt2, 0); with rtcp 2 C stays blended and the row is the plain blend (10, 0, 0).
struct SubstitutionCase {
  const char* text;
  int rtcp;
  double p1[6];
  double expected[3];
};

const char kMirroredHead[] =
    "nommachine = MH\nbati = Z, Frame\naxe = AXE_X, -X, X\naxe = AXE_Y, Y, Y\n"
    "axe = AXE_Z, Z, Z\nrotation = AXE_B, Y, 0, 1, 0, 0, 100, B\noutil = Z, 0, 0, 0\n"
    "lien = AXE_BATI\npiece = X, Y, 0, 0, 0\nposition = 0, 0, 0, 0, 0, 0\n";
const char kMirroredTable[] =
    "nommachine = MT\nbati = Z, Frame\naxe = AXE_X, -X, X\naxe = AXE_Y, Y, Y\n"
    "axe = AXE_Z, Z, Z\noutil = Z, 0, 0, 0\nlien = AXE_BATI\n"
    "rotation = AXE_C, Z, 0, 1, 0, 0, 0, C\npiece = X, Y, 0, 0, 0\n"
    "position = 0, 0, 0, 0, 0, 0\n";
const double kR2 = 1.4142135623730951;

class Substitution : public ::testing::TestWithParam<SubstitutionCase> {};

TEST_P(Substitution, RotaryRunsRebuiltFromTheStart) {
  const SubstitutionCase& c = GetParam();
  State st;
  ASSERT_EQ(0, k5x_test::load_text(st, c.text));
  k5x::set_rtcp(st, c.rtcp);
  double p0[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  p0[0] = c.p1[0];
  double out[6];
  k5x::interpolation(st, p0, c.p1, 0.5, out);
  int n = 2;
  double* table = nullptr;
  k5x::interpolationtable(st, p0, c.p1, &n, &table);
  for (int k = 0; k < 3; ++k) {
    EXPECT_NEAR(c.expected[k], out[k], 1e-9) << "value " << k;
    EXPECT_NEAR(c.expected[k], table[k], 1e-9) << "row 0 value " << k;
  }
  for (int k = 3; k < 6; ++k) EXPECT_EQ(c.p1[k] / 2.0, out[k]);
}

INSTANTIATE_TEST_SUITE_P(
    MirroredX, Substitution,
    ::testing::Values(
        SubstitutionCase{kMirroredHead, 1, {0, 0, 0, 0, 90, 0}, {-50 - 50 * kR2, 0, 50 * kR2 - 50}},
        SubstitutionCase{kMirroredHead, 2, {0, 0, 0, 0, 90, 0}, {-50 - 50 * kR2, 0, 50 * kR2 - 50}},
        SubstitutionCase{kMirroredTable, 1, {10, 0, 0, 0, 0, 90}, {0, -5 * kR2, 0}},
        SubstitutionCase{kMirroredTable, 2, {10, 0, 0, 0, 0, 90}, {10, 0, 0}}));

struct RtcpCase {
  const char* machine;
  int rtcp;
  double p0[6];
  double p1[6];
};

void tip_in_workpiece(State& st, const double m[6], double out[3]) {
  k5x::xyz2pts(st, m, m + 3, out);
}

void tip_in_machine(State& st, const double m[6], double out[3]) {
  k5x::machine_eval(st, m);
  k5x::tool_tip(st, out);
}

// With full compensation the tip moves on a straight line in workpiece coordinates; with the
// head only, on a straight line in machine coordinates. Rotary values always blend linearly.
class RtcpBlend : public ::testing::TestWithParam<RtcpCase> {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text(GetParam().machine)));
    k5x::set_rtcp(st, GetParam().rtcp);
    tip = GetParam().rtcp == 1 ? tip_in_workpiece : tip_in_machine;
  }
  void expect_on_line(const double row[6], double f) {
    const RtcpCase& c = GetParam();
    double a[3], b[3], got[3];
    tip(st, c.p0, a);
    tip(st, c.p1, b);
    tip(st, row, got);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(a[k] + (b[k] - a[k]) * f, got[k], 1e-7) << "f " << f;
    for (int k = 3; k < 6; ++k) EXPECT_NEAR(c.p0[k] + (c.p1[k] - c.p0[k]) * f, row[k], 1e-9);
  }
  State st;
  void (*tip)(State&, const double*, double*) = nullptr;
};

TEST_P(RtcpBlend, InterpolationFollowsTheLine) {
  for (double t : {0.0, 0.3, 1.0, 1.4, -0.25}) {
    double out[6];
    k5x::interpolation(st, GetParam().p0, GetParam().p1, t, out);
    expect_on_line(out, t);
  }
}

TEST_P(RtcpBlend, TableRowsFollowTheLine) {
  int n = 5;
  double* table = nullptr;
  k5x::interpolationtable(st, GetParam().p0, GetParam().p1, &n, &table);
  ASSERT_EQ(5, n);
  for (int i = 0; i < n; ++i) expect_on_line(table + 6 * i, (i + 1) / 5.0);
  n = 1;  // the subdivision rebuilds its rows the same way
  k5x::xyzabc(st, GetParam().p0, GetParam().p1, &n, &table);
  for (int i = 0; i < n; ++i) expect_on_line(table + 6 * i, (i + 1) / static_cast<double>(n));
}

INSTANTIATE_TEST_SUITE_P(
    Machines, RtcpBlend,
    ::testing::Values(
        RtcpCase{"HeadTable", 1, {10, -20, 30, 0, 15, 40}, {60, 25, -10, 0, -35, 100}},
        RtcpCase{"HeadTable", 2, {10, -20, 30, 0, 15, 40}, {60, 25, -10, 0, -35, 100}},
        RtcpCase{"DemoHead", 1, {10, -20, 30, 0, 15, 40}, {60, 25, -10, 0, -35, 100}},
        RtcpCase{"DemoHead", 2, {10, -20, 30, 0, 15, 40}, {60, 25, -10, 0, -35, 100}},
        RtcpCase{"Trunnion", 1, {10, -20, 250, -10, 0, 40}, {60, 25, 200, -60, 0, 130}},
        RtcpCase{"Trunnion", 2, {10, -20, 250, -10, 0, 40}, {60, 25, 200, -60, 0, 130}}));

}  // namespace
