#include "geometry/chain.h"

#include <cmath>

#include "kernel/kernel.h"

namespace k5x {

void evaluate_chain(State& st, const double q[6]) {
  if (q == nullptr) return;
  Model& m = st.machine;
  int count = m.record_count;
  if (count > kMaxRecords) count = kMaxRecords;
  // One pass in table order: every record comes after its parent, so the parent's links have
  // already placed it when it is visited. Nothing is reset first, on purpose.
  for (int i = 0; i < count; ++i) {
    AxisRecord& r = m.records[i];
    if (r.kind == kKindLinear || r.kind == kKindRotary) {
      double d[3];
      m3apply(r.frame, r.direction, d);
      const double value = (r.axis >= 0 && r.axis < 6) ? q[r.axis] : 0.0;
      const double t = (value - r.offset) * r.factor;
      if (r.kind == kKindLinear)
        vaxpy(r.origin, d, t, r.origin);
      else
        rotate_frame_cs(d, std::cos(t), std::sin(t), r.frame,
                        frame_basis(d, r.frame, st.eps, &st.frame_memo[i]));
    }
    int nlien = r.link_count;
    if (nlien > kMaxLinks) nlien = kMaxLinks;
    for (int j = 0; j < nlien; ++j) {
      const Link& l = r.links[j];
      if (l.child < 0 || l.child >= count || l.child == i) continue;
      AxisRecord& c = m.records[l.child];
      double off[3];
      m3apply(r.frame, l.translation, off);
      vadd(r.origin, off, c.origin);
      m3mul(r.frame, l.rotation, c.frame);
    }
  }
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
