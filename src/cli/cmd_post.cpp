#include "cli/commands.h"

namespace k5x_cli {
int cmd_post(int, char**) { return 1; }
}  // namespace k5x_cli
