#include "machine/machine_model.h"

#include <cstdlib>
#include <cstring>

#include "kernel/kernel.h"

namespace k5x {

namespace {

const char* const kAxisNames[] = {"AXE_OUTIL", "AXE_PIECE", "AXE_BATI", "AXE_X", "AXE_Y",
                                  "AXE_Z",     "AXE_A",     "AXE_B",    "AXE_C"};

void link_init(Link& l, int child) {
  l.child = child;
  vzero(l.translation, 3);
  m3identity(l.rotation);
}

}  // namespace

State::State() {
  std::memset(&machine.records, 0, sizeof machine.records);
  record_init(machine.saved_workpiece);
  link_init(machine.saved_link, kNone);
  vzero(machine.toolchange, 6);
  machine.toolchange_flag = 0;
  machine_reset(*this);
}

State::~State() {
  std::free(table);
  std::free(solutions);
  std::free(solution_flags);
  delete enum_work;
}

void record_init(AxisRecord& r) {
  r.kind = kKindFrame;
  r.axis = -1;
  r.sense = 1;
  r.law = 0;
  r.color[0] = r.color[1] = r.color[2] = 192;
  r.factor = 1.0;
  r.offset = 0.0;
  vzero(r.direction, 3);
  vzero(r.direction2, 3);
  m3identity(r.frame);
  vzero(r.origin, 3);
  vzero(r.point, 3);
  r.link_count = 0;
  r.previous = kNone;
  for (int& c : r.collision) c = 0;
  r.name[0] = '\0';
  r.locked = 0;
  r.increment = -1.0;
}

void machine_reset(State& st) {
  Model& m = st.machine;
  for (int i = 0; i < 6; ++i) {
    m.travel_max[i] = 1e10;
    m.travel_min[i] = -1e10;
    m.letter[i] = kNone;
    m.rotary[i] = kNone;
  }
  m.travel_tol = 0.001;
  m.tolerance = 0.05;
  m.tool_length = 0.0;
  m.mode = 0;
  m.rtcp = 1;
  m.tool = m.workpiece = m.frame = kNone;
  m.tool_head = m.table_head = kNone;
  m.record_count = 0;
  m.rotary_count = 0;
  // The interpolation table is kept: a caller may still hold rows of it, and only
  // machine_free releases it. Forgetting the pointer here would leak the buffer.
  m.name[0] = '\0';
  vzero(m.initial_position, 3);
  m.increment_behaviour = 0;
  m.deviation_max = 0.0;
  m.last_checksum = 0;
  m.chain_memo.valid = false;
}

int record_new(State& st, int parent) {
  Model& m = st.machine;
  if (m.record_count >= kMaxRecords) return -1;
  const int index = m.record_count++;
  AxisRecord& r = m.records[index];
  record_init(r);
  // A parent must be an earlier record; anything else leaves the record unlinked.
  if (parent < 0 || parent >= index) return index;
  r.previous = parent;
  AxisRecord& p = m.records[parent];
  if (p.link_count >= kMaxLinks) return -2;
  link_init(p.links[p.link_count++], index);
  return index;
}

int record_index_by_id(const State& st, int id) {
  const Model& m = st.machine;
  switch (id) {
    case kIdTool:
      return m.tool;
    case kIdWorkpiece:
      return m.workpiece;
    case kIdFrame:
      return m.frame;
    default:
      if (id >= 1 && id <= 6) return m.letter[id - 1];
      return kNone;
  }
}

AxisRecord* record_by_id(State& st, int id) {
  const int i = record_index_by_id(st, id);
  return i < 0 ? nullptr : &st.machine.records[i];
}

const AxisRecord* record_by_id(const State& st, int id) {
  const int i = record_index_by_id(st, id);
  return i < 0 ? nullptr : &st.machine.records[i];
}

int axis_id_by_name(const char* text) {
  if (text == nullptr) return kIdUnknown;
  for (int i = 0; i < 9; ++i)
    if (std::strcmp(text, kAxisNames[i]) == 0) return i - 2;
  return kIdUnknown;
}

const char* machine_name(const State& st) {
  return st.machine.name[0] == '\0' ? nullptr : st.machine.name;
}

void set_mode(State& st, int mode) {
  if (mode >= 0 && mode <= 2) st.machine.mode = mode;
}

void set_rtcp(State& st, int rtcp) {
  if (rtcp >= 0 && rtcp <= 2) st.machine.rtcp = rtcp;
}

int get_increment_behaviour(const State& st) { return st.machine.increment_behaviour; }

void set_increment_behaviour(State& st, int behaviour, double tolerance) {
  st.machine.increment_behaviour = behaviour;
  if (tolerance > 0.0) st.increment_tolerance = tolerance;
}

}  // namespace k5x
