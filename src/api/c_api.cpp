// The exported k5x_ functions: each binds the one process-wide State and forwards to the
// internal function. Calls that may allocate are guarded so that no exception leaves the library.
#include "k5x.h"

#include "api/context.h"
#include "api/global_state.h"
#include "cpp/machine_impl.h"
#include "geometry/axis_queries.h"
#include "geometry/chain.h"
#include "geometry/solver.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "machine/checksum.h"
#include "geometry/load.h"
#include "motion/increments.h"
#include "motion/interpolation.h"
#include "solutions/three_rotary.h"
#include "solutions/enumeration.h"

namespace k5x {

// The one process-wide machine of the C functions: the only global of the library.
State& global_state() {
  static Machine machine;
  return machine.impl().st;
}

}  // namespace k5x

namespace {

using k5x::global_state;

// Runs f and turns any exception into the caller's documented failure code.
template <typename R, typename F>
R guarded(R failure, F&& f) noexcept {
  try {
    return f();
  } catch (...) {
    return failure;
  }
}

}  // namespace

extern "C" {

// ---- loading and freeing, checksum ----
int k5x_machine_def(const char* path) {
  return guarded(1, [&] { return k5x::machine_def(global_state(), path); });
}
void k5x_machine_free(void) { k5x::release_tables(global_state()); }
const char* k5x_name_machine(void) { return k5x::machine_name(global_state()); }
int k5x_machine_checksum(int mode, uint32_t* checksum) {
  return k5x::machine_checksum(global_state(), mode, checksum);
}

// ---- chain evaluation and matrices ----
void k5x_machine_eval(const double q[6]) { k5x::evaluate_chain(global_state(), q); }
int k5x_axe_mat(int a, int b, double H[16]) { return k5x::axis_matrix(global_state(), a, b, H); }
void k5x_ex_get_axis_matrix(const double v[3], double H[16]) { k5x::frame_along(v, H); }

// ---- orientation solver and value laws ----
int k5x_ijk2abc(const double ijk[3], const double prev[3], double out[3]) {
  return k5x::solve_direction(global_state(), ijk, prev, out);
}
double* k5x_abc_sol1(void) { return global_state().sol1; }
double* k5x_abc_sol2(void) { return global_state().sol2; }
double k5x_axe_val(int axis, double from, double to, int* sign) {
  return k5x::law_value(global_state(), axis, from, to, sign);
}
void k5x_abc2abc_loi(const double from[3], const double to[3], double out[3]) {
  k5x::apply_laws(global_state(), from, to, out);
}

// ---- point and frame transforms ----
int k5x_xyz2pts(const double xyz[3], const double abc[3], double out[3]) {
  return k5x::tip_at(global_state(), xyz, abc, out);
}
int k5x_xyz2ijk(const double xyz[3], const double abc[3], double out[3]) {
  return k5x::tool_axis_at(global_state(), xyz, abc, out);
}
int k5x_pts2xyz(const double p[3], const double abc[3], double xyz[3]) {
  return k5x::place_tip(global_state(), p, abc, xyz);
}
int k5x_m2l(const double m[6], double l[6]) { return k5x::machine_to_programmed(global_state(), m, l); }
int k5x_l2m(const double l[6], double m[6]) { return k5x::programmed_to_machine(global_state(), l, m); }
int k5x_machine2tool(const double m[6], double out[6]) {
  return k5x::machine_to_tool(global_state(), m, out);
}
int k5x_xyzabc(const double s[6], const double e[6], int* n, double** table) {
  return guarded(8, [&] { return k5x::subdivide_move(global_state(), s, e, n, table); });
}
int k5x_set_piece(const double T[16]) { return k5x::place_workpiece(global_state(), T); }
int k5x_toolchanger_position(double out[6]) {
  return k5x::tool_change_position(global_state(), out);
}
double* k5x_initial_position(void) { return global_state().machine.initial_position; }

// ---- travel limits ----
int k5x_testcoursesXYZ(const double xyz[3], int flags[3]) {
  return k5x::travel_test_xyz(global_state(), xyz, flags);
}
int k5x_testcoursesABC(const double abc[3], int flags[3]) {
  return k5x::travel_test_abc(global_state(), abc, flags);
}
int k5x_testcoursesXYZABC(const double v[6], int flags[6]) {
  return k5x::travel_test(global_state(), v, flags);
}
int k5x_axe_course(int axis, double* min, double* max) {
  return k5x::axis_travel(global_state(), axis, min, max);
}
double k5x_axe_course_minimum(int axis) { return k5x::travel_minimum(global_state(), axis); }
double k5x_axe_course_maximum(int axis) { return k5x::travel_maximum(global_state(), axis); }
double k5x_axe_set_course_minimum(int axis, double v) {
  return k5x::set_travel_minimum(global_state(), axis, v);
}
double k5x_axe_set_course_maximum(int axis, double v) {
  return k5x::set_travel_maximum(global_state(), axis, v);
}

// ---- axis queries ----
int k5x_axe_type(int id) { return k5x::axis_type(global_state(), id); }
int k5x_axe_typeex(int id) { return k5x::axis_type_ex(global_state(), id); }
const char* k5x_axe_nom(int id) { return k5x::axis_name(global_state(), id); }
double* k5x_axe_axe(int id) { return k5x::axis_direction(global_state(), id); }
double* k5x_axe_point(int id) { return k5x::axis_point(global_state(), id); }
int* k5x_axe_color(int id) { return k5x::axis_color(global_state(), id); }
int k5x_axe_loi(int id) { return k5x::axis_law(global_state(), id); }
int k5x_axe_sens(int id) { return k5x::axis_sense(global_state(), id); }
int k5x_axe_nlien(int id) { return k5x::axis_link_count(global_state(), id); }
int k5x_axe_ilien(int id, int j) { return k5x::axis_link(global_state(), id, j); }
int k5x_axe_tlien(int id, int j) { return k5x::axis_link_translation(global_state(), id, j); }
const char* k5x_axe_slien(int id, int j) { return k5x::axis_link_rotation(global_state(), id, j); }
int k5x_axe_previous(int id) { return k5x::axis_parent(global_state(), id); }
int k5x_axe_fixe_get(int id) { return k5x::axis_locked(global_state(), id); }
int k5x_axe_fixe_set(int id, int flag) { return k5x::set_axis_locked(global_state(), id, flag); }
int k5x_axe_collision(int id, int j) { return k5x::axis_collisions(global_state(), id, j); }
int k5x_axe_outil(double v[3]) { return k5x::tool_record(global_state(), v); }

// ---- rotary increments ----
double k5x_get_axe_increment(int id) { return k5x::axis_increment(global_state(), id); }
void k5x_set_axe_increment(int id, double step) {
  k5x::set_axis_increment(global_state(), id, step);
}
int k5x_get_increment_behaviour(void) { return k5x::get_increment_behaviour(global_state()); }
void k5x_set_increment_behaviour(int behaviour, double tolerance) {
  k5x::set_increment_behaviour(global_state(), behaviour, tolerance);
}
double k5x_get_increment_tolerance(void) { return k5x::get_increment_tolerance(global_state()); }
int k5x_get_increment_machine(double steps[3]) {
  return k5x::get_increment_machine(global_state(), steps);
}
double k5x_increment_compute(const double in[3], const double dir[3], double out[3]) {
  return k5x::snap_to_increments(global_state(), in, dir, out);
}
double k5x_increment_deviation_getmax(void) {
  return k5x::largest_increment_deviation(global_state());
}
void k5x_increment_deviation_reset(void) { k5x::reset_increment_deviation(global_state()); }

// ---- interpolation ----
int k5x_interpolation(const double p0[6], const double p1[6], double t, double out[6]) {
  return k5x::interpolation(global_state(), p0, p1, t, out);
}
int k5x_interpolationtable(const double p0[6], const double p1[6], int* n, double** table) {
  return guarded(8, [&] { return k5x::interpolation_table(global_state(), p0, p1, n, table); });
}

// ---- three-rotary solver, solution enumeration ----
int k5x_ex_getabc_3r(const double dir[3], const double prev[3], double out[3], int mode) {
  return guarded(-1, [&] { return k5x::solve_three_rotary(global_state(), dir, prev, out, mode); });
}
int k5x_ex_getallabchcpossible(const double dir[3], int* count, double** solutions,
                               int** flags) {
  return guarded(-2, [&] {
    return k5x::all_solutions(global_state(), dir, count, solutions, flags);
  });
}
void k5x_ex_abchcpossible_free(void) { k5x::free_all_solutions(global_state()); }
int k5x_ex_getinit_ijk_2_abc_not_hc(const double dir[3], double abc[3]) {
  return guarded(0, [&] { return k5x::first_in_travel_solution(global_state(), dir, abc); });
}

// ---- settings: plain fields of the state; only mode and rtcp are validated ----
void k5x_set_mode(int mode) { k5x::set_mode(global_state(), mode); }
int k5x_get_mode(void) { return global_state().machine.mode; }
void k5x_set_rtcp(int rtcp) { k5x::set_rtcp(global_state(), rtcp); }
int k5x_get_rtcp(void) { return global_state().machine.rtcp; }
void k5x_set_tol(double tol) { global_state().machine.tolerance = tol; }
double k5x_get_tol(void) { return global_state().machine.tolerance; }
void k5x_set_tol_course(double tol) { global_state().machine.travel_tol = tol; }
double k5x_get_tol_course(void) { return global_state().machine.travel_tol; }
void k5x_set_outil(double length) { global_state().machine.tool_length = length; }
double k5x_get_outil(void) { return global_state().machine.tool_length; }
double k5x_util_eps(void) { return global_state().eps; }
void k5x_util_eps_set(double eps) { global_state().eps = eps; }
void k5x_setsilentmode(char silent) { global_state().silent = silent; }

// ---- context ----
int k5x_ctx_setContext(const char* context, const char* machine, const char* machineData,
                       const char* position, const double origin[3]) {
  return guarded(1, [&] {
    return k5x::ctx_set(global_state(), context, machine, machineData, position, origin);
  });
}
int k5x_ctx_initContext(void) { return guarded(1, [&] { return k5x::ctx_init(global_state()); }); }
int k5x_ctx_getContext(char** out) { return k5x::ctx_get_context(global_state(), out); }
int k5x_ctx_getMachine(char** out) { return k5x::ctx_get_machine(global_state(), out); }
int k5x_ctx_getMachineData(char** out) { return k5x::ctx_get_machine_data(global_state(), out); }
int k5x_ctx_getPosition(char** out) { return k5x::ctx_get_position(global_state(), out); }
int k5x_ctx_getOrigin(double out[3]) { return k5x::ctx_get_origin(global_state(), out); }
void k5x_ctx_free(char** p) { k5x::ctx_free(p); }

}  // extern "C"
