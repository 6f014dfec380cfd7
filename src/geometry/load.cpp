#include "geometry/load.h"

#include "geometry/chain.h"
#include "geometry/transforms.h"
#include "kernel/kernel.h"

namespace k5x {

int machine_def(State& st, const char* path) { return finish_load(st, read_machine_file(st, path)); }

int machine_def_text(State& st, const std::string& text) {
  return finish_load(st, read_machine_text(st, text.data(), text.size()));
}

int finish_load(State& st, const FileRead& read) {
  if (!read.complete) return read.code;
  double position[6];
  for (int k = 0; k < 6; ++k) position[k] = read.position[k];
  if (!read.has_position) {
    // The offsets come from the geometry: the workpiece seen from the tool head at zero.
    const double zero[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    evaluate_chain(st, zero);
    const Model& m = st.machine;
    vsub(m.records[m.workpiece].origin, m.records[m.tool_head].origin, position);
  }
  apply_offsets(st, position);
  save_workpiece(st);
  double identity[16] = {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
  place_workpiece(st, identity);
  return read.code;
}

}  // namespace k5x
