// Machines for the tests: the embedded machines of the program, plus writing any definition text
// to a temporary file and loading it into a fresh State.
#ifndef K5X_TESTS_TEST_MACHINES_H
#define K5X_TESTS_TEST_MACHINES_H

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <vector>

#include "machine/machine_model.h"

namespace k5x_test {

// Writes text to a new temporary file and returns its path (removed at process exit).
std::string write_temp_file(const std::string& text);
// Loads the definition text into st; returns the load code.
int load_text(k5x::State& st, const std::string& text);
// Definition text of an embedded machine ("DemoHead", "Trunnion", "HeadTable", "ThreeRotary",
// "IndexedTable"); aborts the test program on an unknown name.
std::string machine_text(const std::string& name);

// Second route to the tool direction, independent of the library's transforms: evaluates the
// chain at (0, 0, 0, abc) and returns the tool frame's third column in workpiece coordinates
// (workpiece frame transposed, as it is orthonormal).
void chain_tool_direction(k5x::State& st, const double abc[3], double dir[3]);
// Angle between two directions in degrees, accurate near 0 and 180 (atan2 of |a x b| and a . b).
double angle_between_deg(const double a[3], const double b[3]);
// True when A, B and C lie within the loaded travel, tolerance included.
bool within_rotary_travel(const k5x::State& st, const double abc[3]);
// Each of got's values within tol of want's, reported by index.
void expect_values(const double* got, const std::vector<double>& want, double tol = 1e-9);

// A test with a state of its own, which load() fills or fails the test.
class MachineTest : public ::testing::Test {
 protected:
  void load(const std::string& text) { ASSERT_EQ(load_text(st, text), 0); }
  std::array<double, 3> direction_at(const std::array<double, 3>& abc) {  // by the chain
    std::array<double, 3> d;
    chain_tool_direction(st, abc.data(), d.data());
    return d;
  }
  k5x::State st;
};

}  // namespace k5x_test

#endif  // K5X_TESTS_TEST_MACHINES_H
