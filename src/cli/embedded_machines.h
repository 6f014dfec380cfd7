// Machine definitions compiled into the program, selectable by name.
#ifndef K5X_CLI_EMBEDDED_MACHINES_H
#define K5X_CLI_EMBEDDED_MACHINES_H

#include <string>

#include "cpp/embedded.h"

namespace k5x_cli {

using EmbeddedMachine = k5x::EmbeddedMachine;

// All embedded machines; the first is the default.
const EmbeddedMachine* embedded_machines(int* count);
// The machine of that name (case-sensitive), or null.
const EmbeddedMachine* find_embedded_machine(const std::string& name);

}  // namespace k5x_cli

#endif  // K5X_CLI_EMBEDDED_MACHINES_H
