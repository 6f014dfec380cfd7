// What flows through a post-processing run: programmed moves from a reader, planned machine
// positions to a writer, the planner's options and its account of the run. Readers, the planner
// and the writers meet only here; the C++ API hands these types to its callers as they are.
#ifndef K5X_TOOLPATH_TOOLPATH_TYPES_H
#define K5X_TOOLPATH_TOOLPATH_TYPES_H

#include <vector>

namespace k5x {

// Where a move lies in a circular move that a reader handed over as chords: the first chord,
// or a later one of the same circle.
enum class ArcPart : unsigned char { none, first, rest };

// One programmed move as a reader hands it over: the tool tip and the tool axis in the
// workpiece frame of the machine file, in the machine file's length unit.
struct ProgrammedMove {
  double point[3] = {0.0, 0.0, 0.0};
  double axis[3] = {0.0, 0.0, 1.0};  // unit; CAM sense (tip towards spindle) unless told otherwise
  long line = 0;                     // source line, for messages and for the output rows
  long index = 0;                    // 0-based position in the run's sequence of moves
  bool rapid = false;                // positioning move (G0), not cutting
  ArcPart arc = ArcPart::none;       // a chord of a circular move, which a writer may join again
  int tool = 0;                      // the tool loaded for it (LOAD/TOOL, LOADTL); 0 none said
  double feed = 0.0;                 // programmed feed, length unit per minute; <= 0 none given
};

// One machine position as the planner hands it to a writer.
struct PlannedPosition {
  double axes[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};  // X Y Z A B C
  double tip[3] = {0.0, 0.0, 0.0};   // the tool tip it puts on the workpiece (workpiece frame)
  double axis[3] = {0.0, 0.0, 1.0};  // the tool axis it gives, in the input's sense
  long line = 0;                     // source line of the move it belongs to
  long index = 0;                    // index of that move; inserted positions lead up to it
  bool inserted = false;             // added by linearisation, not a programmed move
  bool rapid = false;                // the move's: a positioning move
  ArcPart arc = ArcPart::none;       // the move's, on its own position (none on inserted ones)
  double feed = 0.0;                 // the move's programmed feed; <= 0 none
  bool reachable = true;             // false: no solution, axes are meaningless
  // Reached by a swing the travel limits force in a cut: no straight motion of the axes keeps
  // the tool on the part, so the tool leaves it, the rotary axes turn, and it comes back. leave
  // is the position before backed out along the tool axis by PlanOptions::unwind_clearance,
  // enter this one backed out the same way: where the tool leaves and where it comes in from.
  bool unwind = false;
  double leave[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  double enter[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
  int solver_code = 0;
  int travel_code = 0;               // 0 in travel, +-k axis k above/below, 9 several
  int travel_flags[6] = {0, 0, 0, 0, 0, 0};  // per axis X..C: 0 in, +-(k) above/below
};

// Receives the planned positions in order.
class PositionSink {
 public:
  virtual ~PositionSink() = default;
  virtual void position(const PlannedPosition& p) = 0;
};

enum class Choice { path, nearest };
enum class Linearise { none, tolerance, formula };

struct PlanOptions {
  Choice choice = Choice::path;
  // Input axes in the CAM sense (tip towards spindle); false: in the machine file's sense.
  bool cam_axis = true;
  Linearise linearise = Linearise::none;
  // Without linearisation, how far the tool leaves each cut between positions is still measured
  // (PlanStats' largest deviations), at the cost of a forward evaluation or more per cut.
  bool measure_deviation = false;
  double tolerance = 0.05;        // tool tip, machine length unit
  double angle_tolerance = 0.5;   // tool axis, degrees
  bool wrap_modulo = false;       // unlimited rotary axes written in [0, 360)
  double start[3] = {0.0, 0.0, 0.0};
  bool start_auto = false;        // first move from its first in-travel solution, not start
  int mode = 0;                   // 0 least largest rotary change, 1 least first free axis
  int mode3r = 0;                 // handed to the three-rotary solver
  double unwind_clearance = 5.0;  // how far the tool backs out along its axis at an unwind
  // Tool lengths (from the spindle nose, machine length unit) by tool number: a move of a tool
  // listed is placed with its length, any other with the machine's.
  struct ToolLength {
    int tool;
    double length;
  };
  std::vector<ToolLength> tool_lengths;
  int window = 10000;             // moves planned together
  int overlap = 1000;             // of which the last are planned again with the next window
};

struct Swing {
  long line = 0;
  int axis = 0;       // identifier 4..6
  double degrees = 0.0;
};

struct PlanStats {
  long moves = 0;
  long positions = 0;
  long inserted = 0;
  long unreachable = 0;
  long out_of_travel = 0;
  long axis_out[6] = {};
  double max_jump = 0.0;
  long max_jump_line = 0;
  int max_jump_axis = 0;
  bool max_jump_rapid = false;  // the largest jump is a rapid's, where the tool is clear
  long swings = 0;                 // rotary changes over kSwingDegrees between positions in cuts
  std::vector<Swing> first_swings; // the first few, for the summary
  long unwinds = 0;                // positions with unwind set
  std::vector<Swing> first_unwinds;
  long singular_spread = 0;        // places near the singular direction where a swing was spread
  double max_tip_deviation = 0.0;  // largest left between consecutive positions (checked only
  double max_axis_deviation = 0.0; // when linearising within tolerance or measure_deviation)
  long max_tip_line = 0, max_axis_line = 0;
  long clamped = 0;                // formula subdivisions cut at 500 steps
  long subdivide_failed = 0;
  bool start_found = true;
  bool has_range[3] = {};
  double range_min[3] = {}, range_max[3] = {};
};

// A rotary change above this between two positions is reported as a swing.
constexpr double kSwingDegrees = 45.0;

}  // namespace k5x

#endif  // K5X_TOOLPATH_TOOLPATH_TYPES_H
