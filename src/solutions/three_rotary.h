// Solver for machines with three rotary axes.
#ifndef K5X_SOLUTIONS_THREE_ROTARY_H
#define K5X_SOLUTIONS_THREE_ROTARY_H

#include "machine/machine_model.h"

namespace k5x {

// 1 in-travel solution written; a travel code when only out-of-travel ones exist; -1 none.
int solve_three_rotary(State& st, const double dir[3], const double prev[3], double out[3], int mode);

}  // namespace k5x

#endif  // K5X_SOLUTIONS_THREE_ROTARY_H
