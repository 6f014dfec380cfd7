// Fixed-size vector and matrix kernel on plain arrays of doubles. Vectors are three doubles,
// 3x3 matrices nine doubles row-major (columns are a frame's local axes), 4x4 matrices sixteen
// doubles row-major with the translation in elements 3, 7 and 11. Uses nothing else of k5x.
// Everything is inline: these few operations are the whole arithmetic of a move, and a call
// for each would cost more than the operation. The two matrix products are forced inline: the
// compiler otherwise keeps m3apply out of line in the solver and the chain (6% of one move).
#ifndef K5X_KERNEL_KERNEL_H
#define K5X_KERNEL_KERNEL_H

#include <cmath>
#include <cstdint>
#include <cstring>

namespace k5x {

inline void vadd(const double a[3], const double b[3], double c[3]) {
  c[0] = a[0] + b[0];
  c[1] = a[1] + b[1];
  c[2] = a[2] + b[2];
}

// c = b - a: second minus first; c may be either input.
inline void vsub(const double a[3], const double b[3], double c[3]) {
  c[0] = b[0] - a[0];
  c[1] = b[1] - a[1];
  c[2] = b[2] - a[2];
}

inline void vcopy(const double a[3], double b[3]) {
  b[0] = a[0];
  b[1] = a[1];
  b[2] = a[2];
}

inline void vscale(const double v[3], double s, double w[3]) {
  w[0] = s * v[0];
  w[1] = s * v[1];
  w[2] = s * v[2];
}

// q = p + s * d
inline void vaxpy(const double p[3], const double d[3], double s, double q[3]) {
  q[0] = p[0] + s * d[0];
  q[1] = p[1] + s * d[1];
  q[2] = p[2] + s * d[2];
}

inline double vdot(const double a[3], const double b[3]) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// c = a x b, right-handed; c may alias an input.
inline void vcross(const double a[3], const double b[3], double c[3]) {
  const double x = a[1] * b[2] - a[2] * b[1];
  const double y = a[2] * b[0] - a[0] * b[2];
  const double z = a[0] * b[1] - a[1] * b[0];
  c[0] = x;
  c[1] = y;
  c[2] = z;
}

inline double vnorm(const double v[3]) { return std::sqrt(vdot(v, v)); }

inline double vdistance(const double a[3], const double b[3]) {
  double d[3];
  vsub(b, a, d);
  return vnorm(d);
}

// Divides v by its length when that exceeds tol (returns 0); else returns 1, v unchanged.
inline int vnormalize(double v[3], double tol) {
  const double n = vnorm(v);
  if (!(n > tol)) return 1;
  v[0] /= n;
  v[1] /= n;
  v[2] /= n;
  return 0;
}

// w = v - (v . axis) axis, for a unit axis.
inline void vreject(const double axis[3], const double v[3], double w[3]) {
  const double s = vdot(v, axis);
  vaxpy(v, axis, -s, w);
}

inline void vzero(double* v, int n) {
  for (int i = 0; i < n; ++i) v[i] = 0.0;
}

// 1, 2, 3 give +X, +Y, +Z; negatives the opposite; anything else the zero vector.
inline void vunit(int k, double v[3]) {
  vzero(v, 3);
  if (k >= 1 && k <= 3) v[k - 1] = 1.0;
  if (k <= -1 && k >= -3) v[-k - 1] = -1.0;
}

inline void m3identity(double m[9]) {
  vzero(m, 9);
  m[0] = m[4] = m[8] = 1.0;
}

inline void m3copy(const double a[9], double b[9]) {
  for (int i = 0; i < 9; ++i) b[i] = a[i];
}

// c = a * b; c may alias an input.
__attribute__((always_inline)) inline void m3mul(const double a[9], const double b[9],
                                                 double c[9]) {
  double r[9];
  for (int i = 0; i < 3; ++i)
    for (int j = 0; j < 3; ++j)
      r[3 * i + j] = a[3 * i] * b[j] + a[3 * i + 1] * b[3 + j] + a[3 * i + 2] * b[6 + j];
  m3copy(r, c);
}

// w = m * v; w may alias v.
__attribute__((always_inline)) inline void m3apply(const double m[9], const double v[3],
                                                   double w[3]) {
  const double x = m[0] * v[0] + m[1] * v[1] + m[2] * v[2];
  const double y = m[3] * v[0] + m[4] * v[1] + m[5] * v[2];
  const double z = m[6] * v[0] + m[7] * v[1] + m[8] * v[2];
  w[0] = x;
  w[1] = y;
  w[2] = z;
}

// Adjugate over determinant; returns 1 without writing when |det| < eps.
inline int m3inverse(const double m[9], double n[9], double eps) {
  const double c00 = m[4] * m[8] - m[5] * m[7];
  const double c01 = m[5] * m[6] - m[3] * m[8];
  const double c02 = m[3] * m[7] - m[4] * m[6];
  const double det = m[0] * c00 + m[1] * c01 + m[2] * c02;
  if (std::fabs(det) < eps) return 1;
  double r[9];
  r[0] = c00 / det;
  r[1] = (m[2] * m[7] - m[1] * m[8]) / det;
  r[2] = (m[1] * m[5] - m[2] * m[4]) / det;
  r[3] = c01 / det;
  r[4] = (m[0] * m[8] - m[2] * m[6]) / det;
  r[5] = (m[2] * m[3] - m[0] * m[5]) / det;
  r[6] = c02 / det;
  r[7] = (m[1] * m[6] - m[0] * m[7]) / det;
  r[8] = (m[0] * m[4] - m[1] * m[3]) / det;
  m3copy(r, n);
  return 0;
}

inline void to4x4(const double m[9], const double t[3], double h[16]) {
  for (int i = 0; i < 3; ++i) {
    h[4 * i] = m[3 * i];
    h[4 * i + 1] = m[3 * i + 1];
    h[4 * i + 2] = m[3 * i + 2];
    h[4 * i + 3] = t[i];
  }
  h[12] = h[13] = h[14] = 0.0;
  h[15] = 1.0;
}

inline void apply4(const double h[16], const double p[3], double q[3]) {
  const double x = h[0] * p[0] + h[1] * p[1] + h[2] * p[2] + h[3];
  const double y = h[4] * p[0] + h[5] * p[1] + h[6] * p[2] + h[7];
  const double z = h[8] * p[0] + h[9] * p[1] + h[10] * p[2] + h[11];
  q[0] = x;
  q[1] = y;
  q[2] = z;
}

// v decomposed about a unit axis as v = r b + h axis, with a = axis x v / |axis x v| and
// b = a x axis. It depends on the axis and v alone, so a caller turning one vector about one
// axis by many angles computes it once.
struct RotationBasis {
  double a[3], b[3], r, h;
  bool along;  // v along the axis (or zero): every rotation leaves it as it is
};

__attribute__((always_inline)) inline void rotation_basis(const double axis[3], const double v[3],
                                                         double eps, RotationBasis* out) {
  vcross(axis, v, out->a);
  out->along = vnormalize(out->a, eps) != 0;
  if (out->along) return;
  vcross(out->a, axis, out->b);
  out->r = vdot(v, out->b);
  out->h = vdot(v, axis);
}

// v turned by the angle of the cosine and sine given; v is left as it is when along the axis.
__attribute__((always_inline)) inline void rotate_basis(const RotationBasis& k, const double axis[3],
                                                       double cos_a, double sin_a, double v[3]) {
  if (k.along) return;
  const double rc = k.r * cos_a;
  const double rs = k.r * sin_a;
  for (int i = 0; i < 3; ++i) v[i] = rc * k.b[i] + rs * k.a[i] + k.h * axis[i];
}

// rotate_vector with the cosine and sine of the angle given, so that a frame's two columns share
// one evaluation of them (the chain turns every rotary axis at every point).
__attribute__((always_inline)) inline void rotate_vector_cs(const double axis[3], double cos_a,
                                                           double sin_a, double v[3], double eps) {
  RotationBasis k;
  rotation_basis(axis, v, eps, &k);
  rotate_basis(k, axis, cos_a, sin_a, v);
}

// Rotates v in place about the unit axis by angle (radians), right-handed. A v along the axis
// (or zero) is left bit-for-bit unchanged.
inline void rotate_vector(const double axis[3], double angle, double v[3], double eps) {
  rotate_vector_cs(axis, std::cos(angle), std::sin(angle), v, eps);
}

// True when the n doubles are the same bits (so -0 differs from 0, and a NaN can match itself):
// the test for a memo made from exactly these inputs.
inline bool same_bits(const double* a, const double* b, int n) {
  std::uint64_t diff = 0;
  for (int i = 0; i < n; ++i) {
    std::uint64_t x, y;
    std::memcpy(&x, a + i, sizeof x);
    std::memcpy(&y, b + i, sizeof y);
    diff |= x ^ y;
  }
  return diff == 0;
}

// The bases of a frame's first two columns about an axis, as rotate_frame uses them, with the
// inputs they were made from: a frame turned about an unchanged axis from an unchanged pose (a
// rotary axis near the base of a chain, say) needs only the new angle's cosine and sine.
struct FrameBasis {
  bool valid = false;
  double key[10];  // axis, column 0, column 1, eps
  RotationBasis col[2];
};

// Rotates the first two columns of m and rebuilds the third as their cross product.
inline void rotate_frame_cs(const double axis[3], double c, double s, double m[9],
                            const RotationBasis col[2]) {
  double c0[3] = {m[0], m[3], m[6]};
  double c1[3] = {m[1], m[4], m[7]};
  rotate_basis(col[0], axis, c, s, c0);
  rotate_basis(col[1], axis, c, s, c1);
  double c2[3];
  vcross(c0, c1, c2);  // rebuilt, not rotated: keeps the frame orthonormal and right-handed
  for (int i = 0; i < 3; ++i) {
    m[3 * i] = c0[i];
    m[3 * i + 1] = c1[i];
    m[3 * i + 2] = c2[i];
  }
}

// The bases for m's columns about axis, from the memo when it was made from the same inputs.
inline const RotationBasis* frame_basis(const double axis[3], const double m[9], double eps,
                                        FrameBasis* memo) {
  const double key[10] = {axis[0], axis[1], axis[2], m[0], m[3], m[6], m[1], m[4], m[7], eps};
  if (memo->valid && same_bits(key, memo->key, 10)) return memo->col;
  std::memcpy(memo->key, key, sizeof key);
  rotation_basis(axis, key + 3, eps, &memo->col[0]);
  rotation_basis(axis, key + 6, eps, &memo->col[1]);
  memo->valid = true;
  return memo->col;
}

inline void rotate_frame(const double axis[3], double angle, double m[9], double eps) {
  const double c0[3] = {m[0], m[3], m[6]}, c1[3] = {m[1], m[4], m[7]};
  RotationBasis col[2];
  rotation_basis(axis, c0, eps, &col[0]);
  rotation_basis(axis, c1, eps, &col[1]);
  rotate_frame_cs(axis, std::cos(angle), std::sin(angle), m, col);
}

// The cosine and sine of the last two angles a solve turned by. Placing that solution turns the
// same axis by the same angle, negated on the table side, about seven times in ten to the bit
// (the chain converts degrees with one folded factor, the solver with two steps). The answer for
// -t is taken from t's, as the library's sine and cosine are odd and even to the bit. Each entry
// is the library's own answer for its angle, so no change of machine or setting voids it.
struct SineMemo {
  double angle[2] = {0.0, 0.0};
  double cos[2] = {1.0, 1.0};
  double sin[2] = {0.0, 0.0};
};

inline void remember_cos_sin(SineMemo& m, int slot, double angle, double c, double s) {
  m.angle[slot] = angle;
  m.cos[slot] = c;
  m.sin[slot] = s;
}

// The cosine and sine of t from those of known when t is known or -known to the bit: true then.
// Infinities are excluded with NaNs; both give NaN anyway.
__attribute__((always_inline)) inline bool cos_sin_from(double known, double known_cos,
                                                        double known_sin, double t, double* c,
                                                        double* s) {
  std::uint64_t bits, a;
  std::memcpy(&bits, &t, sizeof bits);
  std::memcpy(&a, &known, sizeof a);
  constexpr std::uint64_t kSign = std::uint64_t(1) << 63;
  constexpr std::uint64_t kInfinity = std::uint64_t(0x7FF) << 52;
  // Not for a NaN, whose sign and payload the library may set its own way.
  if ((bits & ~kSign) != (a & ~kSign) || (a & ~kSign) >= kInfinity) return false;
  *c = known_cos;
  *s = bits == a ? known_sin : -known_sin;
  return true;
}

__attribute__((always_inline)) inline void cos_sin(const SineMemo& m, double t, double* c,
                                                   double* s) {
  for (int i = 0; i < 2; ++i)
    if (cos_sin_from(m.angle[i], m.cos[i], m.sin[i], t, c, s)) return;
  *c = std::cos(t);
  *s = std::sin(t);
}

// std::fmax for a running maximum of magnitudes that starts at +0: it is never NaN itself, a NaN
// value leaves it as it is, and no -0 comes in. One comparison instead of a library call.
inline double running_max(double max, double value) { return value > max ? value : max; }

inline double acos_clamped(double x) {
  if (x > 1.0) return 0.0;
  if (x < -1.0) return std::acos(-1.0);
  return std::acos(x);
}

// atan2(y, x), but 0 when both |x| and |y| are at most eps.
inline double atan2_eps(double y, double x, double eps) {
  if (std::fabs(x) <= eps && std::fabs(y) <= eps) return 0.0;
  return std::atan2(y, x);
}

}  // namespace k5x

#endif  // K5X_KERNEL_KERNEL_H
