#include "solutions/enumeration.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "geometry/axis_queries.h"
#include "kernel/kernel.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "motion/increments.h"

namespace k5x {

namespace {

// Travel beyond this many degrees counts as unlimited when seeding.
constexpr double kUnlimitedTravel = 1e6;

int axis_bit(int t) { return (t >= 0 && t <= 2) ? (1 << t) : 0; }

void copy3(const double a[3], double b[3]) {
  b[0] = a[0];
  b[1] = a[1];
  b[2] = a[2];
}

// Two solutions are the same when they agree on every axis the machine has.
bool same_on_present(const double a[3], const double b[3], const bool present[3], double tol) {
  for (int i = 0; i < 3; ++i)
    if (present[i] && !(std::fabs(a[i] - b[i]) < tol)) return false;
  return true;
}

// True when the solver, seeded with r and holding nothing, hands r back on every present axis:
// the direction then does not depend on the axis that r was moved along.
bool solver_keeps_reference(State& st, const double dir[3], const double r[3],
                            const bool present[3], double tol) {
  double out[3] = {0.0, 0.0, 0.0};
  solve_direction(st, dir, r, out);
  return same_on_present(out, r, present, tol);
}

int free_axis_flags(State& st, const double dir[3], const double s[3], const bool present[3],
                    double tol) {
  int word = 0;
  for (int t = 0; t < 3; ++t) {
    if (!present[t]) continue;
    double step = 1.0;
    // An indexed axis only takes grid values: probe it a grid step away, not one degree.
    if (get_increment_behaviour(st) != 0) {
      const double inc = axis_increment(st, kIdA + t);
      if (inc > step) step = inc;
    }
    const double d = 2.0 * step;
    double r[3];
    copy3(s, r);
    r[t] -= d;
    if (!solver_keeps_reference(st, dir, r, present, tol)) continue;
    copy3(s, r);
    r[t] += d;
    if (solver_keeps_reference(st, dir, r, present, tol)) word |= axis_bit(t);
  }
  return word;
}

// The result buffers, grown to hold n entries. Returns false after an allocation failure.
bool reserve_solutions(State& st, int n) {
  if (st.solutions != nullptr && st.solutions_capacity != 0 && n <= st.solutions_capacity)
    return true;
  const int capacity = n > st.solutions_capacity ? n : st.solutions_capacity;
  // At least one element, so that an empty list is never mistaken for a failed allocation.
  const std::size_t elems = capacity > 0 ? static_cast<std::size_t>(capacity) : 1u;
  if (!grow_buffer(st.solutions, elems, 3)) {
    st.solutions_capacity = 0;
    return false;
  }
  st.solutions_capacity = capacity;
  return true;
}

// The flag buffer follows the shared capacity but keeps its own size, since calls without flags
// grow only the solution buffer.
bool reserve_flags(State& st, int n) {
  if (st.solution_flags != nullptr && n <= st.flags_capacity) return true;
  int capacity = st.solutions_capacity > n ? st.solutions_capacity : n;
  const std::size_t elems = capacity > 0 ? static_cast<std::size_t>(capacity) : 1u;
  if (!grow_buffer(st.solution_flags, elems)) {
    st.flags_capacity = 0;
    return false;
  }
  st.flags_capacity = static_cast<int>(elems);
  return true;
}

int enumerate(State& st, const double d[3], double tol, int* count, double** solutions,
              int** flags) {
  if (st.enum_work == nullptr) st.enum_work = new (std::nothrow) EnumerationWork;
  if (st.enum_work == nullptr) {
    if (count != nullptr) *count = 0;
    if (flags != nullptr) *flags = nullptr;
    return -2;
  }
  EnumerationWork& w = *st.enum_work;
  const double eps = st.eps;

  bool present[3];
  double seeds[3][12];
  int nseeds[3];
  for (int i = 0; i < 3; ++i) {
    present[i] = axis_direction(st, kIdA + i) != nullptr;
    if (!present[i]) {
      seeds[i][0] = 0.0;
      nseeds[i] = 1;
      continue;
    }
    double mn = travel_minimum(st, kIdA + i);
    double mx = travel_maximum(st, kIdA + i);
    if (mn < tol - kUnlimitedTravel) mn = -360.0;
    if (mx > kUnlimitedTravel - tol) mx = 360.0;
    nseeds[i] = axis_seeds(mn, mx, tol, seeds[i]);
  }
  std::fflush(stdout);

  // The law retry checks the direction at the middle of the linear travel.
  double mid[3];
  for (int j = 0; j < 3; ++j)
    mid[j] = (travel_minimum(st, kIdX + j) + travel_maximum(st, kIdX + j)) / 2.0;

  const int saved_mode = st.machine.mode;
  // Without snapping, the three modes differ only in which of the same two candidates they
  // take: one solve serves all three.
  const bool one_solve = st.machine.increment_behaviour == 0 && st.machine.record_count > 0;
  int nraw = 0;
  for (int a = 0; a < nseeds[0]; ++a) {
    for (int b = 0; b < nseeds[1]; ++b) {
      for (int c = 0; c < nseeds[2]; ++c) {
        const double ref[3] = {seeds[0][a], seeds[1][b], seeds[2][c]};
        double each[3][3] = {};
        int codes[3] = {1, 1, 1};
        if (one_solve) solve_orientation_each_mode(st, d, ref, each, codes);
        for (int mode = 0; mode <= 2; ++mode) {
          int travel_flags[3];
          double abc[3] = {0.0, 0.0, 0.0};
          int r;
          if (one_solve) {
            copy3(each[mode], abc);
            r = codes[mode] != 0 ? 1 : travel_test_abc(st, abc, travel_flags);
          } else {
            set_mode(st, mode);
            r = solve_direction(st, d, ref, abc);
          }
          if (nraw >= kMaxSolutions) continue;  // cannot happen with at most 12 seeds per axis
          if (r == 0 && travel_test_abc(st, abc, travel_flags) == 0) {
            copy3(abc, w.raw[nraw++]);
            continue;
          }
          // The controller may show the angle folded by the axis's value law; that form can lie
          // within travel where the computed one does not.
          double abc2[3];
          apply_laws(st, ref, abc, abc2);
          double e[3];
          tool_axis_at(st, mid, abc2, e);
          vnormalize(e, eps);
          if (std::fabs(e[0] - d[0]) < eps && std::fabs(e[1] - d[1]) < eps &&
              std::fabs(e[2] - d[2]) < eps && travel_test_abc(st, abc2, travel_flags) == 0)
            copy3(abc2, w.raw[nraw++]);
        }
      }
    }
  }
  st.machine.mode = saved_mode;

  int nkept = 0;
  for (int i = 0; i < nraw; ++i) {
    bool duplicate = false;
    for (int j = 0; j < nkept && !duplicate; ++j)
      duplicate = same_on_present(w.raw[i], w.kept[j], present, tol);
    if (!duplicate) copy3(w.raw[i], w.kept[nkept++]);
  }

  const double(*list)[3] = w.kept;
  const int* list_flags = w.flags;
  int n = nkept;
  if (flags != nullptr) {
    *flags = nullptr;
    bool any = false;
    for (int i = 0; i < nkept; ++i) {
      w.flags[i] = free_axis_flags(st, d, w.kept[i], present, tol);
      any = any || w.flags[i] != 0;
    }
    if (any) {
      // A flagged entry survives only at the head of the list: any earlier entry rejects it.
      n = 0;
      for (int i = 0; i < nkept; ++i) {
        bool keep = true;
        if (w.flags[i] != 0 && i != 0) {
          for (int j = 0; j < i && keep; ++j)
            for (int t = 0; t < 3 && keep; ++t)
              keep = (w.flags[i] & axis_bit(t)) == 0 &&
                     std::fabs(w.kept[i][t] - w.kept[j][t]) >= tol;
        }
        if (!keep) continue;
        copy3(w.kept[i], w.filtered[n]);
        w.filtered_flags[n] = w.flags[i];
        ++n;
      }
      list = w.filtered;
      list_flags = w.filtered_flags;
    }
  }

  const int entry = count != nullptr ? *count : 0;
  int total = entry > n ? entry : n;
  int result = n;
  if (total > kMaxSolutions) {
    total = kMaxSolutions;
    result = -1;
  }
  if (count != nullptr) *count = total;

  if (!reserve_solutions(st, n)) {
    if (count != nullptr) *count = 0;
    return -2;
  }
  if (flags != nullptr && !reserve_flags(st, n)) {
    if (count != nullptr) *count = 0;
    return -2;
  }
  if (solutions != nullptr) *solutions = st.solutions;
  if (flags != nullptr) *flags = st.solution_flags;
  for (int i = 0; i < n; ++i) {
    copy3(list[i], st.solutions + 3 * i);
    if (flags != nullptr) st.solution_flags[i] = list_flags[i];
  }
  return result;
}

}  // namespace

int axis_seeds(double min, double max, double tol, double out[12]) {
  if (std::fabs(max - min) < tol) {
    out[0] = (min + max) / 2.0;
    return 1;
  }
  int n = 0;
  const double m = (min + max) / 2.0;
  if (min - tol < 0.0 && max + tol > 0.0) out[n++] = 0.0;
  if (std::fabs(m) > tol) out[n++] = m;
  static const double kQuarterTurns[6] = {-90.0, 90.0, -180.0, 180.0, -270.0, 270.0};
  for (double v : kQuarterTurns)
    if (min < v - tol && max > v + tol && std::fabs(v - m) > tol) out[n++] = v;
  // Full turns are tested against the opposite limit, not the middle: a duplicate of m is kept.
  if (min < -360.0 - tol && std::fabs(-360.0 - max) > tol) out[n++] = -360.0;
  if (max > 360.0 + tol && std::fabs(360.0 - min) > tol) out[n++] = 360.0;
  const double amin = std::fabs(min);
  const double amax = std::fabs(max);
  if (amin > tol) {
    if (amax > amin) {
      out[n++] = min;
      out[n++] = max;
    } else {
      if (amax > tol) out[n++] = max;
      out[n++] = min;
    }
  } else if (amax > tol) {
    out[n++] = max;
  }
  return n;
}

int all_solutions(State& st, const double dir[3], int* count, double** solutions,
                           int** flags) {
  if (solutions != nullptr) *solutions = nullptr;
  const double eps = st.eps;
  const double tol = std::asin(eps) * 180.0 / kPi;
  double d[3] = {dir[0], dir[1], dir[2]};
  vnormalize(d, eps);
  // The direction check of the law retry reads a direction whose length is the tool length.
  const double saved_length = st.machine.tool_length;
  if (saved_length < 100.0) st.machine.tool_length = 100.0;
  const int result = enumerate(st, d, tol, count, solutions, flags);
  st.machine.tool_length = saved_length;
  return result;
}

void free_all_solutions(State& st) {
  std::free(st.solutions);
  std::free(st.solution_flags);
  st.solutions = nullptr;
  st.solution_flags = nullptr;
  st.solutions_capacity = 0;
  st.flags_capacity = 0;
}

int first_in_travel_solution(State& st, const double dir[3], double abc[3]) {
  int count = 0;
  double* list = nullptr;
  const int n = all_solutions(st, dir, &count, &list, nullptr);
  if (n < 1 || list == nullptr) return 0;
  copy3(list, abc);
  free_all_solutions(st);
  return 1;
}

}  // namespace k5x
