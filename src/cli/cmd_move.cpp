#include "cli/commands.h"

namespace k5x_cli {
int cmd_xyz(int, char**) { return 1; }
int cmd_move(int, char**) { return 1; }
}  // namespace k5x_cli
