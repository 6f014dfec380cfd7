#include "solutions/three_rotary.h"

#include <sys/types.h>

#include <cmath>
#include <cstdio>

#include "geometry/axis_queries.h"
#include "kernel/kernel.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "motion/increments.h"
#include "solutions/enumeration.h"

namespace k5x {

namespace {

const char* const kAxisName[3] = {"A", "B", "C"};

// Continuous path: mode 1/2 appends at most 3 direct results, or else 3 x 2 from step 2; other
// modes append per round 1 direct and 3 x 2 from step 2, over three rounds.
constexpr int kMaxCandidates = 21;

// Bounds the discrete loop for absurd travel/step combinations, well above any real grid.
constexpr double kMaxDiscreteTests = 1048576.0;

void copy3(const double a[3], double b[3]) {
  b[0] = a[0];
  b[1] = a[1];
  b[2] = a[2];
}

// Locks rotary axis k (mod 3) and frees the two others.
void lock_axis(State& st, int k) {
  for (int i = 0; i < 3; ++i) set_axis_locked(st, kIdA + i, 0);
  set_axis_locked(st, kIdA + (k % 3), 1);
}

void set_travel(State& st, int id, double mn, double mx) {
  set_travel_minimum(st, id, mn);
  set_travel_maximum(st, id, mx);
}

// Cosine between the wanted unit direction and the tool direction at abc, with the direction.
double direction_match(State& st, const double dir[3], const double abc[3], double e[3]) {
  const double origin[3] = {0.0, 0.0, 0.0};
  tool_axis_at(st, origin, abc, e);
  vnormalize(e, st.eps);
  return vdot(dir, e);
}

double deviation_degrees(double c) {
  if (c > 1.0) return 0.0;
  if (c < -1.0) return 180.0;
  return std::acos(c) * 180.0 / kPi;
}

struct Candidates {
  double abc[kMaxCandidates][3];
  int size = 0;
  void append(const double v[3]) {
    if (size < kMaxCandidates) copy3(v, abc[size++]);
  }
};

int discrete_path(State& st, bool trace, const double D[3], double W[3], double out[3],
                  int mode, const double steps[3], int kind[3], double mn[3], double mx[3]) {
  const int saved_behaviour = get_increment_behaviour(st);
  set_increment_behaviour(st, 2, -1.0);

  int count[3];
  for (int i = 0; i < 3; ++i) {
    if (kind[i] == -1) mn[i] = mx[i] - 360.0;
    else if (kind[i] == 1) mx[i] = mn[i] + 360.0;
    else if (kind[i] == 2) {
      mn[i] = -180.0;
      mx[i] = 180.0;
    }
    // Only an indexed axis is stepped: continuous (-1) and locked or absent (0) axes get none.
    count[i] = 0;
    if (steps[i] > 0.001) {
      double n = std::trunc((mx[i] - mn[i]) / steps[i]) + 1.0;
      if (!(n >= 0.0)) n = 0.0;
      if (n > kMaxDiscreteTests) n = kMaxDiscreteTests;
      count[i] = static_cast<int>(n);
    }
  }

  // With only A or only B indexed this picks C, which has no tests: the result is then -1.
  int d;
  if (count[0] >= count[1]) d = count[1] <= count[2] ? 2 : 1;
  else d = count[0] < count[2] ? 0 : 2;
  const int nd = count[d];
  const int id = kIdA + d;

  if (trace)
    std::printf("k5x_ex_getabc_3r(%d) : 3r / discrete on %d (%s), %d tests\n", mode, d,
                kAxisName[d], nd);
  lock_axis(st, d);

  int found = -1;
  if (nd > 0) {
    const double step = steps[d];
    const double q = mn[d] > 0.001 ? std::trunc((mn[d] + 0.001) / step)
                                   : std::trunc((mn[d] - 0.001) / step);
    double best = -1.0;
    double T[3] = {0.0, 0.0, 0.0};
    for (int i = 0; i < nd; ++i) {
      const double v = (q + i) * step;
      W[d] = v;
      int ok;
      if (mode == 1 || mode == 2) {
        set_travel(st, id, v, v);
        const int r = first_in_travel_solution(st, D, T);
        ok = r != 0 ? 0 : -1;
        set_travel(st, id, mn[d], mx[d]);
        if (mode == 2 && r == 0) {
          // Retry with open travel; the result is then judged against the windows.
          for (int k = 0; k < 3; ++k) set_travel(st, kIdA + k, -360.0, 360.0);
          set_travel(st, id, v, v);
          const int r2 = first_in_travel_solution(st, D, T);
          for (int k = 0; k < 3; ++k) set_travel(st, kIdA + k, mn[k], mx[k]);
          ok = r2;
          if (r2 > 0) {
            int flags[3];
            ok = travel_test_abc(st, T, flags);
          }
        }
      } else {
        ok = solve_direction(st, D, W, T);
      }
      if (ok == -1 || ok == 1) continue;

      double E[3];
      const double c = direction_match(st, D, T, E);
      const double dev = deviation_degrees(c);
      if (ok == 0) {
        const bool take = c > best || found != 1;
        if (take) {
          best = c;
          copy3(T, out);
          found = 1;
        }
        if (trace)
          std::printf(
              "Axis %d (%s) at %8.3lf : ABC=(%+11.6lf | %+11.6lf | %+11.6lf), IJK=(%+11.8lf | "
              "%+11.8lf | %+11.8lf), dev.=%.7lf%s\n",
              d, kAxisName[d], v, T[0], T[1], T[2], E[0], E[1], E[2], dev, take ? " <-" : "");
      } else {
        const bool take = c > best && found != 1;
        if (take) {
          best = c;
          copy3(T, out);
          found = ok;
        }
        if (trace)
          std::printf(
              "Axis %d (%s) at %8.3lf : ABC=(%+11.6lf | %+11.6lf | %+11.6lf), IJK=(%+11.8lf | "
              "%+11.8lf | %+11.8lf), dev.=%.7lf%s (HC %d)\n",
              d, kAxisName[d], v, T[0], T[1], T[2], E[0], E[1], E[2], dev, take ? " <-" : "   ",
              ok);
      }
    }
  }

  set_increment_behaviour(st, saved_behaviour, -1.0);
  return found;
}

int continuous_path(State& st, bool trace, const double D[3], double W[3], double out[3],
                    int mode) {
  if (trace) std::printf("k5x_ex_getabc_3r(%d) : 3r cont.\n", mode);
  Candidates list;
  int found = -1;
  double T[3] = {0.0, 0.0, 0.0};

  // Solves with axis m locked from the reference S; keeps any result the solver calls a solution.
  auto second_lock = [&](int m, const double S[3]) {
    lock_axis(st, m);
    const int s = solve_direction(st, D, S, T);
    if (trace)
      std::printf("step 2, lock=%d (%s), cABC0=%d : ( %8.3lf ; %8.3lf ; %8.3lf ), t=%.5lf\n",
                  kIdA + m % 3, kAxisName[m % 3], s, T[0], T[1], T[2], st.eps);
    if (s != -1 && s != 1) {
      found = 1;
      list.append(T);
    }
  };

  if (mode == 1 || mode == 2) {
    for (int k = 0; k < 3; ++k) {
      lock_axis(st, k);
      const int r = first_in_travel_solution(st, D, W);
      if (trace)
        std::printf("direct, lock=%d (%s), nABC0=%d : ( %8.3lf ; %8.3lf ; %8.3lf )\n", k,
                    kAxisName[k], r, W[0], W[0], W[0]);
      if (r > 0) {
        found = 1;
        list.append(W);
      }
    }
    if (found != 1) {
      for (int k = 0; k < 3; ++k) {
        lock_axis(st, k);
        const double saved_eps = st.eps;
        st.eps = 0.25;
        const int r = first_in_travel_solution(st, D, W);
        if (trace)
          std::printf("step 1, lock=%d (%s), nABC0=%d : ( %8.3lf ; %8.3lf ; %8.3lf ), t=%.5lf\n",
                      kIdA + k, kAxisName[k], r, W[0], W[1], W[2], st.eps);
        st.eps = saved_eps;
        if (r < 1) continue;
        second_lock(k + 1, W);
        second_lock(k + 2, W);
      }
    }
  } else {
    for (int j = 0; j < 3; ++j) {
      lock_axis(st, j);
      const int r = solve_direction(st, D, W, T);
      if (trace)
        std::printf("direct, lock=%d (%s), cABC0=%d : ( %8.3lf ; %8.3lf ; %8.3lf )\n", j,
                    kAxisName[j], r, W[0], W[0], W[0]);
      // Unlike step 2, a result of -1 is kept here.
      if (r != 1) {
        found = 1;
        list.append(T);
      }
      const double saved_eps = st.eps;
      const double t = 1000.0 * saved_eps < 0.1 ? 1000.0 * saved_eps : 0.1;
      for (int k = 0; k < 3; ++k) {
        lock_axis(st, k);
        st.eps = t;
        const int r1 = solve_direction(st, D, W, T);
        if (trace)
          std::printf("step 1, lock=%d (%s), cABC0=%d : ( %8.3lf ; %8.3lf ; %8.3lf ), t=%.5lf\n",
                      kIdA + k, kAxisName[k], r1, T[0], T[1], T[2], st.eps);
        st.eps = saved_eps;
        // Mirrors the mode 1/2 test: only a relaxed solve that did not succeed goes on.
        if (r1 < 1) continue;
        double S[3];
        copy3(T, S);
        second_lock(k + 1, S);
        second_lock(k + 2, S);
      }
    }
  }

  if (trace) std::printf("iRet1=%d, %zd values\n", found, static_cast<ssize_t>(list.size));
  if (found != 1) return -1;
  double best = -1.0;
  int result = -1;
  for (int i = 0; i < list.size; ++i) {
    const double* cand = list.abc[i];
    double E[3];
    const double c = direction_match(st, D, cand, E);
    int flags[3];
    const int h = travel_test_abc(st, cand, flags);
    if (trace)
      std::printf(
          "ABC[%d]=(%+11.6lf | %+11.6lf | %+11.6lf), IJK=(%+11.8lf | %+11.8lf | %+11.8lf), "
          "dev.=%.7lf, HC=%d\n",
          i, cand[0], cand[1], cand[2], E[0], E[1], E[2], deviation_degrees(c), h);
    // An in-travel candidate must also beat the best direction so far.
    if (c > best) {
      if (h == 0) {
        result = 1;
        best = c;
        copy3(cand, out);
      } else if (result != 1) {
        result = h;
        best = c;
        copy3(cand, out);
      }
    }
  }
  return result;
}

}  // namespace

int solve_three_rotary(State& st, const double dir[3], const double prev[3], double out[3], int mode) {
  const bool trace = st.silent == 0;
  if (axis_sense(st, kIdA) == 0 || axis_sense(st, kIdB) == 0 || axis_sense(st, kIdC) == 0) {
    if (trace) std::printf("k5x_ex_getabc_3r(%d) : 2r only\n", mode);
    if (mode == 1 || mode == 2) return first_in_travel_solution(st, dir, out);
    const int r = solve_direction(st, dir, prev, out);
    return r == 0 ? 1 : r;
  }

  double D[3] = {dir[0], dir[1], dir[2]};
  vnormalize(D, st.eps);
  double W[3];
  copy3(prev, W);

  int kind[3];
  double mn[3], mx[3], mid[3];
  for (int i = 0; i < 3; ++i) {
    mn[i] = mx[i] = 0.0;
    kind[i] = axis_travel(st, kIdA + i, &mn[i], &mx[i]);
    if (trace)
      std::printf("%s[ %8.3lf .. %8.3lf ] / lim=%d\n", i == 0 ? "Courses : " : "          ",
                  mn[i], mx[i], kind[i]);
  }
  for (int i = 0; i < 3; ++i) {
    switch (kind[i]) {
      case -1:
        mid[i] = mx[i] > 0.001 ? 0.0 : mx[i] - 180.0;
        break;
      case 0:
        mid[i] = mx[i] - mn[i] > 360.001 ? 0.0 : (mn[i] + mx[i]) * 0.5;
        break;
      case 1:
        mid[i] = mn[i] < -0.001 ? 0.0 : mn[i] + 180.0;
        break;
      default:
        mid[i] = 0.0;
        break;
    }
    if (trace)
      std::printf("%s[ %8.3lf .. %8.3lf ] mid=%8.3lf\n", i == 0 ? "ajustees: " : "          ",
                  mn[i], mx[i], mid[i]);
  }

  double steps[3];
  const int indexed = get_increment_machine(st, steps);
  const int result = indexed != 0 ? discrete_path(st, trace, D, W, out, mode, steps, kind, mn, mx)
                                  : continuous_path(st, trace, D, W, out, mode);
  if (trace)
    std::printf("k5x_ex_getabc_3r, ABC=(%+11.6lf | %+11.6lf | %+11.6lf), r=%d\n", out[0], out[1],
                out[2], result);
  return result;
}

}  // namespace k5x
