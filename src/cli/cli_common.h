// Shared pieces of the k5x program: argument parsing helpers, load-code explanations and the
// texts of the library's result codes.
#ifndef K5X_CLI_CLI_COMMON_H
#define K5X_CLI_CLI_COMMON_H

#include <string>

#include "cpp/k5x.hpp"
#include "cpp/machine_impl.h"
#include "machine/machine_model.h"

namespace k5x_cli {

// Loads the machine named by machine_arg (embedded name, file, or the default when empty) into
// machine; on failure prints "FILE:LINE: code N (explanation)" for a line that stopped the load,
// else "k5x: cannot load <label>: code N (explanation)", on stderr and returns false.
bool load_or_report(const std::string& machine_arg, k5x::Machine* machine);

// Strict number parsing: the whole text must be one finite number.
bool parse_double(const char* text, double* out);
bool parse_int(const char* text, int* out);

// v, or 0 when it would print as -0.000000 with six decimals.
double clean(double v);

// True when argv holds --help or -h anywhere.
bool wants_help(int argc, char** argv);

// Reads the n numbers that follow the option at argv[*i] into out and advances *i past them.
// Values may start with '-' (they are never taken for options). On error prints
// "k5x CMD: OPTION needs N numbers" on stderr and returns false.
bool take_numbers(const char* cmd, int argc, char** argv, int* i, int n, double* out);
// The same for one integer.
bool take_int(const char* cmd, int argc, char** argv, int* i, int* out);
// The same for one text value.
bool take_text(const char* cmd, int argc, char** argv, int* i, std::string* out);

// The machine, given as a word or, as k5x post takes it, as --machine MACHINE: 0 taken, else 2
// with the error printed (any other option is an unknown one).
int take_machine(const char* cmd, int argc, char** argv, int* i, std::string* machine_arg);

// Prints "k5x CMD: message" and "try 'k5x CMD --help'" on stderr; returns exit status 2.
int usage_error(const char* cmd, const char* message);

// "X" .. "C" for identifiers 1..6, "?" otherwise.
const char* axis_letter(int id);
// "AXE_OUTIL", "AXE_PIECE", "AXE_BATI", "AXE_X" .. "AXE_C"; "?" otherwise.
const char* id_name(int id);
// "frame", "workpiece", "tool", "rotary", "linear" for the record kinds.
const char* kind_text(int kind);
// Travel code (0, +-1..+-6, 9) as words: "within travel", "B above its travel", ...
std::string travel_code_text(int code);
// Result of k5x_ijk2abc as words.
std::string solver_code_text(int code);
// Result of k5x_ex_getabc_3r as words.
std::string solver3r_code_text(int code);
// Compact travel flags for a status word: "X+B-" from six flags (empty when all are 0).
std::string travel_flags_text(const int flags[6]);

// True when the machine has the three rotary axes A, B and C (so that the three-rotary solver
// applies).
bool machine_has_three_rotary(const k5x::State& st);
// True when the machine has an axis record for identifier id.
bool machine_has_axis(const k5x::State& st, int id);
// The state inside a machine, for the library functions the C++ interface does not name.
inline k5x::State& state_of(k5x::Machine& machine) { return machine.impl().st; }

}  // namespace k5x_cli

#endif  // K5X_CLI_CLI_COMMON_H
