#include "toolpath/planner.h"

#include <algorithm>
#include <cmath>

#include "kernel/kernel.h"
#include "geometry/transforms.h"
#include "solutions/enumeration.h"

namespace k5x {

namespace {

// Out of travel weighs more than any rotary motion a window can add up.
constexpr double kOutOfTravelCost = 1e15;
// Changing branch away from the pole weighs more than any motion, less than leaving travel.
constexpr double kBranchCost = 1e10;
constexpr double kPoleTurnWeight = 0.01;
// Halvings of one programmed move at the most when linearising (1024 pieces).
constexpr int kMaxDepth = 10;
// Rotary motion (degrees) over which the deviation of a move is checked in its middle alone.
constexpr double kSmallTurn = 1.0;
constexpr double kDeg = kPi / 180.0;
constexpr std::size_t kSwingsKept = 10;
// Largest rotary step, in degrees, of a sweep in machine space.
constexpr double kSweepStep = 1.0;
constexpr int kMaxSweepSteps = 8192;
// Moves on each side of a swing near the singular direction that take a share of it.
constexpr int kSpreadMoves = 10;
// Half a turn and this much more is the long way round.
constexpr double kSameTurn = 1e-6;
// A forced swing in a cut turning an axis more than this is an unwind: no straight motion of the
// axes keeps the tool near the part. Smaller ones (passing close by the pole) are linearised.
constexpr double kUnwindDegrees = 90.0;

double angle_between(const double a[3], const double b[3]) {
  double c[3];
  vcross(a, b, c);
  return std::atan2(vnorm(c), vdot(a, b)) / kDeg;
}

// Angle in degrees from unit u to the shorter great-circle arc between unit a and b.
double angle_to_arc(const double u[3], const double a[3], const double b[3]) {
  double n[3];
  vcross(a, b, n);
  const double len = vnorm(n);
  const double to_ends = std::fmin(angle_between(u, a), angle_between(u, b));
  if (len < 1e-12) return to_ends;
  for (double& c : n) c /= len;
  // The foot of u on the arc's circle lies within the arc when it is on the inner side of both
  // end points.
  double p[3];
  vreject(n, u, p);
  double ca[3], cb[3];
  vcross(a, p, ca);
  vcross(p, b, cb);
  if (vdot(ca, n) >= 0.0 && vdot(cb, n) >= 0.0)
    return std::fabs(std::asin(std::fmax(-1.0, std::fmin(1.0, vdot(u, n))))) / kDeg;
  return to_ends;
}

double distance_to_segment(const double p[3], const double a[3], const double b[3]) {
  double ab[3], ap[3];
  vsub(a, b, ab);  // b - a
  vsub(a, p, ap);  // p - a
  const double len2 = vdot(ab, ab);
  double s = len2 > 0.0 ? vdot(ap, ab) / len2 : 0.0;
  s = std::fmax(0.0, std::fmin(1.0, s));
  double q[3];
  vaxpy(a, ab, s, q);
  return vdistance(p, q);
}

void copy_solutions(const Candidates& from, Candidates* to) {
  to->count = from.count;
  to->singular = from.singular;
  for (int j = 0; j < from.count; ++j) {
    vcopy(from.abc[j], to->abc[j]);
    to->solver_code[j] = from.solver_code[j];
    to->in_travel[j] = from.in_travel[j];
  }
}

}  // namespace

Gatherer::Gatherer(State& st, const PlanOptions& options)
    : st_(st), opt_(options), facts_(read_machine_facts(st)) {
  flip_ = opt_.cam_axis && !facts_.cam_sense;
  vcopy(opt_.start, seed_);
  start_pending_ = opt_.start_auto;
}

void Gatherer::gather(ProgrammedMove& move, Candidates* out) {
  double len = vnorm(move.axis);
  if (!(len > 0.0)) len = 1.0;
  for (double& c : move.axis) c = (flip_ ? -c : c) / len;
  if (start_pending_) {
    start_pending_ = false;
    double abc[3] = {seed_[0], seed_[1], seed_[2]};
    if (first_in_travel_solution(st_, move.axis, abc) == 1)
      vcopy(abc, seed_);
    else
      start_found_ = false;
    // The enumeration may leave the three-rotary locks behind, as the solver does.
    double restored[3];
    if (facts_.three_rotary) solve_nearest(st_, facts_, move.axis, seed_, opt_.mode3r, restored);
  }
  solve(move.axis, out);
  if (out->count > 0) {
    vcopy(out->abc[0], seed_);
    if (opt_.choice == Choice::path) {
      // Only the first free axis' values are offered again.
      before_count_ = out->count;
      if (facts_.first_free >= 0)
        for (int j = 0; j < out->count; ++j) before_first_[j] = out->abc[j][facts_.first_free];
      have_before_ = true;
    }
  }
}

void Gatherer::solve_anew(const double axis[3], Candidates* out) {
  Candidates& c = *out;
  if (opt_.choice == Choice::nearest) {
    c.singular = false;
    c.count = 0;
    const int code = solve_nearest(st_, facts_, axis, seed_, opt_.mode3r, c.abc[0]);
    const bool solved = facts_.three_rotary ? code != -1 : code != 1;
    if (solved) {
      c.solver_code[0] = code;
      c.in_travel[0] = rotary_travel_code(st_, c.abc[0]) == 0;
      c.count = 1;
    }
    return;
  }
  solve_all(st_, facts_, axis, seed_, opt_.mode3r, out);
}

void Gatherer::solve(const double axis[3], Candidates* out) {
  Candidates& c = *out;
  // Not with three rotary axes, whose solver changes the machine's locks as it goes, nor where
  // a solve may print its trace.
  const bool keep = !facts_.three_rotary && st_.silent != 0;
  const bool held = same_bits(axis, last_axis_, 3);
  if (keep && kept_ && held && same_bits(seed_, kept_seed_, 3)) {
    copy_solutions(kept_solutions_, &c);
  } else {
    solve_anew(axis, out);
    // Kept from the second move of a held axis on: a path whose axis never holds copies nothing.
    kept_ = keep && held;
    if (kept_) {
      vcopy(seed_, kept_seed_);
      copy_solutions(c, &kept_solutions_);
    }
    vcopy(axis, last_axis_);
  }
  if (opt_.choice == Choice::nearest) return;
  // The three-rotary solver turns the table to a whole turn where the tool stands along its
  // axis; holding the table where it is swings nothing there.
  if (facts_.three_rotary && facts_.first_free >= 0) {
    const double a = angle_between(axis, facts_.first_axis);
    if (std::fmin(a, 180.0 - a) <= opt_.angle_tolerance)
      add_held_table(st_, facts_, axis, seed_, out);
  }
  // Along the first free axis that axis may take any value: offer the ones the last solved
  // move's solutions have, so that a pass through the singular direction swings nothing.
  if (!c.singular || c.count == 0 || facts_.first_free < 0 || !have_before_) return;
  const int f = facts_.first_free;
  const int base = c.count;
  for (int k = 0; k < before_count_ && c.count < kMaxCandidates; ++k) {
    for (int j = 0; j < base && c.count < kMaxCandidates; ++j) {
      double abc[3] = {c.abc[j][0], c.abc[j][1], c.abc[j][2]};
      abc[f] = before_first_[k];
      bool duplicate = false;
      for (int i = 0; i < c.count && !duplicate; ++i)
        duplicate = std::fabs(c.abc[i][0] - abc[0]) + std::fabs(c.abc[i][1] - abc[1]) +
                        std::fabs(c.abc[i][2] - abc[2]) <= 1e-9;
      if (duplicate) continue;
      vcopy(abc, c.abc[c.count]);
      const int travel = rotary_travel_code(st_, abc);
      c.solver_code[c.count] = travel;
      c.in_travel[c.count] = travel == 0;
      ++c.count;
    }
  }
}

Planner::Planner(State& st, const PlanOptions& options, PositionSink* sink)
    : st_(st), opt_(options), sink_(sink), facts_(read_machine_facts(st)), own_(st, options) {
  flip_ = own_.flips_axis();
  machine_tool_length_ = last_length_ = st.machine.tool_length;
  if (opt_.choice == Choice::nearest) {
    // Move by move: nothing is gained by holding moves back.
    opt_.window = 1;
    opt_.overlap = 0;
  }
  if (opt_.window < 1) opt_.window = 1;
  if (opt_.overlap < 0) opt_.overlap = 0;
  const std::size_t held = static_cast<std::size_t>(opt_.window + opt_.overlap);
  // Reserved, not sized: a page is first touched when a move comes to it.
  held_.reserve(held);
  chosen_.reserve(held);
  slots_.reserve(held * 4);
  spare_slots_.reserve(held * 4);
  cos_tolerance_ = std::cos(opt_.angle_tolerance * kDeg);
  sin_tolerance_ = std::sin(opt_.angle_tolerance * kDeg);
  if (sin_tolerance_ > 0.0 && sin_tolerance_ < 1.0) {
    // Bands a billionth wide round where the sine meets the tolerance, and round half a turn,
    // are left to the sine itself: outside them rounding cannot change what the plan sees.
    const double edge = std::asin(sin_tolerance_);
    within_ = edge * (1.0 - 1e-9);
    beyond_ = edge * (1.0 + 1e-9);
    before_half_ = kPi - edge - 1e-9;
  }
}

void Planner::store(Held& h, const Candidates& cand) {
  h.first = static_cast<int>(slots_.size());
  h.count = cand.count;
  for (int j = 0; j < cand.count; ++j) {
    Slot s;
    vcopy(cand.abc[j], s.abc);
    s.cost = s.sine = 0.0;
    s.solver_code = cand.solver_code[j];
    s.back = -1;
    s.in_travel = cand.in_travel[j];
    slots_.push_back(s);
  }
}

Planner::Held& Planner::next_held() {
  const std::size_t n = static_cast<std::size_t>(count_);
  if (n == held_.size()) {
    // Grown within what is reserved as moves come: a short toolpath does not pay for a whole
    // window of fresh pages.
    held_.resize(std::min(static_cast<std::size_t>(opt_.window + opt_.overlap), n + 1024));
    chosen_.resize(held_.size());
  }
  return held_[n];
}

void Planner::push(const ProgrammedMove& move) {
  Held& h = next_held();
  h.move = move;
  own_.gather(h.move, &gathered_);
  store(h, gathered_);
  accept(own_.start_found());
}

void Planner::push_gathered(const ProgrammedMove& move, const Candidates& cand, bool start_found) {
  Held& h = next_held();
  h.move = move;
  store(h, cand);
  accept(start_found);
}

void Planner::accept(bool start_found) {
  if (stats_.moves++ == 0) {
    stats_.start_found = start_found;
    free_start_ = opt_.start_auto && start_found;
  }
  ++count_;
  // The shortest path goes forward move by move while the window fills, the slots just stored
  // still in cache; only the way back waits for the window.
  plan_forward(count_);
  if (count_ == opt_.window + opt_.overlap) plan_and_emit(opt_.window);
}

void Planner::finish() {
  if (count_ > 0) plan_and_emit(count_);
}

double Planner::tool_length_of(int tool) const {
  double length = machine_tool_length_;
  for (const PlanOptions::ToolLength& t : opt_.tool_lengths)
    if (t.tool == tool && tool != 0) length = t.length;
  return length;
}

// The plan asks of this sine only its sign and whether it is within sin_tolerance_: most
// angles answer both without the library call, by a stand-in of 0 (within) or +-2 (beyond).
double Planner::pole_sine(const double abc[3]) const {
  const int s = facts_.second_free;
  if (s < 0) return 1.0;
  const double x = (abc[s] - facts_.pole) * kDeg, a = std::fabs(x);
  if (a < within_) return 0.0;
  if (a > beyond_ && a < before_half_) return std::copysign(2.0, x);
  return std::sin(x);
}

double Planner::motion(const double a[3], const double b[3], bool at_pole, bool cutting) const {
  return motion(a, b, pole_sine(a), pole_sine(b), at_pole, cutting);
}

double Planner::motion(const double a[3], const double b[3], double sa, double sb, bool at_pole,
                       bool cutting) const {
  const int s = facts_.second_free;
  const double near = sin_tolerance_;
  // Along the first axis, turning it moves the tool by no more than the angle tolerance: the
  // cheapest place to take up a turn the travel limits force. With two rotary axes the second
  // must stand there at both ends, or the turn sweeps the tool round a cone.
  const bool free_turn = at_pole && (facts_.three_rotary || s < 0 ||
                                     (std::fabs(sa) <= near && std::fabs(sb) <= near));
  double largest = 0.0, first = 0.0;
  for (int i = 0; i < 3; ++i) {
    if (!facts_.has_axis[3 + i]) continue;
    double d = std::fabs(b[i] - a[i]);
    // The short way round an axis without limits (remainder leaves up to half a turn alone).
    // Up to a turn and a half that is d - 360, exactly, without the library call.
    if (!facts_.limited[i] && d > 180.0)
      d = d <= 540.0 ? std::fabs(d - 360.0) : std::fabs(std::remainder(d, 360.0));
    if (free_turn && i == facts_.first_free) d *= kPoleTurnWeight;
    if (!(d <= largest)) largest = d;
    if (i == facts_.first_free) first = d;
  }
  if (!std::isfinite(largest)) return kOutOfTravelCost;
  double cost = opt_.mode == 1 ? first + 1e-3 * largest : largest;
  // Clear of the workpiece, any motion is only motion: the place to unwind.
  if (!cutting) return cost;
  // From one side of the pole to the other, the axes moving together pass it: the tool leaves
  // the programmed directions on the way unless they themselves pass it. A limited axis turning
  // more than half a turn goes the long way round, sweeping the tool about the part, unless the
  // tool stands along the first axis where that axis is free.
  bool near_pole = false, crosses = false;
  if (s >= 0) {
    near_pole = std::fabs(sa) <= near || std::fabs(sb) <= near;
    crosses = sa * sb < 0.0 && !near_pole;
  }
  bool long_way = false;
  for (int i = 0; i < 3 && !long_way; ++i)
    long_way = facts_.limited[i] && std::fabs(b[i] - a[i]) > 180.0 + kSameTurn &&
               !(at_pole && near_pole && i == facts_.first_free);
  if (crosses || long_way) cost += kBranchCost;
  return cost;
}

void Planner::plan_forward(int to) {
  // Shortest path over the candidates of consecutive moves; unreachable moves are stepped over.
  int prev = planned_prev_;
  for (int m = planned_; m < to; ++m) {
    Held& h = held_[static_cast<std::size_t>(m)];
    const bool at_pole =
        prev >= 0 && near_first_axis(held_[static_cast<std::size_t>(prev)].move.axis, h.move.axis);
    const bool cutting = !h.move.rapid;
    for (int j = 0; j < h.count; ++j) slot(h, j).sine = pole_sine(slot(h, j).abc);
    for (int j = 0; j < h.count; ++j) {
      Slot& here = slot(h, j);
      const double penalty = here.in_travel ? 0.0 : kOutOfTravelCost;
      double best;
      int best_k = -1;
      if (prev >= 0) {
        const Held& p = held_[static_cast<std::size_t>(prev)];
        const Slot& from = slot(p, 0);
        best = from.cost + motion(from.abc, here.abc, from.sine, here.sine, at_pole, cutting);
        best_k = 0;
        for (int k = 1; k < p.count; ++k) {
          const Slot& other = slot(p, k);
          const double c =
              other.cost + motion(other.abc, here.abc, other.sine, here.sine, at_pole, cutting);
          if (c < best) {
            best = c;
            best_k = k;
          }
        }
      } else if (anchored_) {
        best = motion(anchor_abc_, here.abc, false, cutting);
      } else if (free_start_) {
        best = 0.0;
      } else {
        best = motion(opt_.start, here.abc);
      }
      here.cost = best + penalty;
      here.back = static_cast<signed char>(best_k);
    }
    if (h.count > 0) prev = m;
  }
  planned_ = to;
  planned_prev_ = prev;
}

void Planner::plan_and_emit(int emit_count) {
  plan_forward(count_);
  const int prev = planned_prev_;
  // Back from the cheapest end.
  for (int m = 0; m < count_; ++m) chosen_[static_cast<std::size_t>(m)] = -1;
  if (prev >= 0) {
    const Held& last = held_[static_cast<std::size_t>(prev)];
    int j = 0;
    for (int k = 1; k < last.count; ++k)
      if (slot(last, k).cost < slot(last, j).cost) j = k;
    for (int m = prev; m >= 0; --m) {
      const Held& h = held_[static_cast<std::size_t>(m)];
      if (h.count == 0) continue;
      chosen_[static_cast<std::size_t>(m)] = j;
      j = slot(h, j).back;
      if (j < 0) break;
    }
  }
  if (opt_.choice == Choice::path) spread_singular(emit_count);

  for (int m = 0; m < emit_count; ++m) {
    const Held& h = held_[static_cast<std::size_t>(m)];
    const int j = chosen_[static_cast<std::size_t>(m)];
    if (j < 0) {
      emit_unreachable(h);
      continue;
    }
    const Slot chosen = slot(h, j);
    emit(h, chosen.abc, chosen.solver_code);
    vcopy(chosen.abc, anchor_abc_);
    anchored_ = true;
  }
  // The overlap is planned again at the front of the next window, its solutions packed anew.
  spare_slots_.clear();
  for (int m = emit_count; m < count_; ++m) {
    Held& h = held_[static_cast<std::size_t>(m)];
    const int first = static_cast<int>(spare_slots_.size());
    for (int j = 0; j < h.count; ++j) spare_slots_.push_back(slot(h, j));
    h.first = first;
    held_[static_cast<std::size_t>(m - emit_count)] = h;
  }
  slots_.swap(spare_slots_);
  count_ -= emit_count;
  // The overlap is planned again from the last position delivered.
  planned_ = 0;
  planned_prev_ = -1;
}

// Close to the direction along the first free axis, that axis turns fast for a small change of
// direction. Where it swings between two moves and the moves around lie within the angle
// tolerance of that direction, the tool is stood exactly along it there and the free axis is
// turned evenly across those moves instead.
void Planner::spread_singular(int emit_count) {
  const int f = facts_.first_free;
  if (f < 0 || facts_.three_rotary || facts_.indexed) return;
  auto tilt = [&](int m) {
    const double* d = held_[static_cast<std::size_t>(m)].move.axis;
    const double a = angle_between(d, facts_.first_axis);
    return std::fmin(a, 180.0 - a);
  };
  auto value = [&](int m) {
    const Held& h = held_[static_cast<std::size_t>(m)];
    return slot(h, chosen_[static_cast<std::size_t>(m)]).abc[f];
  };
  for (int m = 1; m < emit_count; ++m) {
    if (chosen_[m - 1] < 0 || chosen_[m] < 0) continue;
    if (std::fabs(value(m) - value(m - 1)) <= kSwingDegrees) continue;
    if (tilt(m - 1) > opt_.angle_tolerance && tilt(m) > opt_.angle_tolerance) continue;
    int a = tilt(m - 1) <= opt_.angle_tolerance ? m - 1 : m;
    int b = tilt(m) <= opt_.angle_tolerance ? m : m - 1;
    // Over a few moves each side: a long stretch along the axis need not turn all the way.
    const int first = m - 1 - kSpreadMoves, last = m + kSpreadMoves;
    while (a > 0 && a > first && chosen_[a - 1] >= 0 && tilt(a - 1) <= opt_.angle_tolerance) --a;
    while (b + 1 < count_ && b < last && chosen_[b + 1] >= 0 && tilt(b + 1) <= opt_.angle_tolerance)
      ++b;
    // The free axis goes from the value before the stretch to the value after it.
    const double from = a > 0 && chosen_[a - 1] >= 0 ? value(a - 1) : value(a);
    double to = b + 1 < count_ && chosen_[b + 1] >= 0 ? value(b + 1) : value(b);
    // An axis without limits goes the short way; the representative is chosen on emission.
    if (!facts_.limited[f]) to = from + std::remainder(to - from, 360.0);
    // A rapid in the stretch takes the whole swing instead: the tool is out of the cut there,
    // and the writer retracts for it where it can. The rapid nearest the swing, and nothing to
    // do when the swing is already into it.
    const int after = std::min(b + 1, count_ - 1);
    int rapid = -1;
    for (int d = 0; rapid < 0 && (m - d >= a || m + d <= after); ++d) {
      if (m - d >= a && held_[static_cast<std::size_t>(m - d)].move.rapid)
        rapid = m - d;
      else if (d > 0 && m + d <= after && held_[static_cast<std::size_t>(m + d)].move.rapid)
        rapid = m + d;
    }
    if (rapid == m) {
      m = b + 1;
      continue;
    }
    const int steps = b - a + 2;
    for (int k = a; k <= b; ++k) {
      Held& h = held_[static_cast<std::size_t>(k)];
      double abc[3];
      vcopy(slot(h, chosen_[k]).abc, abc);
      abc[f] = rapid < 0 ? from + (to - from) * (k - a + 1) / steps : k < rapid ? from : to;
      double along[3];
      vcopy(facts_.first_axis, along);
      if (vdot(along, h.move.axis) < 0.0) vscale(along, -1.0, along);
      double solved[3];
      const int code = solve_nearest(st_, facts_, along, abc, opt_.mode3r, solved);
      if (code == 1) continue;
      solved[f] = abc[f];
      // Kept as an extra candidate of that move, so the emission reads it like any other: the
      // move's solutions move to the end of the pool, where there is room for one more.
      int j = h.count;
      if (h.count < kMaxCandidates) {
        const int first = static_cast<int>(slots_.size());
        for (int i = 0; i < h.count; ++i) {
          const Slot moved = slot(h, i);  // a copy: the pool may grow under a reference
          slots_.push_back(moved);
        }
        slots_.push_back(Slot());
        h.first = first;
        ++h.count;
      } else {
        j = kMaxCandidates - 1;
      }
      Slot& extra = slot(h, j);
      vcopy(solved, extra.abc);
      const int travel = rotary_travel_code(st_, solved);
      extra.solver_code = travel;
      extra.in_travel = travel == 0;
      chosen_[k] = j;
    }
    if (rapid < 0) ++stats_.singular_spread;
    m = b + 1;
  }
}

void Planner::emit_unreachable(const Held& h) {
  ++stats_.unreachable;
  PlannedPosition p;
  p.line = h.move.line;
  p.index = h.move.index;
  p.rapid = h.move.rapid;
  p.feed = h.move.feed;
  p.reachable = false;
  p.solver_code = facts_.three_rotary ? -1 : 1;
  vcopy(h.move.point, p.tip);
  vcopy(h.move.axis, p.axis);
  if (flip_) vscale(p.axis, -1.0, p.axis);
  sink_->position(p);
}

void Planner::emit(const Held& h, const double chosen[3], int solver_code) {
  double abc[3];
  vcopy(chosen, abc);
  // Axes without limits take the whole turn nearest where they are: no unwinding in a cut.
  if (have_last_ && opt_.choice == Choice::path)
    for (int i = 0; i < 3; ++i)
      if (!facts_.limited[i] && std::isfinite(abc[i]))
        abc[i] += 360.0 * std::nearbyint((last_pos_[3 + i] - abc[i]) / 360.0);
  // A tool of its own length is placed with it, and the last position is placed again as the
  // new tool would have stood there: the move between them is then the new tool's. The solver
  // keeps the machine's length (the state is restored below), so solving never depends on it.
  if (!opt_.tool_lengths.empty()) {
    const double length = tool_length_of(h.move.tool);
    if (have_last_ && !same_bits(&length, &last_length_, 1)) {
      st_.machine.tool_length = length;
      place(st_, last_tip_, last_pos_ + 3, last_pos_);
    }
    st_.machine.tool_length = last_length_ = length;
  }
  double pos[6];
  place(st_, h.move.point, abc, pos);
  vcopy(abc, pos + 3);
  bool unwind = false;
  // Three rotary axes have no branch to change: what the cost weighs there is a preference.
  if (have_last_ && !h.move.rapid && opt_.choice == Choice::path && !facts_.three_rotary) {
    double turn = 0.0;
    for (int i = 0; i < 3; ++i)
      if (facts_.has_axis[3 + i]) turn = running_max(turn, std::fabs(abc[i] - last_pos_[3 + i]));
    if (turn > kUnwindDegrees) {
      const double cost =
          motion(last_pos_ + 3, abc, near_first_axis(last_axis_, h.move.axis), true);
      unwind = cost >= kBranchCost && cost < kOutOfTravelCost;
    }
  }
  if (have_last_) {
    for (int i = 0; i < 3; ++i) {
      if (!facts_.has_axis[3 + i]) continue;
      const double jump = std::fabs(pos[3 + i] - last_pos_[3 + i]);
      if (jump > stats_.max_jump) {
        stats_.max_jump = jump;
        stats_.max_jump_line = h.move.line;
        stats_.max_jump_axis = kIdA + i;
        stats_.max_jump_rapid = h.move.rapid;
      }
    }
    if (h.move.rapid || unwind) {
      // A positioning move: the tool is clear of the workpiece, nothing to keep it on.
    } else if (opt_.linearise == Linearise::tolerance)
      split(last_pos_, pos, last_tip_, h.move.point, last_axis_, h.move.axis, h, 0);
    else if (opt_.linearise == Linearise::formula)
      subdivide_formula(h, pos);
    else if (opt_.measure_deviation && !same_bits(last_pos_ + 3, pos + 3, 3)) {
      // With the rotary axes still the tool moves straight along the move: nothing to measure.
      double tip_dev, axis_dev;
      deviation(last_pos_, pos, last_tip_, h.move.point, last_axis_, h.move.axis, &tip_dev,
                &axis_dev);
      record_deviation(tip_dev, axis_dev, h.move.line);
    }
  }
  if (unwind) {
    ++stats_.unwinds;
    int axis = 0;
    for (int i = 1; i < 3; ++i)
      if (std::fabs(abc[i] - last_pos_[3 + i]) > std::fabs(abc[axis] - last_pos_[3 + axis]))
        axis = i;
    if (stats_.first_unwinds.size() < kSwingsKept)
      stats_.first_unwinds.push_back(
          Swing{h.move.line, kIdA + axis, abc[axis] - last_pos_[3 + axis]});
  }
  double leave_enter[12];
  if (unwind) {
    // Backed out along the tool axis (tip towards the spindle) at each end, angles kept.
    const double out = flip_ ? -opt_.unwind_clearance : opt_.unwind_clearance;
    double tip[3];
    vaxpy(last_tip_, last_axis_, out, tip);
    place(st_, tip, last_pos_ + 3, leave_enter);
    vcopy(last_pos_ + 3, leave_enter + 3);
    vaxpy(h.move.point, h.move.axis, out, tip);
    place(st_, tip, abc, leave_enter + 6);
    vcopy(abc, leave_enter + 9);
  }
  deliver(h, pos, h.move.point, h.move.axis, false, solver_code, unwind ? leave_enter : nullptr);
  vcopy(pos, last_pos_);
  vcopy(pos + 3, last_pos_ + 3);
  vcopy(h.move.point, last_tip_);
  vcopy(h.move.axis, last_axis_);
  have_last_ = true;
  st_.machine.tool_length = machine_tool_length_;
}

void Planner::deviation(const double p0[6], const double p1[6], const double t0[3],
                        const double t1[3], const double d0[3], const double d1[3],
                        double* tip_dev, double* axis_dev) {
  *tip_dev = 0.0;
  *axis_dev = 0.0;
  // Three points, and four more between them where the deviation comes anywhere near the
  // tolerance: its peak need not be in the middle. Over a turn of a degree or less the deviation
  // grows as s (1 - s) from both ends to within a few percent, so the middle alone tells, unless
  // it too comes near the tolerance.
  static const double kAt[7] = {0.5, 0.25, 0.75, 0.125, 0.375, 0.625, 0.875};
  double turn = 0.0;
  for (int k = 3; k < 6; ++k) turn = running_max(turn, std::fabs(p1[k] - p0[k]));
  const int settled_after = turn <= kSmallTurn ? 1 : 3;
  for (int i = 0; i < 7; ++i) {
    if (i >= settled_after && *tip_dev <= 0.7 * opt_.tolerance &&
        *axis_dev <= 0.7 * opt_.angle_tolerance)
      break;
    const double s = kAt[i];
    double p[6], tip[3], axis[3];
    for (int k = 0; k < 6; ++k) p[k] = p0[k] + (p1[k] - p0[k]) * s;
    forward(st_, p, tip, axis);
    *tip_dev = running_max(*tip_dev, distance_to_segment(tip, t0, t1));
    *axis_dev = running_max(*axis_dev, angle_to_arc(axis, d0, d1));
  }
}

// Halves the programmed move until the linear motion of the axes between consecutive positions
// keeps the tip and the axis within tolerance; the halves are solved on the branch between.
void Planner::split(const double p0[6], const double p1[6], const double t0[3],
                    const double t1[3], const double d0[3], const double d1[3], const Held& h,
                    int depth) {
  double tip_dev, axis_dev;
  deviation(p0, p1, t0, t1, d0, d1, &tip_dev, &axis_dev);
  const bool within = tip_dev <= opt_.tolerance && axis_dev <= opt_.angle_tolerance;
  double tm[3], dm[3], pm[6];
  bool solved = false;
  if (!within && depth < kMaxDepth) {
    for (int k = 0; k < 3; ++k) {
      tm[k] = 0.5 * (t0[k] + t1[k]);
      dm[k] = d0[k] + d1[k];
    }
    if (vnormalize(dm, 1e-12) == 0) {
      double prev[3];
      for (int k = 0; k < 3; ++k) prev[k] = 0.5 * (p0[3 + k] + p1[3 + k]);
      {
        // The solution on the way: least motion from one end and on to the other.
        solve_all(st_, facts_, dm, prev, opt_.mode3r, &mid_);
        if (facts_.three_rotary && near_first_axis(dm, dm))
          add_held_table(st_, facts_, dm, prev, &mid_);
        double best = 0.0;
        for (int j = 0; j < mid_.count; ++j) {
          const double c = motion(p0 + 3, mid_.abc[j]) + motion(mid_.abc[j], p1 + 3);
          if (!solved || c < best) {
            best = c;
            vcopy(mid_.abc[j], pm + 3);
            solved = true;
          }
        }
        // An axis without limits takes the whole turn between the ends.
        for (int k = 0; k < 3 && solved; ++k)
          if (!facts_.limited[k] && std::isfinite(pm[3 + k]))
            pm[3 + k] += 360.0 * std::nearbyint((prev[k] - pm[3 + k]) / 360.0);
      }
      if (solved) place(st_, tm, pm + 3, pm);
    }
  }
  // Where halving gets no further, a rotary axis turns a long way over a tiny part of the move.
  if (!within && !solved && (near_first_axis(d0, d1) || depth >= kMaxDepth) &&
      sweep(p0, p1, t0, t1, d0, d1, h))
    return;
  if (!solved) {
    record_deviation(tip_dev, axis_dev, h.move.line);
    return;
  }
  split(p0, pm, t0, tm, d0, dm, h, depth + 1);
  deliver(h, pm, tm, dm, true, 0);
  split(pm, p1, tm, t1, dm, d1, h, depth + 1);
}

void Planner::record_deviation(double tip, double axis, long line) {
  if (tip > stats_.max_tip_deviation) {
    stats_.max_tip_deviation = tip;
    stats_.max_tip_line = line;
  }
  if (axis > stats_.max_axis_deviation) {
    stats_.max_axis_deviation = axis;
    stats_.max_axis_line = line;
  }
}

bool Planner::near_first_axis(const double d0[3], const double d1[3]) const {
  if (facts_.first_free < 0) return false;
  // Every point of the arc lies within half its length of an end: where both ends are farther
  // than that and the tolerance from the axis (and from its opposite), so is the arc. Cosines
  // only; most moves are settled here.
  const double c = std::fmax(-1.0, std::fmin(1.0, vdot(d0, d1)));
  const double ch = std::sqrt(0.5 * (1.0 + c)), sh = std::sqrt(0.5 * (1.0 - c));
  const double bound = cos_tolerance_ * ch - sin_tolerance_ * sh;  // cos(tolerance + arc / 2)
  if (bound > 0.0 && std::fabs(vdot(d0, facts_.first_axis)) < bound - 1e-9 &&
      std::fabs(vdot(d1, facts_.first_axis)) < bound - 1e-9)
    return false;
  double opposite[3];
  vscale(facts_.first_axis, -1.0, opposite);
  return std::fmin(angle_to_arc(facts_.first_axis, d0, d1), angle_to_arc(opposite, d0, d1)) <=
         opt_.angle_tolerance;
}

// Where halving the programmed move does not converge, a rotary axis turns a long way over a
// tiny part of it: the direction passes close to the first axis, where any value of that axis
// is within the angle tolerance. The axes are then stepped evenly in machine space, the tip
// kept on the programmed move, so that the turn sweeps the tip by little between positions.
bool Planner::sweep(const double p0[6], const double p1[6], const double t0[3],
                    const double t1[3], const double d0[3], const double d1[3], const Held& h) {
  double turn = 0.0;
  for (int k = 3; k < 6; ++k) turn = std::fmax(turn, std::fabs(p1[k] - p0[k]));
  if (!(turn > kSweepStep) || !(turn < 720.0)) return false;
  // Finer steps until each piece keeps the tip within tolerance (or the steps get absurd).
  double tip_worst = 0.0, axis_worst = 0.0;
  int n = static_cast<int>(std::ceil(turn / kSweepStep));
  for (;; n *= 2) {
    sweep_.resize(static_cast<std::size_t>(n + 1) * 12);
    tip_worst = axis_worst = 0.0;
    for (int i = 0; i <= n; ++i) {
      double* pos = &sweep_[static_cast<std::size_t>(i) * 12];
      double* tip = pos + 6;
      double* axis = pos + 9;
      if (i == 0 || i == n) {
        for (int k = 0; k < 6; ++k) pos[k] = i == 0 ? p0[k] : p1[k];
        vcopy(i == 0 ? t0 : t1, tip);
        vcopy(i == 0 ? d0 : d1, axis);
      } else {
        const double s = static_cast<double>(i) / n;
        for (int k = 0; k < 3; ++k) {
          tip[k] = t0[k] + (t1[k] - t0[k]) * s;
          pos[3 + k] = p0[3 + k] + (p1[3 + k] - p0[3 + k]) * s;
        }
        place(st_, tip, pos + 3, pos);
        double reached[3];
        forward(st_, pos, reached, axis);
        // The direction each position gives, against the programmed change of direction.
        axis_worst = std::fmax(axis_worst, angle_to_arc(axis, d0, d1));
      }
      if (i == 0) continue;
      const double* prev = pos - 12;
      double tip_dev, axis_dev;
      deviation(prev, pos, prev + 6, tip, prev + 9, axis, &tip_dev, &axis_dev);
      tip_worst = std::fmax(tip_worst, tip_dev);
      axis_worst = std::fmax(axis_worst, axis_dev);
    }
    if (tip_worst <= opt_.tolerance || n >= kMaxSweepSteps) break;
  }
  record_deviation(tip_worst, axis_worst, h.move.line);
  for (int i = 1; i < n; ++i) {
    const double* pos = &sweep_[static_cast<std::size_t>(i) * 12];
    deliver(h, pos, pos + 6, pos + 9, true, 0);
  }
  return true;
}

void Planner::subdivide_formula(const Held& h, const double pos[6]) {
  int n = 1;
  double* table = nullptr;
  const int r = subdivide_move(st_, last_pos_, pos, &n, &table);
  if (r == 8 || table == nullptr) {
    ++stats_.subdivide_failed;
    return;
  }
  if (r == 7) ++stats_.clamped;
  // The table ends on the move itself, which is delivered from its own solution.
  double before[6], tip_worst = 0.0, axis_worst = 0.0;
  for (int i = 0; i < 6; ++i) before[i] = last_pos_[i];
  for (int k = 0; k < n; ++k) {
    double row[6], tip[3], axis[3];
    for (int i = 0; i < 6; ++i) row[i] = k + 1 < n ? table[6 * k + i] : pos[i];
    if (opt_.measure_deviation) {
      // Each piece against the whole programmed move.
      double tip_dev, axis_dev;
      deviation(before, row, last_tip_, h.move.point, last_axis_, h.move.axis, &tip_dev,
                &axis_dev);
      tip_worst = std::fmax(tip_worst, tip_dev);
      axis_worst = std::fmax(axis_worst, axis_dev);
      for (int i = 0; i < 6; ++i) before[i] = row[i];
    }
    if (k + 1 == n) break;
    forward(st_, row, tip, axis);
    deliver(h, row, tip, axis, true, 0);
  }
  if (opt_.measure_deviation) record_deviation(tip_worst, axis_worst, h.move.line);
}

void Planner::deliver(const Held& h, const double pos[6], const double tip[3],
                      const double axis[3], bool inserted, int solver_code,
                      const double* leave_enter) {
  PlannedPosition p;
  for (int k = 0; k < 6; ++k) p.axes[k] = pos[k];
  if (opt_.wrap_modulo)
    for (int i = 0; i < 3; ++i)
      if (!facts_.limited[i] && facts_.has_axis[3 + i] && std::isfinite(p.axes[3 + i])) {
        double v = std::fmod(p.axes[3 + i], 360.0);
        if (v < 0.0) v += 360.0;
        if (v >= 360.0) v = 0.0;
        p.axes[3 + i] = v;
      }
  vcopy(tip, p.tip);
  vcopy(axis, p.axis);
  if (flip_) vscale(p.axis, -1.0, p.axis);
  p.line = h.move.line;
  p.index = h.move.index;
  p.inserted = inserted;
  p.rapid = h.move.rapid;
  p.arc = inserted ? ArcPart::none : h.move.arc;
  p.feed = h.move.feed;
  p.solver_code = solver_code;
  p.unwind = leave_enter != nullptr;
  if (p.unwind)
    for (int k = 0; k < 6; ++k) {
      p.leave[k] = leave_enter[k];
      p.enter[k] = leave_enter[6 + k];
    }
  int* flags = p.travel_flags;
  p.travel_code = travel_code(st_, p.axes, flags);
  ++stats_.positions;
  if (inserted) ++stats_.inserted;
  if (p.travel_code != 0) {
    ++stats_.out_of_travel;
    for (int k = 0; k < 6; ++k)
      if (flags[k] != 0) ++stats_.axis_out[k];
  }
  for (int i = 0; i < 3; ++i) {
    if (!facts_.has_axis[3 + i]) continue;
    const double v = p.axes[3 + i];
    if (!stats_.has_range[i]) {
      stats_.has_range[i] = true;
      stats_.range_min[i] = stats_.range_max[i] = v;
    }
    stats_.range_min[i] = std::fmin(stats_.range_min[i], v);
    stats_.range_max[i] = std::fmax(stats_.range_max[i], v);
    if (have_delivered_ && !(h.move.rapid && !inserted)) {
      const double swing = std::fabs(pos[3 + i] - last_delivered_[3 + i]);
      if (swing > kSwingDegrees) {
        ++stats_.swings;
        if (stats_.first_swings.size() < kSwingsKept)
          stats_.first_swings.push_back(Swing{h.move.line, kIdA + i, pos[3 + i] - last_delivered_[3 + i]});
      }
    }
  }
  vcopy(pos, last_delivered_);
  vcopy(pos + 3, last_delivered_ + 3);
  have_delivered_ = true;
  sink_->position(p);
}

}  // namespace k5x
