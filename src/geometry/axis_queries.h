// Record-by-record queries of the loaded machine, by axis identifier.
#ifndef K5X_GEOMETRY_AXIS_QUERIES_H
#define K5X_GEOMETRY_AXIS_QUERIES_H

#include "machine/machine_model.h"

namespace k5x {

int axis_type(const State& st, int id);
int axis_type_ex(const State& st, int id);
const char* axis_name(const State& st, int id);
double* axis_direction(State& st, int id);
double* axis_point(State& st, int id);
int* axis_color(State& st, int id);
int axis_law(const State& st, int id);
int axis_sense(const State& st, int id);
int axis_link_count(const State& st, int id);
int axis_link(const State& st, int id, int j);
int axis_link_translation(const State& st, int id, int j);
const char* axis_link_rotation(const State& st, int id, int j);
int axis_parent(const State& st, int id);
int axis_locked(const State& st, int id);
int set_axis_locked(State& st, int id, int flag);
int axis_collisions(const State& st, int id, int j);
int tool_record(State& st, double v[3]);

}  // namespace k5x

#endif  // K5X_GEOMETRY_AXIS_QUERIES_H
