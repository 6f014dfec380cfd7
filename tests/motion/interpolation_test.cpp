#include <gtest/gtest.h>

#include <sys/resource.h>

#include <array>
#include <cmath>
#include <cstdlib>
#include <string>

#include "motion/interpolation.h"
#include "test_machines.h"

namespace {

using V6 = std::array<double, 6>;
V6 v6(const double* p) { return {p[0], p[1], p[2], p[3], p[4], p[5]}; }

// HeadTable (B limited to +-95) without compensation: every coordinate blends linearly.
class Linear : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(0, k5x_test::load_text(st, k5x_test::machine_text("HeadTable")));
    k5x::set_rtcp(st, 0);
  }
  k5x::State st;
  double out[6], *table = nullptr;
  const double p0[6] = {10.0, -20.0, 30.0, 0.0, 0.0, 40.0};
  const double p1[6] = {50.0, 20.0, -10.0, 0.0, 120.0, 100.0};  // B out of travel
};

// Only the table tests the travel: it reports the first failing row and still fills them all.
TEST_F(Linear, EndpointsExtrapolationTravelAndTheTableBuffer) {
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 0.0, out));
  EXPECT_EQ(v6(out), v6(p0));
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 1.0, out));
  EXPECT_EQ(v6(out), v6(p1));
  EXPECT_EQ(0, k5x::interpolation(st, p0, p1, 1.5, out));
  EXPECT_EQ(v6(out), (V6{70, 40, -30, 0, 180, 130}));
  int n = 4;  // B at -120, -40, 40 and 120: out below first, above last
  const double from[6] = {10.0, -20.0, 30.0, 0.0, -200.0, 40.0};
  EXPECT_EQ(-5, k5x::interpolation_table(st, from, p1, &n, &table));
  ASSERT_EQ(4, n);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(v6(table + 6 * i), (V6{20.0 + 10 * i, -10.0 + 10 * i, 20.0 - 10 * i, 0,
                                     -120.0 + 80 * i, 55.0 + 15 * i}));
  for (int given : {0, -7}) {  // one row, the end position
    n = given;
    k5x::interpolation_table(st, p0, p1, &n, &table);
    ASSERT_EQ(1, n);
    EXPECT_EQ(v6(table), v6(p1));
  }
  n = 6;
  k5x::interpolation_table(st, p0, p1, &n, &table);
  double* first = table;
  const V6 tail = v6(table + 6 * 4);
  n = 2;  // a smaller count reuses the buffer and writes only its rows
  k5x::interpolation_table(st, p0, p0, &n, &table);
  EXPECT_EQ(first, table);
  EXPECT_EQ(v6(table + 6), v6(p0));
  EXPECT_EQ(v6(table + 6 * 4), tail);
  n = 300;  // an endpoint handed back from the table itself stays valid while the table grows
  k5x::interpolation_table(st, table + 6, p1, &n, &table);
  EXPECT_DOUBLE_EQ(p0[0] + (p1[0] - p0[0]) / 300.0, table[0]);
  EXPECT_EQ(v6(table + 6 * 299), v6(p1));
}

TEST_F(Linear, AllocationFailureGivesCodeEight) {
#if defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "address space limits conflict with the sanitizer's shadow memory";
#else
  // In a child with 2 GB of address space, 100 million rows (4.8 GB) cannot be had.
  EXPECT_EXIT(
      {
        rlimit lim;
        lim.rlim_cur = lim.rlim_max = 2UL << 30;
        setrlimit(RLIMIT_AS, &lim);
        int n = 100000000;
        double* t = out;  // any non-null value, to see that it is cleared
        const int code = k5x::interpolation_table(st, p0, p1, &n, &t);
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
TEST(Substitution, RotaryRunsRebuiltFromTheStart) {
  const std::string head_b = "rotation = AXE_B, Y, 0, 1, 0, 0, 100, B\noutil = Z\nlien = AXE_BATI";
  const std::string table_c = "outil = Z\nlien = AXE_BATI\nrotation = AXE_C, Z, 0, 1, 0, 0, 0, C";
  const double r2 = std::sqrt(2.0);
  const struct { const std::string& rotary; int rtcp; double p1[6], expected[3]; } rows[] = {
      {head_b, 1, {0, 0, 0, 0, 90, 0}, {-50 - 50 * r2, 0, 50 * r2 - 50}},
      {head_b, 2, {0, 0, 0, 0, 90, 0}, {-50 - 50 * r2, 0, 50 * r2 - 50}},
      {table_c, 1, {10, 0, 0, 0, 0, 90}, {0, -5 * r2, 0}},
      {table_c, 2, {10, 0, 0, 0, 0, 90}, {10, 0, 0}}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.rotary + "\nrtcp " + std::to_string(r.rtcp));
    k5x::State st;
    ASSERT_EQ(0, k5x_test::load_text(st, "bati = Z, F\naxe = AXE_X, -X, X\naxe = AXE_Y, Y, Y\n"
                                         "axe = AXE_Z, Z, Z\n" + r.rotary +
                                             "\npiece = X, Y, 0, 0, 0\n"));
    k5x::set_rtcp(st, r.rtcp);
    const double p0[6] = {r.p1[0], 0.0, 0.0, 0.0, 0.0, 0.0};
    double out[6], *table = nullptr;
    int n = 2;
    k5x::interpolation(st, p0, r.p1, 0.5, out);
    k5x::interpolation_table(st, p0, r.p1, &n, &table);
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(r.expected[k], out[k], 1e-9) << "value " << k;
    for (int k = 0; k < 3; ++k) EXPECT_NEAR(r.expected[k], table[k], 1e-9) << "row 0, " << k;
  }
}

}  // namespace
