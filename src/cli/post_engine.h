// The per-move work of k5x post: solve the rotary axes for a direction, place the linear axes
// on the point, optionally subdivide from the previous position, and write CSV rows. Everything
// it needs is allocated before the first move.
#ifndef K5X_CLI_POST_ENGINE_H
#define K5X_CLI_POST_ENGINE_H

#include "cli/fast_io.h"
#include "cli/svg_plot.h"

namespace k5x_cli {

struct PostStats {
  long moves = 0;            // move lines read
  long positions = 0;        // rows written
  long unreachable = 0;      // moves without a solution
  long out_of_travel = 0;    // rows with some axis out of travel
  long axis_out[6] = {};     // rows out of travel, per axis
  long clamped = 0;          // subdivisions cut at 500 steps
  long subdivide_failed = 0; // subdivisions without memory
  double max_jump = 0.0;     // largest rotary change between consecutive solved moves
  long max_jump_line = 0;
  int max_jump_axis = 0;     // identifier 4..6
};

class PostEngine {
 public:
  // out receives the CSV; svg may be null.
  PostEngine(OutBuffer* out, SvgPlot* svg);

  // Reads the loaded machine (three rotary axes or not, its travel limits and lock flags) and
  // sets the starting angles. mode3r is handed to the three-rotary solver. With start_auto the
  // first move starts from the first in-travel solution of its direction.
  void configure(const double start_abc[3], bool start_auto, int mode3r, bool subdivide);

  void write_header();
  // One move: v = X Y Z I J K in workpiece coordinates, line = its source line.
  void move(long line, const double v[6]);

  const PostStats& stats() const { return stats_; }
  // False when --start auto found no in-travel solution for the first direction.
  bool start_found() const { return start_found_; }

 private:
  void write_row(long line, const double pos[6], bool has_solver, int solver_code);
  void restore_machine();

  OutBuffer* out_;
  SvgPlot* svg_;
  PostStats stats_;
  bool three_rotary_ = false;
  int mode3r_ = 0;
  bool subdivide_ = false;
  bool start_pending_ = false;
  bool start_found_ = true;
  bool present_rotary_[3] = {};
  double prev_[3] = {0.0, 0.0, 0.0};
  double last_pos_[6] = {};
  bool have_last_ = false;
  // The three-rotary solver leaves lock flags and narrowed travel windows behind; each move is
  // solved from the machine as loaded.
  double travel_min_[6] = {}, travel_max_[6] = {};
  int fixe_[3] = {};
};

}  // namespace k5x_cli

#endif  // K5X_CLI_POST_ENGINE_H
