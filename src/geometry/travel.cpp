#include "geometry/travel.h"

namespace k5x {

int testcoursesXYZ(const State& st, const double xyz[3], int flags[3]) { return {};}
int testcoursesABC(const State& st, const double abc[3], int flags[3]) { return {};}
int testcoursesXYZABC(const State& st, const double v[6], int flags[6]) { return {};}
int axe_course(const State& st, int axis, double* min, double* max) { return {};}
double axe_course_minimum(const State& st, int axis) { return {};}
double axe_course_maximum(const State& st, int axis) { return {};}
double axe_set_course_minimum(State& st, int axis, double v) { return {};}
double axe_set_course_maximum(State& st, int axis, double v) { return {};}

}  // namespace k5x
