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
  if (r == nullptr || j < 0 || j >= r->link_count || j >= kMaxLinks) return -1;
  return r->links[j].child;
}

}  // namespace

int axis_type(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->kind : kMissingType;
}

int axis_type_ex(const State& st, int id) {
  return record_by_id(st, id) != nullptr ? id : kMissingType;
}

const char* axis_name(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->name : nullptr;
}

double* axis_direction(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->direction : nullptr;
}

double* axis_point(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->point : nullptr;
}

int* axis_color(State& st, int id) {
  AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->color : nullptr;
}

int axis_law(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->law : 0;
}

int axis_sense(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->sense : 0;
}

int axis_link_count(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->link_count : 0;
}

int axis_link(const State& st, int id, int j) { return link_target(st, id, j); }

int axis_link_translation(const State& st, int id, int j) {
  const int p = link_target(st, id, j);
  if (p < 0 || p >= clamped_count(st)) return kMissingTarget;
  const AxisRecord& t = st.machine.records[p];
  if (t.kind < kKindLinear || t.kind > kKindFrame) return kMissingTarget;
  if (t.kind == kKindLinear || t.kind == kKindRotary) return t.axis + 1;
  return t.kind;
}

const char* axis_link_rotation(const State& st, int id, int j) {
  const int p = link_target(st, id, j);
  if (p < 0 || p >= clamped_count(st)) return nullptr;
  return st.machine.records[p].name;
}

int axis_parent(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  if (r == nullptr) return kMissingPrevious;
  const int p = r->previous;
  if (p < 0 || p >= clamped_count(st)) return p;
  const AxisRecord& parent = st.machine.records[p];
  if (parent.kind < kKindLinear || parent.kind > kKindFrame) return p;
  if (parent.kind == kKindLinear || parent.kind == kKindRotary) return parent.axis + 1;
  return parent.kind;
}

int axis_locked(const State& st, int id) {
  const AxisRecord* r = record_by_id(st, id);
  return r != nullptr ? r->locked : 0;
}

int set_axis_locked(State& st, int id, int flag) {
  AxisRecord* r = record_by_id(st, id);
  if (r == nullptr) return 0;
  r->locked = flag;
  return flag;
}

int axis_collisions(const State& st, int id, int j) {
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

int tool_record(State& st, double v[3]) {
  AxisRecord* tool = record_by_id(st, kIdTool);
  if (tool == nullptr || v == nullptr) return 1;
  // Inverted on purpose: a proper direction is only normalised for the caller (result 1); the
  // tool axis takes the vector only when it cannot be normalised.
  if (vnormalize(v, st.eps) == 0) return 1;
  vcopy(v, tool->direction);
  return 0;
}

}  // namespace k5x
