#include "geometry/axis_queries.h"

#include "kernel/kernel.h"

namespace k5x {

namespace {

constexpr int kMissingType = -100;
constexpr int kMissingPrevious = -300;
constexpr int kMissingTarget = -400;

int clamped_count(const State& st) {
  const int n = st.machine.record_count;
  return n < 0 ? 0 : (n > kMaxRecords ? kMaxRecords : n);
}

// Index of link j's target as stored, or -1 when the record or the link does not exist.
int link_target(const State& st, int id, int j) {
  const AxisRecord* r = record_by_id(st, id);
  if (r == nullptr || j < 0 || j >= r->nlien || j >= kMaxLinks) return -1;
  return r->liens[j].ilien;
}

}  // namespace

int axe_type(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->kind : kMissingType;
}

int axe_typeex(const State& st, int id) {
  return record_by_id(st, id) != nullptr ? id : kMissingType;
}

const char* axe_nom(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->nom : nullptr;
}

double* axe_axe(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->direction : nullptr;
}

double* axe_point(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->point : nullptr;
}

int* axe_color(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->color : nullptr;
}

int axe_loi(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->loi : 0;
}

int axe_sens(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->sens : 0;
}

int axe_nlien(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->nlien : 0;
}

int axe_ilien(const State& st, int id, int j) { return link_target(st, id, j); }

int axe_tlien(const State& st, int id, int j) {
  const int p = link_target(st, id, j);
  if (p < 0 || p >= clamped_count(st)) return kMissingTarget;
  const AxisRecord& t = st.machine.records[p];
  if (t.kind < kKindLinear || t.kind > kKindFrame) return kMissingTarget;
  if (t.kind == kKindLinear || t.kind == kKindRotary) return t.axis + 1;
  return t.kind;
}

const char* axe_slien(const State& st, int id, int j) {
  const int p = link_target(st, id, j);
  if (p < 0 || p >= clamped_count(st)) return nullptr;
  return st.machine.records[p].nom;
}

int axe_previous(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  if (r == nullptr) return kMissingPrevious;
  const int p = r->previous;
  if (p < 0 || p >= clamped_count(st)) return p;
  const AxisRecord& parent = st.machine.records[p];
  if (parent.kind < kKindLinear || parent.kind > kKindFrame) return p;
  if (parent.kind == kKindLinear || parent.kind == kKindRotary) return parent.axis + 1;
  return parent.kind;
}

int axe_fixe_get(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->fixe : 0;
}

int axe_fixe_set(State& st, int id, int flag) {
  AxisRecord* r = record_by_id(st, id);
  if (r == nullptr) return 0;
  r->fixe = flag;
  return flag;
}

int axe_collision(const State& st, int id, int j) {
  const AxisRecord* r = record_by_id(st, id);
  if (r == nullptr) return 0;
  if (j >= 1 && j <= 6) return r->collision[j - 1];
  switch (j) {
    case kIdFrame:
      return r->collision[6];
    case kIdWorkpiece:
      return r->collision[7];
    case kIdTool:
      return r->collision[8];
    default:
      return 0;
  }
}

int axe_outil(State& st, double v[3]) {
  AxisRecord* tool = record_by_id(st, kIdTool);
  if (tool == nullptr || v == nullptr) return 1;
  // Inverted on purpose: a proper direction is only normalised for the caller (result 1); the
  // tool axis takes the vector only when it cannot be normalised.
  if (vnormalize(v, st.eps) == 0) return 1;
  vcopy(v, tool->direction);
  return 0;
}

}  // namespace k5x
