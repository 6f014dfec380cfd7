#include "geometry/chain.h"

#include <cmath>
#include <cstring>

#include "kernel/kernel.h"

namespace k5x {

namespace {

bool moves(const AxisRecord& r) { return r.kind == kKindLinear || r.kind == kKindRotary; }

double axis_value(const AxisRecord& r, const double q[6]) {
  return (r.axis >= 0 && r.axis < 6) ? q[r.axis] : 0.0;
}

// Slides a linear record along its direction, or turns a rotary one about it, by value.
__attribute__((always_inline)) inline void move_record(State& st, int i, double value) {
  AxisRecord& r = st.machine.records[i];
  double d[3];
  m3apply(r.frame, r.direction, d);
  const double t = (value - r.offset) * r.factor;
  if (r.kind == kKindLinear)
    vaxpy(r.origin, d, t, r.origin);
  else {
    double c, s;
    cos_sin(st.turns, t, &c, &s);
    rotate_frame_cs(d, c, s, r.frame, frame_basis(d, r.frame, st.eps, &st.machine.frame_memo[i]));
  }
}

__attribute__((always_inline)) inline void place_child(const AxisRecord& r, const Link& l,
                                                     AxisRecord& c) {
  double off[3];
  m3apply(r.frame, l.translation, off);
  vadd(r.origin, off, c.origin);
  m3mul(r.frame, l.rotation, c.frame);
}

void evaluate_every_record(State& st, const double q[6], int count) {
  Model& m = st.machine;
  // One pass in table order: every record comes after its parent, so the parent's links have
  // already placed it when it is visited. Nothing is reset first, on purpose.
  for (int i = 0; i < count; ++i) {
    AxisRecord& r = m.records[i];
    if (moves(r)) move_record(st, i, axis_value(r, q));
    int nlien = r.link_count;
    if (nlien > kMaxLinks) nlien = kMaxLinks;
    for (int j = 0; j < nlien; ++j) {
      const Link& l = r.links[j];
      if (l.child < 0 || l.child >= count || l.child == i) continue;
      place_child(r, l, m.records[l.child]);
    }
  }
}

// The bit of a value that changes at every evaluation: a root that moves moves once more each
// time.
constexpr unsigned kEveryTime = 1u << 6;

// The parent whose link places each record last and the values each record's result depends on,
// when every link the evaluation follows goes forward; false for a tree with a link back, whose
// evaluation is then never shortened.
bool find_parents(const Model& m, int count, ChainMemo& memo) {
  for (int i = 0; i < count; ++i) memo.parent[i] = kNone;
  for (int i = 0; i < count; ++i) {
    const AxisRecord& r = m.records[i];
    const int nlien = r.link_count > kMaxLinks ? kMaxLinks : r.link_count;
    for (int j = 0; j < nlien; ++j) {
      const int c = r.links[j].child;
      if (c < 0 || c >= count || c == i) continue;
      if (c < i) return false;
      memo.parent[c] = i;
      memo.link[c] = j;
    }
  }
  for (int i = 0; i < count; ++i) {
    const AxisRecord& r = m.records[i];
    const int p = memo.parent[i];
    unsigned own = 0;
    if (moves(r)) own = p == kNone ? kEveryTime : (r.axis >= 0 && r.axis < 6 ? 1u << r.axis : 0u);
    memo.depends[i] = own | (p == kNone ? 0u : memo.depends[p]);
  }
  return true;
}

// A rotary record whose parent stands where it stood is placed where it was, and its turn
// memo holds that placement (the axis, the first two columns) with the bases for it: the turn
// is made from them alone, to the same bits. False when the memo cannot serve.
__attribute__((always_inline)) inline bool turn_in_place(State& st, int i, double value) {
  AxisRecord& r = st.machine.records[i];
  const FrameBasis& memo = st.machine.frame_memo[i];
  if (!memo.valid || !same_bits(&memo.key[9], &st.eps, 1)) return false;
  const double* placed = memo.key + 3;  // column 0, then column 1
  for (int k = 0; k < 3; ++k) {
    r.frame[3 * k] = placed[k];
    r.frame[3 * k + 1] = placed[3 + k];
  }
  double c, s;
  cos_sin(st.turns, (value - r.offset) * r.factor, &c, &s);
  rotate_frame_cs(memo.key, c, s, r.frame, memo.col);
  return true;
}

// The evaluation when the memo holds: a record moves again only when its value or an
// ancestor's changed, after its parent's link has put it back where the parent leaves it.
void evaluate_changed_records(State& st, const double q[6], int count) {
  Model& m = st.machine;
  ChainMemo& memo = m.chain_memo;
  unsigned changed = kEveryTime;
  for (int k = 0; k < 6; ++k)
    if (!same_bits(&q[k], &memo.q[k], 1)) changed |= 1u << k;
  for (int i = 0; i < count; ++i) {
    if ((memo.depends[i] & changed) == 0) continue;
    AxisRecord& r = m.records[i];
    const int p = memo.parent[i];
    if (p != kNone && r.kind == kKindRotary && (memo.depends[p] & changed) == 0 &&
        turn_in_place(st, i, axis_value(r, q)))
      continue;
    if (p != kNone) place_child(m.records[p], m.records[p].links[memo.link[i]], r);
    if (moves(r)) move_record(st, i, axis_value(r, q));
  }
}

}  // namespace

void evaluate_chain(State& st, const double q[6]) {
  if (q == nullptr) return;
  Model& m = st.machine;
  int count = m.record_count;
  if (count > kMaxRecords) count = kMaxRecords;
  if (count < 0) count = 0;
  ChainMemo& memo = m.chain_memo;
  if (memo.valid && memo.count == count && same_bits(&memo.eps, &st.eps, 1)) {
    evaluate_changed_records(st, q, count);
  } else {
    evaluate_every_record(st, q, count);
    memo.valid = find_parents(m, count, memo);
    memo.count = count;
    memo.eps = st.eps;
  }
  std::memcpy(memo.q, q, sizeof memo.q);
}

int axis_matrix(const State& st, int a, int b, double h[16]) {
  const AxisRecord* ra = record_by_id(st, a);
  if (h == nullptr) return ra == nullptr ? 1 : 0;
  const AxisRecord* rb = record_by_id(st, b);

  double binv[9];
  double pb[3] = {0.0, 0.0, 0.0};
  m3identity(binv);
  if (rb != nullptr) {
    // Record frames are orthonormal by construction; a singular one keeps the identity.
    m3inverse(rb->frame, binv, st.eps);
    vcopy(rb->origin, pb);
  }

  double ma[9];
  double ta[3] = {0.0, 0.0, 0.0};
  m3identity(ma);
  if (ra != nullptr) {
    m3copy(ra->frame, ma);
    double mp[3];
    m3apply(ma, ra->point, mp);
    vsub(mp, ra->origin, ta);  // origin - frame * point
  }

  double rot[9];
  m3mul(binv, ma, rot);
  double diff[3];
  vsub(pb, ta, diff);  // ta - pb
  double trans[3];
  m3apply(binv, diff, trans);
  to4x4(rot, trans, h);
  return ra == nullptr ? 1 : 0;
}

void frame_along(const double v[3], double h[16]) {
  if (h == nullptr) return;
  if (v == nullptr) {
    double z[3] = {0.0, 0.0, 1.0};
    frame_along(z, h);
    return;
  }
  // No zero-length test: the direction is divided by its length as it comes.
  const double len = vnorm(v);
  const double x0 = v[0] / len, y0 = v[1] / len, z = v[2] / len;
  const double theta = acos_clamped(z);
  double x = x0, y = y0;
  const double rxy = std::sqrt(x * x + y * y);
  if (rxy != 0.0) {
    x /= rxy;
    y /= rxy;
  }
  double phi = acos_clamped(x);
  if (y < 0.0) phi = -phi;
  const double psi = phi + kPi / 2.0;

  const double cp = std::cos(psi), sp = std::sin(psi);
  const double ct = std::cos(theta), stt = std::sin(theta);
  // Rz(psi) * Rx(theta)
  const double rz[9] = {cp, -sp, 0.0, sp, cp, 0.0, 0.0, 0.0, 1.0};
  const double rx[9] = {1.0, 0.0, 0.0, 0.0, ct, -stt, 0.0, stt, ct};
  double rot[9];
  m3mul(rz, rx, rot);
  const double zero[3] = {0.0, 0.0, 0.0};
  to4x4(rot, zero, h);
}

void tool_tip(const State& st, double tip[3]) {
  if (tip == nullptr) return;
  const AxisRecord* t = record_by_id(st, kIdTool);
  if (t == nullptr) {
    vzero(tip, 3);
    return;
  }
  const double axis[3] = {t->frame[2], t->frame[5], t->frame[8]};
  vaxpy(t->origin, axis, -st.machine.tool_length, tip);
}

}  // namespace k5x
