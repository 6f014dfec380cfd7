// Machines for the tests: the embedded machines of the program, plus writing any definition text
// to a temporary file and loading it into a fresh State.
#ifndef K5X_TESTS_TEST_MACHINES_H
#define K5X_TESTS_TEST_MACHINES_H

#include <string>

#include "machine/machine_model.h"

namespace k5x_test {

// Writes text to a new temporary file and returns its path (removed at process exit).
std::string write_temp_file(const std::string& text);
// Loads the definition text into st; returns the load code.
int load_text(k5x::State& st, const std::string& text);
// Definition text of an embedded machine ("DemoHead", "Trunnion", "HeadTable", "ThreeRotary",
// "IndexedTable"); aborts the test program on an unknown name.
std::string machine_text(const std::string& name);

}  // namespace k5x_test

#endif  // K5X_TESTS_TEST_MACHINES_H
