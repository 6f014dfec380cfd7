// Intermediate machine positions between two positions.
#ifndef K5X_MOTION_INTERPOLATION_H
#define K5X_MOTION_INTERPOLATION_H

#include "machine/machine_model.h"

namespace k5x {

int interpolation(State& st, const double p0[6], const double p1[6], double t, double out[6]);
int interpolation_table(State& st, const double p0[6], const double p1[6], int* n,
                       double** table);

}  // namespace k5x

#endif  // K5X_MOTION_INTERPOLATION_H
