// Travel limits: tests of positions against them, and their getters and setters.
#ifndef K5X_GEOMETRY_TRAVEL_H
#define K5X_GEOMETRY_TRAVEL_H

#include "machine/machine_model.h"

namespace k5x {

int travel_test_xyz(const State& st, const double xyz[3], int flags[3]);
int travel_test_abc(const State& st, const double abc[3], int flags[3]);
int travel_test(const State& st, const double v[6], int flags[6]);
int axis_travel(const State& st, int axis, double* min, double* max);
double travel_minimum(const State& st, int axis);
double travel_maximum(const State& st, int axis);
double set_travel_minimum(State& st, int axis, double v);
double set_travel_maximum(State& st, int axis, double v);

}  // namespace k5x

#endif  // K5X_GEOMETRY_TRAVEL_H
