#include "toolpath/kinematics.h"

#include <cmath>

#include "geometry/axis_queries.h"
#include "geometry/chain.h"
#include "kernel/kernel.h"
#include "geometry/solver.h"
#include "motion/increments.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "solutions/three_rotary.h"

namespace k5x {

namespace {

// Travel limits beyond this magnitude are "no limit" for planning: a whole-turn representative
// is then never needed to stay in travel.
constexpr double kUnlimited = 1e9;

// Two solutions closer than this on every axis are one.
constexpr double kSameAngle = 1e-9;

bool same_angles(const double a[3], const double b[3]) {
  for (int k = 0; k < 3; ++k)
    if (!(std::fabs(a[k] - b[k]) <= kSameAngle)) return false;
  return true;
}

// The same angles up to whole turns.
bool same_turn(const double a[3], const double b[3]) {
  for (int k = 0; k < 3; ++k)
    if (!(std::fabs(std::remainder(a[k] - b[k], 360.0)) <= 1e-6)) return false;
  return true;
}

void restore_loaded(State& st, const MachineFacts& f) {
  for (int k = 0; k < 6; ++k) {
    st.machine.travel_min[k] = f.loaded_min[k];
    st.machine.travel_max[k] = f.loaded_max[k];
  }
  for (int i = 0; i < 3; ++i)
    if (f.has_axis[3 + i]) set_axis_locked(st, kIdA + i, f.loaded_locked[i]);
}

// The file's tool direction agrees with the CAM sense when it points from the tip towards the
// spindle. The spindle side is the pivot of the rotary axis nearest the tool on the tool side;
// without one, the tool's own reference point, from which the tip lies a tool length away.
bool tool_points_to_spindle(const Model& m) {
  if (m.tool < 0 || m.tool >= m.record_count) return true;
  const AxisRecord& tool = m.records[m.tool];
  double tip[3];
  vaxpy(tool.point, tool.direction, -m.tool_length, tip);
  const double* reference = tool.point;
  for (int cur = tool.previous, guard = 0; cur >= 0 && cur < m.record_count && guard < kMaxRecords;
       cur = m.records[cur].previous, ++guard) {
    if (m.records[cur].kind == kKindRotary) {
      reference = m.records[cur].point;
      break;
    }
  }
  double v[3];
  vsub(tip, reference, v);  // reference - tip
  const double along = vdot(v, tool.direction);
  return !(along < 0.0);
}

// Whether the direction lies along the first free axis (within eps, once made unit). Directions
// come here unit already, so the test mostly needs neither the root nor the divisions: only
// where rounding could decide it is the direction made unit again.
bool along_first_axis(const State& st, const MachineFacts& f, const double dir[3]) {
  constexpr double kMargin = 1e-12;
  const double eps = st.eps;
  if (std::fabs(vdot(dir, dir) - 1.0) <= 1e-14) {  // then unit within a hundredth of the margin
    double c[3];
    vcross(dir, f.first_axis, c);
    const double sine2 = vdot(c, c);
    if (sine2 > (eps + kMargin) * (eps + kMargin)) return false;
    if (eps > kMargin && sine2 < (eps - kMargin) * (eps - kMargin)) return true;
  }
  double t[3] = {dir[0], dir[1], dir[2]};
  vnormalize(t, eps);
  double c[3];
  vcross(t, f.first_axis, c);
  return vnorm(c) <= eps;
}

}  // namespace

MachineFacts read_machine_facts(State& st) {
  MachineFacts f;
  const Model& m = st.machine;
  for (int k = 0; k < 6; ++k) {
    f.has_axis[k] = record_index_by_id(st, kIdX + k) >= 0;
    f.loaded_min[k] = m.travel_min[k];
    f.loaded_max[k] = m.travel_max[k];
  }
  f.three_rotary = f.has_axis[3] && f.has_axis[4] && f.has_axis[5];
  for (int i = 0; i < 3; ++i) {
    f.min[i] = m.travel_min[3 + i];
    f.max[i] = m.travel_max[3 + i];
    f.limited[i] = f.has_axis[3 + i] && f.max[i] < kUnlimited && f.min[i] > -kUnlimited;
    if (f.has_axis[3 + i]) f.loaded_locked[i] = axis_locked(st, kIdA + i);
  }
  f.travel_tol = m.travel_tol;
  // The solver's first free axis: the first listed rotary axis with an angle that is not locked.
  for (int i = 0; i < m.rotary_count && i < kMaxRotary; ++i) {
    const int r = m.rotary[i];
    if (r < 0 || r >= m.record_count) continue;
    const AxisRecord& rec = m.records[r];
    if (rec.kind != kKindRotary || rec.axis < 3 || rec.axis > 5 || rec.locked != 0) continue;
    f.first_free = rec.axis - 3;
    vcopy(rec.direction, f.first_axis);
    vnormalize(f.first_axis, st.eps);
    break;
  }
  for (int i = 0; i < m.rotary_count && i < kMaxRotary && f.first_free >= 0; ++i) {
    const int r = m.rotary[i];
    if (r < 0 || r >= m.record_count) continue;
    const AxisRecord& rec = m.records[r];
    if (rec.kind != kKindRotary || rec.axis < 3 || rec.axis > 5 || rec.locked != 0) continue;
    if (rec.axis - 3 == f.first_free) continue;
    f.second_free = rec.axis - 3;
    break;
  }
  if (f.second_free >= 0 && !f.three_rotary) {
    // Solved without snapping, travel or trace: only the geometry counts here.
    const int behaviour = st.machine.increment_behaviour;
    const char silent = st.silent;
    st.machine.increment_behaviour = 0;
    st.silent = 1;
    const double zero[3] = {0.0, 0.0, 0.0};
    double abc[3], opposite[3];
    vscale(f.first_axis, -1.0, opposite);
    if (solve_direction(st, f.first_axis, zero, abc) != 1 || solve_direction(st, opposite, zero, abc) != 1)
      f.pole = abc[f.second_free];
    else
      f.second_free = -1;
    st.machine.increment_behaviour = behaviour;
    st.silent = silent;
  }
  for (int i = 0; i < m.record_count && i < kMaxRecords; ++i)
    if (m.records[i].kind == kKindRotary && m.records[i].increment > 0.0) f.indexed = true;
  f.indexed = f.indexed && m.increment_behaviour > 0;
  f.cam_sense = tool_points_to_spindle(m);
  return f;
}

int solve_nearest(State& st, const MachineFacts& f, const double dir[3], const double prev[3],
                  int mode3r, double abc[3]) {
  vcopy(prev, abc);
  if (!f.three_rotary) return solve_direction(st, dir, prev, abc);
  const int code = solve_three_rotary(st, dir, prev, abc, mode3r);
  restore_loaded(st, f);
  return code;
}

void solve_all(State& st, const MachineFacts& f, const double dir[3], const double seed[3],
               int mode3r, Candidates* out) {
  out->count = 0;
  out->singular = false;
  double base[2][3];
  int base_code[2];
  int bases = 1;
  base_code[0] = solve_nearest(st, f, dir, seed, mode3r, base[0]);
  if (f.three_rotary) {
    if (base_code[0] == -1) return;
  } else {
    if (base_code[0] == 1) return;
    double second[3];
    vcopy(st.sol2, second);
    if (f.indexed) {
      // Snapping leaves the solver's two solutions on one branch: the other branch comes from
      // the geometry alone, then is snapped as the first was by solving again from it.
      const int behaviour = st.machine.increment_behaviour;
      const char silent = st.silent;
      st.machine.increment_behaviour = 0;
      st.silent = 1;
      double raw[3];
      solve_direction(st, dir, seed, raw);
      const double* other = same_turn(st.sol1, raw) ? st.sol2 : st.sol1;
      vcopy(other, second);
      st.machine.increment_behaviour = behaviour;
      st.silent = silent;
      base_code[1] = solve_direction(st, dir, second, base[1]);
      if (base_code[1] != 1 && !same_angles(base[1], base[0])) bases = 2;
    } else if (!same_angles(second, base[0])) {
      vcopy(second, base[1]);
      base_code[1] = rotary_travel_code(st, second);
      bases = 2;
    }
    if (f.first_free >= 0) out->singular = along_first_axis(st, f, dir);
  }
  for (int b = 0; b < bases; ++b) {
    // Whole-turn representatives of each limited axis within its travel.
    double values[3][8];
    int counts[3];
    for (int i = 0; i < 3; ++i) {
      counts[i] = 0;
      const double v = base[b][i];
      if (f.limited[i] && !f.three_rotary && std::isfinite(v)) {
        const double lo = f.min[i] - f.travel_tol, hi = f.max[i] + f.travel_tol;
        double w = v;
        while (w - 360.0 >= lo) w -= 360.0;
        for (; w <= hi && counts[i] < 8; w += 360.0)
          if (w >= lo) values[i][counts[i]++] = w;
      }
      if (counts[i] == 0) values[i][counts[i]++] = v;
    }
    for (int a = 0; a < counts[0]; ++a)
      for (int bb = 0; bb < counts[1]; ++bb)
        for (int c = 0; c < counts[2]; ++c) {
          if (out->count >= kMaxCandidates) return;
          double* abc = out->abc[out->count];
          abc[0] = values[0][a];
          abc[1] = values[1][bb];
          abc[2] = values[2][c];
          bool duplicate = false;
          for (int j = 0; j < out->count && !duplicate; ++j)
            duplicate = same_angles(out->abc[j], abc);
          if (duplicate) continue;
          const bool as_solved = same_angles(abc, base[b]);
          // The solver's own answer was tested for travel as it was solved (with two free axes
          // its code is that test's).
          const int travel = !f.three_rotary && same_bits(abc, base[b], 3)
                                 ? base_code[b]
                                 : rotary_travel_code(st, abc);
          out->solver_code[out->count] = as_solved ? base_code[b]
                                         : f.three_rotary ? (travel == 0 ? 1 : travel)
                                                          : travel;
          out->in_travel[out->count] = travel == 0;
          ++out->count;
        }
  }
}

void add_held_table(State& st, const MachineFacts& f, const double dir[3], const double seed[3],
                    Candidates* out) {
  double held[2][3];
  // With three free axes the solver holds the one nearest the workpiece at its previous value.
  if (solve_direction(st, dir, seed, held[0]) == 1) return;
  vcopy(st.sol2, held[1]);
  for (const double* abc : held) {
    bool duplicate = false;
    for (int j = 0; j < out->count && !duplicate; ++j) duplicate = same_angles(out->abc[j], abc);
    if (duplicate || out->count >= kMaxCandidates) continue;
    const int travel = rotary_travel_code(st, abc);
    vcopy(abc, out->abc[out->count]);
    out->solver_code[out->count] = travel == 0 ? 1 : travel;
    out->in_travel[out->count] = travel == 0;
    ++out->count;
  }
  (void)f;
}

void place(State& st, const double point[3], const double abc[3], double xyz[3]) {
  place_tip(st, point, abc, xyz);
}

void forward(State& st, const double pos[6], double tip[3], double axis[3]) {
  tip_at(st, pos, pos + 3, tip);
  // The chain was just evaluated at pos: the tool's local Z seen from the workpiece.
  const Model& m = st.machine;
  if (m.tool < 0 || m.tool >= kMaxRecords || m.workpiece < 0 || m.workpiece >= kMaxRecords) {
    axis[0] = axis[1] = 0.0;
    axis[2] = 1.0;
    return;
  }
  const double* t = m.records[m.tool].frame;
  const double* w = m.records[m.workpiece].frame;
  const double z[3] = {t[2], t[5], t[8]};
  // Record frames are orthonormal: the inverse is the transpose.
  for (int k = 0; k < 3; ++k) axis[k] = w[k] * z[0] + w[3 + k] * z[1] + w[6 + k] * z[2];
}

int travel_code(const State& st, const double pos[6], int flags[6]) {
  return travel_test(st, pos, flags);
}

int rotary_travel_code(const State& st, const double abc[3]) {
  int flags[3];
  return travel_test_abc(st, abc, flags);
}

}  // namespace k5x
