#include "geometry/transforms.h"

namespace k5x {

int xyz2pts(State& st, const double xyz[3], const double abc[3], double out[3]) { return {};}
int xyz2ijk(State& st, const double xyz[3], const double abc[3], double out[3]) { return {};}
int pts2xyz(State& st, const double p[3], const double abc[3], double xyz[3]) { return {};}
int m2l(State& st, const double m[6], double l[6]) { return {};}
int l2m(State& st, const double l[6], double m[6]) { return {};}
int machine2tool(State& st, const double m[6], double out[6]) { return {};}
int xyzabc(State& st, const double s[6], const double e[6], int* n, double** table) { return {};}
int set_piece(State& st, const double t[16]) { return {};}
int toolchanger_position(const State& st, double out[6]) { return {};}
double* initial_position(State& st) { return {};}
double* table_reserve(State& st, int n) { return {};}
void chain_substitution(State& st, const double l0[6], double l[6], double row[6]) {}

}  // namespace k5x
