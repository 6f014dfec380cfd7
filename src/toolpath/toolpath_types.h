// What flows through a post-processing run: programmed moves from a reader, planned machine
// positions to a writer. Readers, the planner and the writers meet only here.
#ifndef K5X_TOOLPATH_TOOLPATH_TYPES_H
#define K5X_TOOLPATH_TOOLPATH_TYPES_H

namespace k5x {

// One programmed move as a reader hands it over: the tool tip and the tool axis in the
// workpiece frame of the machine file, in the machine file's length unit.
struct ProgrammedMove {
  double point[3] = {0.0, 0.0, 0.0};
  double axis[3] = {0.0, 0.0, 1.0};  // unit; CAM sense (tip towards spindle) unless told otherwise
  long line = 0;                     // source line, for messages and for the output rows
  long index = 0;                    // 0-based position in the run's sequence of moves
  bool rapid = false;                // positioning move (G0), not cutting
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
  double feed = 0.0;                 // the move's programmed feed; <= 0 none
  bool reachable = true;             // false: no solution, axes are meaningless
  int solver_code = 0;
  int travel_code = 0;               // 0 in travel, +-k axis k above/below, 9 several
  int travel_flags[6] = {0, 0, 0, 0, 0, 0};  // per axis X..C: 0 in, +-(k) above/below
};

}  // namespace k5x

#endif  // K5X_TOOLPATH_TOOLPATH_TYPES_H
