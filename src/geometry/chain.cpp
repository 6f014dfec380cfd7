#include "geometry/chain.h"

namespace k5x {

void machine_eval(State& st, const double q[6]) {}
int axe_mat(const State& st, int a, int b, double h[16]) { return {};}
void ex_get_axis_matrix(const double v[3], double h[16]) {}
void tool_tip(const State& st, double tip[3]) {}

}  // namespace k5x
