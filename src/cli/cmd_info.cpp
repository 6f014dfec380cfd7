// k5x info: the loaded machine in readable form, built from the axis queries.
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string>

#include "cli/cli_common.h"
#include "cli/commands.h"
#include "geometry/axis_queries.h"
#include "geometry/transforms.h"
#include "geometry/travel.h"
#include "machine/checksum.h"
#include "motion/increments.h"
#include "toolpath/text_io.h"

namespace k5x_cli {

namespace {


const char kInfoHelp[] =
    "usage: k5x info [MACHINE]\n"
    "\n"
    "Loads MACHINE (a machine definition file or the name of an embedded machine; the\n"
    "default embedded machine when omitted) and prints it: the machine name, the record\n"
    "tree from the frame down (kind, letter, name, motion factor, direction, point, colour,\n"
    "value law and direction flag of rotary axes, increment, links, collision flags), the\n"
    "travel limits, the settings and the checksums of modes 1 and 3.\n"
    "\n"
    "A record on the workpiece side of the frame moves the workpiece, not the tool: its\n"
    "motion factor is negated.\n"
    "\n"
    "Exit status: 0 loaded and printed, 1 the machine cannot be loaded, 2 bad arguments.\n";

// Identifiers -2..6 are the only names the query interface knows, so the tree is walked by
// identifier; a record that lost its letter slot to a later one cannot be reached and is
// reported by its parent's link name only.
struct TreePrinter {
  explicit TreePrinter(k5x::State& machine) : st(machine) {}
  k5x::State& st;
  bool shown[9] = {};
  bool workpiece_side[9] = {};

  static int slot(int id) { return id + 2; }

  // Marks the records on the path from the workpiece up to the frame.
  void mark_workpiece_side() {
    int id = -1;
    for (int guard = 0; guard < 9; ++guard) {
      const int parent = k5x::axis_parent(st, id);
      if (parent < -2 || parent > 6 || parent == 0) break;
      workpiece_side[slot(parent)] = true;
      id = parent;
    }
  }

  static void print_vec(const char* label, const double* v) {
    if (v == nullptr)
      std::printf("      %-10s -\n", label);
    else
      std::printf("      %-10s (%.6g, %.6g, %.6g)\n", label, v[0], v[1], v[2]);
  }

  void print_record(int id, int depth) {
    const std::string indent(2 * depth, ' ');
    const int kind = k5x::axis_type(st, id);
    if (kind == -100) {
      std::printf("%s- %s: missing\n", indent.c_str(), id_name(id));
      return;
    }
    if (shown[slot(id)]) {
      std::printf("%s- %s: shown above\n", indent.c_str(), id_name(id));
      return;
    }
    shown[slot(id)] = true;
    const char* name = k5x::axis_name(st, id);
    std::printf("%s- %s \"%s\": %s", indent.c_str(), id_name(id), k5x::printable(name).c_str(),
                kind_text(kind));
    if (kind == -3 || kind == -4) {
      // The factor turns an axis value into motion (degrees to radians for a rotary axis);
      // no query reads it, but it follows from the kind and the side.
      const double factor = (kind == -3 ? 3.141592653589793 / 180.0 : 1.0) *
                            (workpiece_side[slot(id)] ? -1.0 : 1.0);
      std::printf(" axis %s, %s side, factor %.9g", axis_letter(id),
                  workpiece_side[slot(id)] ? "workpiece" : "tool", factor);
    }
    std::printf("\n");
    const std::string pad = indent + "  ";
    const double* dir = k5x::axis_direction(st, id);
    const double* pt = k5x::axis_point(st, id);
    if (dir) std::printf("%s  direction (%.6g, %.6g, %.6g)\n", pad.c_str(), dir[0], dir[1], dir[2]);
    if (pt) std::printf("%s  point     (%.6g, %.6g, %.6g)\n", pad.c_str(), pt[0], pt[1], pt[2]);
    const int* color = k5x::axis_color(st, id);
    if (color && (kind == -3 || kind == -4))
      std::printf("%s  colour    %d %d %d\n", pad.c_str(), color[0], color[1], color[2]);
    if (kind == -3) {
      const double step = k5x::axis_increment(st, id);
      std::printf("%s  law %d, direction flag %d, ", pad.c_str(), k5x::axis_law(st, id),
                  k5x::axis_sense(st, id));
      if (step > st.eps)
        std::printf("indexed in %.6g-degree steps", step);
      else
        std::printf("continuous");
      std::printf("%s\n", k5x::axis_locked(st, id) ? ", locked" : "");
    }
    std::string coll;
    for (int j = -2; j <= 6; ++j)
      if (k5x::axis_collisions(st, id, j)) {
        if (!coll.empty()) coll += ", ";
        coll += id_name(j);
      }
    if (!coll.empty()) std::printf("%s  may collide with %s\n", pad.c_str(), coll.c_str());
    const int n = k5x::axis_link_count(st, id);
    for (int j = 0; j < n && j < 2; ++j) {
      const int child = k5x::axis_link_translation(st, id, j);
      if (child < -2 || child > 6) {
        const char* cname = k5x::axis_link_rotation(st, id, j);
        std::printf("%s  - link %d to \"%s\": not reachable by identifier\n", pad.c_str(), j,
                    k5x::printable(cname).c_str());
        continue;
      }
      print_record(child, depth + 1);
    }
  }
};

void print_travel(const k5x::State& st) {
  std::printf("travel:\n");
  for (int id = 1; id <= 6; ++id) {
    double lo = 0.0, hi = 0.0;
    const int kind = k5x::axis_travel(st, id, &lo, &hi);
    const bool present = machine_has_axis(st, id);
    std::printf("  %s%s ", axis_letter(id), present ? " " : "*");
    if (kind == 8) {
      std::printf("?\n");
      continue;
    }
    char buf_lo[64] = "unlimited", buf_hi[64] = "unlimited";
    if (kind == 0 || kind == 1) std::snprintf(buf_lo, sizeof buf_lo, "%.6g", lo);
    if (kind == 0 || kind == -1) std::snprintf(buf_hi, sizeof buf_hi, "%.6g", hi);
    std::printf("[%s .. %s]\n", buf_lo, buf_hi);
  }
  std::printf("  (* the machine has no such axis)\n");
}

void print_settings(k5x::State& st) {
  static const char* const kModes[] = {"largest rotary change", "first free axis change",
                                       "solver order"};
  static const char* const kRtcp[] = {"off", "full (tool and workpiece side)", "head only"};
  const int mode = st.machine.mode;
  const int rtcp = st.machine.rtcp;
  std::printf("settings:\n");
  std::printf("  mode                 %d (%s)\n", mode, mode >= 0 && mode <= 2 ? kModes[mode] : "?");
  std::printf("  rtcp                 %d (%s)\n", rtcp, rtcp >= 0 && rtcp <= 2 ? kRtcp[rtcp] : "?");
  std::printf("  tolerance            %.6g\n", st.machine.tolerance);
  std::printf("  travel tolerance     %.6g\n", st.machine.travel_tol);
  std::printf("  tool length          %.6g\n", st.machine.tool_length);
  std::printf("  epsilon              %.6g\n", st.eps);
  double steps[3] = {0.0, 0.0, 0.0};
  const int indexed = k5x::get_increment_machine(st, steps);
  std::printf("  increment behaviour  %d%s\n", k5x::get_increment_behaviour(st),
              indexed ? " (the machine has indexed rotary axes)" : "");
  std::printf("  increment tolerance  %.6g degrees\n", k5x::get_increment_tolerance(st));
  const double* init = st.machine.initial_position;
  if (init) std::printf("  initial position     %.6g %.6g %.6g\n", init[0], init[1], init[2]);
  double tc[6] = {0, 0, 0, 0, 0, 0};
  if (k5x::tool_change_position(st, tc))
    std::printf("  tool change point    %.6g %.6g %.6g %.6g %.6g %.6g\n", tc[0], tc[1], tc[2],
                tc[3], tc[4], tc[5]);
  else
    std::printf("  tool change point    none\n");
}

}  // namespace

int cmd_info(int argc, char** argv) {
  if (wants_help(argc, argv)) {
    std::fputs(kInfoHelp, stdout);
    return 0;
  }
  std::string machine_arg;
  for (int i = 0; i < argc; ++i) {
    if (take_machine("info", argc, argv, &i, &machine_arg) != 0) return 2;
  }
  k5x::Machine machine;
  if (!load_or_report(machine_arg, &machine)) return 1;
  k5x::State& st = state_of(machine);

  const char* name = k5x::machine_name(st);
  std::printf("machine: %s\n", name ? k5x::printable(name).c_str() : "(unnamed)");
  // How k5x post reads CAM tool axes on this machine (the solves this takes run on a copy).
  k5x::Machine probe = machine;
  probe.set_silent(true);
  std::printf("tool axis: %s\n", probe.tool_axis_is_cam_sense()
                                     ? "from the tip towards the spindle, as CAM systems write it"
                                     : "from the spindle towards the tip; k5x post turns CAM "
                                       "tool axes round");
  std::printf("records:\n");
  TreePrinter tree(st);
  tree.mark_workpiece_side();
  tree.print_record(0, 1);
  for (int id = -2; id <= 6; ++id)
    if (machine_has_axis(st, id) && !tree.shown[TreePrinter::slot(id)])
      std::printf("  - %s: not reached from the frame\n", id_name(id));
  print_travel(st);
  print_settings(st);
  uint32_t c1 = 0, c3 = 0;
  k5x::machine_checksum(st, 1, &c1);
  k5x::machine_checksum(st, 3, &c3);
  std::printf("checksums:\n  mode 1  %08x\n  mode 3  %08x\n", static_cast<unsigned>(c1),
              static_cast<unsigned>(c3));
  return 0;
}

}  // namespace k5x_cli
