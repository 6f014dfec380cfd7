// Fixed-size vector and matrix kernel on plain arrays of doubles. Vectors are three doubles,
// 3x3 matrices nine doubles row-major (columns are a frame's local axes), 4x4 matrices sixteen
// doubles row-major with the translation in elements 3, 7 and 11. Uses nothing else of k5x.
#ifndef K5X_KERNEL_KERNEL_H
#define K5X_KERNEL_KERNEL_H

namespace k5x {

void vadd(const double a[3], const double b[3], double c[3]);
// c = b - a: second minus first; c may be either input.
void vsub(const double a[3], const double b[3], double c[3]);
void vcopy(const double a[3], double b[3]);
void vscale(const double v[3], double s, double w[3]);
// q = p + s * d
void vaxpy(const double p[3], const double d[3], double s, double q[3]);
double vdot(const double a[3], const double b[3]);
// c = a x b, right-handed; c may alias an input.
void vcross(const double a[3], const double b[3], double c[3]);
double vnorm(const double v[3]);
double vdistance(const double a[3], const double b[3]);
// Divides v by its length when that exceeds tol (returns 0); else returns 1, v unchanged.
int vnormalize(double v[3], double tol);
// w = v - (v . axis) axis, for a unit axis.
void vreject(const double axis[3], const double v[3], double w[3]);
// 1, 2, 3 give +X, +Y, +Z; negatives the opposite; anything else the zero vector.
void vunit(int k, double v[3]);
void vzero(double* v, int n);

void m3identity(double m[9]);
void m3copy(const double a[9], double b[9]);
// c = a * b; c may alias an input.
void m3mul(const double a[9], const double b[9], double c[9]);
// w = m * v; w may alias v.
void m3apply(const double m[9], const double v[3], double w[3]);
// Adjugate over determinant; returns 1 without writing when |det| < eps.
int m3inverse(const double m[9], double n[9], double eps);
void to4x4(const double m[9], const double t[3], double h[16]);
void apply4(const double h[16], const double p[3], double q[3]);

// Rotates v in place about the unit axis by angle (radians), right-handed. A v along the axis
// (or zero) is left bit-for-bit unchanged.
void rotate_vector(const double axis[3], double angle, double v[3], double eps);
// Rotates the first two columns of m and rebuilds the third as their cross product.
void rotate_frame(const double axis[3], double angle, double m[9], double eps);
double acos_clamped(double x);
// atan2(y, x), but 0 when both |x| and |y| are at most eps.
double atan2_eps(double y, double x, double eps);

}  // namespace k5x

#endif  // K5X_KERNEL_KERNEL_H
