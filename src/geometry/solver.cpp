#include "geometry/solver.h"

namespace k5x {

int ijk2abc(State& st, const double ijk[3], const double prev[3], double out[3]) { return {};}
double axe_val(const State& st, int axis, double from, double to, int* sign) { return {};}
void abc2abc_loi(const State& st, const double from[3], const double to[3], double out[3]) {}

}  // namespace k5x
