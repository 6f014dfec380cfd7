// Chain evaluation and relative transforms between records.
#ifndef K5X_GEOMETRY_CHAIN_H
#define K5X_GEOMETRY_CHAIN_H

#include "machine/machine_model.h"

namespace k5x {

// Recomputes every record's origin and frame for the axis values q (X, Y, Z, A, B, C).
void evaluate_chain(State& st, const double q[6]);
// 4x4 transform from record a's local frame (measured from its point) into record b's.
// Returns 1 when record a is missing (h is still written).
int axis_matrix(const State& st, int a, int b, double h[16]);
// Frame whose third column is the unit direction v and first column is horizontal.
void frame_along(const double v[3], double h[16]);
// Tool tip after an evaluation: tool origin minus the tool length along the tool's local Z.
void tool_tip(const State& st, double tip[3]);

}  // namespace k5x

#endif  // K5X_GEOMETRY_CHAIN_H
