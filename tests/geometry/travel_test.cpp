#include <gtest/gtest.h>

#include "geometry/travel.h"
#include "test_machines.h"

namespace {

using namespace k5x;

// A state whose six letters are all bound (to placeholder records) and whose limits the tests set
// directly; the defaults are the reset's "no limit" values.
class Travel : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 6; ++i) st.machine.letter[i] = i + 1;
    st.machine.travel_tol = 0.01;
  }
  void limit(int axis, double lo, double hi) {
    st.machine.travel_min[axis - 1] = lo;
    st.machine.travel_max[axis - 1] = hi;
  }
  State st;
};

TEST_F(Travel, ToleranceBoundaryIsInside) {
  limit(kIdX, -100, 100);
  int f[3] = {7, 7, 7};
  const double at[3] = {100.01, 0, 0};
  EXPECT_EQ(testcoursesXYZ(st, at, f), 0);
  EXPECT_EQ(f[0], 0);
  const double over[3] = {100.0100001, 0, 0};
  EXPECT_EQ(testcoursesXYZ(st, over, f), 1);
  EXPECT_EQ(f[0], 1);
  const double under[3] = {-100.0100001, 0, 0};
  EXPECT_EQ(testcoursesXYZ(st, under, f), -1);
  EXPECT_EQ(f[0], -1);
  const double at_min[3] = {-100.01, 0, 0};
  EXPECT_EQ(testcoursesXYZ(st, at_min, f), 0);
}

TEST_F(Travel, EachAxisReportsItsOwnNumber) {
  for (int k = 1; k <= 6; ++k) limit(k, -10, 10);
  for (int k = 1; k <= 6; ++k) {
    double v[6] = {0, 0, 0, 0, 0, 0};
    int f[6];
    v[k - 1] = 20;
    EXPECT_EQ(testcoursesXYZABC(st, v, f), k);
    EXPECT_EQ(f[k - 1], k);
    v[k - 1] = -20;
    EXPECT_EQ(testcoursesXYZABC(st, v, f), -k);
    EXPECT_EQ(f[k - 1], -k);
  }
}

TEST_F(Travel, InvertedRangeLetsTheMinimumTestWin) {
  // Both tests hold for 5 against max 0 / min 10: the minimum's comes second and wins.
  limit(kIdY, 10, 0);
  int f[3];
  const double v[3] = {0, 5, 0};
  EXPECT_EQ(testcoursesXYZ(st, v, f), -2);
  EXPECT_EQ(f[1], -2);
}

TEST_F(Travel, TwoAxesOutGiveNineWithBothFlags) {
  limit(kIdX, -100, 100);
  limit(kIdY, -100, 100);
  limit(kIdC, -90, 90);
  int f[6];
  const double v[6] = {150, 0, 0, 0, 0, -100};
  EXPECT_EQ(testcoursesXYZABC(st, v, f), 9);
  EXPECT_EQ(f[0], 1);
  EXPECT_EQ(f[5], -6);
  const double xy[3] = {150, -150, 0};
  EXPECT_EQ(testcoursesXYZ(st, xy, f), 9);
  EXPECT_EQ(f[0], 1);
  EXPECT_EQ(f[1], -2);
  const double ac[3] = {0, 0, 100};
  EXPECT_EQ(testcoursesABC(st, ac, f), 6);
}

TEST_F(Travel, CombinedRuleWithOnlyRotaryOut) {
  limit(kIdB, -30, 30);
  int f[6];
  const double v[6] = {0, 0, 0, 0, -31, 0};
  EXPECT_EQ(testcoursesXYZABC(st, v, f), -5);
  EXPECT_EQ(f[4], -5);
  EXPECT_EQ(f[0], 0);
}

TEST_F(Travel, LinearNoLimitThreshold) {
  // 2000000 on X is past the linear sentinel: no limit at all.
  limit(kIdX, -2000000, 2000000);
  int f[3];
  const double v[3] = {5000000, -5000000, 0};
  limit(kIdY, -2000000, 2000000);
  EXPECT_EQ(testcoursesXYZ(st, v, f), 0);
  // Just below the sentinel less the tolerance the limit is real.
  limit(kIdX, -999999.98, 999999.98);
  EXPECT_EQ(testcoursesXYZ(st, v, f), 1);
  EXPECT_EQ(f[0], 1);
  // At exactly sentinel - tolerance the limit counts as absent.
  limit(kIdX, -(1000000 - 0.01), 1000000 - 0.01);
  limit(kIdY, 0, 0);
  EXPECT_EQ(testcoursesXYZ(st, v, f), -2);
  EXPECT_EQ(f[0], 0);
  // The same on the minimum side: at tolerance - sentinel absent, just above it real.
  const double low[3] = {-5000000, 0, 0};
  EXPECT_EQ(testcoursesXYZ(st, low, f), 0);
  limit(kIdX, -999999.98, 999999.98);
  EXPECT_EQ(testcoursesXYZ(st, low, f), -1);
}

TEST_F(Travel, RotarySentinelBoundaries) {
  int f[3];
  const double v[3] = {0, 3e10, -3e10};
  limit(kIdB, -1, 1e10 - 0.01);  // maximum at sentinel - tolerance: absent
  limit(kIdC, 0.01 - 1e10, 1);   // minimum at tolerance - sentinel: absent
  EXPECT_EQ(testcoursesABC(st, v, f), 0);
  limit(kIdB, -1, 1e10 - 0.02);
  limit(kIdC, 0.02 - 1e10, 1);
  EXPECT_EQ(testcoursesABC(st, v, f), 9);
  EXPECT_EQ(f[1], 5);
  EXPECT_EQ(f[2], -6);
}

TEST_F(Travel, RotaryLimitsUseTheirOwnSentinel) {
  // 2000000 would mean "no limit" on a linear axis, but is a real limit on a rotary one.
  limit(kIdA, -2000000, 2000000);
  int f[3];
  const double v[3] = {5000000, 0, 0};
  EXPECT_EQ(testcoursesABC(st, v, f), 4);
  // The reset's 1e10 is no limit.
  limit(kIdA, -1e10, 1e10);
  const double huge[3] = {2e10, -2e10, 0};
  EXPECT_EQ(testcoursesABC(st, huge, f), 0);
}

TEST_F(Travel, MissingAxesAreNeverOut) {
  limit(kIdY, -1, 1);
  limit(kIdB, -1, 1);
  st.machine.letter[1] = kNone;
  st.machine.letter[4] = kNone;
  int f[6] = {3, 3, 3, 3, 3, 3};
  const double v[6] = {0, 50, 0, 0, 50, 0};
  EXPECT_EQ(testcoursesXYZABC(st, v, f), 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f[i], 0) << i;
}

TEST_F(Travel, AxeCourseThresholdIsItsOwn) {
  double lo = 1, hi = 2;
  EXPECT_EQ(axe_course(st, 0, &lo, &hi), 8);
  EXPECT_EQ(axe_course(st, 7, &lo, &hi), 8);
  EXPECT_EQ(lo, 1);  // untouched
  EXPECT_EQ(hi, 2);
  EXPECT_EQ(axe_course(st, kIdX, &lo, &hi), 2);  // reset values: neither limit
  EXPECT_EQ(lo, -1e10);
  EXPECT_EQ(hi, 1e10);
  limit(kIdX, -5, 1000000);  // above 999999.999: no maximum
  EXPECT_EQ(axe_course(st, kIdX, &lo, &hi), 1);
  EXPECT_EQ(hi, 1000000);
  limit(kIdX, -999999.9995, 999999.999);  // minimum below the threshold, maximum exactly on it
  EXPECT_EQ(axe_course(st, kIdX, &lo, &hi), -1);
  limit(kIdC, -360, 360);
  EXPECT_EQ(axe_course(st, kIdC, &lo, &hi), 0);
  EXPECT_EQ(lo, -360);
  EXPECT_EQ(hi, 360);
}

TEST_F(Travel, GettersAndSetters) {
  EXPECT_EQ(axe_set_course_maximum(st, 7, 5.0), 0.0);
  EXPECT_EQ(axe_set_course_minimum(st, 0, 5.0), 0.0);
  EXPECT_EQ(axe_course_maximum(st, 7), 0.0);
  EXPECT_EQ(axe_course_minimum(st, -1), 0.0);
  for (int k = 1; k <= 6; ++k) EXPECT_EQ(axe_course_maximum(st, k), 1e10) << k;

  EXPECT_EQ(axe_set_course_maximum(st, kIdZ, 250.0), 1e10);  // previous value
  EXPECT_EQ(axe_set_course_maximum(st, kIdZ, 300.0), 250.0);
  EXPECT_EQ(axe_course_maximum(st, kIdZ), 300.0);
  EXPECT_EQ(axe_set_course_minimum(st, kIdB, -45.0), -1e10);
  EXPECT_EQ(axe_course_minimum(st, kIdB), -45.0);
  // The setters feed the tests.
  int f[3];
  const double v[3] = {0, -46, 0};
  EXPECT_EQ(testcoursesABC(st, v, f), -5);
}

TEST(TravelLoaded, LimitsFromTheMachineFile) {
  State st;
  ASSERT_EQ(k5x_test::load_text(st, k5x_test::machine_text("DemoHead")), 0);
  int f[6];
  const double ok[6] = {800, 0, 0, 0, 110, 720};
  EXPECT_EQ(testcoursesXYZABC(st, ok, f), 0);
  const double out[6] = {-801, 0, 0, 0, 0, 0};
  EXPECT_EQ(testcoursesXYZABC(st, out, f), -1);
  // DemoHead has no A axis: any A value is inside.
  const double a[6] = {0, 0, 0, 1e12, 111, 0};
  EXPECT_EQ(testcoursesXYZABC(st, a, f), 5);
  EXPECT_EQ(f[3], 0);
}

}  // namespace
