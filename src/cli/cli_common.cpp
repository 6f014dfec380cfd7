#include "cli/cli_common.h"

#include <sys/stat.h>

#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cli/embedded_machines.h"
#include "geometry/axis_queries.h"

namespace k5x_cli {

bool load_or_report(const std::string& machine_arg, k5x::Machine* machine) {
  int count = 0;
  const EmbeddedMachine* embedded =
      machine_arg.empty() ? embedded_machines(&count) : find_embedded_machine(machine_arg);
  const std::string label =
      embedded != nullptr ? std::string("embedded machine ") + embedded->name : machine_arg;
  int code = 0;
  long line = 0;
  int line_code = 0;
  try {
    *machine = embedded != nullptr ? k5x::Machine::from_text(embedded->text)
                                   : k5x::Machine::from_file(machine_arg);
  } catch (const k5x::LoadError& e) {
    code = e.code();
    line = e.line();
    line_code = e.line_code();
  }
  if (code == 0) return true;
  if (line > 0) {
    std::fprintf(stderr, "%s:%ld: code %d (%s)", label.c_str(), line, line_code,
                 k5x::load_code_meaning(line_code));
    if (code != line_code)
      std::fprintf(stderr, "; reading stopped there, so the load fails with code %d (%s)", code,
                   k5x::load_code_meaning(code));
    std::fprintf(stderr, "\n");
    return false;
  }
  // The library opens a directory without complaint and then finds no frame in it.
  struct stat st;
  const bool dir = !machine_arg.empty() && stat(machine_arg.c_str(), &st) == 0 &&
                   S_ISDIR(st.st_mode) && label == machine_arg;
  // A name that is no file, without a path or an extension, was most likely meant as an
  // embedded machine.
  const bool missing = embedded == nullptr && stat(machine_arg.c_str(), &st) != 0;
  const bool bare = machine_arg.find_first_of("/.") == std::string::npos;
  std::fprintf(stderr, "k5x: cannot load %s: code %d (%s)%s\n", label.c_str(), code,
               k5x::load_code_meaning(code),
               dir                ? "; it is a directory"
               : missing && bare ? "; nor is it an embedded machine ('k5x --help' lists them)"
                                 : "");
  return false;
}

bool parse_double(const char* text, double* out) {
  if (text == nullptr || *text == '\0') return false;
  errno = 0;
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  if (end == text || *end != '\0' || errno == ERANGE || !std::isfinite(v)) return false;
  *out = v;
  return true;
}

bool parse_int(const char* text, int* out) {
  if (text == nullptr || *text == '\0') return false;
  errno = 0;
  char* end = nullptr;
  const long v = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno == ERANGE || v < -2147483647L || v > 2147483647L)
    return false;
  *out = static_cast<int>(v);
  return true;
}

double clean(double v) { return v > -5e-7 && v < 5e-7 ? 0.0 : v; }

bool wants_help(int argc, char** argv) {
  for (int i = 0; i < argc; ++i)
    if (std::strcmp(argv[i], "--help") == 0 || std::strcmp(argv[i], "-h") == 0) return true;
  return false;
}

bool take_numbers(const char* cmd, int argc, char** argv, int* i, int n, double* out) {
  const char* opt = argv[*i];
  for (int k = 0; k < n; ++k) {
    const int at = *i + 1 + k;
    if (at >= argc || !parse_double(argv[at], &out[k])) {
      if (n == 1)
        std::fprintf(stderr, "k5x %s: %s needs a number\n", cmd, opt);
      else
        std::fprintf(stderr, "k5x %s: %s needs %d numbers\n", cmd, opt, n);
      std::fprintf(stderr, "try 'k5x %s --help'\n", cmd);
      return false;
    }
  }
  *i += n;
  return true;
}

bool take_int(const char* cmd, int argc, char** argv, int* i, int* out) {
  const char* opt = argv[*i];
  if (*i + 1 >= argc || !parse_int(argv[*i + 1], out)) {
    std::fprintf(stderr, "k5x %s: %s needs an integer\ntry 'k5x %s --help'\n", cmd, opt, cmd);
    return false;
  }
  *i += 1;
  return true;
}

bool take_text(const char* cmd, int argc, char** argv, int* i, std::string* out) {
  const char* opt = argv[*i];
  if (*i + 1 >= argc) {
    std::fprintf(stderr, "k5x %s: %s needs a value\ntry 'k5x %s --help'\n", cmd, opt, cmd);
    return false;
  }
  *out = argv[*i + 1];
  *i += 1;
  return true;
}

int take_machine(const char* cmd, int argc, char** argv, int* i, std::string* machine_arg) {
  const char* a = argv[*i];
  std::string given;
  if (std::strcmp(a, "--machine") == 0) {
    if (!take_text(cmd, argc, argv, i, &given)) return 2;
    if (given.empty()) return usage_error(cmd, "empty machine name");
  } else if (a[0] == '-' && a[1] != '\0') {
    return usage_error(cmd, (std::string("unknown option ") + a).c_str());
  } else {
    given = a;
  }
  if (!machine_arg->empty()) return usage_error(cmd, "more than one machine given");
  *machine_arg = given;
  return 0;
}

int usage_error(const char* cmd, const char* message) {
  std::fprintf(stderr, "k5x %s: %s\ntry 'k5x %s --help'\n", cmd, message, cmd);
  return 2;
}

const char* axis_letter(int id) {
  static const char* const kLetters[] = {"X", "Y", "Z", "A", "B", "C"};
  return id >= 1 && id <= 6 ? kLetters[id - 1] : "?";
}

const char* id_name(int id) {
  static const char* const kNames[] = {"AXE_OUTIL", "AXE_PIECE", "AXE_BATI", "AXE_X", "AXE_Y",
                                       "AXE_Z",     "AXE_A",     "AXE_B",    "AXE_C"};
  return id >= -2 && id <= 6 ? kNames[id + 2] : "?";
}

const char* kind_text(int kind) {
  switch (kind) {
    case 0: return "frame";
    case -1: return "workpiece";
    case -2: return "tool";
    case -3: return "rotary";
    case -4: return "linear";
    default: return "unknown";
  }
}

std::string travel_code_text(int code) {
  if (code == 0) return "within travel";
  if (code == 9) return "several axes out of travel";
  const int k = code < 0 ? -code : code;
  if (k >= 1 && k <= 6)
    return std::string(axis_letter(k)) + (code > 0 ? " above" : " below") + " its travel";
  return "unknown code";
}

std::string solver_code_text(int code) {
  if (code == 0) return "solved within travel";
  if (code == 1) return "unreachable direction (or no machine, or zero direction)";
  return "solved, " + travel_code_text(code);
}

std::string solver3r_code_text(int code) {
  if (code == 1) return "in-travel solution";
  if (code == -1) return "no solution";
  return "only out-of-travel solutions, best: " + travel_code_text(code);
}

std::string travel_flags_text(const int flags[6]) {
  std::string s;
  for (int i = 0; i < 6; ++i) {
    if (flags[i] == 0) continue;
    s += axis_letter(i + 1);
    s += flags[i] > 0 ? '+' : '-';
  }
  return s;
}

bool machine_has_three_rotary(const k5x::State& st) {
  return k5x::axis_sense(st, 4) != 0 && k5x::axis_sense(st, 5) != 0 && k5x::axis_sense(st, 6) != 0;
}

bool machine_has_axis(const k5x::State& st, int id) { return k5x::axis_type(st, id) != -100; }

}  // namespace k5x_cli
