// The state of the one process-wide k5x::Machine that the exported functions bind. Only
// src/api/ includes this.
#ifndef K5X_API_GLOBAL_STATE_H
#define K5X_API_GLOBAL_STATE_H

#include "machine/machine_model.h"

namespace k5x {

State& global_state();

}  // namespace k5x

#endif  // K5X_API_GLOBAL_STATE_H
