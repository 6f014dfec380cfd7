// The by-reference family for Fortran callers: every argument by address, reals as 32-bit floats
// (widened into local doubles on the way in, narrowed on the way out), text as pointer + length.
#include <cfloat>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "k5x.h"

namespace {

template <int N>
struct Doubles {
  double v[N];
  explicit Doubles(const float* f) {
    for (int i = 0; i < N; ++i) v[i] = f[i];
  }
};

// A double beyond the float range becomes an infinity rather than an undefined conversion.
float narrow(double d) {
  if (d > FLT_MAX) return std::numeric_limits<float>::infinity();
  if (d < -FLT_MAX) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(d);
}

void narrow_into(const double* d, float* f, std::size_t n) {
  for (std::size_t i = 0; i < n; ++i) f[i] = narrow(d[i]);
}

int store(int* status, int code) {
  *status = code;
  return code;
}

// Fortran text: trailing bytes not above 32 as signed are dropped (blank padding, control
// characters, and any byte of 128 or more). Null when there is no text or no memory; the caller
// frees the result.
char* text_from_fortran(const char* text, int length) {
  if (text == nullptr || length < 1) return nullptr;
  std::size_t n = static_cast<std::size_t>(length);
  while (n > 0 && static_cast<signed char>(text[n - 1]) <= 32) --n;
  char* copy = static_cast<char*>(std::malloc(n + 1));
  if (copy == nullptr) return nullptr;
  std::memcpy(copy, text, n);
  copy[n] = '\0';
  return copy;
}

// Capacity-and-count: copies `rows` rows of `width` values when they fit in the capacity read
// before the call, otherwise copies nothing and stores the negated row count.
void deliver_rows(const double* rows, int count, int width, int capacity, float* out,
                  int* count_out) {
  if (rows == nullptr || count < 0) count = 0;
  if (count > capacity) {
    *count_out = -count;
    return;
  }
  narrow_into(rows, out, static_cast<std::size_t>(count) * static_cast<std::size_t>(width));
  *count_out = count;
}

// Shared shape of the two table entries: the count goes in as the k5x_ function's row count.
template <typename F>
int table_entry(F function, const float from[6], const float to[6], int* count, float* points,
                int* status) {
  const Doubles<6> p0(from), p1(to);
  const int capacity = *count;
  int n = capacity;
  double* table = nullptr;
  const int code = function(p0.v, p1.v, &n, &table);
  deliver_rows(table, n, 6, capacity, points, count);
  return store(status, code);
}

// Shape of the solver-like entries: two inputs of three, an in/out of three, a status.
template <typename F>
int triple_entry(F function, const float a[3], const float b[3], float io[3], int* status) {
  const Doubles<3> x(a), y(b);
  Doubles<3> r(io);
  const int code = function(x.v, y.v, r.v);
  narrow_into(r.v, io, 3);
  return store(status, code);
}

template <typename F>
int six_entry(F function, const float in[6], float out[6]) {
  const Doubles<6> x(in);
  Doubles<6> r(out);
  const int code = function(x.v, r.v);
  narrow_into(r.v, out, 6);
  return code;
}

template <int N, typename F>
int travel_entry(F function, const float v[N], int flags[N], int* status) {
  const Doubles<N> x(v);
  return store(status, function(x.v, flags));
}

// Checksum modes above 3 compute nothing, so the loop stops there whatever n says.
constexpr int kLastChecksumMode = 3;

}  // namespace

extern "C" {

int KF5X_MACHINE_DEF(const char* text, int length, int* status) {
  char* path = text_from_fortran(text, length);
  const int code = k5x_machine_def(path);
  std::free(path);
  return store(status, code);
}

void KF5X_MACHINE_EVAL(const float q[6]) { k5x_machine_eval(Doubles<6>(q).v); }
void KF5X_MACHINE_FREE(void) { k5x_machine_free(); }

void KF5X_MACHINE_CHECKSUM(const int* n, int* values, int* count) {
  *count = 0;
  const int last = *n > kLastChecksumMode ? kLastChecksumMode : (*n < 2 ? 0 : *n - 1);
  for (int mode = 1; mode <= last; ++mode) {
    uint32_t value = 0;
    if (k5x_machine_checksum(mode, &value) != 0) values[(*count)++] = static_cast<int32_t>(value);
  }
}

void KF5X_SET_TOL(const float* v) { k5x_set_tol(*v); }
void KF5X_GET_TOL(float* v) { *v = narrow(k5x_get_tol()); }
void KF5X_SET_OUTIL(const float* v) { k5x_set_outil(*v); }
void KF5X_GET_OUTIL(float* v) { *v = narrow(k5x_get_outil()); }
void KF5X_SET_MODE(const int* v) { k5x_set_mode(*v); }
int KF5X_GET_MODE(int* v) { return *v = k5x_get_mode(); }
void KF5X_SET_RTCP(const int* v) { k5x_set_rtcp(*v); }
int KF5X_GET_RTCP(int* v) { return *v = k5x_get_rtcp(); }
int KF5X_SET_PIECE(const float m[16]) { return k5x_set_piece(Doubles<16>(m).v); }

int KF5X_IJK2ABC(const float ijk[3], const float prev[3], float abc[3], int* status) {
  return triple_entry(k5x_ijk2abc, ijk, prev, abc, status);
}
int KF5X_PTS2XYZ(const float p[3], const float abc[3], float xyz[3], int* status) {
  return triple_entry(k5x_pts2xyz, p, abc, xyz, status);
}
int KF5X_XYZ2IJK(const float xyz[3], const float abc[3], float ijk[3], int* status) {
  return triple_entry(k5x_xyz2ijk, xyz, abc, ijk, status);
}
int KF5X_XYZ2PTS(const float xyz[3], const float abc[3], float p[3], int* status) {
  return triple_entry(k5x_xyz2pts, xyz, abc, p, status);
}

int KF5X_XYZABC(const float from[6], const float to[6], int* count, float* points, int* status) {
  return table_entry(k5x_xyzabc, from, to, count, points, status);
}
int KF5X_INTERPOLATIONTABLE(const float from[6], const float to[6], int* count, float* points,
                            int* status) {
  return table_entry(k5x_interpolationtable, from, to, count, points, status);
}

int KF5X_AXE_MAT(const int* a, const int* b, float m[16], int* status) {
  Doubles<16> h(m);
  const int code = k5x_axe_mat(*a, *b, h.v);
  narrow_into(h.v, m, 16);
  return store(status, code);
}

int KF5X_M2L(const float in[6], float out[6]) { return six_entry(k5x_m2l, in, out); }
int KF5X_L2M(const float in[6], float out[6]) { return six_entry(k5x_l2m, in, out); }
int KF5X_MACHINE2TOOL(const float in[6], float out[6]) {
  return six_entry(k5x_machine2tool, in, out);
}

int KF5X_TESTCOURSESXYZABC(const float v[6], int flags[6], int* status) {
  return travel_entry<6>(k5x_testcoursesXYZABC, v, flags, status);
}
int KF5X_TESTCOURSESXYZ(const float v[3], int flags[3], int* status) {
  return travel_entry<3>(k5x_testcoursesXYZ, v, flags, status);
}
int KF5X_TESTCOURSESABC(const float v[3], int flags[3], int* status) {
  return travel_entry<3>(k5x_testcoursesABC, v, flags, status);
}

void KF5X_AXE_COURSE_MINIMUM(const int* axis, float* v) {
  *v = narrow(k5x_axe_course_minimum(*axis));
}
void KF5X_AXE_COURSE_MAXIMUM(const int* axis, float* v) {
  *v = narrow(k5x_axe_course_maximum(*axis));
}

void KF5X_EX_ABCHCPOSSIBLE_FREE(void) { k5x_ex_abchcpossible_free(); }

int KF5X_EX_GETALLABCHCPOSSIBLE(const float dir[3], int* count, float* angles, int* flags,
                                int* status) {
  const Doubles<3> d(dir);
  const int capacity = *count;
  // The count given to the enumeration only raises its own count output (and can turn the
  // result into -1); the number of solutions is the result, so ask with 0 like the library does.
  int ignored = 0;
  double* solutions = nullptr;
  int* words = nullptr;
  const int code = k5x_ex_getallabchcpossible(d.v, &ignored, &solutions, &words);
  const int n = code > 0 ? code : 0;
  deliver_rows(solutions, n, 3, capacity, angles, count);
  if (*count > 0 && words != nullptr)
    std::memcpy(flags, words, sizeof(int) * static_cast<std::size_t>(*count));
  return store(status, code);
}

int KF5X_EX_GETINIT_IJK_2_ABC_NOT_HC(const float dir[3], float abc[3], int* status) {
  const Doubles<3> d(dir);
  Doubles<3> r(abc);
  const int code = k5x_ex_getinit_ijk_2_abc_not_hc(d.v, r.v);
  narrow_into(r.v, abc, 3);
  return store(status, code);
}

void KF5X_EX_GET_AXIS_MATRIX(const float in[3], float out[16]) {
  double h[16] = {};
  k5x_ex_get_axis_matrix(Doubles<3>(in).v, h);
  narrow_into(h, out, 16);
}

void KF5X_SET_INCREMENT_BEHAVIOUR(const int* behaviour, const float* value) {
  k5x_set_increment_behaviour(*behaviour, value != nullptr ? *value : -1.0);
}

void KF5X_GET_INCREMENT_MACHINE(int* flag, float steps[3]) {
  double s[3] = {};
  *flag = k5x_get_increment_machine(s) != 0 ? 1 : 0;
  narrow_into(s, steps, 3);
}

int K5FX_TOOLCHANGER_POSITION(float pos[6], int* status) {
  Doubles<6> p(pos);
  const int code = k5x_toolchanger_position(p.v);
  narrow_into(p.v, pos, 6);
  return store(status, code);
}

}  // extern "C"
