// Every in-travel rotary solution of a direction.
#ifndef K5X_SOLUTIONS_ENUMERATION_H
#define K5X_SOLUTIONS_ENUMERATION_H

#include "machine/machine_model.h"

namespace k5x {

// Seeds of one rotary axis with travel [min, max] (already replaced for unlimited travel) and
// angular tolerance tol; returns how many were written to out (at most 12).
int axis_seeds(double min, double max, double tol, double out[12]);
int all_solutions(State& st, const double dir[3], int* count, double** solutions,
                           int** flags);
void free_all_solutions(State& st);
int first_in_travel_solution(State& st, const double dir[3], double abc[3]);

}  // namespace k5x

#endif  // K5X_SOLUTIONS_ENUMERATION_H
