// The k5x program: loads a machine definition (or an embedded one) and answers from the command
// line what a post-processor asks the library.
#include <cstdio>
#include <cstring>

#include "cli/commands.h"
#include "cli/embedded_machines.h"

namespace {

void print_help(FILE* out) {
  std::fprintf(out,
               "usage: k5x COMMAND [ARGS]    (k5x --version: the version)\n"
               "\n"
               "commands:\n"
               "  info [MACHINE]       load a machine and print it\n"
               "  solve [MACHINE] --ijk I J K [--prev A B C] [--mode 0|1|2] [--all] [--trace]\n"
               "                       rotary angles for a tool direction\n"
               "  xyz [MACHINE] --point X Y Z --abc A B C\n"
               "                       machine axes for a tool point\n"
               "  move [MACHINE] --from X Y Z A B C --to X Y Z A B C [--steps N]\n"
               "                       a move subdivided within the tolerance\n"
               "  checksum MACHINE...  one line of checksums per machine\n"
               "  post [--machine MACHINE] [TOOLPATH] [options]\n"
               "                       post-process a toolpath (APT / CLSF, or X Y Z I J K per\n"
               "                       line) into machine positions as CSV or a G-code\n"
               "                       program; 'k5x post' alone runs a demo\n"
               "\n"
               "MACHINE is a machine definition file or the name of an embedded machine;\n"
               "without one the default embedded machine is used. Every command also takes\n"
               "it as --machine MACHINE. Embedded machines:\n");
  int count = 0;
  const k5x_cli::EmbeddedMachine* machines = k5x_cli::embedded_machines(&count);
  for (int i = 0; i < count; ++i)
    std::fprintf(out, "  %-14s %s\n", machines[i].name, machines[i].description);
  std::fprintf(out, "\n'k5x COMMAND --help' describes each command.\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    print_help(stderr);
    return 2;
  }
  const char* cmd = argv[1];
  if (std::strcmp(cmd, "--help") == 0 || std::strcmp(cmd, "-h") == 0 ||
      std::strcmp(cmd, "help") == 0) {
    print_help(stdout);
    return 0;
  }
  if (std::strcmp(cmd, "--version") == 0) {
    std::printf("k5x %s\n", K5X_VERSION);
    return 0;
  }
  struct Entry {
    const char* name;
    int (*run)(int, char**);
  };
  static const Entry kCommands[] = {
      {"info", k5x_cli::cmd_info},         {"solve", k5x_cli::cmd_solve},
      {"xyz", k5x_cli::cmd_xyz},           {"move", k5x_cli::cmd_move},
      {"checksum", k5x_cli::cmd_checksum}, {"post", k5x_cli::cmd_post},
  };
  for (const Entry& e : kCommands)
    if (std::strcmp(cmd, e.name) == 0) return e.run(argc - 2, argv + 2);
  std::fprintf(stderr, "k5x: unknown command '%s' (try k5x --help)\n", cmd);
  return 2;
}
