// Indexed rotary axes: per-axis steps, the increment behaviour and tolerance, snapping.
#ifndef K5X_MOTION_INCREMENTS_H
#define K5X_MOTION_INCREMENTS_H

#include "machine/machine_model.h"

namespace k5x {

// The orientation solver with indexed axes snapped onto their steps: 0 solved and in travel; 1
// no machine, zero direction or unreachable; else a travel code.
int ijk2abc(State& st, const double ijk[3], const double prev[3], double out[3]);

double get_axe_increment(const State& st, int id);
void set_axe_increment(State& st, int id, double step);
double get_increment_tolerance(const State& st);
int get_increment_machine(const State& st, double steps[3]);
// Snaps `in` onto the indexed axes' grid, re-solving the continuous axes for the wanted
// direction; returns the direction deviation in degrees.
double increment_compute(State& st, const double in[3], const double dir[3], double out[3]);
double increment_deviation_getmax(const State& st);
void increment_deviation_reset(State& st);

}  // namespace k5x

#endif  // K5X_MOTION_INCREMENTS_H
