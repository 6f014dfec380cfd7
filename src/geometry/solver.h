// Orientation solver (tool direction to rotary angles) and the rotary value laws.
#ifndef K5X_GEOMETRY_SOLVER_H
#define K5X_GEOMETRY_SOLVER_H

#include "machine/machine_model.h"

namespace k5x {

// The rotary angles for the tool direction ijk nearest prev, before indexed axes snap and
// without the travel test (both are the increments' business, one layer up): 0 reachable, 1 no
// machine, zero direction or unreachable. Leaves both candidates in st.sol1 and st.sol2.
int solve_orientation(State& st, const double ijk[3], const double prev[3], double out[3]);
double law_value(const State& st, int axis, double from, double to, int* sign);
void apply_laws(const State& st, const double from[3], const double to[3], double out[3]);

}  // namespace k5x

#endif  // K5X_GEOMETRY_SOLVER_H
