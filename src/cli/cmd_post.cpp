// k5x post: a toolpath (tool tip points and tool directions in workpiece coordinates) into
// machine axis positions, as CSV.
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <vector>

#include "cli/cli_common.h"
#include "cli/commands.h"
#include "cli/embedded_machines.h"
#include "cli/pipeline.h"
#include "cli/svg_plot.h"
#include "geometry/axis_queries.h"
#include "geometry/travel.h"
#include "geometry/load.h"
#include "machine/machine_model.h"
#include "motion/increments.h"
#include "toolpath/apt_reader.h"
#include "toolpath/csv_writer.h"
#include "toolpath/gcode_writer.h"
#include "toolpath/planner.h"
#include "toolpath/text_io.h"

namespace k5x_cli {

namespace {

const char kCmd[] = "post";

const char kPostHelp[] =
    "usage: k5x post [--machine MACHINE] [TOOLPATH] [options]\n"
    "\n"
    "Turns a toolpath into machine axis positions. TOOLPATH is either a CAM tool-location\n"
    "file (APT / CLSF text: GOTO/, RAPID, FEDRAT/, MSYS/, CIRCLE/, LOADTL/, ...), or one move\n"
    "per line: the tool tip X Y Z and the tool axis I J K in workpiece coordinates,\n"
    "separated by blanks or commas ('#' lines and blank lines skipped). The format is told\n"
    "from the content. TOOLPATH '-' reads standard input; with no TOOLPATH an embedded demo\n"
    "toolpath runs (a spiral over a dome and two passes over its top, where the tool stands\n"
    "vertical).\n"
    "\n"
    "The tool axis is read as CAM systems write it, from the tip towards the spindle (+Z\n"
    "for a vertical tool), whatever sense the machine file uses ('k5x info' says which).\n"
    "For each move every solution of the rotary axes is found; one is chosen per move over\n"
    "the whole toolpath so that every move that can be within travel is, with the least\n"
    "rotary motion. The linear axes then put the tool tip on the point.\n"
    "\n"
    "options:\n"
    "  --machine MACHINE  machine definition file or embedded machine name (default: the\n"
    "                     default embedded machine)\n"
    "  -o FILE            write to FILE instead of standard output; FILE is only replaced\n"
    "                     when the whole run succeeds (FILE.nc, .ngc or .gcode: G-code)\n"
    "  --output csv|gcode what to write: CSV rows (default) or a G-code program\n"
    "  --input auto|xyz|apt\n"
    "                     the toolpath's format (default: told from the content; a pipe\n"
    "                     is copied aside for that, unless --input and, for APT, --units\n"
    "                     are given)\n"
    "  --units mm|inches  the unit of an APT file (default: its UNITS/ record, else inches\n"
    "                     when its feeds are in inches, else mm); lengths become mm\n"
    "  --choice path|nearest\n"
    "                     path (default): plan the solutions over the whole toolpath;\n"
    "                     nearest: solve each move from the previous one alone\n"
    "  --tool-axis cam|machine\n"
    "                     sense of I J K: cam (default) from the tip towards the spindle;\n"
    "                     machine: as the machine file's tool direction means it\n"
    "  --prev A B C       rotary angles before the first move (default 0 0 0)\n"
    "  --start auto       start from the first in-travel solution of the first direction,\n"
    "                     free of --prev (--start prev: from --prev, the default)\n"
    "  --mode M           rotary motion to keep least: 0 the largest change of any rotary\n"
    "                     axis, 1 the change of the first free axis, 2 as 0 (with --choice\n"
    "                     nearest: the solver's order); on three rotary axes 1 and 2 search\n"
    "                     in-travel solutions\n"
    "  --subdivide        insert positions between consecutive ones until, with all axes\n"
    "                     moving linearly, the tool tip stays within --tolerance of the\n"
    "                     programmed straight move and the tool axis within\n"
    "                     --angle-tolerance of the programmed change of axis (the default\n"
    "                     for G-code without --tcp)\n"
    "  --subdivide=formula\n"
    "                     insert the library's subdivision instead (rtcp and tolerance of\n"
    "                     the machine; see --rtcp)\n"
    "  --subdivide=none   one position per move (the default for CSV and with --tcp)\n"
    "  --tolerance T      tool tip tolerance of the subdivision (default: the machine's)\n"
    "  --angle-tolerance D\n"
    "                     tool axis tolerance in degrees (default 0.5); near the direction\n"
    "                     along the first rotary axis, a swing of that axis is spread over\n"
    "                     the neighbouring moves whose axis lies within D of it\n"
    "  --wrap none|modulo rotary axes without travel limits: none (default) keep turning\n"
    "                     the nearest way; modulo write them in [0, 360)\n"
    "  --rtcp R           tool-point compensation of --subdivide=formula: 0 off, 1 full,\n"
    "                     2 head only\n"
    "  --tool-length L    tool length (default: the machine file's), in the file's sense:\n"
    "                     the tip lies L back along the file's tool direction from the tool\n"
    "                     point (the spindle nose), so L is negative where the file points\n"
    "                     the tool from the spindle towards the tip ('k5x info' says which)\n"
    "  --tool-length T=L  tool T's own length, for the moves after the toolpath loads it\n"
    "                     (LOAD/TOOL,T or LOADTL/T); repeat it for each tool\n"
    "  --increment-tolerance D\n"
    "                     on indexed rotary axes, accept a position snapped onto the\n"
    "                     axes' steps when the tool direction moves by less than D\n"
    "                     degrees (default: the machine's, 0.005 unless its file or\n"
    "                     K5X_INCREMENTS_MAX_DEVIATION sets one); D <= 0 always snaps\n"
    "  --svg FILE         plot the six axes along the toolpath into FILE (SVG), with the\n"
    "                     travel limits and the failing moves marked\n"
    "  --skip-bad         report and skip malformed lines instead of stopping\n"
    "\n"
    "G-code (--output gcode):\n"
    "  --dialect NAME|FILE\n"
    "                     the codes: iso (default), rs274ngc, or a file of key = value\n"
    "                     lines (see share/dialects/)\n"
    "  --feed inverse-time|per-minute\n"
    "                     G93 with F = 1 / minutes of each move (default) or G94\n"
    "  --tcp              write the tool tip in workpiece coordinates and the rotary\n"
    "                     angles, with the controller's tool-centre-point mode on\n"
    "  --arcs on|off      on (default): a circular move of the toolpath (CIRCLE/) is a\n"
    "                     G2/G3 block where the rotary axes stand still and it goes round\n"
    "                     X, Y or Z in the written coordinates (G17, G18, G19), a helix\n"
    "                     too (of several turns: several blocks, each under a turn);\n"
    "                     elsewhere, and with off, its chords (within --tolerance)\n"
    "  --line-numbers     number the blocks\n"
    "  --decimals N, --angle-decimals N\n"
    "                     decimals of lengths (default 4) and of angles (default 3)\n"
    "  --retract-z Z      machine Z to retract to: before the first position; before a\n"
    "                     tool change (the next tool's first position is then reached\n"
    "                     as the first one is); before a rapid or an unwind turns the\n"
    "                     rotary axes more than the retract angle; at the end (default:\n"
    "                     the top of the Z travel, when the machine has one). A retracted\n"
    "                     rapid goes over its end point before it goes down\n"
    "  --retract-angle D  the rotary turn of a rapid above which it retracts (default 30)\n"
    "  --unwind-clearance D\n"
    "                     at an unwind, back the tool out D along its axis before the\n"
    "                     retract and come back in along it; a program that starts with a\n"
    "                     cut comes down to D above it at rapid (default 5)\n"
    "  --default-feed F   feed where the toolpath gives none (default 1000 per minute)\n"
    "\n"
    "  --threads N        2 or more: read and solve on one thread, plan and write on\n"
    "                     another (0: so when there are two cores or more; default 1: one\n"
    "                     thread); the output is the same byte for byte\n"
    "  --demo             run the embedded demo toolpath\n"
    "\n"
    "Output: a header, then one row per position:\n"
    "  line,X,Y,Z,A,B,C,solver,travel,status\n"
    "line is the move's source line; solver the solver's result for the chosen solution (two\n"
    "rotary axes: 0 in travel, 1 unreachable, else a travel code; three rotary axes: 1 in\n"
    "travel, -1 no solution, else a travel code); travel the position's travel code (0 in\n"
    "travel, +-k axis k = 1..6 above/below, 9 several); status 'ok', 'unwind' (in travel,\n"
    "but the travel limits force the rotary axes round in the cut: no straight motion\n"
    "keeps the tool on the part, so a G-code program retracts there), 'out-of-travel:'\n"
    "with the axes (B+ above, B- below) or 'unreachable' (the position fields are then\n"
    "empty).\n"
    "Rows inserted by --subdivide carry the line of the move they lead to and an empty\n"
    "solver field; the move's own row comes last. An unreachable or out-of-travel move\n"
    "never stops the run.\n"
    "\n"
    "A summary goes to standard error: moves read, positions written and inserted,\n"
    "unreachable moves, out-of-travel positions per axis, rotary swings over 45 degrees\n"
    "in cuts and the unwinds among them (the first ones with their lines), the range of\n"
    "each rotary axis, the largest deviation between positions (left by --subdivide, or\n"
    "measured in a G-code program with --subdivide=none or =formula and without --tcp;\n"
    "one beyond tolerance is warned of; sampled at up to seven points a move, on the\n"
    "positions before they are rounded), the elapsed time and the moves per second.\n"
    "\n"
    "Exit status: 0 done; 1 the machine, toolpath or output cannot be read or written;\n"
    "2 bad arguments, or a malformed line (reported as FILE:LINE: reason) without\n"
    "--skip-bad.\n";

// The temporary files being written, removed when the program is interrupted (SIGINT, SIGTERM,
// SIGHUP) so that no half-written file stays behind: a signal handler reaches them only through
// data of its own. Slots hold a path while their flag is set; the handler only unlinks.
constexpr int kPendingFiles = 2;
char pending_path[kPendingFiles][4096];
volatile std::sig_atomic_t pending_set[kPendingFiles];

void remove_pending_and_stop(int sig) {
  for (int i = 0; i < kPendingFiles; ++i)
    if (pending_set[i]) unlink(pending_path[i]);
  std::signal(sig, SIG_DFL);
  std::raise(sig);
}

// A slot for path, with the handlers in place; -1 when there is none (the file is then not
// removed on an interrupt, as before).
int hold_pending(const std::string& path) {
  static const bool installed = [] {
    for (int sig : {SIGINT, SIGTERM, SIGHUP}) {
      struct sigaction now;
      // A signal the caller ignores (nohup) stays ignored.
      if (sigaction(sig, nullptr, &now) != 0 || now.sa_handler == SIG_IGN) continue;
      struct sigaction action = {};
      action.sa_handler = remove_pending_and_stop;
      sigemptyset(&action.sa_mask);
      sigaction(sig, &action, nullptr);
    }
    return true;
  }();
  (void)installed;
  for (int i = 0; i < kPendingFiles; ++i) {
    if (pending_set[i] || path.size() >= sizeof pending_path[i]) continue;
    std::memcpy(pending_path[i], path.c_str(), path.size() + 1);
    std::atomic_signal_fence(std::memory_order_seq_cst);  // the path before its flag
    pending_set[i] = 1;
    return i;
  }
  return -1;
}

void release_pending(int slot) {
  if (slot >= 0) pending_set[slot] = 0;
}

// Writes go to a temporary file next to the target, renamed over it on success only. A target
// that exists and is not a regular file (a device, a pipe), or any name under /dev or /proc (such
// as /dev/stdout), is written directly; a symbolic link
// is followed so that the file it names is replaced, not the link.
class AtomicFile {
 public:
  ~AtomicFile() { discard(); }
  bool open(const std::string& path) {
    path_ = path;
    struct stat st;
    const bool special = path.compare(0, 5, "/dev/") == 0 || path.compare(0, 6, "/proc/") == 0;
    if (special || (stat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode))) {
      direct_ = true;
      f_ = std::fopen(path.c_str(), "wb");
      return f_ != nullptr;
    }
    if (lstat(path.c_str(), &st) == 0 && S_ISLNK(st.st_mode)) {
      if (char* real = realpath(path.c_str(), nullptr)) {
        path_ = real;
        std::free(real);
      }
    }
    tmp_ = path_ + ".k5x-XXXXXX";
    const int fd = mkstemp(&tmp_[0]);
    if (fd < 0) return false;
    // mkstemp creates the file private; give it the mode a plain fopen would.
    const mode_t mask = umask(0);
    umask(mask);
    if (fchmod(fd, 0666 & ~mask) != 0) {
      // Not fatal: the file stays private to its owner.
    }
    slot_ = hold_pending(tmp_);
    f_ = fdopen(fd, "wb");
    if (f_ == nullptr) {
      close(fd);
      remove_temporary();
      return false;
    }
    return true;
  }
  std::FILE* file() const { return f_; }
  bool commit() {
    if (f_ == nullptr) return false;
    const bool ok = std::fflush(f_) == 0 && std::ferror(f_) == 0;
    const bool closed = std::fclose(f_) == 0;
    f_ = nullptr;
    if (direct_) return ok && closed;
    const bool renamed = ok && closed && std::rename(tmp_.c_str(), path_.c_str()) == 0;
    if (!renamed) {
      remove_temporary();
      return false;
    }
    release_pending(slot_);
    slot_ = -1;
    return true;
  }
  void discard() {
    if (f_ == nullptr) return;
    std::fclose(f_);
    f_ = nullptr;
    if (!direct_) remove_temporary();
  }

 private:
  void remove_temporary() {
    unlink(tmp_.c_str());
    release_pending(slot_);
    slot_ = -1;
  }
  std::string path_, tmp_;
  std::FILE* f_ = nullptr;
  bool direct_ = false;
  int slot_ = -1;
};

struct PostArgs {
  std::string machine, input, output, svg;
  bool has_input = false, demo = false;
  double prev[3] = {0.0, 0.0, 0.0};
  bool start_auto = false;
  int mode = -1, rtcp = -1;
  bool has_tool_length = false, has_tolerance = false;
  double tool_length = 0.0, tolerance = 0.0;
  std::vector<k5x::PlanOptions::ToolLength> tool_lengths;  // --tool-length T=L
  bool has_increment_tolerance = false;
  double increment_tolerance = 0.0;
  bool skip_bad = false;
  k5x::Choice choice = k5x::Choice::path;
  k5x::Linearise linearise = k5x::Linearise::none;
  bool has_linearise = false;
  bool machine_axis = false, wrap_modulo = false;
  double angle_tolerance = 0.5;
  std::string input_format = "auto", output_format, dialect = "iso", command_line;
  k5x::AptUnits units = k5x::AptUnits::automatic;
  k5x::FeedMode feed = k5x::FeedMode::inverse_time;
  bool tcp = false, line_numbers = false, has_retract_z = false, arcs = true;
  int length_decimals = 4, angle_decimals = 3;
  double retract_z = 0.0, retract_angle = 30.0, default_feed = 1000.0, unwind_clearance = 5.0;
  int threads = 1;
  std::string gcode_only;  // the first option given that only a G-code program uses
};

bool ends_with(const std::string& s, const char* tail) {
  const std::size_t n = std::strlen(tail);
  return s.size() >= n && s.compare(s.size() - n, n, tail) == 0;
}

// Reads the value of an option that takes one of two words; *second says which it was. Returns 0,
// or the exit status of a usage error.
int take_either(int argc, char** argv, int* i, const char* first, const char* second_word,
                bool* second) {
  const std::string option = argv[*i];
  std::string v;
  if (!take_text(kCmd, argc, argv, i, &v)) return 2;
  if (v == first || v == second_word) {
    *second = v == second_word;
    return 0;
  }
  return usage_error(kCmd, (option + " takes '" + first + "' or '" + second_word + "'").c_str());
}

int parse_args(int argc, char** argv, PostArgs* a) {
  static const char* const kGcodeOnly[] = {
      "--feed",          "--dialect",     "--tcp",           "--line-numbers",
      "--decimals",      "--angle-decimals", "--retract-z",  "--retract-angle",
      "--default-feed",  "--unwind-clearance", "--arcs"};
  bool second = false;
  for (int i = 0; i < argc; ++i) {
    const char* s = argv[i];
    for (const char* g : kGcodeOnly)
      if (a->gcode_only.empty() && std::strcmp(s, g) == 0) a->gcode_only = g;
    if (std::strcmp(s, "--machine") == 0) {
      if (take_machine(kCmd, argc, argv, &i, &a->machine) != 0) return 2;
    } else if (std::strcmp(s, "-o") == 0) {
      if (!take_text(kCmd, argc, argv, &i, &a->output)) return 2;
      if (a->output.empty()) return usage_error(kCmd, "empty output file name");
    } else if (std::strcmp(s, "--output") == 0) {
      if (!take_text(kCmd, argc, argv, &i, &a->output_format)) return 2;
      if (a->output_format != "csv" && a->output_format != "gcode")
        return usage_error(kCmd, "--output takes 'csv' or 'gcode' (the file is -o FILE)");
    } else if (std::strcmp(s, "--input") == 0) {
      if (!take_text(kCmd, argc, argv, &i, &a->input_format)) return 2;
      if (a->input_format != "auto" && a->input_format != "xyz" && a->input_format != "apt")
        return usage_error(kCmd, "--input takes 'auto', 'xyz' or 'apt'");
    } else if (std::strcmp(s, "--units") == 0) {
      std::string v;
      if (!take_text(kCmd, argc, argv, &i, &v)) return 2;
      if (v == "mm")
        a->units = k5x::AptUnits::mm;
      else if (v == "inches" || v == "inch")
        a->units = k5x::AptUnits::inches;
      else
        return usage_error(kCmd, "--units takes 'mm' or 'inches'");
    } else if (std::strcmp(s, "--feed") == 0) {
      if (const int r = take_either(argc, argv, &i, "inverse-time", "per-minute", &second))
        return r;
      a->feed = second ? k5x::FeedMode::per_minute : k5x::FeedMode::inverse_time;
    } else if (std::strcmp(s, "--dialect") == 0) {
      if (!take_text(kCmd, argc, argv, &i, &a->dialect)) return 2;
      if (a->dialect.empty()) return usage_error(kCmd, "empty dialect");
      // A bare name is a shipped dialect or a file here; a mistyped one is a usage error.
      if (k5x::shipped_dialect(a->dialect) == nullptr &&
          a->dialect.find('/') == std::string::npos && access(a->dialect.c_str(), F_OK) != 0)
        return usage_error(kCmd, ("no dialect " + a->dialect +
                                  ": the shipped ones are iso and rs274ngc; else give a file")
                                     .c_str());
    } else if (std::strcmp(s, "--threads") == 0) {
      if (!take_int(kCmd, argc, argv, &i, &a->threads)) return 2;
      if (a->threads < 0 || a->threads > 256) return usage_error(kCmd, "--threads must be 0 to 256");
      if (a->threads == 0) a->threads = static_cast<int>(std::thread::hardware_concurrency());
    } else if (std::strcmp(s, "--arcs") == 0) {
      if (const int r = take_either(argc, argv, &i, "on", "off", &second)) return r;
      a->arcs = !second;
    } else if (std::strcmp(s, "--tcp") == 0) {
      a->tcp = true;
    } else if (std::strcmp(s, "--line-numbers") == 0) {
      a->line_numbers = true;
    } else if (std::strcmp(s, "--decimals") == 0 || std::strcmp(s, "--angle-decimals") == 0) {
      int d = 0;
      if (!take_int(kCmd, argc, argv, &i, &d)) return 2;
      if (d < 0 || d > 9) return usage_error(kCmd, "decimals must be 0 to 9");
      (s[2] == 'd' ? a->length_decimals : a->angle_decimals) = d;
    } else if (std::strcmp(s, "--retract-z") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->retract_z)) return 2;
      a->has_retract_z = true;
    } else if (std::strcmp(s, "--retract-angle") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->retract_angle)) return 2;
      if (!(a->retract_angle >= 0.0)) return usage_error(kCmd, "--retract-angle must be 0 or more");
    } else if (std::strcmp(s, "--unwind-clearance") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->unwind_clearance)) return 2;
      if (!(a->unwind_clearance > 0.0))
        return usage_error(kCmd, "--unwind-clearance must be above 0");
    } else if (std::strcmp(s, "--default-feed") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->default_feed)) return 2;
      if (!(a->default_feed > 0.0)) return usage_error(kCmd, "--default-feed must be above 0");
    } else if (std::strcmp(s, "--svg") == 0) {
      if (!take_text(kCmd, argc, argv, &i, &a->svg)) return 2;
      if (a->svg.empty()) return usage_error(kCmd, "empty SVG file name");
    } else if (std::strcmp(s, "--prev") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 3, a->prev)) return 2;
    } else if (std::strcmp(s, "--start") == 0) {
      if (const int r = take_either(argc, argv, &i, "prev", "auto", &a->start_auto)) return r;
    } else if (std::strcmp(s, "--mode") == 0) {
      if (!take_int(kCmd, argc, argv, &i, &a->mode)) return 2;
      if (a->mode < 0 || a->mode > 2) return usage_error(kCmd, "--mode must be 0, 1 or 2");
    } else if (std::strcmp(s, "--rtcp") == 0) {
      if (!take_int(kCmd, argc, argv, &i, &a->rtcp)) return 2;
      if (a->rtcp < 0 || a->rtcp > 2) return usage_error(kCmd, "--rtcp must be 0, 1 or 2");
    } else if (std::strcmp(s, "--tool-length") == 0) {
      const char* eq = i + 1 < argc ? std::strchr(argv[i + 1], '=') : nullptr;
      if (eq != nullptr) {
        // T=L: one tool's own length.
        const std::string tool(static_cast<const char*>(argv[i + 1]), eq);
        k5x::PlanOptions::ToolLength t{};
        if (!parse_int(tool.c_str(), &t.tool) || t.tool < 1 || !parse_double(eq + 1, &t.length))
          return usage_error(kCmd, ("--tool-length takes L or T=L (a tool number from 1, a "
                                    "length), not '" + std::string(argv[i + 1]) + "'").c_str());
        a->tool_lengths.push_back(t);
        ++i;
      } else {
        if (!take_numbers(kCmd, argc, argv, &i, 1, &a->tool_length)) return 2;
        a->has_tool_length = true;
      }
    } else if (std::strcmp(s, "--tolerance") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->tolerance)) return 2;
      if (!(a->tolerance > 0.0)) return usage_error(kCmd, "--tolerance must be above 0");
      a->has_tolerance = true;
    } else if (std::strcmp(s, "--increment-tolerance") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->increment_tolerance)) return 2;
      a->has_increment_tolerance = true;
    } else if (std::strcmp(s, "--subdivide") == 0 ||
               std::strcmp(s, "--subdivide=tolerance") == 0) {
      a->linearise = k5x::Linearise::tolerance;
      a->has_linearise = true;
    } else if (std::strcmp(s, "--subdivide=formula") == 0) {
      a->linearise = k5x::Linearise::formula;
      a->has_linearise = true;
    } else if (std::strcmp(s, "--subdivide=none") == 0) {
      a->linearise = k5x::Linearise::none;
      a->has_linearise = true;
    } else if (std::strcmp(s, "--angle-tolerance") == 0) {
      if (!take_numbers(kCmd, argc, argv, &i, 1, &a->angle_tolerance)) return 2;
      if (!(a->angle_tolerance > 0.0)) return usage_error(kCmd, "--angle-tolerance must be above 0");
    } else if (std::strcmp(s, "--choice") == 0) {
      if (const int r = take_either(argc, argv, &i, "path", "nearest", &second)) return r;
      a->choice = second ? k5x::Choice::nearest : k5x::Choice::path;
    } else if (std::strcmp(s, "--tool-axis") == 0) {
      if (const int r = take_either(argc, argv, &i, "cam", "machine", &a->machine_axis)) return r;
    } else if (std::strcmp(s, "--wrap") == 0) {
      if (const int r = take_either(argc, argv, &i, "none", "modulo", &a->wrap_modulo)) return r;
    } else if (std::strcmp(s, "--skip-bad") == 0) {
      a->skip_bad = true;
    } else if (std::strcmp(s, "--demo") == 0) {
      a->demo = true;
    } else if (s[0] == '-' && s[1] != '\0') {
      return usage_error(kCmd, (std::string("unknown option ") + s).c_str());
    } else if (a->has_input) {
      return usage_error(kCmd, "more than one toolpath given");
    } else {
      a->input = s;
      a->has_input = true;
    }
  }
  if (a->demo && a->has_input) return usage_error(kCmd, "--demo takes no toolpath");
  if (a->output_format.empty())
    a->output_format = ends_with(a->output, ".nc") || ends_with(a->output, ".ngc") ||
                               ends_with(a->output, ".gcode")
                           ? "gcode"
                           : "csv";
  // A controller without tool-centre-point control moves its axes linearly from block to block:
  // its program keeps the tool within tolerance unless asked otherwise.
  if (!a->has_linearise && a->output_format == "gcode" && !a->tcp)
    a->linearise = k5x::Linearise::tolerance;
  for (int i = 0; i < argc; ++i) a->command_line += std::string(i ? " " : "") + argv[i];
  return 0;
}

// A spiral over a dome, then two straight passes over its top: the first exactly through the
// direction of the tool at rest (where the first rotary axis is undetermined and must swing),
// the second just beside it. Directions are tilted from the tool's rest direction, so the demo
// suits any machine whose tool can tilt some 60 degrees.
// rest_axis is the tool axis at rest in CAM sense (from the tip towards the spindle).
std::string demo_toolpath(const double rest_axis[3]) {
  double t0[3] = {0.0, 0.0, -1.0};
  {
    const double* d = rest_axis;
    const double len = std::sqrt(d[0] * d[0] + d[1] * d[1] + d[2] * d[2]);
    if (len > 1e-9)
      for (int k = 0; k < 3; ++k) t0[k] = -d[k] / len;
  }
  // e1, e2: a right-handed pair perpendicular to t0.
  double ref[3] = {1.0, 0.0, 0.0};
  if (std::fabs(t0[0]) > 0.9) ref[0] = 0.0, ref[1] = 1.0;
  double e1[3] = {ref[1] * t0[2] - ref[2] * t0[1], ref[2] * t0[0] - ref[0] * t0[2],
                  ref[0] * t0[1] - ref[1] * t0[0]};
  const double l1 = std::sqrt(e1[0] * e1[0] + e1[1] * e1[1] + e1[2] * e1[2]);
  for (double& c : e1) c /= l1;
  const double e2[3] = {t0[1] * e1[2] - t0[2] * e1[1], t0[2] * e1[0] - t0[0] * e1[2],
                        t0[0] * e1[1] - t0[1] * e1[0]};
  const double radius = 40.0, deg = 3.141592653589793 / 180.0;
  std::string text =
      "# k5x demo toolpath: X Y Z I J K (tool tip; tool axis towards the spindle; workpiece\n"
      "# coordinates)\n"
      "# a spiral over a dome of radius 40, tilting the tool up to 60 degrees\n";
  char line[160];
  // n is the dome's outward normal; the tool axis, tip to spindle, is n.
  auto emit = [&](double theta, double phi) {
    double n[3];
    for (int k = 0; k < 3; ++k)
      n[k] = -std::cos(theta) * t0[k] +
             std::sin(theta) * (std::cos(phi) * e1[k] + std::sin(phi) * e2[k]);
    std::snprintf(line, sizeof line, "%.4f %.4f %.4f %.6f %.6f %.6f\n", radius * n[0],
                  radius * n[1], radius * n[2], n[0], n[1], n[2]);
    text += line;
  };
  const int spiral = 240;
  for (int i = 0; i < spiral; ++i) {
    const double s = static_cast<double>(i) / (spiral - 1);
    emit(60.0 * deg * s, 3.0 * 360.0 * deg * s);
  }
  // From the side where the spiral ends: the move between them stays on that side of the dome,
  // not straight through it.
  text += "# straight across the top, through the vertical\n";
  for (int j = 20; j >= -20; --j) {
    const double x = 1.5 * j;
    emit(std::asin(std::fabs(x) / radius), x < 0 ? 180.0 * deg : 0.0);
  }
  text += "# straight across the top again, 0.5 beside the vertical\n";
  for (int j = -20; j <= 20; ++j) {
    const double x = 1.5 * j, y = 0.5;
    const double r = std::sqrt(x * x + y * y);
    emit(std::asin(r / radius), std::atan2(y, x));
  }
  return text;
}

void fill_plot_axes(const k5x::State& st, PlotAxes* axes) {
  for (int k = 0; k < 6; ++k) {
    axes->present[k] = k5x::record_index_by_id(st, k + 1) >= 0;
    double lo = 0.0, hi = 0.0;
    const int kind = k5x::axis_travel(st, k + 1, &lo, &hi);
    axes->has_min[k] = kind == 0 || kind == 1;
    axes->has_max[k] = kind == 0 || kind == -1;
    axes->min[k] = lo;
    axes->max[k] = hi;
  }
}

// Hands each position to the writer and, when asked, to the plot.
class ProgramSink : public k5x::PositionSink {
 public:
  ProgramSink(k5x::PositionSink* csv, SvgPlot* plot, const k5x::State& st)
      : csv_(csv), plot_(plot), st_(st), indexed_(k5x::get_increment_machine(st, nullptr) != 0) {}
  // Positions where an indexed axis is off its steps.
  long off_steps() const { return off_steps_; }
  void position(const k5x::PlannedPosition& p) override {
    csv_->position(p);
    // A programmed move the solver could not snap within the increment tolerance: an indexed
    // axis cannot go there. (Positions inserted between two moves lie between their steps.)
    if (indexed_ && p.reachable && !p.inserted && !k5x::on_steps(st_, p.axes + 3)) ++off_steps_;
    if (plot_ == nullptr) return;
    if (p.reachable)
      plot_->add_position(p.axes, p.travel_code != 0);
    else
      plot_->add_unreachable();
  }

 private:
  k5x::PositionSink* csv_;
  SvgPlot* plot_;
  const k5x::State& st_;
  bool indexed_;
  long off_steps_ = 0;
};

void print_summary(const char* machine, const char* source, const k5x::Planner& planner,
                   const k5x::State& st, long bad, long off_steps, double seconds) {
  const k5x::PlanStats& s = planner.stats();
  std::fprintf(stderr, "k5x post: machine %s, toolpath %s\n", machine, source);
  std::fprintf(stderr, "  tool axis                    %s\n",
               planner.flips_axis() ? "CAM sense, turned round for this machine"
                                    : "as read");
  std::fprintf(stderr, "  moves read                   %ld\n", s.moves);
  std::fprintf(stderr, "  positions written            %ld", s.positions);
  if (s.inserted > 0) std::fprintf(stderr, " (%ld inserted)", s.inserted);
  std::fprintf(stderr, "\n");
  if (bad > 0) std::fprintf(stderr, "  malformed lines skipped      %ld\n", bad);
  std::fprintf(stderr, "  unreachable moves            %ld\n", s.unreachable);
  std::fprintf(stderr, "  out-of-travel positions      %ld", s.out_of_travel);
  if (s.out_of_travel > 0) {
    std::fprintf(stderr, " (");
    bool first = true;
    for (int k = 0; k < 6; ++k) {
      if (s.axis_out[k] == 0) continue;
      std::fprintf(stderr, "%s%s %ld", first ? "" : ", ", axis_letter(k + 1), s.axis_out[k]);
      first = false;
    }
    std::fprintf(stderr, ")");
  }
  std::fprintf(stderr, "\n");
  if (s.max_jump_axis != 0)
    std::fprintf(stderr, "  largest rotary jump          %.6f degrees (%s, line %ld%s)\n",
                 s.max_jump, axis_letter(s.max_jump_axis), s.max_jump_line,
                 s.max_jump_rapid ? ", a rapid" : "");
  else
    std::fprintf(stderr, "  largest rotary jump          0 degrees\n");
  std::fprintf(stderr, "  swings over %.0f in cuts       %ld\n", k5x::kSwingDegrees, s.swings);
  for (const k5x::Swing& w : s.first_swings)
    std::fprintf(stderr, "    line %ld: %s turns %.3f degrees\n", w.line, axis_letter(w.axis),
                 w.degrees);
  if (s.swings > static_cast<long>(s.first_swings.size()))
    std::fprintf(stderr, "    ...\n");
  if (s.unwinds > 0) {
    std::fprintf(stderr, "  unwinds forced in cuts       %ld\n", s.unwinds);
    for (const k5x::Swing& w : s.first_unwinds)
      std::fprintf(stderr, "    line %ld: %s turns %.3f degrees\n", w.line, axis_letter(w.axis),
                   w.degrees);
    if (s.unwinds > static_cast<long>(s.first_unwinds.size())) std::fprintf(stderr, "    ...\n");
  }
  if (s.singular_spread > 0)
    std::fprintf(stderr, "  swings spread near vertical  %ld\n", s.singular_spread);
  for (int i = 0; i < 3; ++i)
    if (s.has_range[i])
      std::fprintf(stderr, "  %s range                      %.6f .. %.6f degrees\n",
                   axis_letter(4 + i), s.range_min[i], s.range_max[i]);
  {
    // Rounding leaves some 1e-15 where the tool keeps to the move: that is none.
    std::string parts;
    char part[96];
    if (s.max_tip_deviation > 1e-9) {
      std::snprintf(part, sizeof part, "%.6g mm (tip, line %ld)", s.max_tip_deviation,
                    s.max_tip_line);
      parts = part;
    }
    if (s.max_axis_deviation > 1e-9) {
      std::snprintf(part, sizeof part, "%.6g degrees (axis, line %ld)", s.max_axis_deviation,
                    s.max_axis_line);
      parts += (parts.empty() ? "" : ", ") + std::string(part);
    }
    // Left by the subdivision, or measured on a program that has none.
    const bool left = planner.options().linearise == k5x::Linearise::tolerance;
    if (!parts.empty())
      std::fprintf(stderr, "  %-29s%s\n", left ? "largest deviation left" : "largest deviation",
                   parts.c_str());
  }
  std::fprintf(stderr, "  largest increment deviation  %.6g degrees\n",
               k5x::largest_increment_deviation(st));
  if (off_steps > 0) std::fprintf(stderr, "  off the indexed steps        %ld\n", off_steps);
  if (s.clamped > 0)
    std::fprintf(stderr, "  subdivisions cut at 500      %ld\n", s.clamped);
  if (s.subdivide_failed > 0)
    std::fprintf(stderr, "  subdivisions without memory  %ld\n", s.subdivide_failed);
  std::fprintf(stderr, "  elapsed                      %.3f s, %.0f moves/s\n", seconds,
               seconds > 0.0 ? static_cast<double>(s.moves) / seconds : 0.0);
}

// Whether the stream can go back to where it is: a regular file can, a pipe or terminal not.
bool rereadable(std::FILE* f) {
  struct stat info;
  return fstat(fileno(f), &info) == 0 && S_ISREG(info.st_mode);
}

// The rest of `from`, copied into a temporary file (in $TMPDIR, else /tmp; gone once closed)
// and read from its start. Null when it could not be, with errno set and *reading telling
// whether reading `from` or writing the copy failed.
std::FILE* spool(std::FILE* from, bool* reading) {
  *reading = false;
  const char* dir = std::getenv("TMPDIR");
  std::string name = std::string(dir != nullptr && *dir != '\0' ? dir : "/tmp") + "/k5x-XXXXXX";
  const int fd = mkstemp(&name[0]);
  if (fd < 0) return nullptr;
  unlink(name.c_str());
  std::FILE* to = fdopen(fd, "w+b");
  if (to == nullptr) {
    const int e = errno;
    close(fd);
    errno = e;
    return nullptr;
  }
  char chunk[1 << 16];
  bool ok = true;
  for (std::size_t n; ok && (n = std::fread(chunk, 1, sizeof chunk, from)) > 0;)
    ok = std::fwrite(chunk, 1, n, to) == n;
  if (ok && std::ferror(from)) {
    *reading = true;
    ok = false;
  }
  ok = ok && std::fflush(to) == 0 && std::fseek(to, 0, SEEK_SET) == 0;
  if (!ok) {
    const int e = errno;
    std::fclose(to);
    errno = e;
    return nullptr;
  }
  return to;
}

// Whether an open regular file and a named file are the same file (a device such as /dev/null
// may be read and written at once).
bool same_file(std::FILE* f, const std::string& path) {
  struct stat a, b;
  return fstat(fileno(f), &a) == 0 && S_ISREG(a.st_mode) && stat(path.c_str(), &b) == 0 &&
         a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

int run_post(const PostArgs& a) {
  // The input first: a missing toolpath is reported before anything is loaded or written.
  std::string demo_text;
  bool demo = a.demo || !a.has_input;
  std::FILE* in = nullptr;
  bool close_in = false;
  std::string source;
  if (!demo && a.input != "-") {
    in = std::fopen(a.input.c_str(), "rb");
    if (in == nullptr) {
      std::fprintf(stderr, "k5x post: cannot open %s: %s\n", a.input.c_str(),
                   std::strerror(errno));
      return 1;
    }
    close_in = true;
    source = a.input;
  } else if (!demo) {
    in = stdin;
    source = "<stdin>";
  }
  struct Closer {
    std::FILE* f;
    bool own;
    ~Closer() {
      if (own && f) std::fclose(f);
    }
  } closer{in, close_in};
  if (!demo) {
    // Written over only when the run succeeds, but then the toolpath would be gone.
    for (const std::string* named : {&a.output, &a.svg})
      if (!named->empty() && same_file(in, *named)) {
        std::fprintf(stderr, "k5x post: %s is the toolpath itself; write elsewhere\n",
                     named->c_str());
        return 2;
      }
    // The format and the APT unit are told by reading ahead and going back: a stream that
    // cannot go back (a pipe, a terminal) is copied aside first.
    const bool told_from_content =
        a.input_format == "auto" || (a.input_format == "apt" && a.units == k5x::AptUnits::automatic);
    if (told_from_content && !rereadable(in)) {
      bool reading = false;
      std::FILE* copy = spool(in, &reading);
      if (copy == nullptr) {
        std::fprintf(stderr,
                     reading ? "k5x post: cannot read %s: %s\n"
                             : "k5x post: cannot copy %s aside to tell its format: %s (give "
                               "--input, and --units for APT)\n",
                     source.c_str(), std::strerror(errno));
        return 1;
      }
      if (closer.own) std::fclose(in);
      in = closer.f = copy;
      closer.own = true;
    }
  }

  k5x::Machine machine;
  if (!load_or_report(a.machine, &machine)) return 1;
  k5x::State& st = state_of(machine);
  st.silent = 1;  // trace lines would mix with the CSV
  if (a.mode >= 0) k5x::set_mode(st, a.mode);
  if (a.rtcp >= 0) k5x::set_rtcp(st, a.rtcp);
  // A length of the wrong sign puts the tip behind the tool point, and turns round which way
  // the tool is taken to point: said, as the positions are then for a tool turned round.
  const bool file_sense = k5x::read_machine_facts(st).cam_sense;
  auto check_sense = [&](const std::string& option, double length) {
    const double loaded = st.machine.tool_length;
    st.machine.tool_length = length;
    if (k5x::read_machine_facts(st).cam_sense != file_sense)
      std::fprintf(stderr,
                   "k5x post: warning: --tool-length %s puts the tool tip on the spindle's side: "
                   "this machine's file points the tool from the %s, and the tip lies the length "
                   "back along that direction, so its lengths are %s\n",
                   option.c_str(),
                   file_sense ? "tip towards the spindle" : "spindle towards the tip",
                   file_sense ? "positive" : "negative");
    st.machine.tool_length = loaded;
  };
  char shown[64];
  for (const k5x::PlanOptions::ToolLength& l : a.tool_lengths) {
    std::snprintf(shown, sizeof shown, "%d=%g", l.tool, l.length);
    check_sense(shown, l.length);
  }
  if (a.has_tool_length) {
    std::snprintf(shown, sizeof shown, "%g", a.tool_length);
    check_sense(shown, a.tool_length);
    st.machine.tool_length = a.tool_length;
  }
  if (a.has_tolerance) st.machine.tolerance = a.tolerance;
  // Snapping only runs on a machine whose file switched increments on (behaviour above 0).
  if (a.has_increment_tolerance && k5x::get_increment_behaviour(st) > 0) {
    if (a.increment_tolerance > 0.0)
      k5x::set_increment_behaviour(st, 1, a.increment_tolerance);
    else
      k5x::set_increment_behaviour(st, 2, -1.0);
  }
  k5x::reset_increment_deviation(st);

  k5x::PlanOptions options;
  options.choice = a.choice;
  options.cam_axis = !a.machine_axis;
  options.linearise = a.linearise;
  options.tolerance = st.machine.tolerance;
  options.angle_tolerance = a.angle_tolerance;
  options.wrap_modulo = a.wrap_modulo;
  options.unwind_clearance = a.unwind_clearance;
  for (int k = 0; k < 3; ++k) options.start[k] = a.prev[k];
  options.start_auto = a.start_auto;
  options.mode = st.machine.mode;
  options.mode3r = a.mode >= 0 ? a.mode : st.machine.mode;
  options.tool_lengths = a.tool_lengths;

  if (demo) {
    const k5x::MachineFacts facts = k5x::read_machine_facts(st);
    double rest[3] = {0.0, 0.0, 1.0};
    if (const double* d = k5x::axis_direction(st, k5x::kIdTool))
      for (int k = 0; k < 3; ++k) rest[k] = facts.cam_sense ? d[k] : -d[k];
    demo_text = demo_toolpath(rest);
    in = fmemopen(&demo_text[0], demo_text.size(), "r");
    if (in == nullptr) {
      std::fprintf(stderr, "k5x post: cannot open the demo toolpath: %s\n", std::strerror(errno));
      return 1;
    }
    closer.f = in;
    closer.own = true;
    source = "<demo>";
    if (!a.demo)
      std::fprintf(stderr,
                   "k5x post: no toolpath given: running the embedded demo toolpath ('k5x post "
                   "--help' for more)\n");
  }

  AtomicFile out_file, svg_file;
  std::FILE* out = stdout;
  if (!a.output.empty()) {
    if (!out_file.open(a.output)) {
      std::fprintf(stderr, "k5x post: cannot write %s: %s\n", a.output.c_str(),
                   std::strerror(errno));
      return 1;
    }
    out = out_file.file();
  }
  if (!a.svg.empty() && !svg_file.open(a.svg)) {
    std::fprintf(stderr, "k5x post: cannot write %s: %s\n", a.svg.c_str(), std::strerror(errno));
    return 1;
  }

  // The toolpath's format: APT / CLSF records, or lines of six numbers.
  bool apt = a.input_format == "apt" && !demo;  // the demo is lines of X Y Z I J K
  if (a.input_format == "auto" && !demo) {
    std::vector<char> head(65536);
    const long start = std::ftell(in);
    const std::size_t got = std::fread(head.data(), 1, head.size(), in);
    apt = k5x::looks_like_apt(head.data(), got);
    std::fseek(in, start, SEEK_SET);
  }
  k5x::AptOptions apt_options;
  apt_options.units = a.units;
  apt_options.chord_tolerance = options.tolerance;
  if (apt && a.units == k5x::AptUnits::automatic) apt_options.units = k5x::scan_apt_units(in);

  k5x::OutBuffer buffer(out);
  std::unique_ptr<SvgPlot> plot(a.svg.empty() ? nullptr : new SvgPlot());
  k5x::CsvWriter csv(&buffer);
  std::unique_ptr<k5x::GcodeWriter> gcode;
  const bool to_gcode = a.output_format == "gcode";
  if (!to_gcode && !a.gcode_only.empty())
    std::fprintf(stderr,
                 "k5x post: warning: %s applies to G-code output only; this run writes CSV "
                 "(--output gcode, or -o FILE.nc)\n",
                 a.gcode_only.c_str());
  const char* machine_name = k5x::machine_name(st);
  if (to_gcode) {
    k5x::Dialect dialect;
    std::string text, error;
    if (const char* shipped = k5x::shipped_dialect(a.dialect)) {
      text = shipped;
    } else {
      std::FILE* f = std::fopen(a.dialect.c_str(), "rb");
      if (f == nullptr) {
        std::fprintf(stderr, "k5x post: cannot open dialect %s: %s\n", a.dialect.c_str(),
                     std::strerror(errno));
        return 1;
      }
      char chunk[4096];
      for (std::size_t n; (n = std::fread(chunk, 1, sizeof chunk, f)) > 0;) text.append(chunk, n);
      std::fclose(f);
    }
    if (!k5x::parse_dialect(text, &dialect, &error)) {
      std::fprintf(stderr, "%s:%s\n", a.dialect.c_str(), error.c_str());
      return 2;
    }
    const k5x::MachineFacts facts = k5x::read_machine_facts(st);
    k5x::GcodeOptions g;
    g.feed = a.feed;
    g.tcp = a.tcp;
    g.line_numbers = a.line_numbers;
    g.arcs = a.arcs;
    g.length_decimals = a.length_decimals;
    g.angle_decimals = a.angle_decimals;
    g.retract_degrees = a.retract_angle;
    g.default_feed = a.default_feed;
    g.approach_clearance = a.unwind_clearance;
    for (int k = 0; k < 6; ++k) g.has_axis[k] = facts.has_axis[k];
    // Without --retract-z, the top of the Z travel, when the machine has one.
    g.retract = a.has_retract_z || st.machine.travel_max[2] < 1e6;
    g.retract_z = a.has_retract_z ? a.retract_z : st.machine.travel_max[2];
    char date[64] = "";
    const std::time_t now = std::time(nullptr);
    if (const std::tm* t = std::localtime(&now)) std::strftime(date, sizeof date, "%Y-%m-%d %H:%M:%S", t);
    g.header = std::string("k5x post, machine ") + (machine_name ? machine_name : "(unnamed)") +
               "\ntoolpath " + source + "\ndate " + date + "\nk5x post " + a.command_line;
    gcode.reset(new k5x::GcodeWriter(&buffer, dialect, g));
  }
  ProgramSink sink(to_gcode ? static_cast<k5x::PositionSink*>(gcode.get()) : &csv, plot.get(),
                   st);
  // A program for a controller that moves the axes linearly: how far the tool leaves each cut
  // between positions is what its user needs to know.
  options.measure_deviation = gcode && !a.tcp && a.linearise != k5x::Linearise::tolerance;
  k5x::Planner planner(st, options, &sink);
  if (gcode)
    gcode->begin();
  else
    csv.write_header();

  const bool progress = isatty(2) != 0;
  const auto t0 = std::chrono::steady_clock::now();
  auto last_progress = t0;
  long bad = 0;
  auto report_progress = [&]() {
    if (!progress || (planner.stats().moves & 4095) != 0) return;
    const auto now = std::chrono::steady_clock::now();
    if (now - last_progress > std::chrono::milliseconds(250)) {
      last_progress = now;
      const double secs = std::chrono::duration<double>(now - t0).count();
      std::fprintf(stderr, "\rk5x post: %ld moves, %.0f moves/s ", planner.stats().moves,
                   secs > 0 ? planner.stats().moves / secs : 0.0);
    }
  };
  // A malformed line or record: reported, then skipped with --skip-bad, else the end (status 2).
  auto malformed = [&](long line, const char* reason) {
    if (!a.skip_bad) {
      std::fprintf(stderr, "%s:%ld: %s\n", source.c_str(), line, reason);
      return false;
    }
    // Every one is reported, once: a user must be able to find each line that was not posted.
    ++bad;
    std::fprintf(stderr, "%s:%ld: %s (skipped)\n", source.c_str(), line, reason);
    return true;
  };

  std::unique_ptr<ToolpathSource> toolpath;
  const AptToolpath* apt_toolpath = nullptr;
  if (apt) {
    auto t = std::make_unique<AptToolpath>(in, apt_options);
    apt_toolpath = t.get();
    toolpath = std::move(t);
  } else {
    toolpath = std::make_unique<PlainToolpath>(in, st.eps);
  }
  // The tool each move is for, as the toolpath loads them, and every tool it loads but 0.
  int tool = 0;
  std::vector<int> tools;
  // One item: -1 go on, else the exit status. A move comes with its solutions when the
  // reading thread gathered them.
  auto take = [&](const ReadItem& p, const std::string& reason, const k5x::AptEvent& event,
                  const k5x::Candidates* gathered, const k5x::Gatherer* gatherer) {
    switch (p.kind) {
      case ReadItem::move: {
        k5x::ProgrammedMove m = p.m;
        m.tool = tool;
        if (gathered)
          planner.push_gathered(m, *gathered, gatherer->start_found());
        else
          planner.push(m);
        report_progress();
        return -1;
      }
      case ReadItem::event:
        if (event.kind == k5x::AptEvent::tool_load) {
          tool = event.tool;
          // Tool 0 (an empty spindle) has no length of its own to give.
          if (tool != 0 && std::find(tools.begin(), tools.end(), tool) == tools.end())
            tools.push_back(tool);
        }
        if (gcode) gcode->event(event);
        return -1;
      case ReadItem::malformed:
        return malformed(p.m.line, reason.c_str()) ? -1 : 2;
      case ReadItem::read_error:
        break;
    }
    std::fprintf(stderr, "k5x post: cannot read %s: %s\n", source.c_str(),
                 std::strerror(toolpath->error()));
    return 1;
  };
  if (a.threads >= 2) {
    // Reading, parsing and solving each move on a thread of their own, with a copy of the
    // machine; the planner's choice needs only the solutions. Planning and writing stay here:
    // on two cores the two sides take about as long.
    k5x::Machine solving = machine;
    k5x::State& solving_st = state_of(solving);
    k5x::Gatherer gatherer(solving_st, options);
    k5x::Candidates cand;
    int status = -1;
    {
      InputThread input(toolpath.get(), &gatherer);
      ItemBatch batch;
      while (status < 0 && input.next(&batch)) {
        for (const ReadItem& p : batch) {
          if (p.kind == ReadItem::move) batch.unpack(p, &cand);
          const std::size_t at = static_cast<std::size_t>(p.first);
          status = take(p, p.kind == ReadItem::malformed ? batch.reasons[at] : toolpath->reason(),
                        p.kind == ReadItem::event ? batch.events[at] : toolpath->event(), &cand,
                        &gatherer);
          if (status >= 0) break;
        }
        input.recycle(std::move(batch));
      }
      if (status < 0 && input.out_of_memory()) throw std::bad_alloc();
    }
    // Snapping onto indexed steps happened on that copy.
    st.machine.deviation_max =
        std::fmax(st.machine.deviation_max, solving_st.machine.deviation_max);
    if (status >= 0) return status;
  } else {
    ReadItem p;
    while (toolpath->next(&p))
      if (const int status =
              take(p, toolpath->reason(), toolpath->event(), nullptr, nullptr);
          status >= 0)
        return status;
  }
  planner.finish();
  if (gcode) gcode->end();
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
  if (progress && last_progress != t0) std::fprintf(stderr, "\r%60s\r", "");

  if (!buffer.flush()) {
    std::fprintf(stderr, "k5x post: cannot write %s: %s\n",
                 a.output.empty() ? "standard output" : a.output.c_str(), std::strerror(errno));
    return 1;
  }
  if (a.output.empty()) {
    if (std::fflush(stdout) != 0) {
      std::fprintf(stderr, "k5x post: cannot write standard output: %s\n", std::strerror(errno));
      return 1;
    }
  } else if (!out_file.commit()) {
    std::fprintf(stderr, "k5x post: cannot write %s: %s\n", a.output.c_str(),
                 std::strerror(errno));
    return 1;
  }
  const std::string shown_name = k5x::printable(machine_name);
  const char* name = machine_name ? shown_name.c_str() : nullptr;
  if (plot) {
    PlotAxes axes;
    fill_plot_axes(st, &axes);
    std::string title = std::string("k5x post: ") + (name ? name : "machine") + ", " + source;
    if (!plot->write(svg_file.file(), title.c_str(), axes) || !svg_file.commit()) {
      std::fprintf(stderr, "k5x post: cannot write %s: %s\n", a.svg.c_str(), std::strerror(errno));
      return 1;
    }
  }
  if (a.start_auto && !planner.stats().start_found)
    std::fprintf(stderr,
                 "k5x post: no in-travel solution for the first direction; started from "
                 "--prev\n");
  print_summary(name ? name : "(unnamed)", source.c_str(), planner, st, bad, sink.off_steps(),
                seconds);
  if (apt_toolpath) {
    const k5x::AptReader& apt_reader = apt_toolpath->reader();
    std::fprintf(stderr, "  APT moves                    %ld (%s)\n", apt_reader.moves(),
                 apt_reader.inches() ? "inches, converted to mm" : "mm");
    if (!apt_reader.unknown().empty()) {
      std::fprintf(stderr, "  records not acted on        ");
      for (const auto& u : apt_reader.unknown())
        std::fprintf(stderr, " %s %ld", u.first.c_str(), u.second);
      std::fprintf(stderr, "\n");
    }
  }
  if (gcode) {
    std::fprintf(stderr, "  G-code blocks                %ld", gcode->blocks());
    if (gcode->arcs() > 0) std::fprintf(stderr, " (%ld arcs)", gcode->arcs());
    std::fprintf(stderr, "\n");
  }
  // Most often the wrong file: say so rather than write an empty program quietly.
  if (planner.stats().moves == 0)
    std::fprintf(stderr, "k5x post: warning: no moves in %s (read as %s)\n", source.c_str(),
                 apt ? "APT / CLSF records" : "lines of X Y Z I J K");
  if (sink.off_steps() > 0)
    std::fprintf(stderr,
                 "k5x post: warning: positions off the indexed axes' steps: %ld (snapping them "
                 "would turn the tool axis more than %g degrees; --increment-tolerance, 0 "
                 "always snaps)\n",
                 sink.off_steps(), k5x::get_increment_tolerance(st));
  const k5x::PlanStats& s = planner.stats();
  // A subdivision cuts a move in a bounded number of pieces, and a move whose direction turns
  // round has no direction half way: either may leave a move beyond tolerance.
  const bool subdivided = options.linearise == k5x::Linearise::tolerance;
  if (options.measure_deviation || subdivided) {
    // Only what is beyond its tolerance is named.
    std::string beyond;
    char part[160];
    if (s.max_tip_deviation > options.tolerance) {
      std::snprintf(part, sizeof part,
                    "the tip by up to %.6g mm (toolpath line %ld; tolerance %g)",
                    s.max_tip_deviation, s.max_tip_line, options.tolerance);
      beyond = part;
    }
    if (s.max_axis_deviation > options.angle_tolerance) {
      std::snprintf(part, sizeof part,
                    "the axis by up to %.6g degrees (toolpath line %ld; tolerance %g)",
                    s.max_axis_deviation, s.max_axis_line, options.angle_tolerance);
      beyond += (beyond.empty() ? "" : ", ") + std::string(part);
    }
    if (!beyond.empty() && subdivided)
      std::fprintf(stderr,
                   "k5x post: warning: the subdivision could not keep the tool within tolerance "
                   "on every move: it leaves the programmed moves, %s: shorter moves in the "
                   "toolpath, or --tcp for a controller with tool-centre-point control\n",
                   beyond.c_str());
    else if (!beyond.empty())
      std::fprintf(stderr,
                   "k5x post: warning: with the axes moving linearly between positions (as "
                   "computed, before rounding to the decimals written) the tool leaves the "
                   "programmed moves, %s: --subdivide (the default for G-code) keeps it within "
                   "tolerance, or --tcp for a controller with tool-centre-point control\n",
                   beyond.c_str());
  }
  if (gcode && apt && planner.stats().moves > 0 && !gcode->spindle_started())
    std::fprintf(stderr,
                 "k5x post: warning: the toolpath starts no spindle (no SPINDL/ record): the "
                 "program has no M3 or M4\n");
  if (gcode && gcode->options().tcp && tools.empty() && planner.stats().moves > 0)
    std::fprintf(stderr,
                 "k5x post: warning: the toolpath loads no tool, so tool-centre-point control is "
                 "switched on with the length offset of tool 0\n");
  if (gcode && gcode->options().tcp && a.has_retract_z)
    std::fprintf(stderr,
                 "k5x post: warning: --retract-z is not used with --tcp: under tool-centre-point "
                 "control the tool is not retracted\n");
  // Without tool-centre-point control each tool's positions are for its own length.
  std::string unmeasured;
  int unmeasured_count = 0;
  for (const int t : tools)
    if (std::none_of(a.tool_lengths.begin(), a.tool_lengths.end(),
                     [&](const k5x::PlanOptions::ToolLength& l) { return l.tool == t; })) {
      unmeasured += (unmeasured.empty() ? "" : ", ") + std::to_string(t);
      ++unmeasured_count;
    }
  if (!(gcode && gcode->options().tcp) && tools.size() > 1 && !unmeasured.empty())
    std::fprintf(stderr,
                 "k5x post: warning: the toolpath loads %zu tools and the positions of %s %s "
                 "are for one tool length, %g (the machine file's, or --tool-length L): give each "
                 "tool its own with --tool-length T=L, or use --tcp\n",
                 tools.size(), unmeasured_count == 1 ? "tool" : "tools", unmeasured.c_str(),
                 st.machine.tool_length);
  for (std::size_t i = 0; i < a.tool_lengths.size(); ++i) {
    const k5x::PlanOptions::ToolLength& l = a.tool_lengths[i];
    // Given twice, the last one holds: said once.
    const bool again =
        std::any_of(a.tool_lengths.begin() + static_cast<std::ptrdiff_t>(i) + 1,
                    a.tool_lengths.end(),
                    [&](const k5x::PlanOptions::ToolLength& o) { return o.tool == l.tool; });
    if (!again && std::find(tools.begin(), tools.end(), l.tool) == tools.end())
      std::fprintf(stderr,
                   "k5x post: warning: --tool-length %d=%g: the toolpath loads no tool %d\n",
                   l.tool, l.length, l.tool);
  }
  if (gcode && gcode->unretracted_swings() > 0)
    std::fprintf(stderr,
                 "k5x post: warning: rapids that swing the rotary axes more than %g degrees with "
                 "no height to retract to (the machine has no Z limit): %ld; --retract-z "
                 "retracts the tool first\n",
                 gcode->options().retract_degrees, gcode->unretracted_swings());
  if (gcode && planner.stats().unwinds > 0 && gcode->options().tcp)
    std::fprintf(stderr,
                 "k5x post: warning: with --tcp the unwinds turn the rotary axes with the tool in "
                 "the cut\n");
  else if (gcode && planner.stats().unwinds > 0 && !gcode->options().retract)
    std::fprintf(stderr,
                 "k5x post: warning: the machine has no Z limit to retract to and --retract-z is "
                 "not given: the unwinds turn the rotary axes with the tool in the cut\n");
  return 0;
}

}  // namespace

int cmd_post(int argc, char** argv) {
  if (wants_help(argc, argv)) {
    std::fputs(kPostHelp, stdout);
    return 0;
  }
  PostArgs a;
  const int r = parse_args(argc, argv, &a);
  if (r != 0) return r;
  try {
    return run_post(a);
  } catch (const std::bad_alloc&) {
    std::fprintf(stderr, "k5x post: out of memory\n");
    return 1;
  }
}

}  // namespace k5x_cli
