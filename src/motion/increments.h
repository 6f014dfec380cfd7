// Indexed rotary axes: per-axis steps, the increment behaviour and tolerance, snapping.
#ifndef K5X_MOTION_INCREMENTS_H
#define K5X_MOTION_INCREMENTS_H

#include "machine/machine_model.h"

namespace k5x {

// The orientation solver with indexed axes snapped onto their steps: 0 solved and in travel; 1
// no machine, zero direction or unreachable; else a travel code.
int solve_direction(State& st, const double ijk[3], const double prev[3], double out[3]);

double axis_increment(const State& st, int id);
void set_axis_increment(State& st, int id, double step);
double get_increment_tolerance(const State& st);
int get_increment_machine(const State& st, double steps[3]);
// Snaps `in` onto the indexed axes' grid, re-solving the continuous axes for the wanted
// direction; returns the direction deviation in degrees.
double snap_to_increments(State& st, const double in[3], const double dir[3], double out[3]);
double largest_increment_deviation(const State& st);
// Whether the angles lie on the steps of every indexed axis that is not locked.
bool on_steps(const State& st, const double abc[3]);
void reset_increment_deviation(State& st);

}  // namespace k5x

#endif  // K5X_MOTION_INCREMENTS_H
