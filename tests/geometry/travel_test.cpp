#include "geometry/travel.h"

#include <gtest/gtest.h>

#include "machine/machine_model.h"

namespace {

using namespace k5x;

// A state whose six letters are all bound (to placeholder records), travel tolerance 0.01; the
// limits are the reset's "no limit" 1e10 until a test sets them.
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

// The linear sentinel less the tolerance, and a hair below it.
const double kS = 1000000 - 0.01, kR = 999999.98;

TEST_F(Travel, CodesAndFlags) {
  const struct {
    struct {
      int axis;  // 0: none
      double lo, hi;
    } lim[2];
    double v[6];
    int code, flags[6];
  } cases[] = {
      // A value exactly at the limit plus the tolerance is inside.
      {{{kIdX, -100, 100}}, {100.01, 0, 0, 0, 0, 0}, 0, {}},
      {{{kIdX, -100, 100}}, {100.0100001, 0, 0, 0, 0, 0}, 1, {1}},
      {{{kIdX, -100, 100}}, {-100.01, 0, 0, 0, 0, 0}, 0, {}},
      {{{kIdX, -100, 100}}, {-100.0100001, 0, 0, 0, 0, 0}, -1, {-1}},
      // Both tests hold against max 0 / min 10: the minimum's comes second and wins.
      {{{kIdY, 10, 0}}, {0, 5, 0, 0, 0, 0}, -2, {0, -2}},
      // Two axes out give 9 whichever group they are in, and every flag is kept.
      {{{kIdX, -100, 100}, {kIdC, -90, 90}}, {150, 0, 0, 0, 0, -100}, 9, {1, 0, 0, 0, 0, -6}},
      {{{kIdX, -100, 100}, {kIdY, -100, 100}}, {150, -150, 0, 0, 0, 0}, 9, {1, -2}},
      // Linear limits at 2000000, or at the sentinel less the tolerance, are no limits; a hair
      // inside the sentinel they are.
      {{{kIdX, -2000000, 2000000}}, {5000000, 0, 0, 0, 0, 0}, 0, {}},
      {{{kIdX, -kS, kS}, {kIdY, -kR, kR}}, {5e6, -5e6, 0, 0, 0, 0}, -2, {0, -2}},
      {{{kIdX, -kS, kS}, {kIdY, -kR, kR}}, {-5e6, 5e6, 0, 0, 0, 0}, 2, {0, 2}},
      // 2000000 is a real limit on a rotary axis, whose sentinel is 1e10.
      {{{kIdA, -2000000, 2000000}}, {0, 0, 0, 5000000, 0, 0}, 4, {0, 0, 0, 4}},
      {{{kIdB, -1, 1e10 - 0.01}, {kIdC, 0.01 - 1e10, 1}}, {0, 0, 0, 0, 3e10, -3e10}, 0, {}},
      {{{kIdB, -1, 1e10 - 0.02}, {kIdC, 0.02 - 1e10, 1}}, {0, 0, 0, 0, 3e10, -3e10}, 9,
       {0, 0, 0, 0, 5, -6}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << "row " << (&c - cases));
    for (int k = 1; k <= 6; ++k) limit(k, -1e10, 1e10);
    for (const auto& l : c.lim)
      if (l.axis != 0) limit(l.axis, l.lo, l.hi);
    int f[6] = {7, 7, 7, 7, 7, 7};
    EXPECT_EQ(travel_test(st, c.v, f), c.code);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(f[i], c.flags[i]) << "flag " << i;
  }
}

TEST_F(Travel, MissingAxesAreNeverOut) {
  for (int k = 1; k <= 6; ++k) limit(k, -10, 10);
  st.machine.letter[1] = kNone;  // Y and B missing: never out, flags cleared
  st.machine.letter[4] = kNone;
  int f[6] = {3, 3, 3, 3, 3, 3};
  const double v[6] = {0, 50, 0, 0, 50, 0};
  EXPECT_EQ(travel_test(st, v, f), 0);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(f[i], 0) << i;
}

TEST_F(Travel, LimitQueriesAndSetters) {
  double lo = 1, hi = 2;
  EXPECT_EQ(axis_travel(st, 0, &lo, &hi), 8);
  EXPECT_EQ(axis_travel(st, 7, &lo, &hi), 8);
  EXPECT_EQ(lo + hi, 3.0);  // untouched
  // Its own threshold 999999.999: the reset's values are neither limit; a maximum exactly on it
  // is a limit.
  const struct {
    double lo, hi;
    int code;
  } rows[] = {{-1e10, 1e10, 2}, {-5, 1000000, 1}, {-999999.9995, 999999.999, -1}, {-360, 360, 0}};
  for (const auto& r : rows) {
    limit(kIdC, r.lo, r.hi);
    EXPECT_EQ(axis_travel(st, kIdC, &lo, &hi), r.code) << r.lo;
    EXPECT_EQ(lo, r.lo);
    EXPECT_EQ(hi, r.hi);
  }
  EXPECT_EQ(set_travel_maximum(st, 7, 5.0), 0.0);
  EXPECT_EQ(set_travel_minimum(st, 0, 5.0), 0.0);
  EXPECT_EQ(travel_maximum(st, 7), 0.0);
  EXPECT_EQ(travel_minimum(st, -1), 0.0);
  EXPECT_EQ(set_travel_maximum(st, kIdZ, 250.0), 1e10);  // the previous value
  EXPECT_EQ(set_travel_minimum(st, kIdB, -45.0), -1e10);
  int f[6];
  const double v[6] = {0, 0, 251, 0, -46, 0};
  EXPECT_EQ(travel_test(st, v, f), 9);  // and they feed the tests
}

}  // namespace
