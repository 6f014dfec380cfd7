// Orientation solver (tool direction to rotary angles) and the rotary value laws.
#ifndef K5X_GEOMETRY_SOLVER_H
#define K5X_GEOMETRY_SOLVER_H

#include "machine/machine_model.h"

namespace k5x {

// The rotary angles for the tool direction ijk nearest prev, before indexed axes snap and
// without the travel test (both are the increments' business, one layer up): 0 reachable, 1 no
// machine, zero direction or unreachable. Leaves both candidates in st.sol1 and st.sol2.
int solve_orientation(State& st, const double ijk[3], const double prev[3], double out[3]);
// The answers of solve_orientation in modes 0, 1 and 2 from one computation: out[m] and codes[m]
// as that mode gives them, st.sol1 and st.sol2 left as mode 2 leaves them. Returns 1, with out
// and codes untouched, where every mode returns 1 before choosing (no machine, zero direction).
int solve_orientation_each_mode(State& st, const double ijk[3], const double prev[3],
                                double out[3][3], int codes[3]);
double law_value(const State& st, int axis, double from, double to, int* sign);
void apply_laws(const State& st, const double from[3], const double to[3], double out[3]);

}  // namespace k5x

#endif  // K5X_GEOMETRY_SOLVER_H
