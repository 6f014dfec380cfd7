#include "cpp/k5x.hpp"

#include <cmath>
#include <cstring>
#include <stdexcept>

#include "cpp/machine_impl.h"
#include "geometry/axis_queries.h"
#include "geometry/load.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "machine/checksum.h"
#include "motion/increments.h"
#include "motion/interpolation.h"
#include "solutions/enumeration.h"
#include "solutions/three_rotary.h"
#include "toolpath/kinematics.h"
#include "toolpath/planner.h"

namespace k5x {

namespace {

const char* const kLoadMeaning[] = {
    "loaded",
    "the file cannot be opened",
    "`bati` is not the first record",
    "nine records exist already",
    "the current record already has two children",
    "axis line whose first field is not AXE_X to AXE_C",
    "axis line with a numeric direction of zero length",
    "`outil` without a current record",
    "`outil` with a numeric direction of zero length",
    "`piece` without a current record",
    "`piece` with a zero direction or two parallel directions",
    "`lien` with a field other than AXE_BATI",
    "no frame for `lien`, or the frame, tool or workpiece is missing",
    "unused code",
    "unused code",
    "`collision` whose first field names no record",
    "empty machine name",
    "a number field longer than 255 characters",
};

[[noreturn]] void throw_load_error(int code, const State& st) {
  throw LoadError(code, load_code_meaning(code), st.load_line, st.load_line_code);
}

void copy_text(char*& to, const char* from) {
  std::free(to);
  to = nullptr;
  if (from == nullptr) return;
  const std::size_t n = std::strlen(from) + 1;
  to = static_cast<char*>(std::malloc(n));
  if (to == nullptr) throw std::bad_alloc();
  std::memcpy(to, from, n);
}

Vec3 vec(const double* v) { return Vec3{v[0], v[1], v[2]}; }

// Copies n rows of six out of the library's shared table.
std::vector<Position> rows_of(const double* table, int n) {
  std::vector<Position> rows;
  for (int i = 0; i < n && table != nullptr; ++i) {
    Position p;
    std::memcpy(p.data(), table + 6 * i, sizeof(double) * 6);
    rows.push_back(p);
  }
  return rows;
}

// Refused before the state is touched: a NaN or an infinity would otherwise stay in the frames
// that later calls start from.
void finite(const double* v, std::size_t n, const char* what) {
  for (std::size_t i = 0; i < n; ++i)
    if (!std::isfinite(v[i]))
      throw std::invalid_argument(std::string(what) + ": not a finite number");
}
template <std::size_t N>
void finite(const std::array<double, N>& v, const char* what) {
  finite(v.data(), N, what);
}
void finite(double v, const char* what) { finite(&v, 1, what); }

void id_in_range(int id, int lo, int hi, const char* what) {
  if (id < lo || id > hi)
    throw std::out_of_range(std::string(what) + ": " + std::to_string(id) + " is not in " +
                            std::to_string(lo) + ".." + std::to_string(hi));
}

}  // namespace

// The model and settings of another state; result buffers stay this state's own, as they hold
// only the answers of calls made on it.
void copy_state(const State& from, State& to) {
  to.machine = from.machine;
  to.eps = from.eps;
  to.silent = from.silent;
  to.increment_tolerance = from.increment_tolerance;
  std::memcpy(to.sol1, from.sol1, sizeof to.sol1);
  std::memcpy(to.sol2, from.sol2, sizeof to.sol2);
  copy_text(to.ctx.context, from.ctx.context);
  copy_text(to.ctx.machine, from.ctx.machine);
  copy_text(to.ctx.machine_data, from.ctx.machine_data);
  copy_text(to.ctx.position, from.ctx.position);
  std::memcpy(to.ctx.origin, from.ctx.origin, sizeof to.ctx.origin);
}

LoadError::LoadError(int code, const std::string& what, long line, int line_code)
    : std::runtime_error("cannot load the machine: code " + std::to_string(code) + " (" + what +
                         ")" +
                         (line > 0 ? "; line " + std::to_string(line) + " stopped it with code " +
                                         std::to_string(line_code) + " (" +
                                         load_code_meaning(line_code) + ")"
                                   : std::string())),
      code_(code),
      line_(line),
      line_code_(line_code) {}

const char* load_code_meaning(int code) {
  if (code < 0 || code >= static_cast<int>(sizeof kLoadMeaning / sizeof kLoadMeaning[0]))
    return "unknown load code";
  return kLoadMeaning[code];
}

Machine::Machine() : impl_(new Impl()) {}
Machine::Machine(const Machine& other) : impl_(new Impl()) { copy_state(other.impl_->st, impl_->st); }
Machine& Machine::operator=(const Machine& other) {
  if (this != &other) {
    std::unique_ptr<Impl> fresh(new Impl());
    copy_state(other.impl_->st, fresh->st);
    impl_ = std::move(fresh);
  }
  return *this;
}
Machine::Machine(Machine&& other) noexcept : impl_(std::move(other.impl_)) {}
Machine& Machine::operator=(Machine&& other) noexcept {
  impl_ = std::move(other.impl_);
  return *this;
}
Machine::~Machine() = default;

Machine Machine::from_file(const std::string& path) {
  Machine m;
  const int code = machine_def(m.impl_->st, path.c_str());
  if (code != 0) throw_load_error(code, m.impl_->st);
  return m;
}

Machine Machine::from_text(const std::string& text) {
  Machine m;
  const int code = machine_def_text(m.impl_->st, text);
  if (code != 0) throw_load_error(code, m.impl_->st);
  return m;
}

std::string Machine::name() const {
  const char* n = machine_name(impl_->st);
  return n != nullptr ? n : "";
}

Orientation Machine::solve(const Vec3& direction, const Vec3& previous) {
  finite(direction, "direction");
  finite(previous, "previous angles");

  Orientation o{0, previous};
  o.code = solve_direction(impl_->st, direction.data(), previous.data(), o.angles.data());
  return o;
}

std::array<Vec3, 2> Machine::candidates() const {
  return {vec(impl_->st.sol1), vec(impl_->st.sol2)};
}

Orientation Machine::solve_three_rotary(const Vec3& direction, const Vec3& previous, int mode) {
  finite(direction, "direction");
  finite(previous, "previous angles");

  Orientation o{0, previous};
  o.code = k5x::solve_three_rotary(impl_->st, direction.data(), previous.data(), o.angles.data(),
                                   mode);
  return o;
}

AllSolutions Machine::all_solutions(const Vec3& direction) {
  finite(direction, "direction");

  AllSolutions r{0, {}, {}};
  int count = 0;
  double* list = nullptr;
  int* flags = nullptr;
  r.code = k5x::all_solutions(impl_->st, direction.data(), &count, &list, &flags);
  for (int i = 0; i < count && list != nullptr; ++i) {
    r.angles.push_back(vec(list + 3 * i));
    r.free_axes.push_back(flags != nullptr ? flags[i] : 0);
  }
  return r;
}

Orientation Machine::first_in_travel_solution(const Vec3& direction, const Vec3& start) {
  finite(direction, "direction");
  finite(start, "start angles");

  Orientation o{0, start};
  o.code = k5x::first_in_travel_solution(impl_->st, direction.data(), o.angles.data());
  return o;
}

Coded<Vec3> Machine::place(const Vec3& point, const Vec3& angles) {
  finite(point, "point");
  finite(angles, "angles");

  Coded<Vec3> r{0, {0.0, 0.0, 0.0}};
  r.code = place_tip(impl_->st, point.data(), angles.data(), r.value.data());
  return r;
}

Vec3 Machine::tip(const Position& p) {
  finite(p, "position");

  Vec3 out{};
  tip_at(impl_->st, p.data(), p.data() + 3, out.data());
  return out;
}

Vec3 Machine::tool_vector(const Position& p) {
  finite(p, "position");

  Vec3 out{};
  tool_axis_at(impl_->st, p.data(), p.data() + 3, out.data());
  return out;
}

Coded<Position> Machine::machine_to_programmed(const Position& m) {
  finite(m, "position");

  Coded<Position> r{0, {}};
  r.code = k5x::machine_to_programmed(impl_->st, m.data(), r.value.data());
  return r;
}

Coded<Position> Machine::programmed_to_machine(const Position& l) {
  finite(l, "position");

  Coded<Position> r{0, {}};
  r.code = k5x::programmed_to_machine(impl_->st, l.data(), r.value.data());
  return r;
}

Coded<Position> Machine::machine_to_tool(const Position& m) {
  finite(m, "position");

  Coded<Position> r{0, {}};
  r.code = k5x::machine_to_tool(impl_->st, m.data(), r.value.data());
  return r;
}

int Machine::place_workpiece(const std::array<double, 16>& t) {
  finite(t, "transform");

  return k5x::place_workpiece(impl_->st, t.data());
}

TravelCheck Machine::travel_test(const Position& p) const {
  finite(p, "position");

  TravelCheck r{0, {}};
  r.code = k5x::travel_test(impl_->st, p.data(), r.flags.data());
  return r;
}

Travel Machine::travel(int axis) const {
  id_in_range(axis, 1, 6, "axis");

  Travel t{0, 0.0, 0.0};
  t.kind = axis_travel(impl_->st, axis, &t.min, &t.max);
  return t;
}

double Machine::set_travel_minimum(int axis, double v) {
  id_in_range(axis, 1, 6, "axis");
  finite(v, "travel minimum");

  return k5x::set_travel_minimum(impl_->st, axis, v);
}
double Machine::set_travel_maximum(int axis, double v) {
  id_in_range(axis, 1, 6, "axis");
  finite(v, "travel maximum");

  return k5x::set_travel_maximum(impl_->st, axis, v);
}

Rows Machine::subdivide(const Position& from, const Position& to, int max_rows) {
  finite(from, "start");
  finite(to, "end");
  id_in_range(max_rows, 1, 500, "rows");

  Rows r{0, {}};
  int n = max_rows;
  double* table = nullptr;
  r.code = subdivide_move(impl_->st, from.data(), to.data(), &n, &table);
  r.rows = rows_of(table, n);
  return r;
}

Coded<Position> Machine::interpolate(const Position& from, const Position& to, double t) {
  finite(from, "start");
  finite(to, "end");
  finite(t, "t");

  Coded<Position> r{0, {}};
  r.code = interpolation(impl_->st, from.data(), to.data(), t, r.value.data());
  return r;
}

Rows Machine::interpolation_table(const Position& from, const Position& to, int rows) {
  finite(from, "start");
  finite(to, "end");
  id_in_range(rows, 1, 1000000, "rows");

  Rows r{0, {}};
  int n = rows;
  double* table = nullptr;
  r.code = k5x::interpolation_table(impl_->st, from.data(), to.data(), &n, &table);
  r.rows = rows_of(table, n);
  return r;
}

double Machine::axis_increment(int axis) const { return k5x::axis_increment(impl_->st, axis); }
void Machine::set_axis_increment(int axis, double step) {
  id_in_range(axis, 4, 6, "rotary axis");
  finite(step, "step");

  k5x::set_axis_increment(impl_->st, axis, step);
}
int Machine::increment_behaviour() const { return get_increment_behaviour(impl_->st); }
void Machine::set_increment_behaviour(int behaviour, double tolerance) {
  id_in_range(behaviour, 0, 2, "increment behaviour");
  finite(tolerance, "tolerance");

  k5x::set_increment_behaviour(impl_->st, behaviour, tolerance);
}
double Machine::increment_tolerance() const { return get_increment_tolerance(impl_->st); }
double Machine::largest_increment_deviation() const {
  return k5x::largest_increment_deviation(impl_->st);
}
void Machine::reset_increment_deviation() { k5x::reset_increment_deviation(impl_->st); }

Coded<double> Machine::law_value(int axis, double from, double to) const {
  finite(from, "from");
  finite(to, "to");

  Coded<double> r{0, 0.0};
  r.value = k5x::law_value(impl_->st, axis, from, to, &r.code);
  return r;
}

Vec3 Machine::apply_laws(const Vec3& from, const Vec3& to) const {
  finite(from, "from");
  finite(to, "to");

  Vec3 out{};
  k5x::apply_laws(impl_->st, from.data(), to.data(), out.data());
  return out;
}

Coded<std::uint32_t> Machine::checksum(int mode) {
  id_in_range(mode, 1, 3, "checksum mode");

  Coded<std::uint32_t> r{0, 0};
  r.code = machine_checksum(impl_->st, mode, &r.value);
  return r;
}

int Machine::mode() const { return impl_->st.machine.mode; }
void Machine::set_mode(int mode) {
  id_in_range(mode, 0, 2, "mode");
  k5x::set_mode(impl_->st, mode);
}
int Machine::rtcp() const { return impl_->st.machine.rtcp; }
void Machine::set_rtcp(int rtcp) {
  id_in_range(rtcp, 0, 2, "rtcp");
  k5x::set_rtcp(impl_->st, rtcp);
}
double Machine::tolerance() const { return impl_->st.machine.tolerance; }
void Machine::set_tolerance(double t) {
  finite(t, "tolerance");
  impl_->st.machine.tolerance = t;
}
double Machine::travel_tolerance() const { return impl_->st.machine.travel_tol; }
void Machine::set_travel_tolerance(double t) {
  finite(t, "travel tolerance");
  impl_->st.machine.travel_tol = t;
}
double Machine::tool_length() const { return impl_->st.machine.tool_length; }
void Machine::set_tool_length(double l) {
  finite(l, "tool length");
  impl_->st.machine.tool_length = l;
}
double Machine::epsilon() const { return impl_->st.eps; }
void Machine::set_epsilon(double eps) {
  if (!(eps > 0.0) || !std::isfinite(eps)) throw std::invalid_argument("epsilon: a finite number above 0");
  impl_->st.eps = eps;
}
void Machine::set_silent(bool silent) { impl_->st.silent = silent ? 1 : 0; }

bool Machine::has_axis(int id) const { return record_index_by_id(impl_->st, id) >= 0; }
int Machine::axis_type(int id) const {
  id_in_range(id, -2, 6, "axis id");
  return k5x::axis_type(impl_->st, id);
}
std::string Machine::axis_name(int id) const {
  id_in_range(id, -2, 6, "axis id");
  const char* n = k5x::axis_name(impl_->st, id);
  return n != nullptr ? n : "";
}
Vec3 Machine::axis_direction(int id) const {
  id_in_range(id, -2, 6, "axis id");
  const double* d = k5x::axis_direction(impl_->st, id);
  return d != nullptr ? vec(d) : Vec3{0.0, 0.0, 0.0};
}
Vec3 Machine::axis_point(int id) const {
  id_in_range(id, -2, 6, "axis id");
  const double* p = k5x::axis_point(impl_->st, id);
  return p != nullptr ? vec(p) : Vec3{0.0, 0.0, 0.0};
}
int Machine::axis_law(int id) const {
  id_in_range(id, -2, 6, "axis id");
  return k5x::axis_law(impl_->st, id);
}
int Machine::axis_sense(int id) const {
  id_in_range(id, -2, 6, "axis id");
  return k5x::axis_sense(impl_->st, id);
}
int Machine::axis_parent(int id) const {
  id_in_range(id, -2, 6, "axis id");
  return k5x::axis_parent(impl_->st, id);
}
bool Machine::axis_locked(int id) const {
  id_in_range(id, -2, 6, "axis id");
  return k5x::axis_locked(impl_->st, id) == 1;
}
void Machine::set_axis_locked(int id, bool locked) {
  id_in_range(id, -2, 6, "axis id");
  k5x::set_axis_locked(impl_->st, id, locked ? 1 : 0);
}
bool Machine::tool_axis_is_cam_sense() { return read_machine_facts(impl_->st).cam_sense; }

namespace {

struct Keep : PositionSink {
  std::vector<PlannedPosition>* out;
  void position(const PlannedPosition& p) override { out->push_back(p); }
};

}  // namespace

Post Machine::post(const std::vector<ProgrammedMove>& moves, const PlanOptions& options) {
  for (const ProgrammedMove& m : moves) {
    finite(m.point, 3, "move point");
    finite(m.axis, 3, "move axis");
  }
  Post result;
  Keep keep;
  keep.out = &result.positions;
  std::size_t i = 0;
  result.stats = post(
      [&](ProgrammedMove* m) {
        if (i == moves.size()) return false;
        *m = moves[i++];
        return true;
      },
      options, &keep);
  return result;
}

PlanStats Machine::post(const std::function<bool(ProgrammedMove*)>& next_move,
                        const PlanOptions& options, PositionSink* sink) {
  // Trace lines of the solvers would go to standard output in the middle of the caller's run.
  const char silent = impl_->st.silent;
  impl_->st.silent = 1;
  Planner planner(impl_->st, options, sink);
  ProgrammedMove m;
  while (next_move(&m)) {
    finite(m.point, 3, "move point");
    finite(m.axis, 3, "move axis");
    planner.push(m);
  }
  planner.finish();
  impl_->st.silent = silent;
  return planner.stats();
}

}  // namespace k5x
