// k5x for C++: a machine object that owns its whole state, so that each thread, setup or
// machine has its own. Every member answers exactly as the C function of the same purpose does
// on the same machine and settings (k5x.h documents the codes); results come back as values.
//
// Angles are degrees, lengths the machine file's unit. Positions are X, Y, Z, A, B, C; tool
// directions I, J, K. One instance is one thread's at a time; distinct instances are
// independent, and a copy is an independent machine.
//
// Unlike the C functions, the members refuse what would poison the state: a NaN or infinite
// number throws std::invalid_argument, an id, count or mode out of range std::out_of_range,
// both before anything is changed, so the machine answers as before afterwards.
#ifndef K5X_HPP
#define K5X_HPP

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "toolpath/toolpath_types.h"

#if defined(_WIN32)
#define K5X_CPP_API __declspec(dllexport)
#else
#define K5X_CPP_API __attribute__((visibility("default")))
#endif

namespace k5x {

using Vec3 = std::array<double, 3>;
using Position = std::array<double, 6>;

/// A machine definition that did not load: the load code of k5x_machine_def and its meaning,
/// and the line of the file that stopped the load with that line's own code (a missing frame,
/// tool or workpiece then gives the load code 12).
class K5X_CPP_API LoadError : public std::runtime_error {
 public:
  LoadError(int code, const std::string& what, long line = 0, int line_code = 0);
  int code() const { return code_; }
  /// The line (from 1) that stopped the load; 0 when the file was read to its end.
  long line() const { return line_; }
  /// That line's own load code; 0 when no line stopped the load.
  int line_code() const { return line_code_; }

 private:
  int code_;
  long line_;
  int line_code_;
};

/// The meaning of a load code ("`bati` is not the first record", ...).
K5X_CPP_API const char* load_code_meaning(int code);

/// Names of the machines compiled into the library, the default first.
K5X_CPP_API std::vector<std::string> embedded_machines();

/// An orientation: the solver's code (as k5x_ijk2abc or k5x_ex_getabc_3r) and the angles.
struct Orientation {
  int code;
  Vec3 angles;
};

/// A result with a code and a value (placement, interpolation, ...).
template <class T>
struct Coded {
  int code;
  T value;
};

/// Every in-travel solution of a direction (k5x_ex_getallabchcpossible): the code, the angles
/// and, for each, which axes are free (bit 0 A, 1 B, 2 C).
struct AllSolutions {
  int code;
  std::vector<Vec3> angles;
  std::vector<int> free_axes;
};

/// A travel test: the code (0 in travel, +-k axis k above/below, 9 several) and the flags.
struct TravelCheck {
  int code;
  std::array<int, 6> flags;
};

/// Travel of one axis: its kind (k5x_axe_course: 0 both limits, 1 no maximum, -1 no minimum,
/// 2 none, 8 no such axis) and the limits.
struct Travel {
  int kind;
  double min, max;
};

/// The positions between two (k5x_xyzabc / k5x_interpolationtable): code and rows.
struct Rows {
  int code;
  std::vector<Position> rows;
};

/// A whole toolpath posted: every position and the account of the run.
struct Post {
  std::vector<PlannedPosition> positions;
  PlanStats stats;
};

class K5X_CPP_API Machine {
 public:
  /// An empty machine: every solve answers "no machine" until one is loaded.
  Machine();
  /// Loads a definition file; throws LoadError.
  static Machine from_file(const std::string& path);
  /// Loads a definition given as text; throws LoadError.
  static Machine from_text(const std::string& text);
  /// Loads a machine compiled into the library ("DemoHead", "Trunnion", ...); throws LoadError
  /// (code 1) for an unknown name.
  static Machine embedded(const std::string& name);

  Machine(const Machine& other);
  Machine& operator=(const Machine& other);
  Machine(Machine&& other) noexcept;
  Machine& operator=(Machine&& other) noexcept;
  ~Machine();

  /// The machine's name, empty when it has none.
  std::string name() const;

  // ---- orientation ----
  /// The rotary angles that put the tool along direction, nearest previous (k5x_ijk2abc).
  Orientation solve(const Vec3& direction, const Vec3& previous);
  /// The two candidates of the last solve (k5x_abc_sol1, k5x_abc_sol2).
  std::array<Vec3, 2> candidates() const;
  /// Machines with three rotary axes (k5x_ex_getabc_3r; codes 1, -1 or a travel code).
  Orientation solve_three_rotary(const Vec3& direction, const Vec3& previous, int mode);
  /// Every in-travel solution (k5x_ex_getallabchcpossible).
  AllSolutions all_solutions(const Vec3& direction);
  /// The first in-travel solution, if any (k5x_ex_getinit_ijk_2_abc_not_hc: code 1 found).
  Orientation first_in_travel_solution(const Vec3& direction, const Vec3& start);

  // ---- placement and transforms ----
  /// Linear axes that put the tool tip on point (workpiece frame) at angles (k5x_pts2xyz).
  Coded<Vec3> place(const Vec3& point, const Vec3& angles);
  /// The tool tip at a position, in the workpiece frame (k5x_xyz2pts).
  Vec3 tip(const Position& position);
  /// The tool direction at a position, scaled by the tool length (k5x_xyz2ijk).
  Vec3 tool_vector(const Position& position);
  /// Machine values to programmed ones and back, by the rtcp setting (k5x_m2l, k5x_l2m).
  Coded<Position> machine_to_programmed(const Position& machine);
  Coded<Position> programmed_to_machine(const Position& programmed);
  /// A machine position as the tool sees it (k5x_machine2tool).
  Coded<Position> machine_to_tool(const Position& machine);
  /// Places the workpiece by a 4x4 row-major transform (k5x_set_piece).
  int place_workpiece(const std::array<double, 16>& transform);

  // ---- travel ----
  TravelCheck travel_test(const Position& position) const;
  Travel travel(int axis) const;
  /// Set a limit; returns the previous value (k5x_axe_set_course_minimum/maximum).
  double set_travel_minimum(int axis, double value);
  double set_travel_maximum(int axis, double value);

  // ---- subdivision and interpolation ----
  /// The positions that keep the tool within tolerance from one to the other (k5x_xyzabc),
  /// at most max_rows (the count asked of the C function).
  Rows subdivide(const Position& from, const Position& to, int max_rows = 500);
  Coded<Position> interpolate(const Position& from, const Position& to, double t);
  Rows interpolation_table(const Position& from, const Position& to, int rows);

  // ---- indexed axes ----
  double axis_increment(int axis) const;
  void set_axis_increment(int axis, double step);
  int increment_behaviour() const;
  void set_increment_behaviour(int behaviour, double tolerance);
  double increment_tolerance() const;
  double largest_increment_deviation() const;
  void reset_increment_deviation();

  // ---- value laws ----
  /// The value an axis reports for a move from one angle to another, and its sign (k5x_axe_val).
  Coded<double> law_value(int axis, double from, double to) const;
  Vec3 apply_laws(const Vec3& from, const Vec3& to) const;

  // ---- checksum and settings ----
  /// k5x_machine_checksum: code 0 with the sum, or the C function's code.
  Coded<std::uint32_t> checksum(int mode);
  int mode() const;
  void set_mode(int mode);
  int rtcp() const;
  void set_rtcp(int rtcp);
  double tolerance() const;
  void set_tolerance(double tolerance);
  double travel_tolerance() const;
  void set_travel_tolerance(double tolerance);
  double tool_length() const;
  void set_tool_length(double length);
  double epsilon() const;
  void set_epsilon(double eps);
  /// Silent: no trace lines on standard output (k5x_setsilentmode).
  void set_silent(bool silent);

  // ---- axis queries (identifiers -2 tool, -1 workpiece, 0 frame, 1..6 X..C) ----
  bool has_axis(int id) const;
  int axis_type(int id) const;
  std::string axis_name(int id) const;
  Vec3 axis_direction(int id) const;
  Vec3 axis_point(int id) const;
  int axis_law(int id) const;
  int axis_sense(int id) const;
  int axis_parent(int id) const;
  bool axis_locked(int id) const;
  void set_axis_locked(int id, bool locked);
  /// True when the file's tool direction points from the tip towards the spindle, as CAM
  /// systems write tool axes.
  bool tool_axis_is_cam_sense();

  // ---- whole toolpaths ----
  /// Posts a toolpath as k5x post does: every move solved, a solution chosen over the path,
  /// positions inserted as options.linearise asks. The machine's settings are used as they are.
  Post post(const std::vector<ProgrammedMove>& moves, const PlanOptions& options);
  /// The same streaming: each position goes to sink as soon as it is planned.
  PlanStats post(const std::function<bool(ProgrammedMove*)>& next_move, const PlanOptions& options,
                 PositionSink* sink);

  /// The machine's state, for the library's own layers; not for callers.
  struct Impl;
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

}  // namespace k5x

#endif  // K5X_HPP
