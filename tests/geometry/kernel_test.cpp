#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "geometry/kernel.h"

namespace {

using namespace k5x;

constexpr double kEps = 1e-06;
constexpr double kHalfPi = 1.5707963267948966;

void expect_vec(const double* got, double x, double y, double z, double tol = 1e-12) {
  EXPECT_NEAR(got[0], x, tol);
  EXPECT_NEAR(got[1], y, tol);
  EXPECT_NEAR(got[2], z, tol);
}

TEST(KernelVector, SubIsSecondMinusFirstAndMayAliasEitherInput) {
  double a[3] = {1, 2, 3};
  double b[3] = {10, 20, 30};
  double c[3];
  vsub(a, b, c);
  expect_vec(c, 9, 18, 27, 0);
  vsub(a, b, a);  // into the first input
  expect_vec(a, 9, 18, 27, 0);
  double p[3] = {1, 2, 3};
  vsub(p, b, b);  // into the second input
  expect_vec(b, 9, 18, 27, 0);
}

TEST(KernelVector, CrossIsRightHandedAndMayAlias) {
  double x[3] = {1, 0, 0}, y[3] = {0, 1, 0}, c[3];
  vcross(x, y, c);
  expect_vec(c, 0, 0, 1, 0);
  vcross(y, x, c);
  expect_vec(c, 0, 0, -1, 0);
  double a[3] = {2, 3, 4};
  const double b[3] = {5, 6, 7};
  vcross(a, b, a);  // (3*7-4*6, 4*5-2*7, 2*6-3*5)
  expect_vec(a, -3, 6, -3, 0);
}

TEST(KernelVector, NormalizeSucceedsOnlyAboveTolerance) {
  double v[3] = {0, 3, 4};
  EXPECT_EQ(vnormalize(v, kEps), 0);
  expect_vec(v, 0, 0.6, 0.8);

  double tiny[3] = {1e-7, 0, 0};
  EXPECT_EQ(vnormalize(tiny, kEps), 1);
  expect_vec(tiny, 1e-7, 0, 0, 0);  // untouched

  double exact[3] = {kEps, 0, 0};  // length equal to the tolerance is not above it
  EXPECT_EQ(vnormalize(exact, kEps), 1);
  EXPECT_EQ(exact[0], kEps);

  double zero[3] = {0, 0, 0};
  EXPECT_EQ(vnormalize(zero, kEps), 1);
}

TEST(KernelVector, UnitVectorsOutsideRangeAreZero) {
  double v[3];
  vunit(-2, v);
  expect_vec(v, 0, -1, 0, 0);
  for (int k : {0, 4, -4}) {
    v[0] = v[1] = v[2] = 7;
    vunit(k, v);
    expect_vec(v, 0, 0, 0, 0);
  }
}

TEST(KernelMatrix, MulComputesProductEvenWhenAliased) {
  const double a[9] = {1, 2, 3, 4, 5, 6, 7, 8, 10};
  const double b[9] = {2, 0, 1, 1, 3, 0, 0, 1, 4};
  // Hand product, row by row.
  const double expect[9] = {4, 9, 13, 13, 21, 28, 22, 34, 47};
  double c[9];
  m3mul(a, b, c);
  for (int i = 0; i < 9; ++i) EXPECT_DOUBLE_EQ(c[i], expect[i]) << i;
  double a2[9];
  m3copy(a, a2);
  m3mul(a2, b, a2);
  for (int i = 0; i < 9; ++i) EXPECT_DOUBLE_EQ(a2[i], expect[i]) << i;
  double b2[9];
  m3copy(b, b2);
  m3mul(a, b2, b2);
  for (int i = 0; i < 9; ++i) EXPECT_DOUBLE_EQ(b2[i], expect[i]) << i;
}

TEST(KernelMatrix, InverseTimesMatrixIsIdentity) {
  const double m[9] = {2, 1, 0, 0, 1, 3, 1, 0, 1};  // det = 2*1 - 1*(-3) = 5
  double n[9];
  ASSERT_EQ(m3inverse(m, n, kEps), 0);
  double p[9];
  m3mul(m, n, p);
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(p[i], (i % 4 == 0) ? 1.0 : 0.0, 1e-14) << i;
}

TEST(KernelMatrix, InverseOfNearSingularMatrixFailsWithoutWriting) {
  const double m[9] = {1e-7, 0, 0, 0, 1, 0, 0, 0, 1};  // det 1e-7 < eps
  double n[9];
  for (double& x : n) x = 42.0;
  EXPECT_EQ(m3inverse(m, n, kEps), 1);
  for (double x : n) EXPECT_EQ(x, 42.0);
  // The threshold is the epsilon passed in.
  EXPECT_EQ(m3inverse(m, n, 1e-8), 0);
  EXPECT_NEAR(n[0], 1e7, 1e-3);
  // Only a determinant strictly below eps fails: exactly eps still inverts.
  const double at[9] = {kEps, 0, 0, 0, 1, 0, 0, 0, 1};
  EXPECT_EQ(m3inverse(at, n, kEps), 0);
  EXPECT_NEAR(n[0], 1e6, 1e-6);
}

TEST(KernelRotation, QuarterTurnOfXAboutZGivesY) {
  const double z[3] = {0, 0, 1};
  double v[3] = {1, 0, 0};
  rotate_vector(z, kHalfPi, v, kEps);
  expect_vec(v, 0, 1, 0, 1e-15);
}

TEST(KernelRotation, VectorAlongAxisIsUnchangedBitForBit) {
  const double n[3] = {0, 0.6, 0.8};
  double v[3] = {0, 0.6 * 3.7, 0.8 * 3.7};
  double before[3];
  std::memcpy(before, v, sizeof v);
  rotate_vector(n, 1.234, v, kEps);
  EXPECT_EQ(std::memcmp(before, v, sizeof v), 0);
  double zero[3] = {0, 0, 0};
  rotate_vector(n, 1.0, zero, kEps);
  expect_vec(zero, 0, 0, 0, 0);
}

TEST(KernelRotation, GeneralRotationMatchesRodrigues) {
  // Second route: Rodrigues' formula v cos + (n x v) sin + n (n.v)(1 - cos).
  double n[3] = {1, 2, 2};
  vnormalize(n, kEps);
  const double v0[3] = {0.3, -1.2, 2.5};
  const double angles[] = {0.0, 0.4, -1.1, 3.0, 6.0};
  for (double th : angles) {
    double v[3] = {v0[0], v0[1], v0[2]};
    rotate_vector(n, th, v, kEps);
    double c[3];
    vcross(n, v0, c);
    const double d = vdot(n, v0);
    double e[3];
    for (int i = 0; i < 3; ++i)
      e[i] = v0[i] * std::cos(th) + c[i] * std::sin(th) + n[i] * d * (1 - std::cos(th));
    SCOPED_TRACE(th);
    expect_vec(v, e[0], e[1], e[2], 1e-12);
  }
}

TEST(KernelRotation, FrameRotationRebuildsThirdColumn) {
  const double z[3] = {0, 0, 1};
  double m[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
  rotate_frame(z, kHalfPi, m, kEps);
  // Columns become Y, -X, Z.
  const double expect[9] = {0, -1, 0, 1, 0, 0, 0, 0, 1};
  for (int i = 0; i < 9; ++i) EXPECT_NEAR(m[i], expect[i], 1e-15) << i;

  // The third column is the cross product of the first two, not a rotated copy: a frame whose
  // third column disagrees with that gets it replaced.
  double skew[9] = {1, 0, 5, 0, 1, 5, 0, 0, 5};
  rotate_frame(z, 0.0, skew, kEps);
  EXPECT_NEAR(skew[2], 0.0, 1e-15);
  EXPECT_NEAR(skew[5], 0.0, 1e-15);
  EXPECT_NEAR(skew[8], 1.0, 1e-15);
}

TEST(KernelScalar, AcosClampedAndAtan2Eps) {
  EXPECT_EQ(acos_clamped(1.0000001), 0.0);
  EXPECT_DOUBLE_EQ(acos_clamped(-1.5), 3.141592653589793);
  EXPECT_DOUBLE_EQ(acos_clamped(0.5), std::acos(0.5));
  EXPECT_EQ(atan2_eps(1e-7, -1e-7, kEps), 0.0);
  EXPECT_EQ(atan2_eps(kEps, kEps, kEps), 0.0);  // "at most" eps
  EXPECT_DOUBLE_EQ(atan2_eps(2e-6, -1e-7, kEps), std::atan2(2e-6, -1e-7));
  EXPECT_DOUBLE_EQ(atan2_eps(1.0, -1.0, kEps), 3.0 * 3.141592653589793 / 4.0);
}

}  // namespace
