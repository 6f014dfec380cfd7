// Loads a machine into the process-wide machine of the C functions, as a client of the library
// would: an embedded machine by name (through a temporary file, since the C functions read
// files), or else a machine file by path. For the checker and the benchmark.
#ifndef K5X_TESTS_LOAD_MACHINE_H
#define K5X_TESTS_LOAD_MACHINE_H

#include <string>

namespace k5x_test {

// Returns the load code of k5x_machine_def.
int load_machine_c_api(const std::string& name_or_path);

}  // namespace k5x_test

#endif  // K5X_TESTS_LOAD_MACHINE_H
