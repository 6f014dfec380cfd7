// k5x checksum: one line of checksums per machine, so that definitions can be compared.
#include <cstdint>
#include <cstdio>
#include <string>

#include "cli/cli_common.h"
#include "cli/commands.h"
#include "cli/embedded_machines.h"
#include "k5x.h"

namespace k5x_cli {

namespace {

const char kChecksumHelp[] =
    "usage: k5x checksum MACHINE...\n"
    "\n"
    "Loads each MACHINE (a machine definition file or the name of an embedded machine) in\n"
    "turn and prints one line per machine: the checksums of modes 1, 2 and 3 in hexadecimal,\n"
    "then the machine as given. Modes 1 and 2 cover the machine as placed; mode 3 covers the\n"
    "workpiece as loaded. Two definitions describe the same kinematics (and the same name\n"
    "and solver mode) when their lines carry the same numbers.\n"
    "\n"
    "A machine that cannot be loaded is reported on stderr and skipped.\n"
    "\n"
    "Exit status: 0 every machine loaded, 1 some could not be loaded, 2 bad arguments.\n";

}  // namespace

int cmd_checksum(int argc, char** argv) {
  if (wants_help(argc, argv)) {
    std::fputs(kChecksumHelp, stdout);
    return 0;
  }
  if (argc < 1) return usage_error("checksum", "give at least one machine");
  int status = 0;
  for (int i = 0; i < argc; ++i) {
    // Each machine as a word or after --machine, as the other commands take one.
    std::string name;
    if (take_machine("checksum", argc, argv, &i, &name) != 0) return 2;
    k5x::Machine machine;
    if (!load_or_report(name, &machine)) {
      status = 1;
      continue;
    }
    uint32_t c[3] = {0, 0, 0};
    for (int mode = 1; mode <= 3; ++mode) c[mode - 1] = machine.checksum(mode).value;
    std::printf("%08x %08x %08x  %s\n", static_cast<unsigned>(c[0]), static_cast<unsigned>(c[1]),
                static_cast<unsigned>(c[2]), name.c_str());
  }
  return status;
}

}  // namespace k5x_cli
