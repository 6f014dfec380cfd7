// k5x xyz (machine axes for a tool point) and k5x move (a subdivided move).
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/cli_common.h"
#include "cli/commands.h"
#include "geometry/load.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"

namespace k5x_cli {

namespace {

const char kXyzHelp[] =
    "usage: k5x xyz [MACHINE] --point X Y Z --abc A B C\n"
    "\n"
    "Computes the linear machine axes X, Y, Z that put the tool tip on the point X Y Z\n"
    "(workpiece coordinates) with the rotary axes at A B C (degrees), and tests the whole\n"
    "position against the travel limits.\n"
    "\n"
    "  --tool-length L   tool length (default: the machine's)\n"
    "\n"
    "Exit status: 0 computed (in travel or not), 1 the machine cannot be loaded, 2 bad\n"
    "arguments.\n";

const char kMoveHelp[] =
    "usage: k5x move [MACHINE] --from X Y Z A B C --to X Y Z A B C [--steps N]\n"
    "\n"
    "Subdivides the machine move from one position to the other so that the tool stays\n"
    "within the machine's tolerance, and prints the intermediate positions (the first one\n"
    "step past the start, the last one the end), each with its travel code.\n"
    "\n"
    "  --steps N         the least number of steps (default 1); at most 500 are made\n"
    "  --rtcp R          0 linear axes move linearly; 1 the tool tip follows the move in\n"
    "                    workpiece coordinates; 2 tool-side compensation only (default:\n"
    "                    the machine's)\n"
    "  --tolerance T     the tolerance the steps keep (default: the machine's)\n"
    "  --tool-length L   tool length (default: the machine's)\n"
    "\n"
    "Result codes: 0 every position within travel; 7 more than 500 steps were needed (the\n"
    "move was cut into 500); 8 out of memory; otherwise the travel code of the first\n"
    "position out of travel (+-1..+-6 one axis above/below, 9 several).\n"
    "\n"
    "Exit status: 0 computed, 1 the machine cannot be loaded or no memory, 2 bad arguments.\n";

struct CommonArgs {
  std::string machine_arg;
  bool has_tool_length = false, has_rtcp = false, has_tolerance = false;
  double tool_length = 0.0, tolerance = 0.0;
  int rtcp = 1;
};

// Parses the options that xyz and move share; returns -1 when argv[*i] is not one of them,
// else 0 (taken) or 2 (error).
int common_option(const char* cmd, int argc, char** argv, int* i, CommonArgs* c) {
  const char* a = argv[*i];
  if (std::strcmp(a, "--tool-length") == 0) {
    if (!take_numbers(cmd, argc, argv, i, 1, &c->tool_length)) return 2;
    c->has_tool_length = true;
    return 0;
  }
  if (std::strcmp(a, "--rtcp") == 0) {
    if (!take_int(cmd, argc, argv, i, &c->rtcp)) return 2;
    if (c->rtcp < 0 || c->rtcp > 2) return usage_error(cmd, "--rtcp must be 0, 1 or 2");
    c->has_rtcp = true;
    return 0;
  }
  if (std::strcmp(a, "--tolerance") == 0) {
    if (!take_numbers(cmd, argc, argv, i, 1, &c->tolerance)) return 2;
    if (!(c->tolerance > 0.0)) return usage_error(cmd, "--tolerance must be above 0");
    c->has_tolerance = true;
    return 0;
  }
  return take_machine(cmd, argc, argv, i, &c->machine_arg);
}

bool load_and_apply(const CommonArgs& c, k5x::Machine* machine) {
  if (!load_or_report(c.machine_arg, machine)) return false;
  k5x::State& st = state_of(*machine);
  st.silent = 1;
  if (c.has_tool_length) st.machine.tool_length = c.tool_length;
  if (c.has_rtcp) k5x::set_rtcp(st, c.rtcp);
  if (c.has_tolerance) st.machine.tolerance = c.tolerance;
  return true;
}

void print_position_row(const char* label, const double* p, int code, const int flags[6]) {
  std::printf("%-6s %12.6f %12.6f %12.6f %11.6f %11.6f %11.6f  %2d  %s\n", label, clean(p[0]),
              clean(p[1]), clean(p[2]), clean(p[3]), clean(p[4]), clean(p[5]), code,
              code == 0 ? "ok" : ("out-of-travel " + travel_flags_text(flags)).c_str());
}

}  // namespace

int cmd_xyz(int argc, char** argv) {
  static const char kCmd[] = "xyz";
  if (wants_help(argc, argv)) {
    std::fputs(kXyzHelp, stdout);
    return 0;
  }
  CommonArgs c;
  double point[3] = {0, 0, 0}, abc[3] = {0, 0, 0};
  bool have_point = false, have_abc = false;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--point") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 3, point)) return 2;
      have_point = true;
    } else if (std::strcmp(argv[i], "--abc") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 3, abc)) return 2;
      have_abc = true;
    } else {
      const int r = common_option(kCmd, argc, argv, &i, &c);
      if (r != 0) return r;
    }
  }
  if (!have_point) return usage_error(kCmd, "--point X Y Z is required");
  if (!have_abc) return usage_error(kCmd, "--abc A B C is required");
  k5x::Machine machine;
  if (!load_and_apply(c, &machine)) return 1;
  k5x::State& st = state_of(machine);

  double xyz[3] = {0.0, 0.0, 0.0};
  const int code = k5x::place_tip(st, point, abc, xyz);
  const double pos[6] = {xyz[0], xyz[1], xyz[2], abc[0], abc[1], abc[2]};
  int flags[6] = {0, 0, 0, 0, 0, 0};
  const int all = k5x::travel_test(st, pos, flags);
  const char* name = k5x::machine_name(st);
  std::printf("machine:  %s\n", name ? name : "(unnamed)");
  std::printf("point:    %.6f %.6f %.6f  (tool length %.6g)\n", point[0], point[1], point[2],
              st.machine.tool_length);
  std::printf("axes:     X %.6f  Y %.6f  Z %.6f  A %.6f  B %.6f  C %.6f\n", clean(pos[0]),
              clean(pos[1]), clean(pos[2]), clean(pos[3]), clean(pos[4]), clean(pos[5]));
  std::printf("travel:   %d (%s) for X, Y, Z; %d (%s) for the position\n", code,
              travel_code_text(code).c_str(), all, travel_code_text(all).c_str());
  return 0;
}

int cmd_move(int argc, char** argv) {
  static const char kCmd[] = "move";
  if (wants_help(argc, argv)) {
    std::fputs(kMoveHelp, stdout);
    return 0;
  }
  CommonArgs c;
  double from[6] = {0, 0, 0, 0, 0, 0}, to[6] = {0, 0, 0, 0, 0, 0};
  bool have_from = false, have_to = false;
  int steps = 1;
  for (int i = 0; i < argc; ++i) {
    if (std::strcmp(argv[i], "--from") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 6, from)) return 2;
      have_from = true;
    } else if (std::strcmp(argv[i], "--to") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 6, to)) return 2;
      have_to = true;
    } else if (std::strcmp(argv[i], "--steps") == 0) {
      if (!take_int(kCmd, argc, argv, &i, &steps)) return 2;
      if (steps < 1) return usage_error(kCmd, "--steps must be at least 1");
    } else {
      const int r = common_option(kCmd, argc, argv, &i, &c);
      if (r != 0) return r;
    }
  }
  if (!have_from) return usage_error(kCmd, "--from X Y Z A B C is required");
  if (!have_to) return usage_error(kCmd, "--to X Y Z A B C is required");
  k5x::Machine machine;
  if (!load_and_apply(c, &machine)) return 1;
  k5x::State& st = state_of(machine);

  int n = steps;
  double* table = nullptr;
  const int code = k5x::subdivide_move(st, from, to, &n, &table);
  const char* name = k5x::machine_name(st);
  std::printf("machine: %s, rtcp %d, tolerance %.6g\n", name ? name : "(unnamed)", st.machine.rtcp,
              st.machine.tolerance);
  std::printf("%-6s %12s %12s %12s %11s %11s %11s  %2s  %s\n", "step", "X", "Y", "Z", "A", "B",
              "C", "tc", "status");
  int flags[6] = {0, 0, 0, 0, 0, 0};
  print_position_row("start", from, k5x::travel_test(st, from, flags), flags);
  if (table != nullptr) {
    for (int k = 0; k < n; ++k) {
      const double* row = table + 6 * k;
      char label[16];
      std::snprintf(label, sizeof label, "%d", k + 1);
      print_position_row(label, row, k5x::travel_test(st, row, flags), flags);
    }
  }
  std::string meaning;
  if (code == 7)
    meaning = "more than 500 steps needed, cut to 500";
  else if (code == 8)
    meaning = "out of memory";
  else
    meaning = code == 0 ? "every position within travel" : "first: " + travel_code_text(code);
  std::printf("result: %d (%s), %d steps\n", code, meaning.c_str(), table ? n : 0);
  return code == 8 ? 1 : 0;
}

}  // namespace k5x_cli
