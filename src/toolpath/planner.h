// The post-processor's choice of machine positions over a whole toolpath: every solution of each
// move, one chosen per move so that the path stays in travel wherever it can and the rotary
// axes move least (a shortest path over consecutive moves, planned in bounded windows), then
// positions inserted between consecutive ones until the tool stays within tolerance of the
// programmed move.
#ifndef K5X_TOOLPATH_PLANNER_H
#define K5X_TOOLPATH_PLANNER_H

#include <vector>

#include "machine/machine_model.h"
#include "toolpath/kinematics.h"
#include "toolpath/toolpath_types.h"

namespace k5x {

// The solutions of each move, in the order of the moves. Each move is solved from the previous
// one's first solution, so this depends on the moves alone, never on the plan: it may run ahead
// of the planner, on a thread and a machine of its own. Aligned to whole cache lines, so that
// such a thread never writes a line the planner's thread works in.
class alignas(64) Gatherer {
 public:
  // st stays loaded, with its settings, and is used only by this gatherer while it runs.
  Gatherer(State& st, const PlanOptions& options);
  // Turns move's axis into a unit vector in the machine file's sense and finds its solutions.
  void gather(ProgrammedMove& move, Candidates* out);
  // After the first move: whether --start auto found an in-travel solution to start from.
  bool start_found() const { return start_found_; }
  bool flips_axis() const { return flip_; }

 private:
  void solve(const double axis[3], Candidates* out);
  void solve_anew(const double axis[3], Candidates* out);

  State& st_;
  PlanOptions opt_;
  MachineFacts facts_;
  bool flip_ = false;
  double seed_[3];         // where the next move is solved from
  bool start_pending_;
  bool start_found_ = true;
  bool have_before_ = false;
  // The first free axis of the solutions of the last move that had any, as gathered.
  int before_count_ = 0;
  double before_first_[kMaxCandidates];
  // A toolpath often holds its tool axis, and the same axis solved from the same seed has the
  // same solutions (a held axis is solved from the position it led to): the last solve of a
  // held axis is kept.
  double last_axis_[3] = {0.0, 0.0, 0.0};  // of the last solve
  bool kept_ = false;
  double kept_seed_[3];
  Candidates kept_solutions_;  // of last_axis_ from kept_seed_, when kept_
};

class alignas(64) Planner {
 public:
  // st stays loaded and is used only by this planner while it runs.
  Planner(State& st, const PlanOptions& options, PositionSink* sink);
  const PlanOptions& options() const { return opt_; }

  void push(const ProgrammedMove& move);
  // The same for a move a Gatherer of the same machine and options has gathered elsewhere, in
  // order; start_found is that gatherer's.
  void push_gathered(const ProgrammedMove& move, const Candidates& cand, bool start_found);
  // Plans and delivers what is still held.
  void finish();

  const PlanStats& stats() const { return stats_; }
  const MachineFacts& facts() const { return facts_; }
  // True when input axes are turned round before solving (CAM sense on a machine that is not).
  bool flips_axis() const { return flip_; }

 private:
  // One solution of a held move, with what the plan works out for it.
  struct Slot {
    double abc[3];
    double cost;       // of the cheapest way here
    double sine;       // pole_sine, or a stand-in for it, for the plan
    int solver_code;
    signed char back;  // the previous move's solution on that way
    bool in_travel;
  };
  // A move waiting for its window to be planned. Its solutions are slots_[first, first + count):
  // two or three as a rule, so the window stays small enough to be planned in cache.
  struct Held {
    ProgrammedMove move;  // axis in the machine file's sense
    int first = 0, count = 0;
  };
  Slot& slot(const Held& h, int j) { return slots_[static_cast<std::size_t>(h.first + j)]; }
  void store(Held& h, const Candidates& cand);
  // Where the next move is held.
  Held& next_held();

  void accept(bool start_found);
  // The cost of going from a to b: rotary motion by the --mode rule, and a weight above any
  // motion for a swing in a cut.
  double motion(const double a[3], const double b[3], bool at_pole = false,
                bool cutting = true) const;
  // The same with the sines of the second free axis from the pole at each end given.
  double motion(const double a[3], const double b[3], double sa, double sb, bool at_pole,
                bool cutting) const;
  double pole_sine(const double abc[3]) const;
  // The way forward to every solution of the held moves up to `to`, from where the last call
  // left it.
  void plan_forward(int to);
  void plan_and_emit(int emit_count);
  void spread_singular(int emit_count);
  void emit(const Held& h, const double abc[3], int solver_code);
  void emit_unreachable(const Held& h);
  void linearise_to(const Held& h, const double pos[6]);
  void subdivide_formula(const Held& h, const double pos[6]);
  // The largest deviation left between positions, and the line of its move.
  void record_deviation(double tip, double axis, long line);
  bool near_first_axis(const double d0[3], const double d1[3]) const;
  bool sweep(const double p0[6], const double p1[6], const double t0[3], const double t1[3],
             const double d0[3], const double d1[3], const Held& h);
  void split(const double p0[6], const double p1[6], const double t0[3], const double t1[3],
             const double d0[3], const double d1[3], const Held& h, int depth);
  void deviation(const double p0[6], const double p1[6], const double t0[3], const double t1[3],
                 const double d0[3], const double d1[3], double* tip_dev, double* axis_dev);
  void deliver(const Held& h, const double pos[6], const double tip[3], const double axis[3],
               bool inserted, int solver_code, const double* leave_enter = nullptr);

  State& st_;
  PlanOptions opt_;
  PositionSink* sink_;
  MachineFacts facts_;
  bool flip_ = false;
  double cos_tolerance_ = 1.0, sin_tolerance_ = 0.0;  // of the angle tolerance
  // Angles from the pole (radians) whose sine is surely within sin_tolerance_ (below
  // within_), or surely beyond it and of the angle's sign (between beyond_ and before_half_).
  double within_ = -1.0, beyond_ = 0.0, before_half_ = 0.0;
  PlanStats stats_;

  std::vector<Held> held_;   // window, grown to its size as moves come
  std::vector<Slot> slots_, spare_slots_;  // the window's solutions; the spare for compacting
  Candidates gathered_;      // a move's solutions as push gathers them
  std::vector<int> chosen_;  // candidate chosen per held move, -1 unreachable
  Candidates mid_;           // solutions of a halved move
  std::vector<double> sweep_;  // positions of a sweep: 6 axes, tip, axis per row
  int count_ = 0;
  int planned_ = 0;        // held moves whose ways forward are known
  int planned_prev_ = -1;  // the last of them with solutions
  Gatherer own_;             // gathers the moves given to push
  bool free_start_ = false;  // the first move may take any of its solutions
  bool anchored_ = false;    // a position has been delivered: the plan continues from it
  double anchor_abc_[3] = {0.0, 0.0, 0.0};

  // The last delivered programmed position, for linearisation and jumps.
  bool have_last_ = false;
  // The machine's tool length as the planner found it: for moves of tools without a length of
  // their own, and in the state whenever no move is being placed.
  double machine_tool_length_ = 0.0;
  double last_length_ = 0.0;  // the length the last position was placed with
  double tool_length_of(int tool) const;
  double last_pos_[6] = {};
  double last_tip_[3] = {};
  double last_axis_[3] = {};
  // The last delivered position of any kind, for swings.
  bool have_delivered_ = false;
  double last_delivered_[6] = {};
};

}  // namespace k5x

#endif  // K5X_TOOLPATH_PLANNER_H
