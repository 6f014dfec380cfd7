#include "geometry/transforms.h"

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "geometry/chain.h"
#include "kernel/kernel.h"
#include "geometry/travel.h"

namespace k5x {

namespace {

constexpr int kMaxSteps = 500;
const double kIdentity3[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};
const double kZero3[3] = {0.0, 0.0, 0.0};

bool valid_record(int index) { return index >= 0 && index < kMaxRecords; }

// A missing record (no machine, failed load) reads as the identity frame at the origin, so the
// transforms degrade to harmless values instead of reading outside the table.
const double* frame_of(const State& st, int index) {
  return valid_record(index) ? st.machine.records[index].frame : kIdentity3;
}

const double* origin_of(const State& st, int index) {
  return valid_record(index) ? st.machine.records[index].origin : kZero3;
}

// Inverse of m, or the identity when m is singular; returns the status of the inversion.
int inverse_or_identity(const State& st, const double m[9], double inv[9]) {
  m3identity(inv);
  return m3inverse(m, inv, st.eps);
}

// inverse_or_identity through the state's memo.
int remembered_inverse(State& st, const double m[9], double inv[9]) {
  InverseMemo& memo = st.frame_inverse;
  double key[10];
  m3copy(m, key);
  key[9] = st.eps;
  if (!memo.valid || !same_bits(key, memo.key, 10)) {
    std::memcpy(memo.key, key, sizeof key);
    memo.status = inverse_or_identity(st, m, memo.inverse);
    memo.valid = true;
  }
  m3copy(memo.inverse, inv);
  return memo.status;
}

void evaluate(State& st, const double xyz[3], const double abc[3]) {
  const double q[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};
  evaluate_chain(st, q);
}

// F^-1 * (tool tip - tool head origin): the head offset in frame coordinates, after an
// evaluation. Returns the status of inverting F.
int head_offset(const State& st, double out[3]) {
  double finv[9];
  const int status = inverse_or_identity(st, frame_of(st, st.machine.frame), finv);
  double tip[3];
  tool_tip(st, tip);
  double d[3];
  vsub(origin_of(st, st.machine.tool_head), tip, d);
  m3apply(finv, d, out);
  return status;
}

// Records of the rotary run starting at head: the head and, while the current record is rotary
// and has a child, its first child. The count is bounded, so a damaged tree cannot loop.
int rotary_run(const State& st, int head, int out[kMaxRecords]) {
  int count = 0;
  int cur = head;
  while (valid_record(cur) && count < kMaxRecords) {
    const AxisRecord& r = st.machine.records[cur];
    if (r.kind != kKindRotary || r.link_count < 1) break;
    out[count++] = cur;
    cur = r.links[0].child;
  }
  return count;
}

bool in_run(const int run[], int count, int index) {
  for (int i = 0; i < count; ++i)
    if (run[i] == index) return true;
  return false;
}

// Distance of point p from the line through o along the unit direction d.
double line_distance(const double p[3], const double o[3], const double d[3]) {
  double v[3];
  vsub(o, p, v);
  double w[3];
  vreject(d, v, w);
  return vnorm(w);
}

// Raises r[letter] to the distance of the current tool tip from each rotary axis: head axes
// measured from the line through the tool head, table axes from the line through the table head.
void raise_radii(const State& st, double r[6]) {
  const Model& m = st.machine;
  double tip[3];
  tool_tip(st, tip);
  int head_run[kMaxRecords];
  const int head_count = rotary_run(st, m.tool_head, head_run);
  int count = m.rotary_count;
  if (count > kMaxRotary) count = kMaxRotary;
  for (int i = 0; i < count; ++i) {
    const int index = m.rotary[i];
    if (!valid_record(index)) continue;
    const AxisRecord& a = m.records[index];
    if (a.axis < 0 || a.axis > 5) continue;
    double d[3];
    m3apply(a.frame, a.direction, d);
    vnormalize(d, st.eps);
    const int through = in_run(head_run, head_count, index) ? m.tool_head : m.table_head;
    const double dist = line_distance(tip, origin_of(st, through), d);
    if (dist > r[a.axis]) r[a.axis] = dist;
  }
}

// Steps needed on one axis moving by delta degrees at radius r within tolerance t. Bounded well
// above the step limit so that degenerate tolerances cannot overflow the count.
int axis_steps(double r, double t, double delta) {
  if (!(r > t)) return 1;
  const double alpha = acos_clamped((r - t) / r);
  const double q = std::fabs(delta) * kPi / 180.0 / (2.0 * alpha);
  if (!(q >= 1.0)) return 1;  // also a NaN from a zero move with a zero angle
  if (q >= 1e9) return 1000000000;
  return static_cast<int>(q);
}

}  // namespace

int tip_at(State& st, const double xyz[3], const double abc[3], double out[3]) {
  evaluate(st, xyz, abc);
  const int w = st.machine.workpiece;
  double winv[9];
  inverse_or_identity(st, frame_of(st, w), winv);
  double tip[3];
  tool_tip(st, tip);
  double d[3];
  vsub(origin_of(st, w), tip, d);
  m3apply(winv, d, out);
  return 0;
}

int tool_axis_at(State& st, const double xyz[3], const double abc[3], double out[3]) {
  evaluate(st, xyz, abc);
  double winv[9];
  inverse_or_identity(st, frame_of(st, st.machine.workpiece), winv);
  const double* f = frame_of(st, st.machine.tool);
  const double axis[3] = {f[2], f[5], f[8]};
  double v[3];
  vscale(axis, st.machine.tool_length, v);
  m3apply(winv, v, out);
  return 0;
}

int place_tip(State& st, const double p[3], const double abc[3], double xyz[3]) {
  const double point[3] = {p[0], p[1], p[2]};
  evaluate(st, kZero3, abc);
  const Model& m = st.machine;
  double target[3];
  m3apply(frame_of(st, m.workpiece), point, target);
  vadd(origin_of(st, m.workpiece), target, target);
  double tip[3];
  tool_tip(st, tip);
  double finv[9];
  remembered_inverse(st, frame_of(st, m.frame), finv);
  double d[3];
  vsub(target, tip, d);  // tip - target
  m3apply(finv, d, d);
  int count = m.record_count;
  if (count > kMaxRecords) count = kMaxRecords;
  for (int i = 0; i < count; ++i) {
    const AxisRecord& r = m.records[i];
    if (r.kind == kKindLinear && r.axis >= 0 && r.axis <= 2) xyz[r.axis] = -vdot(d, r.direction);
  }
  int flags[3];
  return travel_test_xyz(st, xyz, flags);
}

int machine_to_programmed(State& st, const double m[6], double l[6]) {
  double q[6];
  for (int k = 0; k < 6; ++k) q[k] = m[k];
  for (int k = 0; k < 6; ++k) l[k] = q[k];
  const int rtcp = st.machine.rtcp;
  if (rtcp == 0) return 0;
  evaluate(st, q, q + 3);
  if (rtcp == 2) {
    double off[3];
    const int status = head_offset(st, off);
    for (int k = 0; k < 3; ++k) l[k] += off[k];
    return status;
  }
  // Full compensation: the tool tip in workpiece coordinates.
  const int w = st.machine.workpiece;
  double winv[9];
  const int status = inverse_or_identity(st, frame_of(st, w), winv);
  double tip[3];
  tool_tip(st, tip);
  double d[3];
  vsub(origin_of(st, w), tip, d);
  m3apply(winv, d, l);
  return status;
}

int programmed_to_machine(State& st, const double l[6], double m[6]) {
  double q[6];
  for (int k = 0; k < 6; ++k) q[k] = l[k];
  for (int k = 0; k < 6; ++k) m[k] = q[k];
  const int rtcp = st.machine.rtcp;
  if (rtcp == 0) return 0;
  const Model& mc = st.machine;
  double finv[9];
  if (rtcp == 2) {
    evaluate(st, q, q + 3);
  } else {
    evaluate(st, kZero3, q + 3);
    inverse_or_identity(st, frame_of(st, mc.frame), finv);
    // (w - head) + W l, summed in that order so that the result is reproducible to the bit.
    double d[3], wl[3];
    vsub(origin_of(st, mc.tool_head), origin_of(st, mc.workpiece), d);
    m3apply(frame_of(st, mc.workpiece), q, wl);
    vadd(d, wl, d);
    m3apply(finv, d, m);
  }
  double off[3];
  const int status = head_offset(st, off);
  for (int k = 0; k < 3; ++k) m[k] -= off[k];
  return status;
}

int machine_to_tool(State& st, const double m[6], double out[6]) {
  double q[6];
  for (int k = 0; k < 6; ++k) q[k] = m[k];
  for (int k = 0; k < 6; ++k) out[k] = q[k];
  // The head offset is applied exactly when m2l leaves it out (rtcp 0 and 1), and not with
  // rtcp 2; callers depend on this asymmetry.
  if (st.machine.rtcp == 2) return 0;
  evaluate(st, q, q + 3);
  double off[3];
  const int status = head_offset(st, off);
  for (int k = 0; k < 3; ++k) out[k] += off[k];
  return status;
}

double* table_reserve(State& st, int n) {
  if (n < 1) n = 1;
  if (st.table != nullptr && st.table_capacity > 0 && n <= st.table_capacity) return st.table;
  if (!grow_buffer(st.table, static_cast<std::size_t>(n), 6)) {
    st.table_capacity = 0;
    return nullptr;
  }
  st.table_capacity = n;
  return st.table;
}

void chain_substitution(State& st, const double l0[6], double l[6], double row[6]) {
  const Model& m = st.machine;
  int run[kMaxRecords];
  int count = rotary_run(st, m.tool_head, run);
  for (int i = 0; i < count; ++i) {
    const int a = m.records[run[i]].axis;
    if (a >= 0 && a <= 5) l[a] = l0[a];
  }
  // With head-only compensation the table axes keep their blended values.
  if (m.rtcp == 1) {
    count = rotary_run(st, m.table_head, run);
    for (int i = 0; i < count; ++i) {
      const int a = m.records[run[i]].axis;
      if (a >= 0 && a <= 5) l[a] = l0[a];
    }
  }
  double mach[6];
  programmed_to_machine(st, l, mach);
  double pts[3];
  tip_at(st, mach, mach + 3, pts);
  place_tip(st, pts, row + 3, row);
}

int table_fill(State& st, const double s[6], const double e[6], int n, double* rows, int code) {
  double l0[6], l1[6], l[6];
  machine_to_programmed(st, s, l0);
  machine_to_programmed(st, e, l1);
  const double dn = n;
  for (int i = 1; i <= n; ++i) {
    double* row = rows + 6 * static_cast<std::size_t>(i - 1);
    const double di = i;
    for (int k = 0; k < 6; ++k) {
      row[k] = (e[k] - s[k]) * di / dn + s[k];
      l[k] = (l1[k] - l0[k]) * di / dn + l0[k];
    }
    if (st.machine.rtcp != 0) chain_substitution(st, l0, l, row);
    int flags[6];
    const int c = travel_test(st, row, flags);
    if (code == 0) code = c;
  }
  return code;
}

int subdivide_move(State& st, const double s[6], const double e[6], int* n, double** table) {
  // Private copies: the endpoints may be rows of the table that is about to be rewritten.
  double a[6], b[6];
  for (int k = 0; k < 6; ++k) {
    a[k] = s[k];
    b[k] = e[k];
  }
  double radius[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  evaluate(st, a, a + 3);
  raise_radii(st, radius);
  evaluate(st, b, b + 3);
  raise_radii(st, radius);

  int count = *n;
  const double tol = st.machine.tolerance;
  for (int k = 0; k < 6; ++k) {
    const int steps = axis_steps(radius[k], tol, b[k] - a[k]);
    if (steps > count) count = steps;
  }
  int code = 0;
  if (count > kMaxSteps) {
    count = kMaxSteps;
    code = 7;
  }
  double* rows = table_reserve(st, count);
  if (rows == nullptr) {
    *n = 0;
    *table = nullptr;
    return 8;
  }
  *n = count;
  *table = rows;
  return table_fill(st, a, b, count, rows, code);
}

int place_workpiece(State& st, const double t[16]) {
  Model& m = st.machine;
  if (!valid_record(m.workpiece)) return 1;
  AxisRecord& w = m.records[m.workpiece];
  if (!valid_record(w.previous)) return 2;
  AxisRecord& parent = m.records[w.previous];
  int nlien = parent.link_count;
  if (nlien > kMaxLinks) nlien = kMaxLinks;
  // The Z translation comes from t[12], not t[11]: callers hand the matrix over in that layout.
  const double pos[3] = {t[3], t[7], t[12]};
  m.chain_memo.valid = false;
  for (int j = 0; j < nlien; ++j) {
    Link& link = parent.links[j];
    if (!valid_record(link.child) || m.records[link.child].axis != -1) continue;
    const double rot[9] = {t[0], t[1], t[2], t[4], t[5], t[6], t[8], t[9], t[10]};
    m3copy(rot, link.rotation);
    vcopy(pos, link.translation);
    vcopy(pos, w.origin);
    vcopy(pos, w.point);
    return 0;
  }
  return 2;
}

int tool_change_position(const State& st, double out[6]) {
  for (int k = 0; k < 6; ++k) out[k] = st.machine.toolchange[k];
  return st.machine.toolchange_flag;
}

double* initial_position(State& st) { return st.machine.initial_position; }

}  // namespace k5x
