#include "solutions/enumeration.h"

namespace k5x {

int axis_seeds(double min, double max, double tol, double out[12]) { return {};}
int ex_getallabchcpossible(State& st, const double dir[3], int* count, double** solutions, int** flags) { return {};}
void ex_abchcpossible_free(State& st) {}
int ex_getinit_ijk_2_abc_not_hc(State& st, const double dir[3], double abc[3]) { return {};}

}  // namespace k5x
