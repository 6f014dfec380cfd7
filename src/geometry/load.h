// Loading a machine definition: reading the file (machine layer), then evaluating the chain at
// zero where the file gives no `position`, and placing the workpiece.
#ifndef K5X_GEOMETRY_LOAD_H
#define K5X_GEOMETRY_LOAD_H

#include "machine/loader.h"

namespace k5x {

// Load codes: 0 loaded, 1 cannot open, 2..17 as in machine/loader.h.
int machine_def(State& st, const char* path);

}  // namespace k5x

#endif  // K5X_GEOMETRY_LOAD_H
