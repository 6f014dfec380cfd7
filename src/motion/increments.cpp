#include "motion/increments.h"

#include <climits>
#include <cmath>

#include "kernel/kernel.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"

namespace k5x {

namespace {

// Listed rotary record at position i of the rotary list, or null.
const AxisRecord* listed(const State& st, int i) {
  const int r = st.machine.rotary[i];
  if (r < 0 || r >= st.machine.record_count) return nullptr;
  const AxisRecord* rec = &st.machine.records[r];
  return rec->kind == kKindRotary ? rec : nullptr;
}

AxisRecord* listed(State& st, int i) {
  return const_cast<AxisRecord*>(listed(static_cast<const State&>(st), i));
}

// Triple index (0..2 for A..C) of a rotary record, or -1.
int triple_index(const AxisRecord& rec) { return rec.axis >= 3 && rec.axis <= 5 ? rec.axis - 3 : -1; }

int listed_count(const State& st) {
  const int n = st.machine.rotary_count;
  return n < 0 ? 0 : (n > kMaxRotary ? kMaxRotary : n);
}

// x / s truncated toward zero to a 32-bit integer; saturates instead of overflowing.
double truncated_quotient(double x, double s) {
  const double q = std::trunc(x / s);
  if (std::isnan(q)) return 0.0;
  if (q > INT_MAX) return INT_MAX;
  if (q < INT_MIN) return INT_MIN;
  return q;
}

// Off its step's grid, truncating on purpose: a hair below a multiple is off, a hair above on.
bool off_grid(const AxisRecord& rec, double x, double eps) {
  const double s = rec.increment;
  if (!(s > eps)) return false;
  const double r = x - truncated_quotient(x, s) * s;
  return std::fabs(r) > eps;
}

}  // namespace

bool on_steps(const State& st, const double abc[3]) {
  const int n = listed_count(st);
  for (int i = 0; i < n; ++i) {
    const AxisRecord* rec = listed(st, i);
    if (rec == nullptr || rec->locked != 0 || triple_index(*rec) < 0) continue;
    if (off_grid(*rec, abc[triple_index(*rec)], st.eps)) return false;
  }
  return true;
}

int solve_direction(State& st, const double ijk[3], const double prev[3], double out[3]) {
  const double wanted[3] = {ijk[0], ijk[1], ijk[2]};
  if (solve_orientation(st, ijk, prev, out) != 0) return 1;
  if (st.machine.increment_behaviour > 0) {
    const double unsnapped[3] = {out[0], out[1], out[2]};
    double snapped[3] = {out[0], out[1], out[2]};
    const double dev = snap_to_increments(st, unsnapped, wanted, snapped);
    if (st.machine.increment_behaviour == 2 || std::fabs(dev) < st.increment_tolerance) {
      vcopy(snapped, out);
      if (!(st.machine.deviation_max > dev)) st.machine.deviation_max = dev;
    }
  }
  int flags[3];
  return travel_test_abc(st, out, flags);
}

double axis_increment(const State& st, int id) {
  const AxisRecord* rec = record_by_id(st, id);
  return rec != nullptr && rec->kind == kKindRotary ? rec->increment : -1.0;
}

void set_axis_increment(State& st, int id, double step) {
  AxisRecord* rec = record_by_id(st, id);
  if (rec != nullptr && rec->kind == kKindRotary) rec->increment = step;
}

double get_increment_tolerance(const State& st) { return st.increment_tolerance; }

int get_increment_machine(const State& st, double steps[3]) {
  if (steps != nullptr) vzero(steps, 3);
  int indexed = 0;
  const int n = listed_count(st);
  for (int i = 0; i < n; ++i) {
    const AxisRecord* rec = listed(st, i);
    if (rec == nullptr || rec->locked != 0) continue;
    const int t = triple_index(*rec);
    if (steps != nullptr && t >= 0) steps[t] = rec->increment;
    if (rec->increment > 0.0) indexed = 1;
  }
  return indexed;
}

double snap_to_increments(State& st, const double in_arg[3], const double dir[3], double out[3]) {
  const double eps = st.eps;
  const double in[3] = {in_arg[0], in_arg[1], in_arg[2]};
  double want[3] = {dir[0], dir[1], dir[2]};
  vcopy(in, out);
  vnormalize(want, eps);  // a zero direction stays zero: every candidate then ties at 0

  const int n = listed_count(st);
  int snapshot[kMaxRotary];
  int excluded[kMaxRotary];
  int free_count = 0;
  for (int i = 0; i < n; ++i) {
    const AxisRecord* rec = listed(st, i);
    snapshot[i] = rec != nullptr ? rec->locked : 0;
    excluded[i] = snapshot[i];
    if (rec != nullptr && rec->locked == 0) ++free_count;
  }
  // With three free axes the first in list order keeps its value: two axes are enough to aim.
  for (int i = 0; i < n && free_count >= 3; ++i) {
    if (listed(st, i) != nullptr && !excluded[i]) {
      excluded[i] = 1;
      --free_count;
    }
  }

  bool off = false;
  for (int i = 0; i < n && !off; ++i) {
    const AxisRecord* rec = listed(st, i);
    if (rec == nullptr || excluded[i] || triple_index(*rec) < 0) continue;
    off = off_grid(*rec, in[triple_index(*rec)], eps);
  }
  if (!off) return 0.0;

  // Per coordinate: one value (its own) or the two nearest multiples, nearer first, lower on a tie.
  int choices[3] = {1, 1, 1};
  double values[3][2];
  int free_flag[3] = {0, 0, 0};
  for (int t = 0; t < 3; ++t) values[t][0] = values[t][1] = in[t];
  int indexed = 0;
  for (int i = 0; i < n; ++i) {
    const AxisRecord* rec = listed(st, i);
    if (rec == nullptr || excluded[i]) continue;
    const int t = triple_index(*rec);
    if (t < 0) continue;
    free_flag[t] = 1;
    const double s = rec->increment;
    if (!(s > eps)) continue;
    ++indexed;
    free_flag[t] = 0;
    choices[t] = 2;
    const double x = in[t];
    const double q = truncated_quotient(x, s);
    const double lower = x >= 0.0 ? q * s : (q - 1.0) * s;
    const double upper = x >= 0.0 ? (q + 1.0) * s : q * s;
    const bool upper_nearer = std::fabs(upper - x) < std::fabs(x - lower);
    values[t][0] = upper_nearer ? upper : lower;
    values[t][1] = upper_nearer ? lower : upper;
  }
  if (indexed == 0) return 0.0;
  const bool resolve = free_flag[0] || free_flag[1] || free_flag[2];

  static const double kOrigin[3] = {0.0, 0.0, 0.0};
  double best = kPi;
  for (int a = 0; a < choices[0]; ++a) {
    for (int b = 0; b < choices[1]; ++b) {
      for (int c = 0; c < choices[2]; ++c) {
        double cand[3] = {values[0][a], values[1][b], values[2][c]};
        if (resolve) {
          // Hold the indexed and excluded axes at the candidate and let the continuous ones aim;
          // behaviour 0 keeps the solver from coming back here.
          for (int i = 0; i < n; ++i) {
            AxisRecord* rec = listed(st, i);
            if (rec == nullptr) continue;
            const int t = triple_index(*rec);
            if (t >= 0 && !free_flag[t]) rec->locked = 1;
          }
          const int behaviour = get_increment_behaviour(st);
          set_increment_behaviour(st, 0, -1.0);
          solve_direction(st, want, cand, cand);
          set_increment_behaviour(st, behaviour, -1.0);
          for (int i = 0; i < n; ++i) {
            AxisRecord* rec = listed(st, i);
            if (rec != nullptr) rec->locked = snapshot[i];
          }
        }
        double e[3];
        tool_axis_at(st, kOrigin, cand, e);
        if (vnormalize(e, eps) != 0) continue;
        double cr[3];
        vcross(want, e, cr);
        // asin of the cross length: beyond 90 degrees this measures the supplement, as intended.
        const double d = std::fabs(std::asin(std::fmin(vnorm(cr), 1.0)));
        if (best > d + 0.5 * eps) {
          best = d;
          vcopy(cand, out);
        }
      }
    }
  }
  return best * 180.0 / kPi;
}

double largest_increment_deviation(const State& st) { return st.machine.deviation_max; }

void reset_increment_deviation(State& st) { st.machine.deviation_max = 0.0; }

}  // namespace k5x
