// Point and frame transforms between workpiece, tool and machine coordinates; subdivision of a
// move; workpiece placement.
#ifndef K5X_GEOMETRY_TRANSFORMS_H
#define K5X_GEOMETRY_TRANSFORMS_H

#include "machine/machine_model.h"

namespace k5x {

int tip_at(State& st, const double xyz[3], const double abc[3], double out[3]);
int tool_axis_at(State& st, const double xyz[3], const double abc[3], double out[3]);
int place_tip(State& st, const double p[3], const double abc[3], double xyz[3]);
int machine_to_programmed(State& st, const double m[6], double l[6]);
int programmed_to_machine(State& st, const double l[6], double m[6]);
int machine_to_tool(State& st, const double m[6], double out[6]);
int subdivide_move(State& st, const double s[6], const double e[6], int* n, double** table);
int place_workpiece(State& st, const double t[16]);
int tool_change_position(const State& st, double out[6]);
double* initial_position(State& st);

// Makes the shared interpolation table hold at least n rows (it never shrinks). Returns the
// buffer, or null after an allocation failure (capacity then 0).
double* table_reserve(State& st, int n);
// RTCP rebuild of a blended row: sets the rotary entries of the tool-side run (and, with rtcp 1,
// the workpiece-side run) of l back to l0's, converts l to machine values and replaces row's X, Y,
// Z with the linear values that put the tool at those points with row's rotary values.
void chain_substitution(State& st, const double l0[6], double l[6], double row[6]);
// Writes the n rows from one step past s to e (row i-1 at i/n of the way), rebuilding the linear
// values with the chain substitution while rtcp is on, and tests each row's travel. Returns code
// if it is non-zero, else the first non-zero travel code of the rows, else 0.
int table_fill(State& st, const double s[6], const double e[6], int n, double* rows, int code);

}  // namespace k5x

#endif  // K5X_GEOMETRY_TRANSFORMS_H
