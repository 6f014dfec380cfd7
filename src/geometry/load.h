// Loading a machine definition: reading the file (machine layer), then evaluating the chain at
// zero where the file gives no `position`, and placing the workpiece.
#ifndef K5X_GEOMETRY_LOAD_H
#define K5X_GEOMETRY_LOAD_H

#include <string>

#include "machine/loader.h"

namespace k5x {

// Load codes: 0 loaded, 1 cannot open, 2..17 as in machine/loader.h.
int machine_def(State& st, const char* path);
// The same from a definition in memory.
int machine_def_text(State& st, const std::string& text);
// Completes a load after the file was read.
int finish_load(State& st, const FileRead& read);

}  // namespace k5x

#endif  // K5X_GEOMETRY_LOAD_H
