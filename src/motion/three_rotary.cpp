#include "motion/three_rotary.h"

namespace k5x {

int ex_getabc_3r(State& st, const double dir[3], const double prev[3], double out[3], int mode) { return {};}

}  // namespace k5x
