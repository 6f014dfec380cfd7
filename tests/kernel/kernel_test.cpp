#include "kernel/kernel.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <initializer_list>

namespace {

using namespace k5x;

constexpr double kEps = 1e-06;
constexpr double kPi = 3.141592653589793;

void expect_all(const double* got, std::initializer_list<double> want, double tol = 0.0) {
  const double* w = want.begin();
  for (size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], w[i], tol) << "element " << i;
}

// Outputs that alias an input are the kernel's trap: the products must read every input before
// they store.
TEST(KernelVector, SubAndCrossMayAliasEitherInput) {
  double a[3] = {1, 2, 3}, p[3] = {2, 3, 4};
  const double b[3] = {10, 20, 30}, q[3] = {5, 6, 7};
  vsub(a, b, a);    // second minus first
  vcross(p, q, p);  // right-handed: (3*7-4*6, 4*5-2*7, 2*6-3*5)
  expect_all(a, {9, 18, 27});
  expect_all(p, {-3, 6, -3});
}

TEST(KernelVector, NormalizeOnlyAboveToleranceAndUnitVectors) {
  double v[3] = {0, 3, 4};
  EXPECT_EQ(vnormalize(v, kEps), 0);
  expect_all(v, {0, 0.6, 0.8}, 1e-15);
  for (double len : {0.0, 1e-7, kEps}) {  // a length equal to the tolerance is not above it
    double w[3] = {len, 0, 0};
    EXPECT_EQ(vnormalize(w, kEps), 1) << len;
    EXPECT_EQ(w[0], len);
  }
  vunit(-2, v);
  expect_all(v, {0, -1, 0});
  vunit(4, v);  // outside -3..3 the zero vector
  expect_all(v, {0, 0, 0});
}

TEST(KernelMatrix, MulEvenWhenAliasedAndInverseThreshold) {
  const double a[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10}, b[9] = {2, 0, 1, 1, 3, 0, 0, 1, 4};
  double b2[9], n[9], p[9];
  m3copy(b, b2);
  m3mul(a, b2, b2);  // into the second input, which the first rows still need
  expect_all(b2, {4, 9, 13, 13, 21, 28, 22, 34, 47});  // by hand, row by row
  const double m[9] = {2, 1, 0, 0, 1, 3, 1, 0, 1};  // det 5
  ASSERT_EQ(m3inverse(m, n, kEps), 0);
  m3mul(m, n, p);
  expect_all(p, {1, 0, 0, 0, 1, 0, 0, 0, 1}, 1e-14);
  // det 1e-7 < eps fails without writing; the threshold is the eps passed in, and is strict.
  const double thin[9] = {1e-7, 0, 0, 0, 1, 0, 0, 0, 1}, at[9] = {kEps, 0, 0, 0, 1, 0, 0, 0, 1};
  for (double& x : n) x = 42.0;
  EXPECT_EQ(m3inverse(thin, n, kEps), 1);
  expect_all(n, {42, 42, 42, 42, 42, 42, 42, 42, 42});
  EXPECT_EQ(m3inverse(thin, n, 1e-8), 0);
  EXPECT_EQ(m3inverse(at, n, kEps), 0);
}

TEST(KernelRotation, AlongTheAxisUnchangedAndFrameRebuilt) {
  const double n[3] = {0, 0.6, 0.8}, z[3] = {0, 0, 1};
  double v[3] = {0, 0.6 * 3.7, 0.8 * 3.7}, before[3];
  std::memcpy(before, v, sizeof v);
  rotate_vector(n, 1.234, v, kEps);
  EXPECT_EQ(std::memcmp(before, v, sizeof v), 0);  // bit for bit
  // The frame's third column is the cross product of the turned first two, not a turned copy.
  double m[9] = {1, 0, 5, 0, 1, 5, 0, 0, 5};
  rotate_frame(z, kPi / 2, m, kEps);
  expect_all(m, {0, -1, 0, 1, 0, 0, 0, 0, 1}, 1e-15);  // columns Y, -X, Z
}

TEST(KernelScalar, AcosClampedAndAtan2Eps) {
  EXPECT_EQ(acos_clamped(1.0000001), 0.0);
  EXPECT_DOUBLE_EQ(acos_clamped(-1.5), kPi);
  EXPECT_EQ(atan2_eps(1e-7, -1e-7, kEps), 0.0);
  EXPECT_EQ(atan2_eps(kEps, kEps, kEps), 0.0);  // "at most" eps
  EXPECT_DOUBLE_EQ(atan2_eps(1.0, -1.0, kEps), 3.0 * kPi / 4.0);
}

}  // namespace
