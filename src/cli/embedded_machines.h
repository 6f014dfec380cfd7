// Machine definitions compiled into the program, selectable by name.
#ifndef K5X_CLI_EMBEDDED_MACHINES_H
#define K5X_CLI_EMBEDDED_MACHINES_H

#include <functional>
#include <string>

#include "cpp/embedded.h"

namespace k5x_cli {

using EmbeddedMachine = k5x::EmbeddedMachine;

// All embedded machines; the first is the default.
const EmbeddedMachine* embedded_machines(int* count);
// The machine of that name (case-sensitive), or null.
const EmbeddedMachine* find_embedded_machine(const std::string& name);

// Loads an embedded machine by name, or else a machine file by path, through k5x_machine_def.
// Empty machine_arg: the default machine. Returns the load code; *label gets what was loaded.
int load_machine_arg(const std::string& machine_arg, std::string* label);
// The same through load (a file path in, a load code out), for a caller with its own machine.
int load_machine_arg(const std::string& machine_arg, std::string* label,
                     const std::function<int(const char*)>& load);

}  // namespace k5x_cli

#endif  // K5X_CLI_EMBEDDED_MACHINES_H
