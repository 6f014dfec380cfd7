// Travel limits: tests of positions against them, and their getters and setters.
#ifndef K5X_GEOMETRY_TRAVEL_H
#define K5X_GEOMETRY_TRAVEL_H

#include "machine/machine_model.h"

namespace k5x {

int testcoursesXYZ(const State& st, const double xyz[3], int flags[3]);
int testcoursesABC(const State& st, const double abc[3], int flags[3]);
int testcoursesXYZABC(const State& st, const double v[6], int flags[6]);
int axe_course(const State& st, int axis, double* min, double* max);
double axe_course_minimum(const State& st, int axis);
double axe_course_maximum(const State& st, int axis);
double axe_set_course_minimum(State& st, int axis, double v);
double axe_set_course_maximum(State& st, int axis, double v);

}  // namespace k5x

#endif  // K5X_GEOMETRY_TRAVEL_H
