#include "motion/interpolation.h"

#include "geometry/transforms.h"
#include "geometry/travel.h"

namespace k5x {

int interpolation(State& st, const double p0[6], const double p1[6], double t, double out[6]) {
  // Copies first: out may be one of the inputs.
  double a[6], b[6];
  for (int k = 0; k < 6; ++k) {
    a[k] = p0[k];
    b[k] = p1[k];
  }
  double l0[6], l1[6], l[6];
  machine_to_programmed(st, a, l0);
  machine_to_programmed(st, b, l1);
  // t is not clamped: outside [0, 1] the move is extrapolated.
  const double u = 1.0 - t;
  for (int k = 0; k < 6; ++k) {
    out[k] = t * b[k] + u * a[k];
    l[k] = u * l0[k] + t * l1[k];
  }
  // Without compensation no travel test is made here; the table tests its rows.
  if (st.machine.rtcp == 0) return 0;
  chain_substitution(st, l0, l, out);
  int flags[6];
  return travel_test(st, out, flags);
}

int interpolation_table(State& st, const double p0[6], const double p1[6], int* n,
                       double** table) {
  // The endpoints may be rows of the table that is about to be rewritten or moved.
  double a[6], b[6];
  for (int k = 0; k < 6; ++k) {
    a[k] = p0[k];
    b[k] = p1[k];
  }
  if (*n < 1) *n = 1;
  *table = nullptr;
  double* rows = table_reserve(st, *n);
  if (rows == nullptr) {
    *n = 0;
    return 8;
  }
  *table = rows;
  return table_fill(st, a, b, *n, rows, 0);
}

}  // namespace k5x
