// k5x solve: rotary angles for one tool direction.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/cli_common.h"
#include "cli/commands.h"
#include "geometry/axis_queries.h"
#include "geometry/load.h"
#include "geometry/travel.h"
#include "motion/increments.h"
#include "solutions/enumeration.h"
#include "solutions/three_rotary.h"

namespace k5x_cli {

namespace {

const char kSolveHelp[] =
    "usage: k5x solve [MACHINE] --ijk I J K [--prev A B C] [--mode 0|1|2] [--all] [--trace]\n"
    "\n"
    "Finds the rotary angles A, B, C (degrees) that put the tool along the direction I J K\n"
    "(workpiece coordinates, need not be unit length) and prints the chosen angles, the\n"
    "solver's result code with its meaning and both candidate solutions. I J K is in the\n"
    "machine file's sense ('k5x info' says which way it points the tool); 'k5x post'\n"
    "reads tool axes in the CAM sense, from the tip towards the spindle.\n"
    "\n"
    "  --prev A B C   previous rotary position (default 0 0 0); the solver prefers the\n"
    "                 candidate nearest to it\n"
    "  --mode M       how the nearer candidate is chosen: 0 largest change of the three\n"
    "                 rotary values, 1 change of the first free axis, 2 no comparison\n"
    "                 (default: the machine's setting). On a machine with three rotary\n"
    "                 axes the mode is handed to the three-rotary solver: 1 and 2 search\n"
    "                 in-travel solutions, 2 with a retry on open travel\n"
    "  --all          also list every in-travel solution of the direction with the rotary\n"
    "                 axes that are free for it (turning them leaves the direction alone)\n"
    "  --trace        show the three-rotary solver's trace lines\n"
    "\n"
    "Result codes: 0 solved within travel; 1 unreachable; +-4, +-5, +-6 the one rotary axis\n"
    "above (+) or below (-) its travel; 9 several axes out. Three-rotary solver: 1 in-travel\n"
    "solution, -1 none, else the travel code of the best out-of-travel solution.\n"
    "\n"
    "Exit status: 0 the direction was solved (whatever the result code), 1 the machine\n"
    "cannot be loaded, 2 bad arguments.\n";

void print_abc(const char* label, const double* abc) {
  if (abc == nullptr) {
    std::printf("%-12s -\n", label);
    return;
  }
  std::printf("%-12s A %11.6f  B %11.6f  C %11.6f\n", label, clean(abc[0]), clean(abc[1]),
              clean(abc[2]));
}

void print_all_solutions(k5x::State& st, const double ijk[3]) {
  int count = 0;
  double* sols = nullptr;
  int* flags = nullptr;
  const int n = k5x::all_solutions(st, ijk, &count, &sols, &flags);
  if (n == -2) {
    std::printf("all solutions: out of memory\n");
    return;
  }
  if (n == 0 || sols == nullptr) {
    std::printf("all solutions: none within travel\n");
    k5x::free_all_solutions(st);
    return;
  }
  const int shown = n < 0 ? count : n;
  std::printf("all solutions within travel: %d%s\n", shown,
              n < 0 ? " (more than the 5184 the library lists)" : "");
  for (int i = 0; i < shown; ++i) {
    const double* s = sols + 3 * i;
    const int f = flags ? flags[i] : 0;
    std::string free_axes;
    if (f & 1) free_axes += 'A';
    if (f & 2) free_axes += 'B';
    if (f & 4) free_axes += 'C';
    std::printf("  %4d  A %11.6f  B %11.6f  C %11.6f%s%s\n", i + 1, clean(s[0]), clean(s[1]),
                clean(s[2]),
                free_axes.empty() ? "" : "  free: ", free_axes.c_str());
  }
  k5x::free_all_solutions(st);
}

}  // namespace

int cmd_solve(int argc, char** argv) {
  static const char kCmd[] = "solve";
  if (wants_help(argc, argv)) {
    std::fputs(kSolveHelp, stdout);
    return 0;
  }
  std::string machine_arg;
  double ijk[3] = {0.0, 0.0, 0.0};
  double prev[3] = {0.0, 0.0, 0.0};
  bool have_ijk = false, all = false, trace = false;
  int mode = -1;
  for (int i = 0; i < argc; ++i) {
    const char* a = argv[i];
    if (std::strcmp(a, "--ijk") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 3, ijk)) return 2;
      have_ijk = true;
    } else if (std::strcmp(a, "--prev") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 3, prev)) return 2;
    } else if (std::strcmp(a, "--mode") == 0) {
      if (!take_int(kCmd, argc, argv, &i, &mode)) return 2;
      if (mode < 0 || mode > 2) return usage_error(kCmd, "--mode must be 0, 1 or 2");
    } else if (std::strcmp(a, "--all") == 0) {
      all = true;
    } else if (std::strcmp(a, "--trace") == 0) {
      trace = true;
    } else if (take_machine(kCmd, argc, argv, &i, &machine_arg) != 0) {
      return 2;
    }
  }
  if (!have_ijk) return usage_error(kCmd, "--ijk I J K is required");
  double len = std::sqrt(ijk[0] * ijk[0] + ijk[1] * ijk[1] + ijk[2] * ijk[2]);
  if (!std::isfinite(len)) {
    // The squares overflow (so would the library's normalisation): scale the direction down.
    const double big =
        std::fmax(std::fabs(ijk[0]), std::fmax(std::fabs(ijk[1]), std::fabs(ijk[2])));
    for (double& c : ijk) c /= big;
    len = std::sqrt(ijk[0] * ijk[0] + ijk[1] * ijk[1] + ijk[2] * ijk[2]);
  }
  if (len <= 1e-12)
    return usage_error(kCmd, "the direction I J K has zero length");
  k5x::Machine machine;
  if (!load_or_report(machine_arg, &machine)) return 1;
  k5x::State& st = state_of(machine);
  if (mode >= 0) k5x::set_mode(st, mode);
  st.silent = trace ? 0 : 1;

  const char* name = k5x::machine_name(st);
  std::printf("machine:    %s\n", name ? name : "(unnamed)");
  std::printf("direction:  I %.6f  J %.6f  K %.6f\n", ijk[0], ijk[1], ijk[2]);
  print_abc("previous:", prev);

  double out[3] = {prev[0], prev[1], prev[2]};
  if (machine_has_three_rotary(st)) {
    const int m = mode >= 0 ? mode : st.machine.mode;
    // The solver leaves lock flags and narrowed travel windows behind; --all lists the
    // solutions of the machine as loaded.
    int fixe[3];
    double lo[3], hi[3];
    for (int i = 0; i < 3; ++i) {
      fixe[i] = k5x::axis_locked(st, 4 + i);
      lo[i] = k5x::travel_minimum(st, 4 + i);
      hi[i] = k5x::travel_maximum(st, 4 + i);
    }
    std::fflush(stdout);  // the solver's trace lines go to the same stream
    const int r = k5x::solve_three_rotary(st, ijk, prev, out, m);
    std::fflush(stdout);
    for (int i = 0; i < 3; ++i) {
      k5x::set_axis_locked(st, 4 + i, fixe[i]);
      k5x::set_travel_minimum(st, 4 + i, lo[i]);
      k5x::set_travel_maximum(st, 4 + i, hi[i]);
    }
    std::printf("solver:     three rotary axes, mode %d\n", m);
    std::printf("result:     %d (%s)\n", r, solver3r_code_text(r).c_str());
    if (r == -1)
      std::printf("chosen:     none\n");
    else
      print_abc("chosen:", out);
  } else {
    const int r = k5x::solve_direction(st, ijk, prev, out);
    std::printf("solver:     two rotary axes, mode %d\n", st.machine.mode);
    std::printf("result:     %d (%s)\n", r, solver_code_text(r).c_str());
    print_abc("chosen:", out);
    print_abc("solution 1:", st.sol1);
    print_abc("solution 2:", st.sol2);
  }
  if (all) print_all_solutions(st, ijk);
  return 0;
}

}  // namespace k5x_cli
