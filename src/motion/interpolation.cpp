#include "motion/interpolation.h"

namespace k5x {

int interpolation(State& st, const double p0[6], const double p1[6], double t, double out[6]) { return {};}
int interpolationtable(State& st, const double p0[6], const double p1[6], int* n, double** table) { return {};}

}  // namespace k5x
