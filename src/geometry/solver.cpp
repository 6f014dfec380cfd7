#include "geometry/solver.h"

#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "kernel/kernel.h"

namespace k5x {

namespace {

// Conversions as value * pi / 180 and value * 180 / pi, not by a folded constant: the two can
// differ in the last bit, and the solver's angles must be reproducible exactly.
inline double deg_to_rad(double deg) { return deg * kPi / 180.0; }
inline double rad_to_deg(double rad) { return rad * 180.0 / kPi; }

// Beyond this many turns the step loops below would take too long (or, at magnitudes where
// adding 360 no longer changes the value, never end); such inputs are first brought near by a
// whole number of turns. Ordinary angles never reach it, so their results stay those of the
// plain loops.
constexpr double kFarTurns = 64.0 * 360.0;
constexpr int kMaxSteps = 256;

double near_turn(double value, double ref) {
  const double d = value - ref;
  if (std::fabs(d) > kFarTurns && std::isfinite(d)) value -= 360.0 * std::nearbyint(d / 360.0);
  return value;
}

// Second free axis: a difference of exactly +-180 stays where it is.
double wrap_strict(double value, double ref) {
  value = near_turn(value, ref);
  for (int i = 0; i < kMaxSteps && value - ref > 180.0; ++i) value -= 360.0;
  for (int i = 0; i < kMaxSteps && value - ref < -180.0; ++i) value += 360.0;
  return value;
}

// First free axis: equality moves too, so exactly -180 ends at +180.
double wrap_loose(double value, double ref) {
  value = near_turn(value, ref);
  for (int i = 0; i < kMaxSteps && value - ref >= 180.0; ++i) value -= 360.0;
  for (int i = 0; i < kMaxSteps && value - ref <= -180.0; ++i) value += 360.0;
  return value;
}

// Angle index (0..2 for A..C) of a listed rotary axis, or -1 when it cannot take part.
int angle_index(const Model& m, int list_pos) {
  const int r = m.rotary[list_pos];
  if (r < 0 || r >= m.record_count) return -1;
  const AxisRecord& rec = m.records[r];
  if (rec.kind != kKindRotary || rec.axis < 3 || rec.axis > 5) return -1;
  return rec.axis - 3;
}

double largest_change(const double sol[3], const double prev[3]) {
  double e = 0.0;
  for (int i = 0; i < 3; ++i) e = running_max(e, std::fabs(sol[i] - prev[i]));
  return e;
}

// F1's turn for one candidate: the angle about d1 that takes u towards T, or none when u lies
// along d1 (the axis cannot help). u itself is turned only if its reach is asked for.
struct FirstTurn {
  bool turned = false;
  double gamma = 0.0;
  // What the reach is estimated from, kept until it is asked for: T's components along u's
  // radius (tw) and across it (tv), u's height along d1 and radius about it.
  double height = 0.0, radius = 0.0, tv = 0.0, tw = 0.0;
  bool estimable = false;
};

// How far the turn-free product may be from the turned one and still decide the reach: rounding
// puts them some 1e-15 apart for unit vectors, so this leaves a wide margin. A vector off unit
// length by d puts them about d apart, so only vectors far closer to unit than that are taken.
constexpr double kReachMargin = 1e-11;

bool near_unit(const double v[3]) { return std::fabs(vdot(v, v) - 1.0) <= 1e-13; }

// u . T once turned, as the geometry gives it without the turn: the height along d1 times T's,
// plus the two radii. NaN when it may not stand for the turned vector's own product.
double reach_estimate(const FirstTurn& turn, const double t[3], const double d1[3]) {
  if (!turn.estimable) return std::numeric_limits<double>::quiet_NaN();
  return turn.height * vdot(t, d1) + turn.radius * std::sqrt(turn.tw * turn.tw + turn.tv * turn.tv);
}

// The geometry of the turn up to its angle; false when u lies along d1.
__attribute__((always_inline)) inline bool first_axis_geometry(const double d1[3],
                                                               const double t[3],
                                                               const double u[3], double eps,
                                                               FirstTurn* turn) {
  const double height = vdot(u, d1);
  double w[3];
  vaxpy(u, d1, -height, w);
  const double radius = vnorm(w);
  if (!(radius > eps)) return false;
  for (double& x : w) x /= radius;
  double v[3];
  vcross(d1, w, v);
  turn->height = height;
  turn->radius = radius;
  turn->tv = vdot(t, v);
  turn->tw = vdot(t, w);
  turn->turned = true;
  return true;
}

// Both candidates' turns about d1. The two are independent: their geometry goes first and
// their arctangents after, so that the processor overlaps the two chains of dependent steps.
void solve_first_axis(const double d1[3], const double t[3], double prev_f1,
                      const double u[2][3], double eps, FirstTurn turn[2], double f1[2]) {
  bool turned[2];
  for (int i = 0; i < 2; ++i) turned[i] = first_axis_geometry(d1, t, u[i], eps, &turn[i]);
  const bool d1_unit = near_unit(d1);
  for (int i = 0; i < 2; ++i) {
    if (!turned[i]) {
      f1[i] = prev_f1;
      continue;
    }
    FirstTurn& k = turn[i];
    k.gamma = atan2_eps(k.tv, k.tw, eps);
    // Only where the turn is the one towards T (not the zero of two tiny components) and both
    // vectors are unit; a radius near eps could be read as along d1 when u is turned.
    k.estimable = (std::fabs(k.tw) > eps || std::fabs(k.tv) > eps) &&
                  k.radius > eps + kReachMargin && d1_unit && near_unit(u[i]);
    f1[i] = wrap_loose(rad_to_deg(k.gamma), prev_f1);
  }
}

// What the solver computes before a mode picks one of the two candidates (left in st.sol1 and
// st.sol2): the tool vectors of both before the first axis turns them, the direction, the free
// axes.
struct SolvedCandidates {
  double t[3], d1[3], u[2][3], prev[3];
  FirstTurn turn[2];
  int reach[2] = {-1, -1};  // filled on demand
  int k = 0, f1 = -1;
};

const PairMemo& pair_geometry(State& st, const double d1[3], const double d2[3],
                              const double u[3]) {
  PairMemo& g = st.pair_memo;
  double key[10];
  vcopy(d1, key);
  vcopy(d2, key + 3);
  vcopy(u, key + 6);
  key[9] = st.eps;
  if (g.valid && same_bits(key, g.key, 10)) return g;
  const double eps = st.eps;
  std::memcpy(g.key, key, sizeof key);
  double n[3];
  vcross(d2, d1, n);
  const double s = vnorm(n);
  vnormalize(n, eps);
  double p[3];
  vscale(d2, vdot(u, d2), p);
  const double r = vdistance(u, p);
  g.spans = r * s > eps;
  g.d1p = vdot(d1, p);
  g.rs = r * s;
  g.beta = g.spans ? rad_to_deg(acos_clamped((vdot(d1, u) - g.d1p) / g.rs)) : 0.0;
  g.u_behind = vdot(u, n) < eps;
  rotation_basis(d2, u, eps, &g.u_about_d2);
  g.valid = true;
  return g;
}

// 1 when there is nothing to solve (no machine, zero direction, no tool), st.sol1 and st.sol2
// untouched; else 0 with both candidates in them.
int solve_candidates(State& st, const double ijk[3], const double prev_in[3], SolvedCandidates* c) {
  const Model& m = st.machine;
  const double eps = st.eps;
  if (m.record_count <= 0) {
    std::fputs("k5x_ijk2abc, uninitialised/empty machine, exit(1)\n", stdout);
    std::fflush(stdout);
    return 1;
  }
  // Local copies: callers (the increment search among them) pass the same array as prev and out.
  const double wanted[3] = {ijk[0], ijk[1], ijk[2]};
  const double prev[3] = {prev_in[0], prev_in[1], prev_in[2]};
  double t[3] = {wanted[0], wanted[1], wanted[2]};
  if (vnormalize(t, eps) != 0) return 1;
  // A failed load can leave records without a tool; nothing can be solved then.
  if (m.tool < 0 || m.tool >= m.record_count) return 1;

  double* sol1 = st.sol1;
  double* sol2 = st.sol2;
  vcopy(prev, sol1);
  vcopy(prev, sol2);

  const int count = m.rotary_count < 0 ? 0 : (m.rotary_count > kMaxRotary ? kMaxRotary : m.rotary_count);

  // Working copy of the fixed flags; with three free axes the ones nearest the workpiece are held.
  int fixed[kMaxRotary];
  int free_count = 0;
  for (int i = 0; i < count; ++i) {
    fixed[i] = angle_index(m, i) < 0 ? 1 : (m.records[m.rotary[i]].locked != 0);
    if (!fixed[i]) ++free_count;
  }
  for (int i = 0; i < count && free_count >= 3; ++i) {
    if (!fixed[i]) {
      fixed[i] = 1;
      --free_count;
    }
  }

  // R gathers the fixed axes' rotations only; the free axes are solved at their rest geometry.
  double rot[9];
  m3identity(rot);
  double d1[3] = {0.0, 0.0, 0.0}, d2[3] = {0.0, 0.0, 0.0};
  int f1 = -1, f2 = -1;          // angle indices of the free axes
  const AxisRecord* f2rec = nullptr;
  int k = 0;
  for (int i = 0; i < count && k < 3; ++i) {
    const int idx = angle_index(m, i);
    if (idx < 0) continue;
    const AxisRecord& rec = m.records[m.rotary[i]];
    if (fixed[i]) {
      double d[3];
      m3apply(rot, rec.direction, d);
      rotate_frame(d, deg_to_rad(prev[idx]), rot, eps);
    } else if (k == 0) {
      m3apply(rot, rec.direction, d1);
      f1 = idx;
      k = 1;
    } else if (k == 1) {
      m3apply(rot, rec.direction, d2);
      f2 = idx;
      f2rec = &rec;
      k = 2;
    } else {
      k = 3;
    }
  }

  double u[3], u2[3];
  m3apply(rot, m.records[m.tool].direction, u);
  vcopy(u, u2);

  if (k >= 2) {
    // F2 first: turn about d2 until the tool makes with d1 the angle that T makes with it.
    const PairMemo& g = pair_geometry(st, d1, d2, u);
    if (g.spans) {
      const double alpha = rad_to_deg(acos_clamped((vdot(d1, t) - g.d1p) / g.rs));
      const double sigma = f2rec->sense < 0 ? -1.0 : 1.0;
      sol1[f2] = sigma * alpha;
      sol2[f2] = -sigma * alpha;
      if (g.u_behind) {
        sol1[f2] += g.beta;
        sol2[f2] += g.beta;
      } else {
        sol1[f2] -= g.beta;
        sol2[f2] -= g.beta;
      }
      sol1[f2] = wrap_strict(sol1[f2], prev[f2]);
      sol2[f2] = wrap_strict(sol2[f2], prev[f2]);
      if (std::fabs(sol1[f2] - prev[f2]) - eps > std::fabs(sol2[f2] - prev[f2])) {
        const double tmp = sol1[f2];
        sol1[f2] = sol2[f2];
        sol2[f2] = tmp;
      }
    }
    const double a1 = deg_to_rad(sol1[f2]), a2 = deg_to_rad(sol2[f2]);
    // With the tool at rest on the first axis' plane the two candidates are opposite, and a
    // repeated direction turns by the same angles: the memo serves both.
    double c1, s1, c2, s2;
    cos_sin(st.turns, a1, &c1, &s1);
    remember_cos_sin(st.turns, 0, a1, c1, s1);
    cos_sin(st.turns, a2, &c2, &s2);
    remember_cos_sin(st.turns, 1, a2, c2, s2);
    rotate_basis(g.u_about_d2, d2, c1, s1, u);
    rotate_basis(g.u_about_d2, d2, c2, s2, u2);
  }

  vcopy(u, c->u[0]);
  vcopy(u2, c->u[1]);
  if (k >= 1) {
    double turned[2];
    solve_first_axis(d1, t, prev[f1], c->u, eps, c->turn, turned);
    sol1[f1] = turned[0];
    sol2[f1] = turned[1];
  }

  vcopy(t, c->t);
  vcopy(d1, c->d1);
  vcopy(prev, c->prev);
  c->k = k;
  c->f1 = f1;
  return 0;
}

// True when the mode takes the second candidate.
bool takes_second(const SolvedCandidates& c, const double sol1[3], const double sol2[3], int mode,
                  double eps) {
  if (c.k < 2 || mode == 2) return false;
  double e1, e2;
  if (mode == 1) {
    e1 = std::fabs(sol1[c.f1] - c.prev[c.f1]);
    e2 = std::fabs(sol2[c.f1] - c.prev[c.f1]);
  } else {
    e1 = largest_change(sol1, c.prev);
    e2 = largest_change(sol2, c.prev);
  }
  return e1 - eps > e2;
}

// 0 when the chosen candidate's tool vector reaches the direction, else 1.
int reach_code(SolvedCandidates& c, bool second, double eps) {
  const int i = second ? 1 : 0;
  if (c.reach[i] < 0) {
    // Most directions are reached (or missed) by far more than rounding: no turn is needed.
    const double threshold = 1.0 - eps, estimate = reach_estimate(c.turn[i], c.t, c.d1);
    if (estimate >= threshold + kReachMargin) return c.reach[i] = 0;
    if (estimate < threshold - kReachMargin) return c.reach[i] = 1;
    double u[3];
    vcopy(c.u[i], u);
    if (c.turn[i].turned) rotate_vector(c.d1, c.turn[i].gamma, u, eps);
    c.reach[i] = vdot(u, c.t) >= 1.0 - eps ? 0 : 1;
  }
  return c.reach[i];
}

}  // namespace

int solve_orientation(State& st, const double ijk[3], const double prev[3], double out[3]) {
  SolvedCandidates c;
  if (solve_candidates(st, ijk, prev, &c) != 0) return 1;
  const bool second = takes_second(c, st.sol1, st.sol2, st.machine.mode, st.eps);
  if (second) {
    for (int i = 0; i < 3; ++i) {
      const double tmp = st.sol1[i];
      st.sol1[i] = st.sol2[i];
      st.sol2[i] = tmp;
    }
  }
  vcopy(st.sol1, out);
  return reach_code(c, second, st.eps);
}

int solve_orientation_each_mode(State& st, const double ijk[3], const double prev[3],
                                double out[3][3], int codes[3]) {
  SolvedCandidates c;
  if (solve_candidates(st, ijk, prev, &c) != 0) return 1;
  for (int mode = 0; mode <= 2; ++mode) {
    const bool second = takes_second(c, st.sol1, st.sol2, mode, st.eps);
    vcopy(second ? st.sol2 : st.sol1, out[mode]);
    codes[mode] = reach_code(c, second, st.eps);
  }
  return 0;
}

double law_value(const State& st, int axis, double from, double to, int* sign) {
  int scratch = 0;
  int& s = sign != nullptr ? *sign : scratch;
  const AxisRecord* rec = record_by_id(st, axis);
  const int law = rec != nullptr ? rec->law : 0;
  if (law != 1 && law != 2) {
    s = 0;
    return to;
  }
  double w = std::fabs(to) > kFarTurns ? std::fmod(to, 360.0) : to;
  for (int i = 0; i < kMaxSteps; ++i) {
    if (w >= 360.0)
      w -= 360.0;
    else if (w < 0.0)
      w += 360.0;
    else
      break;
  }
  s = law == 2 || to - from >= 0.0 ? 1 : -1;
  return std::fabs(w);
}

void apply_laws(const State& st, const double from[3], const double to[3], double out[3]) {
  const double f[3] = {from[0], from[1], from[2]};
  const double t[3] = {to[0], to[1], to[2]};
  vcopy(t, out);
  for (int i = 0; i < 3; ++i) {
    const int axis = kIdA + i;
    if (record_by_id(st, axis) == nullptr) continue;
    int sign = 0;
    const double v = law_value(st, axis, f[i], t[i], &sign);
    if (sign != 0) out[i] = sign * v;
  }
}

}  // namespace k5x
