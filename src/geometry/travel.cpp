#include "geometry/travel.h"

namespace k5x {

namespace {

// Limits at or beyond these (less the tolerance) mean "no limit". The linear and rotary values
// differ on purpose, and axe_course uses a third one of its own.
constexpr double kLinearNoLimit = 1000000.0;
constexpr double kRotaryNoLimit = 1e10;
constexpr double kCourseNoLimit = 999999.999;

// Flag of axis k (1..6) for value v: 0 inside or absent, +k above, -k below.
int test_axis(const State& st, int k, double v, double sentinel) {
  if (record_index_by_id(st, k) < 0) return 0;
  const Model& m = st.machine;
  const double hi = m.travel_max[k - 1];
  const double lo = m.travel_min[k - 1];
  const double t = m.travel_tol;
  int flag = 0;
  if (v > hi + t && hi < sentinel - t) flag = k;
  if (lo - t > v && lo > t - sentinel) flag = -k;  // second, so it wins
  return flag;
}

int test_three(const State& st, int first, const double v[3], int flags[3], double sentinel) {
  int scratch[3];
  int* f = flags != nullptr ? flags : scratch;
  int result = 0;
  for (int i = 0; i < 3; ++i) {
    f[i] = v != nullptr ? test_axis(st, first + i, v[i], sentinel) : 0;
    if (f[i] != 0) result = result == 0 ? f[i] : 9;
  }
  return result;
}

bool valid_axis(int axis) { return axis >= 1 && axis <= 6; }

}  // namespace

int travel_test_xyz(const State& st, const double xyz[3], int flags[3]) {
  return test_three(st, kIdX, xyz, flags, kLinearNoLimit);
}

int travel_test_abc(const State& st, const double abc[3], int flags[3]) {
  return test_three(st, kIdA, abc, flags, kRotaryNoLimit);
}

int travel_test(const State& st, const double v[6], int flags[6]) {
  int scratch[6];
  int* f = flags != nullptr ? flags : scratch;
  const int x = travel_test_xyz(st, v, f);
  const int a = travel_test_abc(st, v != nullptr ? v + 3 : nullptr, f + 3);
  if (a == 0) return x;
  return x != 0 ? 9 : a;
}

int axis_travel(const State& st, int axis, double* min, double* max) {
  if (!valid_axis(axis)) return 8;
  const double lo = st.machine.travel_min[axis - 1];
  const double hi = st.machine.travel_max[axis - 1];
  if (min != nullptr) *min = lo;
  if (max != nullptr) *max = hi;
  if (lo < -kCourseNoLimit) return hi > kCourseNoLimit ? 2 : -1;
  return hi > kCourseNoLimit ? 1 : 0;
}

double travel_minimum(const State& st, int axis) {
  return valid_axis(axis) ? st.machine.travel_min[axis - 1] : 0.0;
}

double travel_maximum(const State& st, int axis) {
  return valid_axis(axis) ? st.machine.travel_max[axis - 1] : 0.0;
}

double set_travel_minimum(State& st, int axis, double v) {
  if (!valid_axis(axis)) return 0.0;
  const double previous = st.machine.travel_min[axis - 1];
  st.machine.travel_min[axis - 1] = v;
  return previous;
}

double set_travel_maximum(State& st, int axis, double v) {
  if (!valid_axis(axis)) return 0.0;
  const double previous = st.machine.travel_max[axis - 1];
  st.machine.travel_max[axis - 1] = v;
  return previous;
}

}  // namespace k5x
