// What the toolpath layer asks of the machine: the solutions of a direction, the linear axes for
// a point, the tip and axis a position gives, travel, and the facts about the machine that the
// planner needs. Every call into the lower layers goes through here.
#ifndef K5X_TOOLPATH_KINEMATICS_H
#define K5X_TOOLPATH_KINEMATICS_H

#include "machine/machine_model.h"

namespace k5x {

// Facts read once from the loaded machine.
struct MachineFacts {
  bool has_axis[6] = {};           // X..C present
  bool three_rotary = false;       // A, B and C present: the three-rotary solver applies
  bool limited[3] = {};            // rotary axis has both travel limits
  double min[3] = {}, max[3] = {};  // rotary travel, when limited
  double travel_tol = 0.0;
  int first_free = -1;             // angle index (0..2) of the axis the tool can lie along
  double first_axis[3] = {0.0, 0.0, 1.0};  // its direction at rest, in the solver's frame
  // The other free axis, and its value that stands the tool along the first axis: the two
  // solutions of a direction lie on either side of it, and a move between them passes there.
  int second_free = -1;
  double pole = 0.0;
  bool cam_sense = true;           // the file's tool direction points from the tip to the spindle
  bool indexed = false;            // some rotary axis snaps to steps
  // The three-rotary solver leaves locks and narrowed travel windows behind; each move is
  // solved from the machine as loaded, so the loaded values are kept here.
  double loaded_min[6] = {}, loaded_max[6] = {};
  int loaded_locked[3] = {};
};

MachineFacts read_machine_facts(State& st);

// Maximum number of candidate solutions kept for one move.
constexpr int kMaxCandidates = 16;

struct Candidates {
  int count = 0;
  double abc[kMaxCandidates][3];
  int solver_code[kMaxCandidates];   // what the solver returned for this solution
  bool in_travel[kMaxCandidates];
  bool singular = false;             // the first free axis is undetermined for this direction
};

// The solver's answer from prev: 0 solved in travel, 1 unreachable, else a travel code. With
// three rotary axes the three-rotary solver's codes (1 in travel, -1 none, else travel code).
int solve_nearest(State& st, const MachineFacts& f, const double dir[3], const double prev[3],
                  int mode3r, double abc[3]);

// Every solution of dir worth planning with, solved near seed: both branches of the solver and,
// on axes with travel limits, each whole-turn representative within the limits. Unreachable
// directions give count 0.
void solve_all(State& st, const MachineFacts& f, const double dir[3], const double seed[3],
               int mode3r, Candidates* out);

// On three rotary axes, the solutions with the table's axis held where seed has it (the two of
// the two-axis solver), added to out.
void add_held_table(State& st, const MachineFacts& f, const double dir[3], const double seed[3],
                    Candidates* out);

// Linear axes that put the tool tip on point (workpiece frame) at the rotary angles abc.
void place(State& st, const double point[3], const double abc[3], double xyz[3]);

// Tool tip and unit tool axis (machine file sense) that position pos gives, workpiece frame.
void forward(State& st, const double pos[6], double tip[3], double axis[3]);

int travel_code(const State& st, const double pos[6], int flags[6]);
int rotary_travel_code(const State& st, const double abc[3]);

}  // namespace k5x

#endif  // K5X_TOOLPATH_KINEMATICS_H
