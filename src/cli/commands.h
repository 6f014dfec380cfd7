// Subcommands of the k5x program. Each takes the arguments after its name and returns the
// process exit status.
#ifndef K5X_CLI_COMMANDS_H
#define K5X_CLI_COMMANDS_H

namespace k5x_cli {

int cmd_info(int argc, char** argv);
int cmd_solve(int argc, char** argv);
int cmd_xyz(int argc, char** argv);
int cmd_move(int argc, char** argv);
int cmd_checksum(int argc, char** argv);
int cmd_post(int argc, char** argv);

}  // namespace k5x_cli

#endif  // K5X_CLI_COMMANDS_H
